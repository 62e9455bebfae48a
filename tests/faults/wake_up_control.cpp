#include "tests/faults/wake_up_control.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>

namespace zel::test {

WakeUpControl::WakeUpControl() : due_(Clock::now().time_since_epoch().count()) {
  // Where the kernel keeps no accounts there is the other witness.
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    const int descriptor = open((thread.path() / "schedstat").c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor >= 0) accounts_.push_back({descriptor, {}});
  }
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
  for (const Account& account : accounts_) close(account.descriptor);
}

void WakeUpControl::begin() {
  worst_ = 0;
  for (Account& account : accounts_) account.before = account.waited();
}

std::chrono::microseconds WakeUpControl::Account::waited() const {
  std::array<char, 64> text{};
  if (pread(descriptor, text.data(), text.size() - 1, 0) <= 0) return {};
  char* rest = nullptr;
  std::strtoull(text.data(), &rest, 10);  // the time on a processor
  const std::chrono::nanoseconds time(std::strtoull(rest, nullptr, 10));
  return std::chrono::duration_cast<std::chrono::microseconds>(time);
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
  for (const Account& account : accounts_) worst = std::max(worst, account.waited() - account.before);
  return worst;
}

}  // namespace zel::test
