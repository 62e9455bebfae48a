#pragma once

#include <json/value.h>

#include <string>

#include "simulator/refusal.h"
#include "types/settings.h"
#include "types/sysmgr_types.h"

namespace zel::sim {

/// What a board holds. The functions below judge what is given, and change a state in place: when they refuse
/// something, a part of it may have been carried out. The board gives them a copy and keeps it only if nothing was
/// refused.
struct State {
  explicit State(BoardModelType::board_models_t boardModel);

  BoardModel model;
  SysParameters stored;
  SysParametersDynamic dynamic;
  WhiteListDb whitelist;
  /// The documents whose fields the daemon defines, by the member of the answer that holds them: "systemInfo", ...
  Json::Value ownDocuments;
  Json::Value gpio;                        ///< the lines by name: {"gpio0": {"output": false, "value": false}}
  Json::Value modules{Json::objectValue};  ///< {"audio": {"error": true, "warn": false}}
  int restingDegrees = 0;                  ///< around which the temperature moves
};

/// The JSON form of a record.
template <class Record>
Json::Value serialized(const Record& record) {
  Json::Value document(Json::objectValue);
  record.Serialize(document);
  return document;
}
Json::Value serialized(const WhiteListDb& db);

/// The body of a request: the keys of one route change the stored parameters ("rtsp-tcp-port", "add-eth-cfg", ...).
/// @param route  `kIdentify` for its key; anything else for all other keys
Refusal setKeys(const Json::Value& body, SettingRow::Route route, State& state);
Refusal setGpio(const Json::Value& lines, State& state);
Refusal setModules(const Json::Value& modules, State& state);
/// Sets everything that a client can configure to its factory value.
void resetToFactory(State& state);

/// A state document, or a piece of one: an object of "board-model", "stored", "dynamic", "systemInfo",
/// "network-stack-status", "gpio", "module-state", "white-list". Members that are missing leave their value; "ethipv4"
/// is the whole list, and "white-list" all entries of the clients.
Refusal applyDocument(const Json::Value& document, State& state);

/// The state document that outlives a restart: the stored parameters and the whitelist.
Json::Value keptDocument(const State& state);

}  // namespace zel::sim
