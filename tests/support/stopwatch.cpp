#include "tests/support/stopwatch.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

namespace zel::test {

namespace {

using std::chrono::duration_cast;
using std::chrono::microseconds;
using std::chrono::nanoseconds;

std::optional<nanoseconds> waitedIn(const std::string& path) { return SchedulerAccount(path).waited(); }

/// The main thread's account is open from the start: some tests leave no descriptor to open it with.
struct MainThread {
  pid_t id = getpid();
  SchedulerAccount account{"/proc/self/schedstat"};
};
const MainThread mainThread;

}  // namespace

SchedulerAccount::SchedulerAccount(const std::string& path) : descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}

SchedulerAccount::~SchedulerAccount() {
  if (descriptor_ >= 0) close(descriptor_);
}

std::optional<nanoseconds> SchedulerAccount::waited() const {
  // The nanoseconds on a processor, those ready to run without one, and the turns.
  std::array<char, 128> text{};
  unsigned long long ran = 0;
  unsigned long long waited = 0;
  if (pread(descriptor_, text.data(), text.size() - 1, 0) <= 0) return {};
  if (std::sscanf(text.data(), "%llu %llu", &ran, &waited) != 2) return {};  // NOLINT(cert-err34-c): the kernel's
  return nanoseconds(waited);
}

ProcessorWaits waitsOfThisThread() {
  const pid_t self = gettid();
  const auto waited = self == mainThread.id ? mainThread.account.waited() : waitedIn("/proc/thread-self/schedstat");
  if (!waited) return {};
  return {{self, *waited}};
}

ProcessorWaits waitsOf(pid_t process) {
  ProcessorWaits waits;
  std::error_code gone;
  std::filesystem::directory_iterator threads("/proc/" + std::to_string(process) + "/task", gone);
  for (; !gone && threads != std::filesystem::directory_iterator(); threads.increment(gone)) {
    const std::filesystem::path& thread = threads->path();
    if (const auto waited = waitedIn(thread / "schedstat")) waits[std::stoi(thread.filename())] = *waited;
  }
  return waits;
}

microseconds waitedBetween(const ProcessorWaits& before, const ProcessorWaits& after) {
  if (before.empty()) return microseconds(0);  // they could not be read
  nanoseconds sum(0);
  for (const auto& [thread, waited] : after) {
    const auto earlier = before.find(thread);
    sum += earlier == before.end() ? waited : waited - earlier->second;
  }
  return duration_cast<microseconds>(sum);
}

Elapsed Stopwatch::elapsed() const {
  const auto wall = duration_cast<microseconds>(std::chrono::steady_clock::now() - start_);
  return {wall, wall - waitedBetween(before_, process_ == 0 ? waitsOfThisThread() : waitsOf(process_))};
}

}  // namespace zel::test
