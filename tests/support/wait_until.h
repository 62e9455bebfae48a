#pragma once

#include <chrono>
#include <thread>

namespace zel::test {

// Sanitizers and emulators slow the code and the start of processes down; upper limits of time are this much longer
// there. ZEL_TEST_SLOWDOWN comes from the build: nothing else knows that a cross build is going to run in an emulator.
#if defined(__has_feature)
#define ZEL_HAS_FEATURE(name) __has_feature(name)
#else
#define ZEL_HAS_FEATURE(name) 0
#endif
#if defined(__SANITIZE_THREAD__) || ZEL_HAS_FEATURE(thread_sanitizer)
constexpr bool kThreadSanitizer = true;
#else
constexpr bool kThreadSanitizer = false;
#endif
#if defined(__SANITIZE_ADDRESS__) || ZEL_HAS_FEATURE(address_sanitizer)
constexpr bool kAddressSanitizer = true;
#else
constexpr bool kAddressSanitizer = false;
#endif
constexpr bool kSanitized = kThreadSanitizer || kAddressSanitizer;
constexpr int kSlowdown = kSanitized ? 10 : ZEL_TEST_SLOWDOWN;

/// How long the thread sanitizer holds up the end of a process with other threads, to see what they do meanwhile.
constexpr std::chrono::milliseconds kExitOfSanitizer{kThreadSanitizer ? 1000 : 0};

/// Why a test that makes threads in a fork of a process with threads is skipped.
constexpr const char* kNoThreadsAfterFork = "the thread sanitizer ends a process that makes threads after such a fork";

/// For what happens soon or never: far longer than it takes on a loaded machine, and only waited for in full by a test
/// that fails.
constexpr std::chrono::milliseconds kSoon{5000 * kSlowdown};

/// Asks again and again, until the predicate holds or the limit is over.
/// @return whether the predicate holds
template <class Predicate>
bool waitUntil(Predicate predicate, std::chrono::milliseconds limit = kSoon) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!predicate()) {
    if (std::chrono::steady_clock::now() >= end) return predicate();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace zel::test
