#include "common/shared/wake_up.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>

namespace zel {

namespace {

void closeIfOpen(int descriptor) {
  if (descriptor >= 0) close(descriptor);
}

/// A function of its own, since tests/tsan.supp names it.
void closeTimer(int timer) { closeIfOpen(timer); }

}  // namespace

WakeUp::WakeUp()
    : epoll_(epoll_create1(EPOLL_CLOEXEC)),
      timer_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)),
      process_(getpid()) {
  epoll_event timer{};
  timer.events = EPOLLIN;
  timer.data.fd = timer_;
  if (epoll_ >= 0 && timer_ >= 0 && epoll_ctl(epoll_, EPOLL_CTL_ADD, timer_, &timer) == 0) return;
  closeIfOpen(epoll_);
  closeIfOpen(timer_);
  epoll_ = timer_ = -1;
}

WakeUp::~WakeUp() {
  closeTimer(timer_);
  closeIfOpen(epoll_);
}

bool WakeUp::isOurs() const { return epoll_ >= 0 && process_ == getpid(); }

void WakeUp::watch(int descriptor, unsigned int events) {
  if (!isOurs() || descriptor < 0) return;
  epoll_event event{};
  event.events = events;
  event.data.fd = descriptor;
  epoll_ctl(epoll_, EPOLL_CTL_ADD, descriptor, &event);
}

void WakeUp::forget(int descriptor) noexcept {
  if (isOurs() && descriptor >= 0) epoll_ctl(epoll_, EPOLL_CTL_DEL, descriptor, nullptr);
}

void WakeUp::at(Clock::time_point time) {
  if ((armed_ && *armed_ <= time) || !isOurs()) return;
  // steady_clock counts as CLOCK_MONOTONIC does. A time of zero would turn the timer off.
  using std::chrono::nanoseconds;
  const auto since = std::max(time, Clock::time_point(nanoseconds(1))).time_since_epoch();
  const auto seconds = std::chrono::floor<std::chrono::seconds>(since);
  itimerspec setting{};
  setting.it_value.tv_sec = static_cast<time_t>(seconds.count());
  setting.it_value.tv_nsec = static_cast<long>(nanoseconds(since - seconds).count());
  if (timerfd_settime(timer_, TFD_TIMER_ABSTIME, &setting, nullptr) == 0) armed_ = time;
}

void WakeUp::settle() {
  if (!armed_ || Clock::now() < *armed_ || !isOurs()) return;
  std::uint64_t expirations = 0;
  // Fails where the kernel's timer is behind the clock by a hair: it stays armed then, and expires again.
  if (read(timer_, &expirations, sizeof expirations) == sizeof expirations) armed_.reset();
}

}  // namespace zel
