#include "tests/support/child_process.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <stdexcept>

using std::chrono::milliseconds;
using testing::HasSubstr;
using zel::test::ChildProcess;

TEST(ChildProcess, RunsAProgramAndReadsWhatItWrites) {
  ChildProcess child = ChildProcess::run({"sh", "-c", "echo out; echo err >&2; exit 3"});
  EXPECT_EQ(child.wait(), 3);
  EXPECT_EQ(child.output(), "out\n");
  EXPECT_EQ(child.errors(), "err\n");
}

TEST(ChildProcess, ReadsMoreThanAPipeHolds) {
  ChildProcess child = ChildProcess::run({"sh", "-c", "head -c 1000000 /dev/zero"});
  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(child.output().size(), 1000000u);
}

TEST(ChildProcess, SaysThatAProgramCannotBeFound) {
  ChildProcess child = ChildProcess::run({"./no-such-program"});
  EXPECT_EQ(child.wait(), 99);
  EXPECT_THAT(child.errors(), HasSubstr("no-such-program"));
}

TEST(ChildProcess, RunsAFunctionInAProcessOfItsOwn) {
  ChildProcess child = ChildProcess::call([] {
    std::printf("%d", getpid());
    return 5;
  });
  EXPECT_EQ(child.wait(), 5);
  EXPECT_EQ(child.output(), std::to_string(child.pid()));
}

TEST(ChildProcess, SaysWhatAFunctionThrows) {
  ChildProcess child = ChildProcess::call([]() -> int { throw std::runtime_error("broken"); });
  EXPECT_EQ(child.wait(), 99);
  EXPECT_THAT(child.errors(), HasSubstr("broken"));
}

TEST(ChildProcess, TellsTheSignalThatEndsIt) {
  ChildProcess child = ChildProcess::run({"sleep", "60"});
  child.signal(SIGTERM);
  EXPECT_EQ(child.wait(), -SIGTERM);
}

TEST(ChildProcess, WaitsNoLongerThanTheLimit) {
  ChildProcess child = ChildProcess::run({"sleep", "60"});
  EXPECT_EQ(child.wait(milliseconds(20)), std::nullopt);
}

TEST(ChildProcess, StandsStillWhileItIsFrozen) {
  ChildProcess child = ChildProcess::run({"sh", "-c", "while echo tick; do sleep 0.001; done"});
  ASSERT_TRUE(child.waitForOutput("tick"));
  child.freeze();
  const std::string before = child.output();
  EXPECT_FALSE(zel::test::waitUntil([&] { return child.output() != before; }, milliseconds(50)));
  child.thaw();
  EXPECT_TRUE(zel::test::waitUntil([&] { return child.output() != before; }));
}

TEST(ChildProcess, EndsWithItsObject) {
  pid_t pid = 0;
  {
    const ChildProcess child = ChildProcess::run({"sleep", "60"});
    pid = child.pid();
    EXPECT_EQ(kill(pid, 0), 0);
  }
  EXPECT_EQ(kill(pid, 0), -1);
}
