#pragma once

#include <sys/types.h>

#include <atomic>
#include <string>
#include <vector>

namespace zel::sim {

/// A command that runs beside the board and ends with it.
///
/// A second process, the watcher, starts the command, waits for its end, and ends what the command has left behind. It
/// also learns of the end of this process, whatever ended it, and then ends everything with SIGKILL. When the watcher
/// itself is killed, this process does so. Both find all descendants, since both are subreapers: they become the
/// parents of orphans. Only where both are killed at once do processes that the command has left behind survive; the
/// command itself is ended by the kernel even then.
class WatchedCommand {
 public:
  // The exit statuses of the programs that run others (env, timeout).
  static constexpr int kFailed = 125;         ///< the command was not started
  static constexpr int kCannotRun = 126;      ///< its file cannot be executed
  static constexpr int kNotFound = 127;       ///< there is no such file
  static constexpr int kEndedBySignal = 128;  ///< plus the number of the signal

  /// Makes the watcher. To be called in the main thread, before the process starts another one.
  explicit WatchedCommand(const std::vector<std::string>& words);
  /// Ends the command, if it still runs.
  ~WatchedCommand();
  WatchedCommand(const WatchedCommand&) = delete;
  WatchedCommand& operator=(const WatchedCommand&) = delete;

  /// Has the watcher start the command.
  void start() const noexcept;
  /// Sends a signal on to the command, as soon as it runs. May be called from a signal handler.
  void pass(int signal) const noexcept;
  /// Whether the command and everything that it has left behind have ended. May be called from a handler of SIGCHLD.
  bool hasEnded() const noexcept;
  /// Waits for that. To be called once.
  /// @return the command's exit status, or 128 plus the number of the signal that ended it
  int wait() noexcept;

 private:
  std::atomic<pid_t> watcher_;  ///< -1 when it was waited for
  int line_;  ///< a byte from here has the watcher start the command; its end ends the watcher that waits for the byte
};

}  // namespace zel::sim
