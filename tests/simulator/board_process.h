#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/wait_until.h"

namespace zel::test {

/// Starts sysmgr-sim; does not wait for it.
inline ChildProcess startBoard(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), ZEL_SYSMGR_SIM);
  return ChildProcess::run(arguments);
}

/// What sysmgr-sim prints when it can be reached.
constexpr const char* kReady = " ready, requests on tcp://127.0.0.1:5556, notifications on tcp://127.0.0.1:5575\n";

/// A line of /proc/PID/status that counts memory in KiB; 0 when it cannot be read.
inline long memoryKiB(pid_t pid, const char* line) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string word; status >> word;) {
    long size = 0;
    if (word == line && status >> size) return size;
  }
  return 0;
}

/// The memory that a process has in use, in KiB; 0 when it cannot be told.
inline long residentKiB(pid_t pid) { return memoryKiB(pid, "VmRSS:"); }
/// The most that it has had in use.
inline long peakKiB(pid_t pid) { return memoryKiB(pid, "VmHWM:"); }

/// Expects that a process has not grown by more than this. Sanitizers hold freed memory back and emulators
/// keep what they have translated, so there is nothing to judge then.
inline void expectFlatMemory(long beforeKiB, long afterKiB, long mostKiB) {
  ASSERT_GT(beforeKiB, 0);
  if (kSlowdown > 1) return;
  EXPECT_LT(afterKiB - beforeKiB, mostKiB) << "more than " << beforeKiB;
}

/// How long a test runs: a number from the environment, for long runs by hand, or what ctest runs.
inline int lengthFromEnvironment(const char* name, int otherwise) {
  const char* const text = std::getenv(name);
  return text == nullptr ? otherwise : std::atoi(text);
}

}  // namespace zel::test
