#include "tests/faults/wake_up_control.h"

#include <algorithm>
#include <csignal>
#include <filesystem>

namespace zel::test {

WakeUpControl::WakeUpControl() : due_(Clock::now().time_since_epoch().count()) {
  // Where the kernel keeps no accounts there is the other witness.
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    accounts_.emplace_back(thread.path() / "schedstat");
  }
  before_.resize(accounts_.size());
  // Signals are for the thread that works.
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  thread_ = std::thread([this] { sleepOnAndOn(); });
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

WakeUpControl::~WakeUpControl() {
  ends_ = true;
  thread_.join();
}

void WakeUpControl::begin() {
  worst_ = 0;
  for (std::size_t thread = 0; thread < accounts_.size(); ++thread) before_[thread] = waitedIn(thread);
}

std::chrono::microseconds WakeUpControl::waitedIn(std::size_t thread) const {
  const auto waited = accounts_[thread].waited();
  return std::chrono::duration_cast<std::chrono::microseconds>(waited.value_or(std::chrono::nanoseconds(0)));
}

std::chrono::microseconds::rep WakeUpControl::since(Clock::rep due) {
  const Clock::duration late = Clock::now().time_since_epoch() - Clock::duration(due);
  return std::chrono::duration_cast<std::chrono::microseconds>(late).count();
}

void WakeUpControl::sleepOnAndOn() {
  while (!ends_) {
    const Clock::time_point due = Clock::now() + std::chrono::milliseconds(1);
    due_ = due.time_since_epoch().count();
    std::this_thread::sleep_until(due);
    const auto late = since(due_);
    for (auto worst = worst_.load(); worst < late && !worst_.compare_exchange_weak(worst, late);) continue;
  }
}

std::chrono::microseconds WakeUpControl::worst() const {
  std::chrono::microseconds worst(std::max(worst_.load(), since(due_)));
  for (std::size_t thread = 0; thread < accounts_.size(); ++thread) {
    worst = std::max(worst, waitedIn(thread) - before_[thread]);
  }
  return worst;
}

}  // namespace zel::test
