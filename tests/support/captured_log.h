#pragma once

#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include "common/logger.h"

namespace zel::test {

struct LogLine {
  int level;
  std::string text;
};
bool operator==(const LogLine& a, const LogLine& b);
std::ostream& operator<<(std::ostream& out, const LogLine& line);

/// Collects everything that is logged while it lives, at every level; afterwards the logger is as it is at start.
class CapturedLog {
 public:
  CapturedLog();
  ~CapturedLog();
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;

  /// All lines so far, oldest first.
  std::vector<LogLine> lines() const;
  /// The texts of one level.
  std::vector<std::string> texts(int level) const;
  void clear();

 private:
  mutable std::mutex mutex_;
  std::vector<LogLine> lines_;
};

/// "CHK(signature)::LINE Error Code code" with any line number, as a regular expression for the whole text.
std::string checkLinePattern(const std::string& signature, int code);

}  // namespace zel::test
