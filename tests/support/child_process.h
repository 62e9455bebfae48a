#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

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
  bool reap(int flags);

  pid_t pid_ = -1;
  std::optional<int> status_;
  Stream output_;
  Stream errors_;
};

}  // namespace zel::test
