// The examples, as a user runs them.

#include <gmock/gmock.h>

#include <csignal>
#include <optional>

#include "tests/config/fake_board.h"
#include "tests/support/child_process.h"

namespace {

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

  std::optional<FakeBoard> board{std::in_place};
};

TEST_P(Example, FollowsTheConfigurationUntilItIsToldToEnd) {
  ChildProcess example = ChildProcess::run({GetParam().program});
  EXPECT_TRUE(example.waitForOutput(shown(5000)));
  ASSERT_TRUE(board->publisher.waitForSubscription("1004"));
  publish(5001);
  EXPECT_TRUE(example.waitForOutput(shown(5001)));
  board->publisher.publish("1000", R"({"rtsp": {"tcp-port": "text"}})");
  for (int port = 5002; port < 5010; ++port) publish(port);
  EXPECT_TRUE(example.waitForOutput(shown(5009))) << "it goes on behind a burst, and behind a wrong value";
  EXPECT_THAT(example.errors(), testing::HasSubstr("a notification was dropped"));
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

INSTANTIATE_TEST_SUITE_P(Loops, Example, testing::ValuesIn(kLoops),
                         [](const auto& loop) { return std::string(loop.param.name); });

}  // namespace
