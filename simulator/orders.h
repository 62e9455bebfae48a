#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/board.h"

namespace zel::sim {

class Simulator;

/// What comes of an order.
struct OrderResult {
  enum Status { kDone = 0, kFailed = 1, kNotUnderstood = 2 };

  Status status = kDone;
  std::string error;               ///< why it was not carried out; one line
  std::vector<std::string> lines;  ///< of the answer
};

/// Something that a running simulator is told in one line of text: by the control socket, by a script, or by a test.
///
///     dynamic eth-basics/eth0/ip 10.0.0.9
///     fault do=silence command=2
class Order {
 public:
  /// Reads an order without carrying it out.
  /// @return empty, or what is wrong with it
  static std::string parse(std::string_view line, Order& order);
  /// The orders and what they do, for people.
  static std::string help();

  /// Carries it out, in the thread in which the simulator serves.
  OrderResult carryOut(Simulator& simulator) const { return act_(simulator); }
  /// Whether it ends connections, and with them answers that their clients have not fetched.
  bool endsConnections() const { return endsConnections_; }
  /// Changes a board as the order would change the simulator's.
  /// @return empty, or why it cannot be done
  std::string tryOn(Board& board) const;

 private:
  struct Kind;
  static const std::vector<Kind>& kinds();
  static std::string parseChange(const std::string& document, std::string_view words, Order& order);

  std::function<OrderResult(Simulator& simulator)> act_;
  bool endsConnections_ = false;
  std::function<Outcome(Board& board, const Board::Keep& keep)> change_;  ///< of a document; none for other orders
};

/// Has a running simulator carry out an order, and waits for it. Any thread but the one in which the simulator serves.
OrderResult tell(Simulator& simulator, std::string_view line);

/// Waits, for 100 ms at most, until the clients have fetched the answers that were sent, while the simulator serves on.
/// It comes before what ends connections. Any thread but the one in which the simulator serves.
void waitForFetchedAnswers(Simulator& simulator);

/// Sets the value at a place of a document of a board, as the order "DOCUMENT PATH VALUE" does.
Outcome setValue(Board& board, const std::string& document, const std::string& path, const Json::Value& value,
                 const Board::Keep& keep = {});
/// The document that orders call by this name; nothing when there is none.
std::optional<Json::Value> documentNamed(const Board& board, const std::string& name);

}  // namespace zel::sim
