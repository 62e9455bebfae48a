#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/orders.h"

namespace zel::sim {

/// A file of orders for a simulator, one a line, carried out one after the other. A line says in front of its order
/// when it is due:
///
///     at 2s dynamic eth-basics/eth0/ip 10.0.0.9     2 s after the start
///     after request 2 stop                          when a request of command 2 was answered, after the line before
///     after 500ms continue                          500 ms after the line before
///     drop                                          at once
///
/// Empty lines and those that begin with "#" are skipped.
class Script {
 public:
  /// Reads a script as a whole.
  /// @return empty, or what is wrong with which line
  static std::string parse(std::string_view text, Script& script);
  static std::string parseFile(const std::string& path, Script& script);

  /// Carries the orders out on a board, up to the first line that waits for a request: what a client changes until then
  /// is not known.
  /// @return empty, or which line cannot be carried out and why
  std::string tryOn(Board board) const;

  /// Carries the orders out from now on, in the simulator's thread. What fails then is reported to the simulator's
  /// `tell`, with its line. The script has to live as long as the simulator runs.
  void start(Simulator& simulator);

 private:
  using Clock = std::chrono::steady_clock;
  enum class When { kAtOnce, kAt, kAfter, kAfterRequest };
  struct Line {
    unsigned int number = 0;
    When when = When::kAtOnce;
    std::chrono::milliseconds time{0};
    std::optional<unsigned int> command;  ///< none: any
    Order order;
  };

  static std::string parseLine(std::string_view text, Line& line);
  std::string named(const Line& line, const std::string& why) const;
  void goOn(Simulator& simulator);
  bool carryOutNext(Simulator& simulator, Clock::time_point due);
  void carryOut(const Line& line, Simulator& simulator) const;

  std::string name_ = "script";
  std::vector<Line> lines_;
  std::size_t next_ = 0;
  bool waitsForTime_ = false;  ///< whether a timer carries the next line out
  Clock::time_point start_;
  Clock::time_point last_;  ///< when the line before the next one was due
};

}  // namespace zel::sim
