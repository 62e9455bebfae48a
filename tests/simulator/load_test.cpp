#include <gmock/gmock.h>

#include <atomic>
#include <cstdio>
#include <set>
#include <thread>
#include <vector>

#include "simulator/refusal.h"
#include "tests/common/test_client.h"
#include "tests/simulator/board_process.h"
#include "tests/simulator/json_text.h"

namespace {

using zel::test::at;
using zel::test::ChildProcess;
using zel::test::kReady;
using zel::test::startBoard;
using zel::test::TestClient;

constexpr unsigned int kClients = 64;

struct Counts {
  std::atomic<unsigned int> accepted{0};
  std::atomic<unsigned int> lost{0};
  std::atomic<unsigned int> crossed{0};
};

/// Each change is a value of its own; every second request is one that is refused with a text that names its value, so
/// an answer to somebody else's request would show.
void change(zmq::context_t& context, unsigned int number, unsigned int changes, Counts& counts) {
  TestClient client(context, zel::test::kSoon);
  for (unsigned int count = 1; count <= changes; ++count) {
    const unsigned int own = 100000 + number * changes + count;
    Json::Value body;
    body["offset-from-master-threshold"] = own;
    const int code = client.send(2, body).code;
    if (code == 0) ++counts.accepted;
    if (code != 0) ++counts.lost;

    Json::Value tooLarge;
    tooLarge["rtsp-tcp-port"] = own;
    const auto refused = client.send(2, tooLarge);
    if (refused.code != zel::sim::refusal::kOutOfRange) ++counts.lost;
    if (refused.reply["error"].asString().find("is " + std::to_string(own) + ",") == std::string::npos) {
      ++counts.crossed;
    }
  }
}

void changeFromAllSides(unsigned int changes, Counts& counts) {
  zmq::context_t context;
  std::vector<std::thread> clients;
  for (unsigned int number = 0; number < kClients; ++number) {
    clients.emplace_back([&, number] { change(context, number, changes, counts); });
  }
  for (std::thread& client : clients) client.join();
}

TEST(LoadedBoard, LosesAndCrossesNoAnswer) {
  const auto changes = static_cast<unsigned int>(zel::test::lengthFromEnvironment("ZEL_LOAD_CHANGES", 30));
  ChildProcess board = startBoard({});
  ASSERT_TRUE(board.waitForOutput(kReady));
  Counts first;
  changeFromAllSides(changes, first);  // what it needs for so many clients at once, it has now
  const long before = zel::test::residentKiB(board.pid());

  Counts counts;
  const auto took = zel::test::timeOf([&] { changeFromAllSides(changes, counts); });
  const long after = zel::test::residentKiB(board.pid());

  EXPECT_EQ(counts.accepted, kClients * changes);
  EXPECT_EQ(counts.lost, 0U);
  EXPECT_EQ(counts.crossed, 0U);
  zmq::context_t context;
  TestClient client(context, zel::test::kSoon);
  const unsigned int last = at(client.send(0).reply, "stored/cfg/offset-from-master-threshold").asUInt();
  EXPECT_EQ((last - 100000) % changes, 0U) << last << " is no client's last value";
  zel::test::expectFlatMemory(before, after, 4L * 1024);
  std::printf("%u clients, %u changes each: %u accepted, %u lost, %u crossed in %lld ms; board %ld KiB, then %ld KiB\n",
              kClients, changes, counts.accepted.load(), counts.lost.load(), counts.crossed.load(),
              static_cast<long long>(took.wall.count() / 1000), before, after);
}

}  // namespace
