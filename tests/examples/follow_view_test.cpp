// The program that follows a board with a view, as a user runs it.

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <optional>
#include <string>

#include "tests/examples/idle.h"
#include "tests/simulator/board_process.h"
#include "tests/simulator/temporary_folder.h"
#include "tests/support/child_process.h"

namespace {

using zel::test::ChildProcess;

class FollowView : public testing::Test {
 protected:
  ChildProcess startBoardWith(int port) {
    const std::string state = folder_.file("state.json");
    std::ofstream(state) << R"({"stored": {"rtsp": {"tcp-port": )" << port << "}}}";
    return zel::test::startBoard({"--state", state});
  }

 private:
  zel::test::TemporaryFolder folder_;
};

TEST_F(FollowView, SaysHowGoodItIsOverARestart) {
  std::optional<ChildProcess> board(startBoardWith(5000));
  ChildProcess example = ChildProcess::run({ZEL_EXAMPLE_follow_view});
  EXPECT_TRUE(example.waitForOutput("the view is live, the RTSP port is 5000\n"));
  zel::test::expectIdle(example);
  board->kill();
  EXPECT_TRUE(example.waitForOutput("the view is stale, the RTSP port is 5000\n"));
  board.emplace(startBoardWith(6000));
  EXPECT_TRUE(example.waitForOutput("the RTSP port was 5000 and is 6000\n"));
  EXPECT_TRUE(example.waitForOutput("the view is live, the RTSP port is 6000\n"));
  example.signal(SIGTERM);
  EXPECT_EQ(example.wait(), 0) << example.errors();
}

TEST_F(FollowView, SetsThePort) {
  const ChildProcess board = startBoardWith(5000);
  ChildProcess example = ChildProcess::run({ZEL_EXAMPLE_follow_view, "5004"});
  EXPECT_TRUE(example.waitForOutput("the port is set\n"));
  EXPECT_TRUE(example.waitForOutput("5004"));
}

TEST_F(FollowView, TellsARefusal) {
  const ChildProcess board = startBoardWith(5000);
  ChildProcess example = ChildProcess::run({ZEL_EXAMPLE_follow_view, "70000"});
  EXPECT_TRUE(example.waitForOutput("70000"));
}

}  // namespace
