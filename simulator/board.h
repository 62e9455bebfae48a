#pragma once

#include <json/value.h>

#include <functional>
#include <random>
#include <string>
#include <vector>

#include "simulator/refusal.h"
#include "simulator/state_document.h"
#include "subscriber/sysmgr_subscriber.h"

namespace zel::sim {

struct Notification {
  SysmgrPublisher::sysmgr_notifications_t topic;
  Json::Value payload;
};

/// What comes of a request: the answer, with its "status", and what the board publishes.
struct Outcome {
  Json::Value reply{Json::objectValue};
  std::vector<Notification> notifications;
  bool keptStateChanged = false;  ///< whether `keptState` is another one now

  bool accepted() const { return reply["status"].asInt() >= 0; }
};

/// An answer that refuses a request.
Json::Value refusalReply(const Refusal& why);

/// A virtual board: the state that the daemon owns and what each command does to it. A value without sockets, files and
/// threads: the request goes in, the answer and the notifications come out.
///
/// A change is made whole or not at all; the answer of a refused one has a negative "status", an "error" that names the
/// key and the value, and in "aux-errors" what the checks had to say.
/// Threads: one caller at a time.
class Board {
 public:
  /// Stores the state that a change leads to, before the change is made. What it refuses is not made. It may add a
  /// remark to the answer.
  using Keep = std::function<Refusal(const Json::Value& keptState, Json::Value& reply)>;

  Board() : Board(BoardModelType::ORVEN_AES67) {}
  explicit Board(BoardModelType::board_models_t model) : state_(model) {}

  /// Serves a request.
  /// @param body  null when it has none
  /// @param keep  called when the request changes `keptState`; empty: nothing stores it
  Outcome handle(unsigned int id, const Json::Value& body, const Keep& keep = {});

  /// Makes a change that no client asks for: takes over a state document, or a piece of one, as `applyState` does, and
  /// publishes what it is about and what changes with it.
  Outcome alter(const Json::Value& document, const Keep& keep = {});

  /// Lets time pass: temperature, fan and interfaces move a little.
  /// @return what the board publishes
  std::vector<Notification> moveOn();
  Notification dynamicNotification() const;

  /// Takes over a state document, or a piece of one, see `applyDocument`. All of it or nothing.
  Refusal applyState(const Json::Value& document);

  /// What outlives a restart, as a state document: the stored parameters and the whitelist.
  Json::Value keptState() const { return keptDocument(state_); }
  /// Takes over a kept state in place of the present one. All of it or nothing.
  Refusal restore(const Json::Value& document);

  const BoardModel& model() const { return state_.model; }

 private:
  Refusal run(unsigned int id, const Json::Value& body, const Keep& keep, Outcome& outcome);
  Json::Value debugDocument() const;

  /// Makes a change of the state, or leaves the state as it is when the change is refused.
  template <class Change>
  Refusal commit(Change change);

  State state_;
  Json::UInt64 accepted_ = 0;
  Json::UInt64 refused_ = 0;
  std::minstd_rand chance_;
};

}  // namespace zel::sim
