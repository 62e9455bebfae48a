#include <gmock/gmock.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <ostream>
#include <thread>
#include <vector>

#include "common/shared/wire_json.h"
#include "tests/common/test_client.h"
#include "tests/simulator/board_process.h"
#include "tests/simulator/json_text.h"
#include "tests/simulator/listener.h"
#include "tests/simulator/raw_connection.h"

namespace {

using zel::test::ChildProcess;
using zel::test::kReady;
using zel::test::kSlowdown;
using zel::test::RawConnection;
using zel::test::startBoard;
using zel::test::TestClient;
namespace zmtp = zel::test::zmtp;

constexpr std::uint16_t kRequests = 5556;
constexpr std::uint16_t kNotifications = 5575;

constexpr unsigned int kConnections = 50;
constexpr long kMostGrowthKiB = 128L * 1024;
constexpr std::chrono::milliseconds kUsualAnswer{250 * kSlowdown};
constexpr std::chrono::milliseconds kLongestAnswer{1000 * kSlowdown};
constexpr std::chrono::minutes kPatience{1};  // the flood takes the processors, too
constexpr std::chrono::milliseconds kLongestEnd{1000 * kSlowdown};

std::string longFrame(char flags, const std::string& bytes) {
  return zmtp::longFrameHeader(flags, bytes.size()) + bytes;
}

std::string request(const std::string& id, const std::string& body) {
  return zmtp::frame(zmtp::kMore, "") + zmtp::frame(zmtp::kMore, id) + longFrame(0, body);
}

std::string textOfOneMebibyte() { return "{\"x\":\"" + std::string(zel::kMaxFrameBytes - 8, 'x') + "\"}"; }

/// As much work for a JSON reader as a body can be.
std::string manyMembers() {
  std::string body = "{";
  for (int number = 0; number < 60000; ++number) body += "\"" + std::to_string(1000000 + number) + "\":1,";
  body.back() = '}';
  return body;
}

std::string subscriptions(unsigned int connection, unsigned int turn) {
  constexpr unsigned int kCount = 1000;
  std::string frames;
  for (unsigned int number = 0; number < kCount; ++number) {
    const std::size_t hash =
        std::hash<std::string>()(std::to_string(connection) + "/" + std::to_string(turn * kCount + number));
    frames += zmtp::frame(0, "\1" + std::string(reinterpret_cast<const char*>(&hash), sizeof hash));
  }
  return frames;
}

struct FloodRow {
  const char* name;
  std::uint16_t port;
  /// The bytes that a connection sends in its turns, behind its handshake.
  std::string (*bytes)(unsigned int connection, unsigned int turn);
};
void PrintTo(const FloodRow& row, std::ostream* out) { *out << row.name; }

/// Hostile clients: each sends over its connection for as long as it can, then over another one, until this object is
/// destroyed. None fetches an answer.
class Flood {
 public:
  explicit Flood(const FloodRow& row) {
    for (unsigned int number = 0; number < kConnections; ++number) {
      threads_.emplace_back([this, row, number] {
        setpriority(PRIO_PROCESS, 0,
                    10);  // of this thread, so that the board gets a processor: the test is not about scheduling
        while (!stopping_) sendOverOneConnection(row, number);
      });
    }
  }
  ~Flood() {
    stopping_ = true;
    for (std::thread& thread : threads_) thread.join();
  }
  Flood(const Flood&) = delete;
  Flood& operator=(const Flood&) = delete;

 private:
  void sendOverOneConnection(const FloodRow& row, unsigned int number) {
    const RawConnection connection(row.port);
    const bool open =
        connection.connected() && zmtp::shakeHands(connection.stream(), row.port == kRequests ? "DEALER" : "SUB");
    if (!open) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    for (unsigned int turn = 0; open && !stopping_ && connection.stream().write(row.bytes(number, turn)); ++turn) {
    }
  }

  std::atomic<bool> stopping_{false};
  std::vector<std::thread> threads_;
};

class FloodedBoard : public testing::TestWithParam<FloodRow> {};

TEST_P(FloodedBoard, BoundsItsMemoryServesOthersAndEndsAtOnce) {
  if (zel::test::kSanitized) GTEST_SKIP() << "the board cannot see what a sanitizer's allocator has in use";
  ChildProcess board = startBoard({});
  ASSERT_TRUE(board.waitForOutput(kReady));
  zmq::context_t context;
  TestClient client(context, kPatience);
  zel::test::Listener listener(context, {"1000"});
  ASSERT_EQ(client.send(3).code, 0);
  const long before = zel::test::peakKiB(board.pid());

  std::vector<std::chrono::microseconds> answers;
  {
    const Flood flood(GetParam());
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    while (std::chrono::steady_clock::now() < end) {
      const auto value = static_cast<unsigned int>(answers.size() + 1);
      Json::Value body;
      body["offset-from-master-threshold"] = value;
      const zel::test::Stopwatch stopwatch(board.pid());
      EXPECT_EQ(client.send(2, body).code, 0);
      answers.push_back(stopwatch.elapsed().own);
      EXPECT_TRUE(listener.waitFor([&](const std::string&, const Json::Value& payload) {
        return zel::test::at(payload, "cfg/offset-from-master-threshold").asUInt() == value;
      }));
    }
    const long after = zel::test::peakKiB(board.pid());
    zel::test::expectFlatMemory(before, after, kMostGrowthKiB);
    std::sort(answers.begin(), answers.end());
    const std::chrono::microseconds usual = answers[answers.size() / 2];
    EXPECT_LE(usual, kUsualAnswer);
    EXPECT_LE(answers.back(), kLongestAnswer);
    std::printf("%zu answers, usually after %lld us, at most %lld us; board %ld KiB, then at most %ld KiB\n",
                answers.size(), static_cast<long long>(usual.count()), static_cast<long long>(answers.back().count()),
                before, after);
    board.signal(SIGTERM);
    const zel::test::Elapsed took = board.timeToEnd();
    EXPECT_EQ(board.wait(), 0);
    EXPECT_LE(took.own, kLongestEnd);
    std::printf("ended after %lld ms\n", static_cast<long long>(took.wall.count() / 1000));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Program, FloodedBoard,
    testing::Values(
        FloodRow{"LargeRequests", kRequests,
                 [](unsigned int, unsigned int) {
                   static const std::string kBytes = request("2", textOfOneMebibyte());
                   return kBytes;
                 }},
        FloodRow{"CostlyRequests", kRequests,
                 [](unsigned int, unsigned int) {
                   static const std::string kBytes = request("2", manyMembers());
                   return kBytes;
                 }},
        FloodRow{"UnfetchedAnswers", kRequests,
                 [](unsigned int, unsigned int) {
                   return zmtp::frame(zmtp::kMore, "") + zmtp::frame(zmtp::kMore, "0") + zmtp::frame(0, "");
                 }},
        FloodRow{"EndlessRequests", kRequests,
                 [](unsigned int, unsigned int) { return longFrame(zmtp::kMore, std::string(1000000, 'x')); }},
        FloodRow{"EndlessSmallFrames", kRequests,
                 [](unsigned int, unsigned int) {
                   std::string bytes;
                   for (int count = 0; count < 10000; ++count) bytes += zmtp::frame(zmtp::kMore, "x");
                   return bytes;
                 }},
        FloodRow{"Subscriptions", kNotifications, subscriptions},
        FloodRow{"EndlessSubscription", kNotifications,
                 [](unsigned int, unsigned int) { return longFrame(zmtp::kMore, "\1" + std::string(1000000, 'x')); }},
        FloodRow{"LongTopics", kNotifications,
                 [](unsigned int, unsigned int turn) {
                   return longFrame(0, "\1" + std::string(1000000, static_cast<char>('a' + turn % 26)));
                 }}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
