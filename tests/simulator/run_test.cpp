#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include "tests/simulator/board_process.h"
#include "tests/simulator/temporary_folder.h"

// sysmgr-sim run. The tests run in the machine's network, beside each other: the private networks keep them apart.

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using zel::test::ChildProcess;
using zel::test::kSoon;

using Words = std::vector<std::string>;

Words operator+(Words first, const Words& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

Words shell(const std::string& script) { return {"sh", "-c", script}; }

/// How `sysmgr-sim run` is started: by the user of the test, or, where that is root, by an ordinary one.
Words runs(const Words& command, const Words& options = {}) {
  return Words{ZEL_SYSMGR_SIM, "run"} + options + Words{"--"} + command;
}
const Words kAsNobody = {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};

struct Ended {
  std::optional<int> status;
  std::string output;
  std::string errors;
};
Ended toItsEnd(const Words& words) {
  ChildProcess process = ChildProcess::run(words);
  Ended ended;
  ended.status = process.wait();
  ended.output = process.output();
  ended.errors = process.errors();
  return ended;
}

/// A pipe whose write end every process inherits that is started while this object lives.
class Trace {
 public:
  Trace() { EXPECT_EQ(pipe(ends_.data()), 0); }
  ~Trace() {
    close(ends_[0]);
    letGo();
  }
  Trace(const Trace&) = delete;
  Trace& operator=(const Trace&) = delete;

  /// Waits until no process but this one holds the pipe. @return whether they are all gone
  bool isGone() {
    letGo();
    pollfd end{ends_[0], POLLIN, 0};
    return poll(&end, 1, static_cast<int>(kSoon.count())) == 1 && (end.revents & POLLHUP) != 0;
  }

 private:
  void letGo() {
    if (ends_[1] >= 0) close(ends_[1]);
    ends_[1] = -1;
  }
  std::array<int, 2> ends_{};
};

/// A terminal at which nobody sits: what a test types there has the effect that it has for a person.
class Terminal {
 public:
  Terminal() : keyboard_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    EXPECT_TRUE(keyboard_ >= 0 && grantpt(keyboard_) == 0 && unlockpt(keyboard_) == 0);
  }
  ~Terminal() { hangUp(); }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  /// The command with this as its controlling terminal and its standard input, in the foreground.
  Words inFrontOf(const Words& command) const {
    const Words attach = {"sh", "-c", "exec setsid --ctty \"$@\" <\"$0\"", ptsname(keyboard_)};
    return attach + command;
  }
  void type(const std::string& keys) const {
    EXPECT_EQ(write(keyboard_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }
  void hangUp() {
    if (keyboard_ >= 0) close(keyboard_);
    keyboard_ = -1;
  }

 private:
  int keyboard_;
};

/// The process that watches the command of `sysmgr-sim run`: its only child.
pid_t watcherOf(pid_t board) {
  std::ifstream children("/proc/" + std::to_string(board) + "/task/" + std::to_string(board) + "/children");
  pid_t child = 0;
  children >> child;
  return child;
}

/// Whether a child of another process has ended, and its parent has not been told yet.
bool hasEnded(pid_t process) {
  std::ifstream stat("/proc/" + std::to_string(process) + "/stat");
  std::string line;
  std::getline(stat, line);
  return line.find(") Z ") != std::string::npos;
}

/// Root tests both; an ordinary user tests himself.
class SysmgrSimRun : public testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    if (GetParam() && getuid() != 0) GTEST_SKIP() << "only root can become another user";
    if (GetParam() && toItsEnd(as({ZEL_SYSMGR_SIM, "--version"})).status != 0) {
      GTEST_SKIP() << "the build folder is not open to other users";
    }
    const Ended tried = toItsEnd(as(runs({"true"})));
    if (tried.errors.find("a private network cannot be made") != std::string::npos) GTEST_SKIP() << tried.errors;
  }
  static Words as(const Words& words) { return GetParam() ? kAsNobody + words : words; }
};

INSTANTIATE_TEST_SUITE_P(Users, SysmgrSimRun, testing::Bool(),
                         [](const auto& row) { return row.param ? "AnOrdinaryUser" : "TheUserOfTheTests"; });

TEST_P(SysmgrSimRun, HandsTheStatusOfTheCommandOn) {
  const std::pair<Words, int> kRows[] = {
      {{"true"}, 0},
      {shell("exit 1"), 1},
      {shell("exit 77"), 77},
      {shell("kill -TERM $$"), 128 + SIGTERM},
      {shell("kill -KILL $$"), 128 + SIGKILL},
      {{"/etc/passwd"}, 126},
  };
  for (const auto& [command, status] : kRows) {
    EXPECT_EQ(toItsEnd(as(runs(command))).status, status) << testing::PrintToString(command);
  }
}

TEST_P(SysmgrSimRun, HasTheBoardReadyForTheCommand) {
  const Ended ended = toItsEnd(as(runs({ZEL_SYSMGRCTL, "get", "model", "model"}, {"--model", "ZIRC"})));
  EXPECT_EQ(ended.status, 0) << ended.errors;
  EXPECT_EQ(ended.output, "ZIRC\n");
  EXPECT_THAT(ended.errors, IsEmpty());
}

TEST_P(SysmgrSimRun, LeavesUserGroupFolderInputAndArgumentsOfTheCommandAlone) {
  const std::string script = R"(id -u; id -g; pwd; cat; printf '<%s>' "$@")";
  const Words words = shell(script) + Words{"sh", "a", "", "[b,c]", "--", "-d", "--model=x"};
  const Ended plain = toItsEnd(as(Words{"sh", "-c", "echo text | \"$@\"", "sh"} + words));
  const Ended beside = toItsEnd(as(Words{"sh", "-c", "echo text | \"$@\"", "sh"} + runs(words)));
  EXPECT_EQ(beside.status, 0);
  EXPECT_EQ(beside.output, plain.output);
  EXPECT_THAT(plain.output, HasSubstr("text\n<a><><[b,c]><--><-d><--model=x>"));
}

TEST_P(SysmgrSimRun, KeepsABoardOutsideApart) {
  const std::string ctl = ZEL_SYSMGRCTL;
  const std::string inner = std::string(ZEL_SYSMGR_SIM) + " run -- " + ctl + " set rtsp/tcp-port 5004";
  const Ended ended = toItsEnd(as(runs(shell(inner + " && " + ctl + " get stored rtsp/tcp-port"))));
  EXPECT_EQ(ended.status, 0) << ended.errors;
  EXPECT_THAT(ended.output, testing::EndsWith("8554\n"));
}

TEST_P(SysmgrSimRun, PassesSignalsOn) {
  for (const auto& [number, name] : {std::pair(SIGINT, "INT"), std::pair(SIGTERM, "TERM")}) {
    const std::string script = std::string("setsid sleep 1000 & trap 'echo got ") + name + "; exit 3' " + name +
                               "; echo ready; while :; do sleep 0.05; done";
    Trace trace;
    ChildProcess process = ChildProcess::run(as(runs(shell(script))));
    ASSERT_TRUE(process.waitForOutput("ready\n"));
    process.signal(number);
    EXPECT_EQ(process.wait(), 3);
    EXPECT_EQ(process.output(), std::string("ready\ngot ") + name + "\n");
    EXPECT_TRUE(trace.isGone());
  }
}

// A child of the command, one in a session of its own, and an orphan.
const std::string kFamily = "sleep 1000 & setsid sleep 1000 & sh -c 'sleep 1000 & exit'; echo ready; ";

TEST_P(SysmgrSimRun, EndsWhatTheCommandLeavesBehind) {
  Trace trace;
  const Ended ended = toItsEnd(as(runs(shell(kFamily + "exit 5"))));
  EXPECT_EQ(ended.status, 5);
  EXPECT_TRUE(trace.isGone());
}

TEST_P(SysmgrSimRun, LetsCtrlCReachTheCommandOnce) {
  const std::string kCounts = R"sh(exec python3 -c "
import os, select, signal, sys, time
signals, write = os.pipe2(os.O_NONBLOCK)
signal.set_wakeup_fd(write)
signal.signal(signal.SIGINT, lambda *_: None)
print('ready', flush=True)
select.select([signals], [], [])
time.sleep(0.2)
print('got', len(os.read(signals, 9)))
sys.exit(3)")sh";
  const std::tuple<std::string, int, std::string> kRows[] = {
      {kCounts, 3, "ready\ngot 1\n"},
      {"echo ready; exec sleep 1000", 128 + SIGINT, "ready\n"},  // dash may lose it while it starts a program
      {"trap '' INT; echo ready; sleep 0.3; exit 4", 4, "ready\n"},
  };
  for (const auto& [script, status, output] : kRows) {
    const Terminal terminal;
    Trace trace;
    ChildProcess process =
        ChildProcess::run(terminal.inFrontOf(as(runs(shell("setsid sleep 1000 & sleep 1000 & " + script)))));
    ASSERT_TRUE(process.waitForOutput("ready\n")) << process.errors();
    terminal.type("\x03");
    EXPECT_EQ(process.wait(), status) << script;
    EXPECT_EQ(process.output(), output);
    EXPECT_THAT(process.errors(), IsEmpty());
    EXPECT_TRUE(trace.isGone());
  }
}

TEST_P(SysmgrSimRun, LeavesTheTerminalToAnInteractiveShell) {
  const Terminal terminal;
  Trace trace;
  ChildProcess process = ChildProcess::run(terminal.inFrontOf(as(runs({"bash", "--norc", "-i"}))));
  terminal.type("sleep 1000 & echo ready\n");
  ASSERT_TRUE(process.waitForOutput("ready\n")) << process.errors();
  terminal.type("(echo asleep; exec sleep 1000)\n");
  ASSERT_TRUE(process.waitForOutput("asleep\n"));
  terminal.type("\x03");  // ends that, and neither the shell nor the board
  terminal.type(std::string(ZEL_SYSMGRCTL) + " get model model; exit 4\n");
  EXPECT_EQ(process.wait(), 4) << process.errors();
  EXPECT_EQ(process.output(), "ready\nasleep\n\nORVEN_AES67\n");
  EXPECT_TRUE(trace.isGone());
}

TEST_P(SysmgrSimRun, LeavesNothingWhenTheTerminalIsGone) {
  Terminal terminal;
  Trace trace;
  ChildProcess process = ChildProcess::run(terminal.inFrontOf(as(runs(shell(kFamily + "sleep 1000")))));
  ASSERT_TRUE(process.waitForOutput("ready\n"));
  terminal.hangUp();
  EXPECT_TRUE(process.wait().has_value());
  EXPECT_TRUE(trace.isGone());
}

TEST_P(SysmgrSimRun, EndsEverythingWhenItIsKilled) {
  Trace trace;
  ChildProcess process = ChildProcess::run(as(runs(shell("trap '' TERM INT; " + kFamily + "sleep 1000"))));
  ASSERT_TRUE(process.waitForOutput("ready\n"));
  process.kill();
  EXPECT_TRUE(trace.isGone());
}

TEST_P(SysmgrSimRun, EndsEverythingWhenItsWatcherIsKilled) {
  Trace trace;
  ChildProcess process = ChildProcess::run(as(runs(shell(kFamily + "sleep 1000"))));
  ASSERT_TRUE(process.waitForOutput("ready\n"));
  const pid_t watcher = watcherOf(process.pid());
  if (watcher == 0) GTEST_SKIP() << "this kernel does not list the children of a process";
  kill(watcher, SIGKILL);
  EXPECT_EQ(process.wait(), 128 + SIGKILL);
  EXPECT_TRUE(trace.isGone());
}

TEST_P(SysmgrSimRun, HasTheKernelEndTheCommandWhenBothAreKilled) {
  Trace trace;
  ChildProcess process = ChildProcess::run(as(runs(shell("echo ready; exec sleep 1000"))));
  ASSERT_TRUE(process.waitForOutput("ready\n"));
  const pid_t watcher = watcherOf(process.pid());
  if (watcher == 0) GTEST_SKIP() << "this kernel does not list the children of a process";
  process.freeze();
  kill(watcher, SIGKILL);
  process.kill();
  EXPECT_TRUE(trace.isGone());
}

TEST_P(SysmgrSimRun, EndsWhenItsWatcherWasKilledBeforeTheBoardIsReady) {
  const zel::test::TemporaryFolder folder;
  std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
  const std::string script = folder.file("script");
  ASSERT_EQ(mkfifo(script.c_str(), 0644), 0);
  ChildProcess process = ChildProcess::run(as(runs({"sleep", "1000"}, {"--script", script})));
  pid_t watcher = 0;
  zel::test::waitUntil([&] { return (watcher = watcherOf(process.pid())) != 0; });
  if (watcher == 0) GTEST_SKIP() << "this kernel does not list the children of a process";
  kill(watcher, SIGKILL);
  EXPECT_TRUE(zel::test::waitUntil([watcher] { return hasEnded(watcher); }));
  std::ofstream(script) << "# the board has waited for this line\n";
  EXPECT_EQ(process.wait(), 128 + SIGKILL);
}

TEST_P(SysmgrSimRun, EndsWithTheCommandWhereSignalsAreBlocked) {
  const Words blocked = {"env", "--block-signal"};
  EXPECT_EQ(toItsEnd(as(blocked + runs(shell("exit 7")))).status, 7);
  ChildProcess board = ChildProcess::run(
      blocked + Words{ZEL_SYSMGR_SIM, "--requests", "tcp://127.0.0.1:*", "--notifications", "tcp://127.0.0.1:*"});
  ASSERT_TRUE(board.waitForOutput("ready"));
  board.signal(SIGTERM);
  EXPECT_EQ(board.wait(), 0);
}

TEST_P(SysmgrSimRun, LeavesAloneWhatWasThereBeforeTheCommand) {
  const Words words = shell("sleep 1000 & echo $!; exec \"$@\"") + Words{"sh"} + runs({"true"});
  const Ended ended = toItsEnd(as(words));
  EXPECT_EQ(ended.status, 0) << ended.errors;
  const pid_t service = std::atoi(ended.output.c_str());
  ASSERT_GT(service, 0);
  EXPECT_EQ(kill(service, SIGKILL), 0);
}

TEST_P(SysmgrSimRun, DoesNotTakeAnAlarmForTheEndOfTheCommand) {
  Trace trace;
  ChildProcess process = ChildProcess::run(as(runs(shell("echo ready; exec sleep 1000"))));
  ASSERT_TRUE(process.waitForOutput("ready\n"));
  process.signal(SIGALRM);
  EXPECT_EQ(process.wait(), -SIGALRM);
  EXPECT_TRUE(trace.isGone());
}

TEST_P(SysmgrSimRun, DoesNotStartTheCommandWithoutABoard) {
  const std::pair<Words, const char*> kRows[] = {
      {{"--model", "KORWA"}, "there is no model \"KORWA\""},
      {{"--state", "/no/such/file"}, "/no/such/file cannot be opened"},
      {{"--store", "/no/such/folder/store"}, "/no/such/folder"},
      {{"--fault", "/no/such/file"}, "/no/such/file"},
      {{"--no-such-option"}, "--no-such-option"},
  };
  for (const auto& [options, word] : kRows) {
    const Ended ended = toItsEnd(as(runs({"echo", "started"}, options)));
    EXPECT_EQ(ended.status, 125) << word;
    EXPECT_THAT(ended.output, IsEmpty());
    EXPECT_THAT(ended.errors, HasSubstr(word));
  }
}

TEST_P(SysmgrSimRun, RunsFiftySideBySideAndLeavesNothing) {
  constexpr int kMany = 50;
  Trace trace;
  std::vector<ChildProcess> processes;
  processes.reserve(kMany);
  for (int number = 0; number < kMany; ++number) {
    const std::string port = std::to_string(5000 + number);
    const std::string ctl = ZEL_SYSMGRCTL;
    processes.push_back(ChildProcess::run(as(runs(shell("sleep 1000 & " + ctl + " set rtsp/tcp-port " + port +
                                                        " >&2 && " + ctl + " get stored rtsp/tcp-port")))));
  }
  for (int number = 0; number < kMany; ++number) {
    EXPECT_EQ(processes[static_cast<std::size_t>(number)].wait(10 * kSoon), 0) << number;
    EXPECT_EQ(processes[static_cast<std::size_t>(number)].output(), std::to_string(5000 + number) + "\n");
  }
  EXPECT_TRUE(trace.isGone());
}

TEST(SysmgrSimRun, HandsOnTheAbsolutePathOfItsControlSocket) {
  const Ended ended = toItsEnd(shell("cd $(mktemp -d) && '" ZEL_SYSMGR_SIM "' run --control c --shared-network "
                                     "--requests 'ipc://'$PWD/r --notifications 'ipc://'$PWD/n "
                                     "-- sh -c 'cd / && \"" ZEL_SYSMGR_SIM "\" tell requests clear'; "
                                     "status=$?; rmdir $PWD; exit $status"));
  EXPECT_EQ(ended.status, 0) << ended.errors;
  EXPECT_THAT(ended.errors, IsEmpty());
}

TEST(SysmgrSimRun, DoesNotHandOnTheControlSocketOfAnotherBoard) {
  const Words inner =
      runs(shell("echo \"${SYSMGR_SIM_CONTROL-none}\""),
           {"--shared-network", "--requests", "tcp://127.0.0.1:*", "--notifications", "tcp://127.0.0.1:*"});
  const Ended ended = toItsEnd(Words{"env", "SYSMGR_SIM_CONTROL=/of/another/board"} + inner);
  EXPECT_EQ(ended.status, 0) << ended.errors;
  EXPECT_EQ(ended.output, "none\n");
}

TEST(SysmgrSimRun, WantsACommand) {
  for (const Words& words : {Words{"run"}, Words{"run", "--"}, Words{"run", "--model", "ZIRC", "--"}}) {
    const Ended ended = toItsEnd(Words{ZEL_SYSMGR_SIM} + words);
    EXPECT_EQ(ended.status, 125);
    EXPECT_EQ(ended.errors, "sysmgr-sim: run: the command is missing behind '--'\n");
  }
}

TEST(SysmgrSimRun, SaysWhatToDoWhereThereIsNoPrivateNetwork) {
  // In a user namespace one may forbid oneself to make network namespaces.
  const std::string script = "echo 0 > /proc/sys/user/max_net_namespaces && exec \"$@\"";
  const Words forbidden = Words{"unshare", "--user", "--map-root-user", "sh", "-c", script, "sh"};
  if (toItsEnd(forbidden + Words{"true"}).status != 0) GTEST_SKIP() << "this system allows no user namespace";
  const Ended ended = toItsEnd(forbidden + runs({"echo", "started"}));
  EXPECT_EQ(ended.status, 125);
  EXPECT_THAT(ended.output, IsEmpty());
  EXPECT_THAT(ended.errors, HasSubstr("a private network cannot be made (unshare: "));
  EXPECT_THAT(ended.errors, HasSubstr("--shared-network"));
  EXPECT_THAT(ended.errors, HasSubstr("user namespaces"));
}

}  // namespace
