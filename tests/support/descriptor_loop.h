#pragma once

#include <poll.h>

#include <chrono>

#include "tests/support/wait_until.h"

namespace zel::test {

/// An application's loop over one object: watches its descriptor, and calls `process` when the descriptor is readable.

/// @return whether the object's descriptor is readable within the time
template <class Object>
bool isReadable(const Object& object, std::chrono::milliseconds within = std::chrono::milliseconds(0)) {
  pollfd watched{object.descriptor(), POLLIN, 0};
  return poll(&watched, 1, static_cast<int>(within.count())) == 1;
}

/// Runs the loop until the condition holds. @return whether it holds
template <class Object, class Condition>
bool runUntil(Object& object, Condition holds, std::chrono::milliseconds within = kSoon) {
  const auto end = std::chrono::steady_clock::now() + within;
  while (!holds()) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    if (left <= std::chrono::milliseconds(0)) return false;
    if (isReadable(object, left)) object.process();
  }
  return true;
}

}  // namespace zel::test
