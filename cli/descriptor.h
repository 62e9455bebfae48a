#pragma once

#include <unistd.h>

#include <utility>

#include "cli/deadline.h"

namespace zel::ctl {

/// A file descriptor that is closed at the end of its scope, except a standard one.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() { reset(); }
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  /// Negative: it could not be opened.
  int number() const { return number_; }
  void reset() {
    const int number = std::exchange(number_, -1);
    if (number > STDERR_FILENO) close(number);
  }

 private:
  int number_;
};

/// Waits until there is something to read, or the end of what there is. @return false when the deadline came before
bool isReadable(int descriptor, const Deadline& deadline);

}  // namespace zel::ctl
