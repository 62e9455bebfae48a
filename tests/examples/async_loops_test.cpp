// The examples of the client that never waits, each in another event loop, beside a simulator that is killed, started
// again and frozen.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <optional>
#include <string>

#include "tests/examples/idle.h"
#include "tests/simulator/board_process.h"
#include "tests/simulator/temporary_folder.h"
#include "tests/support/child_process.h"

namespace {

using namespace std::chrono_literals;
using zel::test::ChildProcess;
using zel::test::kSoon;
using zel::test::startBoard;

struct Loop {
  const char* name;
  const char* program;  ///< empty: what it needs is not installed
};
void PrintTo(const Loop& loop, std::ostream* out) { *out << loop.name; }

#ifndef ZEL_EXAMPLE_async_asio
#define ZEL_EXAMPLE_async_asio ""
#endif
#ifndef ZEL_EXAMPLE_async_await
#define ZEL_EXAMPLE_async_await ""
#endif
#ifndef ZEL_EXAMPLE_async_glib
#define ZEL_EXAMPLE_async_glib ""
#endif
#ifndef ZEL_EXAMPLE_async_qt
#define ZEL_EXAMPLE_async_qt ""
#endif
#ifndef ZEL_EXAMPLE_async_sd_event
#define ZEL_EXAMPLE_async_sd_event ""
#endif
constexpr Loop kLoops[] = {
    {"Poll", ZEL_EXAMPLE_async_poll}, {"Epoll", ZEL_EXAMPLE_async_epoll}, {"SdEvent", ZEL_EXAMPLE_async_sd_event},
    {"Asio", ZEL_EXAMPLE_async_asio}, {"Await", ZEL_EXAMPLE_async_await}, {"Glib", ZEL_EXAMPLE_async_glib},
    {"Qt", ZEL_EXAMPLE_async_qt},
};

/// A person at the keyboard of an example.
class AsyncExample : public testing::TestWithParam<Loop> {
 protected:
  void SetUp() override {
    if (*GetParam().program == '\0')
      GTEST_SKIP() << "the event loop, or what it needs of the compiler, is not installed";
    const std::string keyboard = folder_.file("keyboard");
    ASSERT_EQ(mkfifo(keyboard.c_str(), 0600), 0);
    keyboard_ = open(keyboard.c_str(), O_RDWR | O_CLOEXEC);  // opened for both, it waits for no reader
    example.emplace(ChildProcess::run({"sh", "-c", "exec \"$0\" <\"$1\"", GetParam().program, keyboard}));
    type("ready\n");
    ASSERT_TRUE(waitForErrors("'ready' is not a TCP port\n", kSoon)) << example->errors();
  }
  void TearDown() override {
    if (keyboard_ >= 0) close(keyboard_);
  }

  void type(const std::string& text) const {
    EXPECT_EQ(write(keyboard_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  void endInput() {
    close(keyboard_);
    keyboard_ = -1;
  }
  bool waitForErrors(const std::string& text, std::chrono::milliseconds limit) {
    return zel::test::waitUntil([&] { return example->errors().find(text) != std::string::npos; }, limit);
  }
  int countOfErrors(const std::string& text) {
    int count = 0;
    const std::string errors = example->errors();
    for (std::size_t at = 0; (at = errors.find(text, at)) != std::string::npos; at += text.size()) ++count;
    return count;
  }
  /// Expects that the loop takes what is typed.
  void expectAttention() {
    type("meanwhile\n");
    EXPECT_TRUE(waitForErrors("'meanwhile' is not a TCP port\n", 1s * zel::test::kSlowdown));
  }
  /// Expects that the end of the input ends the program at once.
  void expectEnd() {
    endInput();
    EXPECT_LT(example->timeToEnd().own, 300ms * zel::test::kSlowdown);
    EXPECT_EQ(example->wait(), 0) << example->errors();
  }
  static ChildProcess startReadyBoard() {
    ChildProcess board = startBoard({});
    EXPECT_TRUE(board.waitForOutput(zel::test::kReady)) << board.errors();
    return board;
  }

  std::optional<ChildProcess> example;

 private:
  zel::test::TemporaryFolder folder_;
  int keyboard_ = -1;
};

TEST_P(AsyncExample, StoresWhatIsTypedInItsOrder) {
  const ChildProcess board = startReadyBoard();
  std::string typed;
  for (int port = 5000; port < 5100; ++port) typed += std::to_string(port) + '\n';
  type(typed);
  EXPECT_TRUE(example->waitForOutput("RTSP port 5099\n", 2 * kSoon));
  endInput();
  EXPECT_EQ(example->wait(), 0);
  EXPECT_EQ(example->errors(), "'ready' is not a TCP port\n");
}

TEST_P(AsyncExample, FollowsADaemonThatRestarts) {
  std::optional<ChildProcess> board;
  for (int port = 5000; port < 5003; ++port) {
    board.emplace(startReadyBoard());
    type(std::to_string(port) + '\n');
    EXPECT_TRUE(example->waitForOutput("RTSP port " + std::to_string(port) + '\n'));
    board->kill();
  }
  EXPECT_EQ(example->errors(), "'ready' is not a TCP port\n");
}

TEST_P(AsyncExample, StoresWhatWasTypedBeforeADaemonWasThere) {
  type("5001\n5002\n");
  expectAttention();
  const ChildProcess board = startReadyBoard();
  EXPECT_TRUE(example->waitForOutput("RTSP port 5002\n")) << example->errors();
  EXPECT_EQ(example->errors(), "'ready' is not a TCP port\n'meanwhile' is not a TCP port\n");
}

TEST_P(AsyncExample, SleepsWhileItHasNothingToDo) {
  ChildProcess board = startReadyBoard();
  type("5000\n");
  ASSERT_TRUE(example->waitForOutput("RTSP port 5000\n"));
  zel::test::expectIdle(*example);
  board.freeze();
  type("5001\n");
  zel::test::expectIdle(*example);
  board.kill();
  zel::test::expectIdle(*example);
}

TEST_P(AsyncExample, GoesOnAfterItWasStopped) {
  const ChildProcess board = startReadyBoard();
  example->freeze();
  type("5000\n");
  example->thaw();
  EXPECT_TRUE(example->waitForOutput("RTSP port 5000\n"));
}

TEST_P(AsyncExample, NeverWaitsForADaemonThatIsAway) {
  type("5000\n");
  expectAttention();
  expectEnd();
}

TEST_P(AsyncExample, NeverWaitsForADaemonThatIsFrozen) {
  const ChildProcess board = startReadyBoard();
  type("5000\n");
  ASSERT_TRUE(example->waitForOutput("RTSP port 5000\n"));
  board.freeze();
  type("5001\n");
  expectAttention();
  expectEnd();
}

/// More requests end at once than one call of `process` completes.
TEST_P(AsyncExample, ShowsEachOfAHundredRequestsThatWereNotSent) {
  std::string typed;
  for (int port = 5000; port < 5100; ++port) typed += std::to_string(port) + '\n';
  type(typed);
  EXPECT_TRUE(zel::test::waitUntil([&] { return countOfErrors("was not sent: no daemon took it") == 100; }, 3 * kSoon));
  const ChildProcess board = startReadyBoard();
  type("6000\n");
  EXPECT_TRUE(example->waitForOutput("RTSP port 6000\n"));
  EXPECT_EQ(example->output(), "RTSP port 6000\n") << "what was not sent never is";
}

INSTANTIATE_TEST_SUITE_P(Loops, AsyncExample, testing::ValuesIn(kLoops),
                         [](const auto& loop) { return std::string(loop.param.name); });

}  // namespace
