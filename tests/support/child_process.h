#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/stopwatch.h"
#include "tests/support/wait_until.h"

namespace zel::test {

/// A real process beside the test, in the same network namespace. It ends with this object, or with the test, at the
/// latest.
class ChildProcess {
 public:
  /// Starts a program, found as execvp(3) finds it.
  static ChildProcess run(const std::vector<std::string>& command);
  /// Runs a function in a fork of this process, which then ends as a program does, static objects destroyed, with the
  /// function's result as its status; 98 for a 0 when an expectation failed meanwhile. To be called before this process
  /// has threads, so that the child may make some.
  static ChildProcess call(const std::function<int()>& body);

  ChildProcess(ChildProcess&& other) noexcept;
  ChildProcess& operator=(ChildProcess&&) = delete;
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess();

  pid_t pid() const { return pid_; }

  /// Sends a signal to the process.
  void signal(int number) const;
  /// Ends the process with SIGKILL; it is gone when this returns.
  void kill();
  /// Freezes the process with SIGSTOP; it stands still when this returns.
  void freeze() const;
  /// Waits until the process stands still, where it freezes itself.
  void waitUntilFrozen() const;
  /// Lets a frozen process go on.
  void thaw() const;

  /// Waits for the end of the process, and reads its output meanwhile.
  /// @return its exit status, minus the number of the signal that ended it, or nothing when the limit is over
  std::optional<int> wait(std::chrono::milliseconds limit = kSoon);

  /// Waits for the end of the process, as `wait` does. @return how long it took from now. The waits of the process's
  ///         threads for a processor do not count, nor how late this thread was to see the end.
  Elapsed timeToEnd();

  /// What the process has written so far to its standard output and its standard error.
  std::string output();
  std::string errors();
  /// Waits until the standard output holds the text. @return whether it does
  bool waitForOutput(const std::string& text, std::chrono::milliseconds limit = kSoon);

 private:
  struct Stream {
    int descriptor = -1;
    std::string text;
    void drain();
  };
  ChildProcess() = default;
  static ChildProcess start(const std::function<void()>& inChild);
  using Clock = std::chrono::steady_clock;
  bool reap(int flags);
  bool endsOrIsSeen();

  pid_t pid_ = -1;
  std::optional<int> status_;
  Clock::time_point seen_;  ///< when it had not ended yet
  ProcessorWaits waits_;    ///< at that time
  Stream output_;
  Stream errors_;
};

}  // namespace zel::test
