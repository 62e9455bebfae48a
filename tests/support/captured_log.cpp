#include "tests/support/captured_log.h"

namespace zel::test {

bool operator==(const LogLine& a, const LogLine& b) { return a.level == b.level && a.text == b.text; }

std::ostream& operator<<(std::ostream& out, const LogLine& line) {
  return out << line.level << " \"" << line.text << '"';
}

CapturedLog::CapturedLog() {
  Logger::getInstance()->setLevel(Logger::LEVEL_TRACE);
  Logger::getInstance()->setSink([this](Logger::logDebugLevel_t level, const std::string& text) {
    const std::lock_guard<std::mutex> lock(mutex_);
    lines_.push_back({level, text});
  });
}

CapturedLog::~CapturedLog() {
  Logger::getInstance()->setSink(nullptr);
  Logger::getInstance()->setLevel(Logger::LEVEL_CONFIG);
}

std::vector<LogLine> CapturedLog::lines() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return lines_;
}

std::vector<std::string> CapturedLog::texts(int level) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<std::string> texts;
  for (const LogLine& line : lines_) {
    if (line.level == level) texts.push_back(line.text);
  }
  return texts;
}

void CapturedLog::clear() {
  const std::lock_guard<std::mutex> lock(mutex_);
  lines_.clear();
}

std::string checkLinePattern(const std::string& signature, int code) {
  std::string pattern = "CHK\\(";
  for (const char c : signature) {
    if (std::string("()[]{}.*+?^$|\\").find(c) != std::string::npos) pattern += '\\';
    pattern += c;
  }
  return pattern + "\\)::[0-9]+ Error Code " + std::to_string(code);
}

}  // namespace zel::test
