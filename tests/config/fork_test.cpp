// A process that is forked while the cache takes a notification: the child has the records before it or those behind
// it. Another thread may fork at any instruction; this test forks wherever memory is given back meanwhile.

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <set>

#include "config/system_default_cfg.h"
#include "tests/support/fake_board.h"
#include "tests/support/wait_until.h"

namespace {

thread_local long untilFork = 0;  ///< so many calls of `operator delete` of this thread, then one forks; 0: none does
pid_t child = -1;

SystemDefaultCfg& cache() { return SystemDefaultCfg::getInstance(); }

/// A notification of the test holds one of them in each of its values.
constexpr char kMarks[] = {'0', '1', '2'};

/// Whether every part of the cache is of the same notification.
bool isWhole() {
  std::string path;
  cache().getCfgFilePath(&path);
  std::string name;
  cache().getAdvertisementBoardName(&name);
  std::multiset<char> marks;  // of the interfaces
  for (const char mark : kMarks) {
    for (unsigned int i = 0; i < 20; ++i) {
      const IpAddress address((10U << 24U) + (static_cast<unsigned int>(mark - '0') << 16U) + i);
      if (cache().isLocalBoardIpAddr(address)) marks.insert(mark);
    }
  }
  std::set<std::string> networks;
  for (const WhiteListEntry& entry : cache().getMulticastWhiteList()) networks.insert(entry.getIpStr().substr(0, 6));
  return name.compare(0, path.size(), path) == 0 && marks.size() == 20 && marks.count(*marks.begin()) == 20 &&
         cache().getMulticastWhiteList().size() == 20 && networks.size() == 1;
}

void forkIfDue() {
  if (untilFork == 0 || --untilFork > 0) return;
  child = fork();
  if (child == 0) _exit(isWhole() ? 0 : 1);
}

}  // namespace

void* operator new(std::size_t size) {
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void operator delete(void* memory) noexcept {
  std::free(memory);
  forkIfDue();
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
  forkIfDue();
}

namespace {

using zel::test::FakeBoard;

struct Notification {
  std::string topic;
  std::string payload;
};

std::vector<Notification> notifications(char mark) {
  const std::string text = std::string(40, 'x') + mark;
  std::string interfaces;
  std::string entries;
  for (int i = 0; i < 20; ++i) {
    const std::string comma = i == 0 ? "" : ",";
    const std::string number = std::to_string(i);
    interfaces += comma + R"({"name": "eth)" + number + R"(", "ip": "10.)" + mark + ".0." + number + R"(", "mac": ")" +
                  text + R"("})";
    entries += comma + R"({"ip": "239.)" + mark + ".1." + number + R"("})";
  }
  return {
      {"1000", R"({"cfg": {"cfg-file-path": ")" + text + R"("}, "advert": {"board-name-prefix": ")" + text + R"("}})"},
      {"1001", R"({"eth-basics": [)" + interfaces + "]}"},
      {"1004", R"({"white-list": [)" + entries + "]}"}};
}

TEST(SystemDefaultCfg, IsWholeInAChildThatIsForkedWhileItChanges) {
  if (zel::test::kSanitized) GTEST_SKIP() << "a sanitizer has an allocator of its own";
  FakeBoard board;
  PollFds fds;
  ASSERT_EQ(cache().initSubscribers(fds), 0);
  ASSERT_TRUE(board.publisher.waitForSubscription("1004"));
  const auto take = [&](const Notification& notification, long forkAt) {
    board.publisher.publish(notification.topic, notification.payload);
    ASSERT_GT(fds.poll(zel::test::kSoon.count()), 0);
    child = -1;
    untilFork = forkAt;
    cache().processEvent(fds[0]);
    untilFork = 0;
  };
  for (const Notification& each : notifications(kMarks[0])) take(each, 0);
  ASSERT_TRUE(isWhole());
  for (std::size_t topic = 0; topic < notifications(kMarks[0]).size(); ++topic) {
    long place = 0;
    do {
      ++place;
      take(notifications(kMarks[1 + place % 2])[topic], place);
      int status = 0;
      if (child > 0) waitpid(child, &status, 0);
      EXPECT_EQ(status, 0) << "topic " << topic << ", place " << place;
    } while (child > 0 && !HasFailure());
    EXPECT_GT(place, 20);
  }
}

}  // namespace
