#pragma once

#include <cxxabi.h>
#include <pthread.h>

#include <mutex>

// Header-only: each of the two libraries has a mutex of its own.

namespace zel {

/// The only mutex of a library. It guards everything that the library's objects share, and is held for a few
/// instructions at a time, or while a context is made: never while application code runs, and never while a thread
/// waits.
///
/// fork(2) copies a mutex in the state that it is in. So a handler locks this one before each fork and unlocks it
/// afterwards in both processes: a child never inherits it locked by a thread that it does not have.
inline std::mutex& processMutex() {
  static std::mutex mutex;
  [[maybe_unused]] static const int registered =
      pthread_atfork([] { mutex.lock(); }, [] { mutex.unlock(); }, [] { mutex.unlock(); });
  return mutex;
}

/// Makes the mutex when the library is loaded, before threads may fork while one of them makes it.
[[maybe_unused]] inline const std::mutex& processMutexAtLoad = processMutex();

using ProcessLock = std::unique_lock<std::mutex>;

/// As atexit(3), with two differences.
///
/// A handler of atexit(3) belongs to the library that registers it. One that is registered while the libraries are
/// being finalised, by a thread that works on, runs with its library and so before handlers of other libraries that
/// were registered later. This one belongs to no library, and all that were registered later run before it. (The
/// libraries are linked with -z nodelete, so the handler is there until the end.)
///
/// No thread forks meanwhile: the child could inherit the lock of the C library's list of handlers locked, and never
/// exit.
///
/// @param handler  does not look at its argument: the thread sanitizer passes none to a handler without a library
inline void atExit(void (*handler)(void*)) {
  const ProcessLock lock(processMutex());
  abi::__cxa_atexit(handler, nullptr, nullptr);
}

}  // namespace zel
