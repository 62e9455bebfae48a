#pragma once

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "common/shared/process_mutex.h"

// Header-only, so that the API's library needs nothing of libzelCommonTypes for it.

namespace zel {

/// An object that the first call makes while other threads wait for it, and that is never destroyed, so that threads
/// may use it until the process is gone. To be a static object itself.
///
/// A function-local static would do the same, except after fork(2): where a thread of the parent was making the object,
/// the child would wait for that thread for ever. Here the child makes an object of its own.
template <class T>
class Singleton {
 public:
  /// @param make  returns a new object. When it throws, the exception leaves this call and the next call tries again.
  template <class Make>
  T& get(Make make) {
    if (T* const made = made_.load(std::memory_order_acquire)) return *made;
    if (!claim()) return *made_.load(std::memory_order_acquire);
    try {
      made_.store(make(), std::memory_order_release);
    } catch (...) {
      const ProcessLock lock(processMutex());
      maker_ = 0;
      throw;
    }
    return *made_.load(std::memory_order_acquire);
  }

 private:
  /// Waits while another thread of this process makes the object. @return whether this thread is to make it
  bool claim() {
    for (;; std::this_thread::sleep_for(std::chrono::milliseconds(1))) {
      const ProcessLock lock(processMutex());
      if (made_.load(std::memory_order_acquire) != nullptr) return false;
      if (maker_ == getpid()) continue;
      maker_ = getpid();
      return true;
    }
  }

  std::atomic<T*> made_{nullptr};
  pid_t maker_ = 0;  ///< the process that makes the object; 0: none
};

}  // namespace zel
