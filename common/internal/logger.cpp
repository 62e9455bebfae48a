#include "common/logger.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <utility>

#include "common/shared/escape.h"
#include "common/shared/format_text.h"
#include "common/shared/no_destructor.h"
#include "common/shared/process_mutex.h"

namespace {

struct State {
  std::atomic<int> threshold{Logger::LEVEL_CONFIG};
  std::shared_ptr<const Logger::Sink> sink;  ///< guarded by `processMutex`; null: the default sink
};

State& state() {
  static zel::NoDestructor<State> made;
  return *made;
}

[[maybe_unused]] const State& madeAtLoad = state();

const char* levelName(Logger::logDebugLevel_t level) {
  switch (level) {
    case Logger::LEVEL_ERROR: return "error";
    case Logger::LEVEL_CONFIG: return "config";
    case Logger::LEVEL_LIFECYCLE: return "lifecycle";
    case Logger::LEVEL_PROGRESS: return "progress";
    case Logger::LEVEL_TRACE: return "trace";
  }
  return "log";
}

void writeToStandardError(Logger::logDebugLevel_t level, const std::string& text) {
  const std::string line = std::string(levelName(level)) + ": " + zel::escaped(text) + '\n';
  // One call a line, so that the lines of several threads stay whole.
  std::fwrite(line.data(), 1, line.size(), stderr);
}

__attribute__((format(printf, 2, 0))) void write(Logger::logDebugLevel_t level, const char* format, va_list arguments) {
  const std::string text = zel::formatText(format, arguments);
  std::shared_ptr<const Logger::Sink> sink;
  {
    const zel::ProcessLock lock(zel::processMutex());
    sink = state().sink;
  }
  if (sink) {
    (*sink)(level, text);
  } else {
    writeToStandardError(level, text);
  }
}

bool dropped(Logger::logDebugLevel_t level) { return level > state().threshold.load(std::memory_order_relaxed); }

}  // namespace

Logger* Logger::getInstance() {
  static Logger instance;  // has no state and no destructor to run
  return &instance;
}

void Logger::log(logDebugLevel_t level, const char* format, ...) {
  if (dropped(level)) return;
  va_list arguments;
  va_start(arguments, format);
  const zel::ArgumentsEnd end{arguments};
  write(level, format, arguments);
}

void Logger::logMessage(logDebugLevel_t level, const char* format, ...) {
  if (dropped(level)) return;
  va_list arguments;
  va_start(arguments, format);
  const zel::ArgumentsEnd end{arguments};
  write(level, format, arguments);
}

void Logger::setLevel(logDebugLevel_t threshold) { state().threshold.store(threshold, std::memory_order_relaxed); }

Logger::logDebugLevel_t Logger::getLevel() const {
  return static_cast<logDebugLevel_t>(state().threshold.load(std::memory_order_relaxed));
}

void Logger::setSink(Sink sink) {
  auto next = sink ? std::make_shared<const Sink>(std::move(sink)) : nullptr;
  const zel::ProcessLock lock(zel::processMutex());
  state().sink.swap(next);
}
