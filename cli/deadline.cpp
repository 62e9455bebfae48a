#include "cli/deadline.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace zel::ctl {

Deadline::Deadline(double seconds)
    : end_(std::chrono::steady_clock::now() + std::chrono::milliseconds(std::llround(seconds * 1000.0))) {
  char text[32];
  std::snprintf(text, sizeof text, "%g s", seconds);
  text_ = text;
}

std::chrono::milliseconds Deadline::left() const {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - std::chrono::steady_clock::now());
  return std::max(left, std::chrono::milliseconds(0));
}

}  // namespace zel::ctl
