#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

namespace zel::test {

/// Lets the process open so many more descriptors and no further one, until the end of the scope.
class FewDescriptors {
 public:
  explicit FewDescriptors(unsigned int left) {
    getrlimit(RLIMIT_NOFILE, &before_);
    // Fill every gap, so that what is left is what lies below the limit.
    int next = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int highest = static_cast<int>(before_.rlim_cur < 1024 ? before_.rlim_cur : 1024) - 1;
    int top = next;
    for (int descriptor = 0; descriptor < highest; ++descriptor) {
      if (fcntl(descriptor, F_GETFD) >= 0 && descriptor > top) top = descriptor;
    }
    while (next >= 0 && next < top) {
      filled_.push_back(next);
      next = open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
    filled_.push_back(next);
    const rlimit few{static_cast<rlim_t>(std::max(next, top)) + 1 + left, before_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &few);
  }
  ~FewDescriptors() {
    setrlimit(RLIMIT_NOFILE, &before_);
    for (const int descriptor : filled_) close(descriptor);
  }
  FewDescriptors(const FewDescriptors&) = delete;
  FewDescriptors& operator=(const FewDescriptors&) = delete;

 private:
  rlimit before_{};
  std::vector<int> filled_;
};

/// Lets the process open no descriptor until the end of the scope, not even in place of one that it closes.
class NoDescriptors {
 public:
  /// @param limit  of descriptors, below the number of those that are open; poll(2) refuses to take more than it
  explicit NoDescriptors(rlim_t limit) {
    getrlimit(RLIMIT_NOFILE, &before_);
    const rlimit none{limit, before_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
  }
  ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
  NoDescriptors(const NoDescriptors&) = delete;
  NoDescriptors& operator=(const NoDescriptors&) = delete;

 private:
  rlimit before_{};
};

}  // namespace zel::test
