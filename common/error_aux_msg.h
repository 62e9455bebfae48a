#pragma once

#include <string>
#include <vector>

#include "export.h"

/// The process-wide store of auxiliary error messages: what a failed validation has to say travels here, so that the
/// reply which reports the failure can carry it.
///
/// Who answers a request clears the store before it acts and takes the messages when it refuses.
/// Threads: every operation may be called from any thread. The store outlives every other static object.
class ZEL_EXPORT ErrorAuxMsg {
 public:
  ErrorAuxMsg(const ErrorAuxMsg&) = delete;
  ErrorAuxMsg& operator=(const ErrorAuxMsg&) = delete;

  static ErrorAuxMsg* getInstance();

  /// Formats as printf(3) and appends the text.
  void addMessage(const char* format, ...) __attribute__((format(printf, 2, 3)));
  /// The messages since the last `clear`, oldest first.
  std::vector<std::string> getMessages() const;
  void clear();

 private:
  ErrorAuxMsg() = default;
  ~ErrorAuxMsg() = default;
};
