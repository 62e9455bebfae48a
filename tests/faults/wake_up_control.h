#pragma once

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "tests/support/stopwatch.h"

namespace zel::test {

/// A thread that does nothing but sleep for a millisecond, again and again, and notes how late it is woken up. In a
/// window in which it was late, this process was not scheduled, and the time that a call took then says little about
/// the call.
class WakeUpControl {
 public:
  WakeUpControl();
  ~WakeUpControl();
  WakeUpControl(const WakeUpControl&) = delete;
  WakeUpControl& operator=(const WakeUpControl&) = delete;

  /// Begins a window.
  void begin();
  /// What the worse of the two witnesses says about the time since `begin`.
  std::chrono::microseconds worst() const;

 private:
  using Clock = std::chrono::steady_clock;
  void sleepOnAndOn();
  static std::chrono::microseconds::rep since(Clock::rep due);

  std::chrono::microseconds waitedIn(std::size_t thread) const;

  std::vector<SchedulerAccount> accounts_;
  std::vector<std::chrono::microseconds> before_;  ///< what stood in them when the window began
  std::atomic<Clock::rep> due_;
  std::atomic<std::chrono::microseconds::rep> worst_{0};
  std::atomic<bool> ends_{false};
  std::thread thread_;
};

}  // namespace zel::test
