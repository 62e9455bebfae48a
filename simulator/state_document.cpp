#include "simulator/state_document.h"

#include <algorithm>
#include <mutex>
#include <string_view>
#include <utility>
#include <vector>

#include "client/commands.h"
#include "common/error_aux_msg.h"
#include "common/shared/format_text.h"
#include "simulator/factory.h"
#include "simulator/judge.h"
#include "simulator/whitelist.h"

namespace zel::sim {

namespace {

using Kind = SettingRow::Kind;
using Route = SettingRow::Route;

// These bound what clients can pile up, so that every document fits into a frame.
constexpr std::size_t kMostInterfaces = 4096;
constexpr std::size_t kMostModules = 64;
constexpr std::size_t kLongestModuleName = 64;

constexpr int kGpioLines = 8;
constexpr int kModuleErrorCode = 1;
constexpr int kModuleWarningCode = 2;

Json::Value factoryGpio() {
  Json::Value lines(Json::objectValue);
  for (int number = 0; number < kGpioLines; ++number) {
    Json::Value& line = lines["gpio" + std::to_string(number)];
    line["output"] = line["value"] = false;
  }
  return lines;
}

/// Puts the members of an object over those of another, at every depth.
void overlay(const Json::Value& given, Json::Value& target) {
  if (!given.isObject()) {
    target = given;
    return;
  }
  for (auto member = given.begin(); member != given.end(); ++member) overlay(*member, target[member.name()]);
}

// --- interfaces

/// @param mode  the mode in the form in which it was given
Json::Value interfaceShape(const Json::Value& mode) {
  EthIpV4Cfg cfg;  // static: it has every key
  Json::Value shape = serialized(cfg);
  if (mode.isObject()) shape["mode"] = serialized(cfg.mode);
  return shape;
}

Refusal judgeMode(const std::string& name, const Json::Value& mode) {
  const Json::Value& text = mode.isObject() ? mode["mode"] : mode;
  if (text.isNull() || EthMode::fromText(text.asString())) return {};
  return {refusal::kOutOfRange, "\"" + name + "\" is " + shown(mode) + ", which is not a mode: static, DHCP."};
}

Refusal readInterface(const std::string& name, const Json::Value& value, EthIpV4Cfg& cfg) {
  if (!value.isObject()) return wrongType(name, value, "an object");
  if (Refusal why = judgeShape(name, value, interfaceShape(value["mode"]))) return why;
  if (!value.isMember("eth")) {
    return {refusal::kOutOfRange, "\"" + name + "\" is " + shown(value) + ", which names no interface: \"eth\"."};
  }
  if (Refusal why = judge(name + "/eth", value["eth"], settings::kRemoveInterface)) return why;
  if (Refusal why = judgeMode(name + "/mode", value["mode"])) return why;
  const Json::Value& addresses = value["static"];
  for (const std::string& address : addresses.getMemberNames()) {
    if (Refusal why = judgeAddress(joined({name, "/static/", address}), addresses[address])) return why;
  }
  Json::Value given = value;
  cfg.Deserialize(given);
  return {};
}

auto findInterface(SysParameters& stored, const std::string& name) {
  return std::find_if(stored.ethIPv4Cfg.begin(), stored.ethIPv4Cfg.end(),
                      [&name](const EthIpV4Cfg& cfg) { return cfg.eth == name; });
}

Refusal mergeInterface(const std::string& name, const EthIpV4Cfg& cfg, SysParameters& stored) {
  const auto known = findInterface(stored, cfg.eth);
  if (known != stored.ethIPv4Cfg.end()) {
    *known = cfg;
    return {};
  }
  if (stored.ethIPv4Cfg.size() >= kMostInterfaces) {
    return {refusal::kTooMany, "\"" + name + "\" adds " + cfg.eth + ": there are " + std::to_string(kMostInterfaces) +
                                   " interfaces already."};
  }
  stored.ethIPv4Cfg.insert(std::upper_bound(stored.ethIPv4Cfg.begin(), stored.ethIPv4Cfg.end(), cfg), cfg);
  return {};
}

/// Why a configuration may not be applied; empty when it may. The record reports it in the store of the process, whose
/// messages belong to the application where the board runs in a test: they are put back.
std::vector<std::string> faultsOf(const EthIpV4Cfg& cfg) {
  static std::mutex oneAtATime;
  const std::lock_guard<std::mutex> lock(oneAtATime);
  ErrorAuxMsg& store = *ErrorAuxMsg::getInstance();
  const std::vector<std::string> earlier = store.getMessages();
  store.clear();
  std::vector<std::string> faults;
  if (cfg.validate() < 0) faults = store.getMessages();
  store.clear();
  for (const std::string& message : earlier) store.addMessage("%s", message.c_str());
  return faults;
}

Refusal addInterface(const std::string& name, const Json::Value& value, SysParameters& stored) {
  EthIpV4Cfg cfg;
  if (Refusal why = readInterface(name, value, cfg)) return why;
  if (std::vector<std::string> faults = faultsOf(cfg); !faults.empty()) {
    return {refusal::kInvalidAddress, "\"" + name + "\" is " + shown(value) + ", which may not be applied.",
            std::move(faults)};
  }
  return mergeInterface(name, cfg, stored);
}

Refusal removeInterface(const std::string& name, const Json::Value& value, SysParameters& stored) {
  if (!value.isString()) return wrongType(name, value, "a text");
  const auto known = findInterface(stored, value.asString());
  if (known == stored.ethIPv4Cfg.end()) {
    return {refusal::kInterfaceNotFound, "\"" + name + "\" is " + shown(value) + ", which no interface is called."};
  }
  stored.ethIPv4Cfg.erase(known);
  return {};
}

/// Takes entries that no client could add: a default that was read from the host may be without an address.
Refusal replaceInterfaces(const std::string& name, const Json::Value& value, SysParameters& stored) {
  if (!value.isArray()) return wrongType(name, value, "an array");
  stored.ethIPv4Cfg.clear();
  for (const Json::Value& element : value) {
    EthIpV4Cfg cfg;
    if (Refusal why = readInterface(name, element, cfg)) return why;
    if (Refusal why = mergeInterface(name, cfg, stored)) return why;
  }
  return {};
}

// --- stored parameters

/// Changes stored parameters: each value is judged by its row and put at its path in the document, which the record
/// reads in the end. Interfaces change in the record, since a document can only add to its list.
class StoredChange {
 public:
  explicit StoredChange(SysParameters& stored) : stored_(stored), document_(serialized(stored)) {}

  Refusal setKey(const std::string& key, const Json::Value& value, const SettingRow& row) {
    if (row.route != Route::kListChange) return setPath(key, row.path, value);
    return row.kind == Kind::kInterface ? addInterface(key, value, stored_) : removeInterface(key, value, stored_);
  }

  /// @param name  what an error text calls the value
  Refusal setPath(const std::string& name, const std::string& path, const Json::Value& value) {
    const SettingRow* const row = settings::findPath(path);
    if (row == nullptr ? !isBlock(path) : row->route == Route::kListChange) return unknownKey(name, value);
    if (row == nullptr || row->kind == Kind::kBlock) return setMembers(name, path + "/", value);
    if (row->kind == Kind::kInterfaceList) return replaceInterfaces(name, value, stored_);
    if (Refusal why = judge(name, value, *row)) return why;
    if (at(path) == value) return {};
    if (isOnlyWritten(*row, value)) {
      return {refusal::kOutOfRange,
              "\"" + name + "\" is " + shown(value) + ", which the board writes and cannot take over."};
    }
    at(path) = value;
    return {};
  }

  void finish() {
    document_.removeMember(settings::kInterfaces.path);
    stored_.Deserialize(document_);
  }

 private:
  /// Whether rows are about values below a path.
  static bool isBlock(const std::string& path) {
    bool is = false;
    settings::forEach([&, beginning = path + "/"](const SettingRow& row) {
      is |= std::string_view(row.path).substr(0, beginning.size()) == beginning;
    });
    return is;
  }

  /// Whether the record writes a value and never takes it over: the fixed description of the NMOS node, "unset".
  static bool isOnlyWritten(const SettingRow& row, const Json::Value& value) {
    if (row.kind != Kind::kChoice) return std::string_view(row.path) == settings::kNmosNodeDescription.path;
    const std::vector<const char*> choices = row.choices();
    return !row.values.reads(value.asString()) &&
           std::find(choices.begin(), choices.end(), value.asString()) == choices.end();
  }

  Refusal setMembers(const std::string& name, const std::string& folder, const Json::Value& object) {
    if (!object.isObject()) return wrongType(name, object, "an object");
    for (auto member = object.begin(); member != object.end(); ++member) {
      if (member.name().find('/') != std::string::npos) return unknownMember(name, member.name(), *member);
      if (Refusal why = setPath(name + "/" + member.name(), folder + member.name(), *member)) return why;
    }
    return {};
  }

  Json::Value& at(std::string_view path) {
    Json::Value* place = &document_;
    while (!path.empty()) {
      const std::size_t end = std::min(path.find('/'), path.size());
      place = &(*place)[std::string(path.substr(0, end))];
      path.remove_prefix(std::min(end + 1, path.size()));
    }
    return *place;
  }

  SysParameters& stored_;
  Json::Value document_;
};

Refusal applyStored(const Json::Value& given, State& state) {
  if (!given.isObject()) return wrongType("stored", given, "an object");
  StoredChange change(state.stored);
  for (auto member = given.begin(); member != given.end(); ++member) {
    if (member.name().find('/') != std::string::npos) return unknownMember("stored", member.name(), *member);
    if (Refusal why = change.setPath(member.name(), member.name(), *member)) return why;
  }
  change.finish();
  return {};
}

// --- the other pieces of a state document

Refusal applyBoardModel(const Json::Value& given, State& state) {
  if (Refusal why = judgeShape("board-model", given, serialized(state.model))) return why;
  if (given.isMember("model")) {
    const auto model = modelFromText(given["model"].asString());
    if (!model) {
      return {refusal::kOutOfRange, "\"board-model/model\" is " + shown(given["model"]) + ", which is not a model."};
    }
    state = State(*model);
  }
  if (given.isMember("module")) {
    Json::Value module = given;
    state.model.bitstream.Deserialize(module);
    state.model.initializeSupportedVideoFormatList();
  }
  return {};
}

/// A dynamic document with every key that there can be.
Json::Value dynamicShape() {
  SysParametersDynamic full;
  full.errors.emplace_back();
  full.ethBasics.emplace_back();
  full.ethBasics.back().sfp = {};
  full.ethBasics.back().sfp.temperature = 0.5F;  // not whole: a real number, not an integer
  full.ethBasics.back().sfp.rxPower = 0.5F;
  full.ethBasics.back().sfp.txPower = 0.5F;
  return serialized(full);
}

Refusal applyDynamic(const Json::Value& given, State& state) {
  static const Json::Value kShape = dynamicShape();
  if (Refusal why = judgeShape("dynamic", given, kShape)) return why;
  for (const Json::Value& interface : given["eth-basics"]) {
    if (!interface.isMember("ip")) continue;
    if (Refusal why = judgeAddress("dynamic/eth-basics/ip", interface["ip"])) return why;
  }
  Json::Value document = serialized(state.dynamic);
  for (auto member = given.begin(); member != given.end(); ++member) document[member.name()] = *member;
  state.dynamic.Deserialize(document);
  state.restingDegrees = state.dynamic.temperature.fpga;
  return {};
}

Refusal applyWhitelist(const Json::Value& given, State& state) {
  state.whitelist = factoryWhitelist();
  return addToWhitelist(given, state.whitelist);
}

struct Piece {
  const char* name;
  Refusal (*apply)(const Json::Value& given, State& state);
};

const Piece kPieces[] = {
    {"board-model", applyBoardModel},  // first: it decides on the defaults of the rest
    {"stored", applyStored},          {"dynamic", applyDynamic},          {"gpio", setGpio},
    {"module-state", setModules},     {kWhitelistMember, applyWhitelist},
};

/// Writes what the modules report into the list of active errors.
void showModules(State& state) {
  state.dynamic.errors.clear();
  const auto show = [&state](const Json::Value& on, int code, const std::string& text) {
    if (!on.asBool()) return;
    state.dynamic.errors.emplace_back();
    state.dynamic.errors.back().code = code;
    state.dynamic.errors.back().description = text;
  };
  for (auto module = state.modules.begin(); module != state.modules.end(); ++module) {
    show((*module)["error"], kModuleErrorCode, module.name() + " reports an error");
    show((*module)["warn"], kModuleWarningCode, module.name() + " reports a warning");
  }
}

}  // namespace

State::State(BoardModelType::board_models_t boardModel)
    : model(factoryModel(boardModel)),
      stored(factoryParameters(model)),
      dynamic(factoryDynamic(model, stored)),
      whitelist(factoryWhitelist()),
      ownDocuments(factoryOwnDocuments(model, stored.serialNumber)),
      gpio(factoryGpio()),
      restingDegrees(dynamic.temperature.fpga) {}

Json::Value serialized(const WhiteListDb& db) {
  Json::Value entries(Json::arrayValue);
  db.Serialize(entries);
  return entries;
}

Refusal setKeys(const Json::Value& body, Route route, State& state) {
  StoredChange change(state.stored);
  for (auto member = body.begin(); member != body.end(); ++member) {
    const SettingRow* const row = settings::findKey(member.name());
    if (row == nullptr || (row->route == Route::kIdentify) != (route == Route::kIdentify)) {
      return unknownMember("", member.name(), *member);
    }
    if (Refusal why = change.setKey(member.name(), *member, *row)) return why;
  }
  change.finish();
  return {};
}

Refusal setGpio(const Json::Value& lines, State& state) {
  if (!lines.isObject()) return wrongType("gpio", lines, "an object");
  if (Refusal why = judgeShape("", lines, state.gpio)) return why;
  overlay(lines, state.gpio);
  return {};
}

Refusal setModules(const Json::Value& modules, State& state) {
  if (!modules.isObject()) return wrongType("module-state", modules, "an object");
  Json::Value initial;
  initial["error"] = initial["warn"] = false;
  for (auto member = modules.begin(); member != modules.end(); ++member) {
    const std::string name = member.name();
    if (name.find('\0') != std::string::npos) {  // the name is in a text of the dynamic information
      return {refusal::kOutOfRange, "A name of a module holds a NUL character (its value is " + shown(*member) + ")."};
    }
    if (name.size() > kLongestModuleName) {
      return {refusal::kOutOfRange, "\"" + shownBytes(name) + "\" is not the name of a module: it is longer than " +
                                        std::to_string(kLongestModuleName) + " bytes (its value is " + shown(*member) +
                                        ")."};
    }
    if (Refusal why = judgeShape(name, *member, initial)) return why;
    if (!state.modules.isMember(name)) state.modules[name] = initial;
    if (state.modules.size() > kMostModules) {
      return {refusal::kTooMany, "\"" + name + "\" is " + shown(*member) + ": there are " +
                                     std::to_string(kMostModules) + " modules already."};
    }
    overlay(*member, state.modules[name]);
  }
  showModules(state);
  return {};
}

void resetToFactory(State& state) {
  std::string serialNumber = std::move(state.stored.serialNumber);  // belongs to the board, not to its configuration
  state.stored = factoryParameters(state.model);
  state.stored.serialNumber = std::move(serialNumber);
  state.gpio = factoryGpio();
  state.whitelist = factoryWhitelist();
}

Refusal applyDocument(const Json::Value& document, State& state) {
  if (!document.isObject()) return wrongType("state", document, "an object");
  for (auto member = document.begin(); member != document.end(); ++member) {
    const auto isIt = [&member](const Piece& piece) { return member.name() == piece.name; };
    const bool isPiece = std::any_of(std::begin(kPieces), std::end(kPieces), isIt);
    if (!isPiece && !state.ownDocuments.isMember(member.name())) return unknownMember("", member.name(), *member);
  }
  for (const Piece& piece : kPieces) {
    if (!document.isMember(piece.name)) continue;
    if (Refusal why = piece.apply(document[piece.name], state)) return why;
  }
  for (const std::string& name : state.ownDocuments.getMemberNames()) {
    if (!document.isMember(name)) continue;
    if (!document[name].isObject()) return wrongType(name, document[name], "an object");
    state.ownDocuments[name] = document[name];
  }
  return {};
}

Json::Value keptDocument(const State& state) {
  Json::Value document(Json::objectValue);
  document["stored"] = serialized(state.stored);
  if (state.stored.ethIPv4Cfg.empty()) document["stored"]["ethipv4"] = Json::Value(Json::arrayValue);
  document[kWhitelistMember] = Json::Value(Json::arrayValue);
  state.whitelist.SerializeVariable(document[kWhitelistMember]);
  return document;
}

}  // namespace zel::sim
