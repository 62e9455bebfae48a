// Races and times that only many rounds show. A few rounds run by default; by hand, with more:
//   ZEL_CACHE_ROUNDS=10000 (gap), ZEL_CACHE_RESTARTS=200, ZEL_CACHE_EXITS=1000
// Each test prints what it has measured.

#include <gmock/gmock.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <memory>
#include <random>
#include <vector>

#include "client/zmq_utils.h"
#include "config/system_default_cfg.h"
#include "tests/simulator/board_process.h"
#include "tests/support/child_process.h"
#include "tests/support/fake_board.h"
#include "tests/support/stopwatch.h"
#include "tests/support/wait_until.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using zel::test::ChildProcess;
using zel::test::Elapsed;
using zel::test::FakeBoard;
using zel::test::kExitOfSanitizer;
using zel::test::kReady;
using zel::test::kSlowdown;
using zel::test::kSoon;
using zel::test::lengthFromEnvironment;
using zel::test::startBoard;
using zel::test::Stopwatch;

/// What several processes share.
template <class Data>
Data& shared() {
  void* const memory = mmap(nullptr, sizeof(Data), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  return *new (memory) Data;
}

double milliseconds(std::chrono::microseconds time) { return std::chrono::duration<double, std::milli>(time).count(); }

void report(const char* what, std::vector<double> values) {
  std::sort(values.begin(), values.end());
  std::printf("%s: %zu, median %.1f ms, worst %.1f ms\n", what, values.size(), values.at(values.size() / 2),
              values.back());
}

struct Change {
  std::atomic<int> round{0};
  std::atomic<unsigned int> port{0};  ///< what this round's change has set; 0: it has not happened yet
};

/// Changes the port once a round, at a random instant.
int changeAtRandom(Change& change) {
  SysMgrClient client;
  client.init(ZmqUtils::getInstance().getContext());
  std::mt19937 random(1);
  std::uniform_int_distribution<int> wait(0, 12000);
  for (int round = 1;; ++round) {
    while (change.round < round) std::this_thread::sleep_for(50us);
    std::this_thread::sleep_for(std::chrono::microseconds(wait(random)));
    const unsigned int port = 1024 + static_cast<unsigned int>(round);
    if (client.setRtspTcpPort(port) != 0) return 1;
    change.port = port;
  }
}

/// Starts a cache that follows. @return 0 when it shows this round's change soon
int followOnce(Change& change) {
  ++change.round;
  SystemDefaultCfg& cache = SystemDefaultCfg::getInstance();
  PollFds fds;
  cache.initSubscribers(fds);
  cache.init();
  const auto showsIt = [&] {
    unsigned int port = 0;
    cache.getRtspTcpPort(&port);
    return change.port != 0 && port == change.port;
  };
  Clock::time_point end = Clock::time_point::max();
  while (!showsIt()) {
    if (end == Clock::time_point::max() && change.port != 0) end = Clock::now() + 1s;
    if (Clock::now() > end) return 1;
    fds.poll(1);
    while (cache.processEvent(fds[0]) != 0) continue;
  }
  return 0;
}

TEST(CacheEndurance, MissesNoChangeBetweenTheFetchAndTheFirstNotification) {
  const int rounds = lengthFromEnvironment("ZEL_CACHE_ROUNDS", 50);
  auto& change = shared<Change>();
  ChildProcess board = startBoard({});
  ASSERT_TRUE(board.waitForOutput(kReady));
  const ChildProcess changer = ChildProcess::call([&] { return changeAtRandom(change); });
  int stale = 0;
  for (int round = 0; round < rounds; ++round) {
    change.port = 0;
    ChildProcess cache = ChildProcess::call([&] { return followOnce(change); });
    const auto result = cache.wait();
    ASSERT_TRUE(result == 0 || result == 1) << cache.errors();
    stale += *result;
    while (change.port == 0) std::this_thread::sleep_for(50us);
  }
  std::printf("stale caches: %d of %d\n", stale, rounds);
  EXPECT_EQ(stale, 0);
}

TEST(CacheEndurance, ReceivesSoonAfterTheDaemonIsBack) {
  zmq::context_t context;
  class Receiver : public SysmgrSubscriber {
   public:
    int notifyDynamicInfoUpdate(SysParametersDynamic&) override { return ++received, 0; }
    int received = 0;
  } receiver;
  PollFds fds;
  ASSERT_EQ(receiver.init(context), 0);
  ASSERT_EQ(receiver.subscribeAll(), 0);
  ASSERT_EQ(receiver.getPollItems(fds), 0);

  std::mt19937 random(1);
  std::uniform_int_distribution<int> outage(0, 150);
  std::vector<double> times;
  const int restarts = lengthFromEnvironment("ZEL_CACHE_RESTARTS", 10);
  for (int restart = 0; restart < restarts; ++restart) {
    ChildProcess board = startBoard({"--live-interval", "1"});
    ASSERT_TRUE(board.waitForOutput(kReady));
    const Stopwatch sinceItIsBack(getpid());
    const Stopwatch ofTheBoard(board.pid());
    receiver.received = 0;
    while (receiver.received == 0 && sinceItIsBack.elapsed().wall < kSoon) {
      fds.poll(10);
      while (receiver.processEvent(fds[0]) != 0) continue;
    }
    const Elapsed boards = ofTheBoard.elapsed();
    times.push_back(milliseconds(sinceItIsBack.elapsed().own - (boards.wall - boards.own)));
    board.kill();
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(outage(random));
    while (Clock::now() < end) {
      fds.poll(5);
      while (receiver.processEvent(fds[0]) != 0) continue;
    }
  }
  report("daemon restarts, time to receive again", times);
  EXPECT_LE(*std::max_element(times.begin(), times.end()), 250.0 * kSlowdown);
}

/// An object in static storage of the application's, which uses the cache to its end.
struct User {
  User() { SystemDefaultCfg::getInstance(); }
  ~User() {
    SystemDefaultCfg& cache = SystemDefaultCfg::getInstance();
    unsigned int port = 0;
    if (cache.getRtspTcpPort(&port) != 0) std::_Exit(1);
    if (!fds.empty()) cache.processEvent(fds[0]);
  }
  PollFds fds;
};

/// The times in which processes end after `body`.
std::vector<double> endsAfter(const std::function<void()>& body) {
  std::vector<double> times;
  for (int i = lengthFromEnvironment("ZEL_CACHE_EXITS", 10); i > 0; --i) {
    ChildProcess process = ChildProcess::call([&] {
      body();
      std::puts("leaving");
      std::fflush(stdout);
      return 0;
    });
    EXPECT_TRUE(process.waitForOutput("leaving"));
    times.push_back(milliseconds(process.timeToEnd().own));
    EXPECT_EQ(process.wait(), 0) << process.errors();
  }
  return times;
}

class ExitOfTheProcess : public testing::TestWithParam<bool> {};

TEST_P(ExitOfTheProcess, TakesNoTime) {
  const bool withDaemon = GetParam();
  const std::vector<double> times = endsAfter([withDaemon] {
    auto board = std::make_unique<FakeBoard>();
    static User user;
    SystemDefaultCfg::getInstance().initSubscribers(user.fds);
    board->publisher.waitForSubscription("1004");
    if (withDaemon) {
      static_cast<void>(board.release());  // it serves to the end
    }
  });
  report(withDaemon ? "exits, with a daemon" : "exits, with the daemon gone", times);
  EXPECT_LE(*std::max_element(times.begin(), times.end()), 100.0 * kSlowdown + kExitOfSanitizer.count());
}

INSTANTIATE_TEST_SUITE_P(CacheEndurance, ExitOfTheProcess, testing::Bool(),
                         [](const auto& with) { return with.param ? "WithADaemon" : "WithTheDaemonGone"; });

TEST(CacheEndurance, SubscribersWithoutADaemonEndInNoTime) {
  const std::vector<double> times = endsAfter([] {
    static SysmgrSubscriber subscriber;
    subscriber.init(ZmqUtils::getInstance().getContext());
    subscriber.subscribeAll();
  });
  report("exits of a subscriber, without a daemon", times);
  EXPECT_LE(*std::max_element(times.begin(), times.end()), 100.0 * kSlowdown);
}

}  // namespace
