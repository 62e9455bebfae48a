#pragma once

#include <sys/types.h>

#include <chrono>
#include <ctime>
#include <map>
#include <optional>
#include <string>
#include <utility>

namespace zel::test {

/// What the kernel notes of a thread's turns (schedstat). Open from the start, so that it can be read when no
/// descriptor is left.
class SchedulerAccount {
 public:
  /// @param path  of the thread's file; one that cannot be opened cannot be read
  explicit SchedulerAccount(const std::string& path);
  ~SchedulerAccount();
  SchedulerAccount(SchedulerAccount&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  SchedulerAccount& operator=(SchedulerAccount&&) = delete;

  /// For how long the thread has been ready to run while others had the processors; none when it cannot be read.
  std::optional<std::chrono::nanoseconds> waited() const;

 private:
  int descriptor_;
};

/// For how long each thread has been ready to run while others had the processors, since it began; as the kernel counts
/// it. A thread whose account cannot be read is missing.
using ProcessorWaits = std::map<pid_t, std::chrono::nanoseconds>;
/// Those of this thread only.
ProcessorWaits waitsOfThisThread();
/// Those of all threads of a process, or of its main thread when it has ended.
ProcessorWaits waitsOf(pid_t process);
/// What was added to them, all threads together.
std::chrono::microseconds waitedBetween(const ProcessorWaits& before, const ProcessorWaits& after);

/// How long something took.
struct Elapsed {
  std::chrono::microseconds wall{0};  ///< on the steady clock: for lower limits
  std::chrono::microseconds own{0};   ///< less the waits for a processor: for upper limits
};

/// Measures what has an upper limit. The limit is a promise of the library's; that a busy machine lets one of its
/// threads wait for a processor is not its doing, so that wait is measured too, and does not count.
class Stopwatch {
 public:
  /// Starts. Only the waits of the thread that makes it count.
  Stopwatch() : before_(waitsOfThisThread()) {}
  /// Starts. The waits of all threads of a process count, for what several of them do in turn.
  explicit Stopwatch(pid_t process) : process_(process), before_(waitsOf(process)) {}

  Elapsed elapsed() const;

 private:
  pid_t process_ = 0;  ///< 0: only the thread
  ProcessorWaits before_;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

/// The processor time of an action of this thread.
template <class Action>
std::chrono::microseconds processorTimeOf(Action action) {
  const auto now = [] {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
  };
  const auto before = now();
  action();
  return std::chrono::duration_cast<std::chrono::microseconds>(now() - before);
}

/// What an action of this thread takes.
template <class Action>
Elapsed timeOf(Action action) {
  const Stopwatch stopwatch;
  action();
  return stopwatch.elapsed();
}

}  // namespace zel::test
