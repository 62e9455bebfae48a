// The examples, as a user runs them.

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/examples/idle.h"
#include "tests/simulator/board_process.h"
#include "tests/simulator/temporary_folder.h"
#include "tests/support/child_process.h"
#include "tests/support/fake_board.h"

namespace {

using namespace std::chrono_literals;
using zel::test::ChildProcess;
using zel::test::FakeBoard;

struct Loop {
  const char* name;
  const char* program;
};
void PrintTo(const Loop& loop, std::ostream* out) { *out << loop.name; }
constexpr Loop kLoops[] = {
    {"Poll", ZEL_EXAMPLE_follow_cache},
    {"Epoll", ZEL_EXAMPLE_follow_cache_epoll},
#ifdef ZEL_EXAMPLE_follow_cache_asio
    {"Asio", ZEL_EXAMPLE_follow_cache_asio},
#endif
#ifdef ZEL_EXAMPLE_follow_cache_sd_event
    {"SdEvent", ZEL_EXAMPLE_follow_cache_sd_event},
#endif
};

class Example : public testing::TestWithParam<Loop> {
 protected:
  Example() { board->set(FakeBoard::kStored, stored(5000)); }
  static std::string stored(int port) { return R"({"rtsp": {"tcp-port": )" + std::to_string(port) + "}}"; }
  static std::string shown(int port) { return "RTSP port " + std::to_string(port); }
  void publish(int port) {
    board->set(FakeBoard::kStored, stored(port));
    board->publisher.publish("1000", stored(port));
  }

  /// The whitelist is the last that a fetch asks for.
  bool waitForFetches(std::ptrdiff_t count) const {
    return zel::test::waitUntil([&] {
      const std::vector<std::string> asked = board->asked();
      return std::count(asked.begin(), asked.end(), FakeBoard::kWhitelist) >= count;
    });
  }

  std::optional<FakeBoard> board{std::in_place};
};

TEST_P(Example, FollowsTheConfigurationUntilItIsToldToEnd) {
  ChildProcess example = ChildProcess::run({GetParam().program});
  EXPECT_TRUE(example.waitForOutput(shown(5000)));
  ASSERT_TRUE(board->publisher.waitForSubscription("1004"));
  ASSERT_TRUE(waitForFetches(2)) << "what comes during a fetch is dropped without a word if it is wrong";
  publish(5001);
  EXPECT_TRUE(example.waitForOutput(shown(5001)));
  board->publisher.publish("1000", R"({"rtsp": {"tcp-port": "text"}})");
  for (int port = 5002; port < 5010; ++port) publish(port);
  EXPECT_TRUE(example.waitForOutput(shown(5009))) << "it goes on behind a burst, and behind a wrong value";
  EXPECT_THAT(example.errors(), testing::HasSubstr("of a wrong type"));
  example.signal(SIGTERM);
  EXPECT_EQ(example.wait(), 0) << example.errors();
}

TEST_P(Example, FollowsADaemonThatRestarts) {
  ChildProcess example = ChildProcess::run({GetParam().program});
  ASSERT_TRUE(example.waitForOutput(shown(5000)));
  ASSERT_TRUE(board->publisher.waitForSubscription("1004"));
  board.emplace();
  ASSERT_TRUE(board->publisher.waitForSubscription("1004"));
  publish(5001);
  EXPECT_TRUE(example.waitForOutput(shown(5001)));
  board->publisher.publish("1000", '"' + std::string(zel::kMaxFrameBytes, 'x') + '"');
  EXPECT_TRUE(board->publisher.waitForUnsubscription("1000"));
  ASSERT_TRUE(board->publisher.waitForSubscription("1004"));
  publish(5002);
  EXPECT_TRUE(example.waitForOutput(shown(5002)));
}

/// The examples beside sysmgr-sim, which a user starts, kills and freezes.
class ExampleBesideTheSimulator : public testing::TestWithParam<Loop> {
 protected:
  /// Starts a board whose RTSP port is `port`.
  ChildProcess startBoardWith(int port, std::vector<std::string> arguments = {}) {
    const std::string state = folder_.file("state.json");
    std::ofstream(state) << R"({"stored": {"rtsp": {"tcp-port": )" << port << "}}}";
    arguments.insert(arguments.end(), {"--state", state});
    ChildProcess board = zel::test::startBoard(arguments);
    EXPECT_TRUE(board.waitForOutput(zel::test::kReady)) << board.errors();
    return board;
  }
  static ChildProcess startExample() { return ChildProcess::run({GetParam().program}); }
  static bool waitForPort(ChildProcess& example, int port) {
    return example.waitForOutput("RTSP port " + std::to_string(port), 2 * zel::test::kSoon);
  }
  static bool waitForErrors(ChildProcess& example, const std::string& text) {
    return zel::test::waitUntil([&] { return example.errors().find(text) != std::string::npos; }, 3 * zel::test::kSoon);
  }
  /// Expects that SIGTERM ends the example at once.
  static void expectEnd(ChildProcess& example) {
    example.signal(SIGTERM);
    EXPECT_LT(example.timeToEnd().own, 300ms * zel::test::kSlowdown);
  }

 private:
  zel::test::TemporaryFolder folder_;
};

TEST_P(ExampleBesideTheSimulator, ShowsWhatChangedWhileTheDaemonWasAway) {
  std::optional<ChildProcess> board(startBoardWith(5000));
  ChildProcess example = startExample();
  ASSERT_TRUE(waitForPort(example, 5000));
  board->kill();
  board.emplace(startBoardWith(5001));
  EXPECT_TRUE(waitForPort(example, 5001)) << "no notification tells of it";
}

TEST_P(ExampleBesideTheSimulator, SleepsWhileNothingChanges) {
  ChildProcess board = startBoardWith(5000);
  ChildProcess example = startExample();
  ASSERT_TRUE(waitForPort(example, 5000));
  zel::test::expectIdle(example);
  board.freeze();
  zel::test::expectIdle(example);
  board.kill();
  zel::test::expectIdle(example);
}

TEST_P(ExampleBesideTheSimulator, ShowsADaemonThatComesLater) {
  ChildProcess example = startExample();
  ASSERT_TRUE(waitForErrors(example, "Error Code -102"));
  EXPECT_EQ(example.output(), "");
  const ChildProcess board = startBoardWith(5000);
  EXPECT_TRUE(waitForPort(example, 5000)) << example.errors();
}

TEST_P(ExampleBesideTheSimulator, EndsAtOnceWhileItWaitsForItsFirstDaemon) {
  ChildProcess example = startExample();
  std::this_thread::sleep_for(500ms);  // it waits up to 5 s and shows nothing meanwhile
  expectEnd(example);
}

TEST_P(ExampleBesideTheSimulator, EndsAtOnceThatHasFoundNoDaemon) {
  ChildProcess example = startExample();
  ASSERT_TRUE(waitForErrors(example, "Error Code -102"));
  std::this_thread::sleep_for(1500ms);  // into the next attempt, or just behind it
  expectEnd(example);
}

TEST_P(ExampleBesideTheSimulator, GoesOnAfterItWasStopped) {
  std::optional<ChildProcess> board(startBoardWith(5000));
  ChildProcess example = startExample();
  ASSERT_TRUE(waitForPort(example, 5000));
  example.freeze();
  board->kill();
  board.emplace(startBoardWith(5001));
  example.thaw();
  EXPECT_TRUE(waitForPort(example, 5001));
}

TEST_P(ExampleBesideTheSimulator, EndsAtOnceWhileTheDaemonIsAway) {
  ChildProcess board = startBoardWith(5000);
  ChildProcess example = startExample();
  ASSERT_TRUE(waitForPort(example, 5000));
  board.kill();
  ASSERT_TRUE(waitForErrors(example, "no daemon took it"));
  expectEnd(example);
  EXPECT_EQ(example.wait(), 0);
}

TEST_P(ExampleBesideTheSimulator, EndsAtOnceWhileTheDaemonIsFrozen) {
  const ChildProcess board = startBoardWith(5000);
  ChildProcess example = startExample();
  ASSERT_TRUE(waitForPort(example, 5000));
  board.freeze();
  ASSERT_TRUE(waitForErrors(example, "no answer came"));
  expectEnd(example);
  EXPECT_EQ(example.wait(), 0);
}

TEST_P(ExampleBesideTheSimulator, SurvivesAWrongTypeInTheFirstDocuments) {
  const ChildProcess board =
      startBoardWith(5000, {"--fault-rule", "do=wrong-type command=0 member=stored/rtsp/tcp-port times=3"});
  ChildProcess example = startExample();
  EXPECT_TRUE(waitForPort(example, 5000)) << example.errors();
  EXPECT_THAT(example.errors(), testing::HasSubstr("of a wrong type"));
}

INSTANTIATE_TEST_SUITE_P(Loops, ExampleBesideTheSimulator, testing::ValuesIn(kLoops),
                         [](const auto& loop) { return std::string(loop.param.name); });
INSTANTIATE_TEST_SUITE_P(Loops, Example, testing::ValuesIn(kLoops),
                         [](const auto& loop) { return std::string(loop.param.name); });

}  // namespace
