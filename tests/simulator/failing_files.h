#pragma once

#include <atomic>

namespace zel::test {

/// Which of the next calls of some functions on files fail, with EIO. They count down to 0: 1 is the next call.
struct FailingFiles {
  std::atomic<int> fsync{0};
  std::atomic<int> rename{0};
};
extern FailingFiles failingFiles;

}  // namespace zel::test
