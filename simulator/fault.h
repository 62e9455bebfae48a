#pragma once

#include <json/value.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace zel::sim {

/// How one request is served: as the board does it, unless a fault says otherwise.
struct Exchange {
  enum class Crash { kNever, kBeforeActing, kBeforeAnswering, kAfterAnswering };

  const char* fault = nullptr;            ///< the fault's name, for the trace
  std::chrono::milliseconds actAfter{0};  ///< how long the request is held back
  bool acts = true;                       ///< whether the request reaches the board
  std::chrono::milliseconds answerAfter{0};
  int answers = 1;
  std::function<void(Json::Value& reply)> editReply;
  std::function<void(std::string& text)> editText;
  Crash crash = Crash::kNever;
  std::chrono::milliseconds crashAfter{0};  ///< how long after the answer
  unsigned int burst = 0;                   ///< notifications of the dynamic information, before the answer
};

/// One order to misbehave: "do=delay command=2 ms=500 times=3".
class FaultRule {
 public:
  /// Reads an order: blanks separate its words, a value with blanks stands in double quotes.
  /// @return empty, or what is wrong with it
  static std::string parse(const std::string& text, FaultRule& rule);
  /// Reads a file of orders, one a line; empty lines and those that start with "#" are skipped.
  /// @return empty, or what is wrong with which line
  static std::string parseFile(const std::string& path, std::vector<FaultRule>& rules);
  /// The faults, their parameters and examples, for people.
  static std::string help();

  bool concerns(unsigned int id) const { return !command_ || *command_ == id; }
  void applyTo(Exchange& exchange) const;

 private:
  friend class FaultInjector;
  struct Kind;
  struct Parameter;
  static const std::vector<Kind>& kinds();
  static const std::vector<Parameter>& parameters();

  const Kind* kind_ = nullptr;
  std::optional<unsigned int> command_;  ///< none: every command
  unsigned int times_ = 1;               ///< 0: always
  std::optional<unsigned int> ms_;
  std::optional<int> status_;
  std::optional<std::string> text_;
  std::optional<unsigned int> bytes_;
  std::optional<std::string> member_;
  std::optional<unsigned int> count_;
};

/// Hands the orders out, the first one that concerns a request each time, and counts them down.
/// Threads: any.
class FaultInjector {
 public:
  void add(const FaultRule& rule);
  void replaceAll(std::vector<FaultRule> rules);
  Exchange next(unsigned int id);

 private:
  std::mutex mutex_;
  std::vector<FaultRule> rules_;
};

}  // namespace zel::sim
