#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <thread>

#include "tests/support/child_process.h"

namespace zel::test {

/// The processor time that a process has used.
inline std::chrono::nanoseconds processorTimeOf(const ChildProcess& process) {
  clockid_t clock{};
  timespec used{};
  EXPECT_EQ(clock_getcpuclockid(process.pid(), &clock), 0);
  EXPECT_EQ(clock_gettime(clock, &used), 0);
  return std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec);
}

/// Expects that the process waits, as long as nothing happens: a loop that finds its descriptor readable again and
/// again uses all of a processor's time.
inline void expectIdle(const ChildProcess& process) {
  std::this_thread::sleep_for(std::chrono::milliseconds(200));  // for what is still due
  const auto before = processorTimeOf(process);
  std::this_thread::sleep_for(std::chrono::seconds(1));
  const auto used = std::chrono::floor<std::chrono::milliseconds>(processorTimeOf(process) - before);
  EXPECT_LT(used.count(), 100) << "ms of a processor";
}

}  // namespace zel::test
