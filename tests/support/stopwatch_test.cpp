#include "tests/support/stopwatch.h"

#include <gmock/gmock.h>
#include <sched.h>
#include <unistd.h>

#include <ctime>
#include <thread>
#include <vector>

#include "tests/support/child_process.h"

namespace {

using namespace std::chrono_literals;
using zel::test::ChildProcess;
using zel::test::Elapsed;
using zel::test::Stopwatch;
using zel::test::timeOf;

/// Keeps this thread, and what it starts from now on, on one processor.
void stayOnOneProcessor() {
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(sched_getcpu(), &one);
  ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
}

std::chrono::nanoseconds processorTime() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// Computes for so long, without the time in which another thread has the processor.
void compute(std::chrono::milliseconds time) {
  const auto end = processorTime() + time;
  while (processorTime() < end) continue;
}

TEST(Stopwatch, CountsASleep) {
  const Elapsed took = timeOf([] { std::this_thread::sleep_for(50ms); });
  EXPECT_GE(took.wall, 50ms);
  EXPECT_GE(took.own, 50ms) << "a sleep is no wait for a processor";
}

TEST(Stopwatch, CountsWhatTheThreadComputes) {
  const Elapsed took = timeOf([] { compute(50ms); });
  EXPECT_GE(took.own, 49ms);
}

TEST(Stopwatch, DoesNotCountTheWaitForAProcessorThatOthersHave) {
  stayOnOneProcessor();
  std::vector<ChildProcess> others;
  for (int i = 0; i < 3; ++i) {
    others.push_back(ChildProcess::call([]() -> int {
      for (;;) continue;
    }));
  }
  const Elapsed took = timeOf([] { compute(100ms); });
  EXPECT_GE(took.own, 99ms);
  EXPECT_GE(took.wall - took.own, 100ms) << "three of four turns belong to the others";
}

TEST(Stopwatch, OfAThreadDoesNotKnowTheWaitsOfTheOthers) {
  stayOnOneProcessor();
  std::thread first([] { compute(100ms); });
  std::thread second([] { compute(100ms); });
  const Stopwatch own;
  const Stopwatch all(getpid());
  std::this_thread::sleep_for(50ms);
  EXPECT_GE(own.elapsed().own, 40ms);
  EXPECT_LT(all.elapsed().own, own.elapsed().own);
  first.join();
  second.join();
}

TEST(Stopwatch, MeasuresTheEndOfAProcess) {
  ChildProcess child = ChildProcess::call([] {
    std::this_thread::sleep_for(300ms);
    return 3;
  });
  const Elapsed took = child.timeToEnd();
  EXPECT_GT(took.own, 100ms);
  EXPECT_LE(took.own, took.wall);
  EXPECT_EQ(child.wait(), 3);
}

}  // namespace
