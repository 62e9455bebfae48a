#pragma once

#include <functional>
#include <string>

#include "export.h"

/// The process-wide logger.
///
/// It outlives every other static object: a message from a destructor at exit is still written.
/// Threads: every operation may be called from any thread; a sink is called on the thread that logs, without a lock
/// held, so it may log itself.
class ZEL_EXPORT Logger {
 public:
  /// Lower numbers are more severe.
  enum logDebugLevel_t : int {
    LEVEL_ERROR = 2,      ///< failed checks
    LEVEL_CONFIG = 3,     ///< configuration dumps
    LEVEL_LIFECYCLE = 5,  ///< contexts, singletons, model changes, database reloads
    LEVEL_PROGRESS = 6,   ///< routine progress, received notifications
    LEVEL_TRACE = 7,      ///< construction of single entries
  };

  /// Receives each message that passes the threshold, as it was formatted: control characters included.
  using Sink = std::function<void(logDebugLevel_t level, const std::string& text)>;

  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

  static Logger* getInstance();

  /// Formats as printf(3) and hands the text to the sink. What the sink throws leaves this call.
  static void log(logDebugLevel_t level, const char* format, ...) __attribute__((format(printf, 2, 3)));
  /// The same on the instance.
  void logMessage(logDebugLevel_t level, const char* format, ...) __attribute__((format(printf, 3, 4)));

  /// Messages above the threshold are dropped before they are formatted; LEVEL_CONFIG at first.
  void setLevel(logDebugLevel_t threshold);
  logDebugLevel_t getLevel() const;

  /// An empty sink restores the default: one line a message on standard error, with control characters, invalid UTF-8
  /// and the backslash escaped ("\x0a", "\\"), so that no text from the wire can forge a line or steer a terminal.
  void setSink(Sink sink);

 private:
  Logger() = default;
  ~Logger() = default;
};
