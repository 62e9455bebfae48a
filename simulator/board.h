#pragma once

#include <json/value.h>

#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "simulator/refusal.h"
#include "subscriber/sysmgr_subscriber.h"
#include "types/sysmgr_types.h"

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
  Board() : Board(BoardModelType::ORVEN_AES67) {}
  explicit Board(BoardModelType::board_models_t model);

  /// Serves a request.
  /// @param body  null when it has none
  Outcome handle(unsigned int id, const Json::Value& body);

  /// Lets time pass: temperature, fan and interfaces move a little.
  /// @return what the board publishes
  std::vector<Notification> moveOn();
  Notification dynamicNotification() const;

  /// Takes over a state document, or a piece of one: an object of "board-model", "stored", "dynamic", "systemInfo",
  /// "network-stack-status", "gpio", "module-state", "white-list". What is missing stays. All of it or nothing.
  Refusal applyState(const Json::Value& document);

  /// What outlives a restart, as a state document: the stored parameters and the whitelist.
  Json::Value keptState() const;
  /// Takes over a kept state in place of the present one. All of it or nothing.
  Refusal restore(const Json::Value& document);

  const BoardModel& model() const { return model_; }

 private:
  struct Query;
  struct Command;
  struct GpioLine {
    bool output = false;
    bool value = false;
  };
  struct ModuleState {
    bool error = false;
    bool warn = false;
  };
  using GpioLines = std::map<std::string, GpioLine>;
  using ModuleStates = std::map<std::string, ModuleState>;

  Refusal run(unsigned int id, const Json::Value& body, Outcome& outcome);

  Json::Value storedDocument() const;
  Json::Value dynamicDocument() const;
  Json::Value modelDocument() const;
  Json::Value networkStackDocument() const;
  Json::Value systemInfoDocument() const;
  Json::Value debugDocument() const;
  Json::Value whitelistDocument() const;

  Refusal setParameter(const Json::Value& body, Outcome& outcome);
  Refusal factoryReset(const Json::Value& body, Outcome& outcome);
  Refusal setModuleState(const Json::Value& body, Outcome& outcome);
  Refusal reboot(const Json::Value& body, Outcome& outcome);
  Refusal addToWhitelist(const Json::Value& body, Outcome& outcome);
  Refusal removeFromWhitelist(const Json::Value& body, Outcome& outcome);
  Refusal enableOnWhitelist(const Json::Value& body, Outcome& outcome);
  Refusal setGpio(const Json::Value& body, Outcome& outcome);
  Refusal getGpio(const Json::Value& body, Outcome& outcome);
  Refusal setIdentify(const Json::Value& body, Outcome& outcome);

  using WhitelistChange = std::function<Refusal(WhiteListDb& db, const WhiteListEntry& entry)>;
  Refusal changeWhitelist(const Json::Value& body, Outcome& outcome, const WhitelistChange& change);

  void publishStored(Outcome& outcome) const;
  void publishWhitelist(Outcome& outcome) const;

  Refusal apply(const Json::Value& document);
  Refusal applyBoardModel(const Json::Value& given);
  Refusal applyStored(const Json::Value& given);
  Refusal applyDynamic(const Json::Value& given);
  Refusal applySystemInfo(const Json::Value& given);
  Refusal applyNetworkStackStatus(const Json::Value& given);
  Refusal applyGpio(const Json::Value& given);
  Refusal applyModuleStates(const Json::Value& given);
  Refusal applyVariableWhitelist(const Json::Value& given);
  void becomeModel(BoardModelType::board_models_t model);
  void showModuleStates();

  BoardModel model_;
  SysParameters stored_;
  SysParametersDynamic dynamic_;
  SystemBasicInfo systemInfo_;
  NetworkStackStatus networkStackStatus_;
  WhiteListDb whitelist_;
  GpioLines gpio_;
  ModuleStates modules_;
  Json::UInt64 accepted_ = 0;
  Json::UInt64 refused_ = 0;
  int restingDegrees_ = 0;  ///< around which the temperature moves
  std::minstd_rand chance_;
};

}  // namespace zel::sim
