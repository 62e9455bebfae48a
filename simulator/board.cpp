#include "simulator/board.h"

#include <algorithm>
#include <utility>

#include "client/sysmgr_jsonApi.h"
#include "common/error_aux_msg.h"
#include "simulator/factory.h"
#include "simulator/field.h"
#include "simulator/stored_fields.h"

namespace zel::sim {

namespace {

// Bounds what clients can pile up, so that every document fits into a frame.
constexpr std::size_t kMostWhitelistEntries = 1024;
constexpr std::size_t kMostModules = 64;
constexpr std::size_t kLongestModuleName = 64;
constexpr int kGpioLines = 8;

constexpr int kModuleErrorCode = 1;
constexpr int kModuleWarningCode = 2;

template <class Record>
Json::Value serialized(const Record& record) {
  Json::Value document(Json::objectValue);
  record.Serialize(document);
  return document;
}

Json::Value serialized(const WhiteListDb& db) {
  Json::Value entries(Json::arrayValue);
  db.Serialize(entries);
  return entries;
}

// --- whitelist entries

constexpr std::uint32_t firstOctet(std::uint32_t address) { return address >> 24U; }
constexpr bool isMulticast(std::uint32_t address) { return firstOctet(address) >= 224 && firstOctet(address) <= 239; }
constexpr bool isNetworkMask(std::uint32_t mask) { return mask != 0 && (~mask & (~mask + 1U)) == 0; }

template <std::uint32_t WhiteListEntry::*place>
Refusal applyEntryAddress(const std::string& name, const Json::Value& value, WhiteListEntry& entry) {
  if (!value.isString()) return wrongType(name, value, "a text");
  IpAddress address;
  if (value.asString().empty() || address.setAddress(value.asString()) < 0) {
    return {refusal::kInvalidAddress, "\"" + name + "\" is " + shown(value) + ", which is no IPv4 address."};
  }
  entry.*place = address.getAddress();
  return {};
}

Refusal readEntry(const Json::Value& value, WhiteListEntry& entry) {
  static const Field<WhiteListEntry> kFields[] = {
      {"ip", applyEntryAddress<&WhiteListEntry::ip>},
      {"mask", applyEntryAddress<&WhiteListEntry::mask>},
      {"enabled", &WhiteListEntry::enabled},
  };
  if (Refusal why = assignMembers(kFields, "white-list", value, entry)) return why;
  if (!isMulticast(entry.ip)) {
    return {refusal::kInvalidAddress, "\"white-list/ip\" is \"" + entry.getIpStr() + "\", which is not multicast."};
  }
  if (!isNetworkMask(entry.mask)) {
    return {refusal::kInvalidAddress, "\"white-list/mask\" is \"" + entry.getMaskStr() + "\", which is no mask."};
  }
  return {};
}

Refusal forEachEntry(const Json::Value& entries, const std::function<Refusal(const WhiteListEntry&)>& use) {
  if (!entries.isArray()) return wrongType("white-list", entries, "an array");
  for (const Json::Value& element : entries) {
    WhiteListEntry entry;
    if (Refusal why = readEntry(element, entry)) return why;
    if (Refusal why = use(entry)) return why;
  }
  return {};
}

std::string rangeText(const WhiteListEntry& entry) { return entry.getIpStr() + "/" + entry.getMaskStr(); }

Refusal refuseFixed(const WhiteListEntry& entry) {
  return {refusal::kFixedEntry,
          "\"white-list\" holds " + rangeText(entry) + ", an entry of the system's own that cannot be changed."};
}

Refusal addEntry(WhiteListDb& db, const WhiteListEntry& entry) {
  const auto known = db.entries.find(entry.ip);
  if (known != db.entries.end() && db.isEntryFixed(known->second.type)) return refuseFixed(known->second);
  if (known == db.entries.end() && db.entries.size() >= kMostWhitelistEntries) {
    return {refusal::kTooMany, "\"white-list\" is full: " + rangeText(entry) + " is more than " +
                                   std::to_string(kMostWhitelistEntries) + " entries."};
  }
  db.entries.insert_or_assign(entry.ip, entry);
  return {};
}

/// Finds an entry that a client may change.
Refusal findEntry(WhiteListDb& db, const WhiteListEntry& wanted, std::map<unsigned int, WhiteListEntry>::iterator& at) {
  at = db.entries.find(wanted.ip);
  if (at == db.entries.end() || at->second.mask != wanted.mask) {
    return {refusal::kNotFound, "\"white-list\" has no entry " + rangeText(wanted) + "."};
  }
  return db.isEntryFixed(at->second.type) ? refuseFixed(at->second) : Refusal{};
}

// --- documents of the state file

/// Whether a document has only keys and types that the reference has; an array has elements like the reference's first.
Refusal comparable(const std::string& name, const Json::Value& given, const Json::Value& reference) {
  if (reference.isObject()) {
    if (!given.isObject()) return wrongType(name, given, "an object");
    for (auto member = given.begin(); member != given.end(); ++member) {
      const std::string memberName = name + "/" + member.name();
      if (!reference.isMember(member.name())) return unknownKey(memberName, *member);
      if (Refusal why = comparable(memberName, *member, reference[member.name()])) return why;
    }
    return {};
  }
  if (reference.isArray()) {
    if (!given.isArray()) return wrongType(name, given, "an array");
    for (const Json::Value& element : given) {
      if (Refusal why = comparable(name, element, reference[0])) return why;
    }
    return {};
  }
  if (reference.isString()) return given.isString() ? Refusal{} : wrongType(name, given, "a text");
  if (reference.isBool()) return judgeFlag(name, given);
  if (reference.isDouble() && !reference.isInt()) {
    return given.isNumeric() ? Refusal{} : wrongType(name, given, "a number");
  }
  return given.isInt() && given.type() != Json::realValue ? Refusal{} : wrongType(name, given, "an integer");
}

/// A dynamic document with every key that there can be.
Json::Value fullDynamicDocument() {
  SysParametersDynamic full;
  full.errors.emplace_back();
  full.ethBasics.emplace_back();
  full.ethBasics.back().sfp = {};
  full.ethBasics.back().sfp.temperature = 0.5F;  // not whole: a real number, not an integer
  full.ethBasics.back().sfp.rxPower = 0.5F;
  full.ethBasics.back().sfp.txPower = 0.5F;
  return serialized(full);
}

}  // namespace

Json::Value refusalReply(const Refusal& why) {
  Json::Value reply(Json::objectValue);
  reply["status"] = why.status;
  reply["error"] = why.text;
  return reply;
}

Board::Board(BoardModelType::board_models_t model) { becomeModel(model); }

void Board::becomeModel(BoardModelType::board_models_t model) {
  model_ = factoryModel(model);
  stored_ = factoryParameters(model_);
  dynamic_ = factoryDynamic(model_, stored_);
  systemInfo_.fields = factorySystemInfo(model_, stored_.serialNumber);
  networkStackStatus_.fields = factoryNetworkStackStatus();
  whitelist_ = factoryWhitelist();
  for (int line = 0; line < kGpioLines; ++line) gpio_["gpio" + std::to_string(line)] = {};
  restingDegrees_ = dynamic_.temperature.fpga;
}

// --- requests

struct Board::Query {
  SysMgrCommands::sysmgr_msg_t id;
  const char* member;
  Json::Value (Board::*answer)() const;
};

struct Board::Command {
  SysMgrCommands::sysmgr_msg_t id;
  bool wantsObject;
  Refusal (Board::*run)(const Json::Value& body, Outcome& outcome);
};

Refusal Board::run(unsigned int id, const Json::Value& body, Outcome& outcome) {
  static const Query kQueries[] = {
      {SysMgrCommands::SYSMGR_GET_STORED_PARAMETERS, "stored", &Board::storedDocument},
      {SysMgrCommands::SYSMGR_GET_DYNAMIC_PARAMETERS, "dynamic", &Board::dynamicDocument},
      {SysMgrCommands::SYSMGR_GET_BOARD_MODEL, "board-model", &Board::modelDocument},
      {SysMgrCommands::SYSMGR_GET_NETWORK_STACK_STATUS, "network-stack-status", &Board::networkStackDocument},
      {SysMgrCommands::SYSMGR_GET_SYSTEM_INFO, "systemInfo", &Board::systemInfoDocument},
      {SysMgrCommands::SYSMGR_GET_INTERNAL_DEBUG_INFO, "debug-info", &Board::debugDocument},
      {SysMgrCommands::SYSMGR_GET_MCAST_WHITELIST, "white-list", &Board::whitelistDocument},
  };
  static const Command kCommands[] = {
      {SysMgrCommands::SYSMGR_SET_PARAMETER, true, &Board::setParameter},
      {SysMgrCommands::SYSMGR_FACTORY_RESET, false, &Board::factoryReset},
      {SysMgrCommands::SYSMGR_SET_MODULE_STATE, true, &Board::setModuleState},
      {SysMgrCommands::SYSMGR_REBOOT_DEVICE, false, &Board::reboot},
      {SysMgrCommands::SYSMGR_ADD_MCAST_WHITELIST, true, &Board::addToWhitelist},
      {SysMgrCommands::SYSMGR_REMOVE_MCAST_WHITELIST, true, &Board::removeFromWhitelist},
      {SysMgrCommands::SYSMGR_ENABLE_MCAST_WHITELIST, true, &Board::enableOnWhitelist},
      {SysMgrCommands::SYSMGR_SET_GPIO_CONFIGURATION, true, &Board::setGpio},
      {SysMgrCommands::SYSMGR_GET_GPIO_CONFIGURATION, false, &Board::getGpio},
      {SysMgrCommands::SYSMGR_SET_IDENTIFY_LEDS, true, &Board::setIdentify},
  };
  for (const Query& query : kQueries) {
    if (static_cast<unsigned int>(query.id) != id) continue;
    outcome.reply[query.member] = (this->*query.answer)();
    return {};
  }
  for (const Command& command : kCommands) {
    if (static_cast<unsigned int>(command.id) != id) continue;
    if (command.wantsObject && !body.isObject()) {
      return {refusal::kMalformedRequest, "The body is " + shown(body) + ", which is not an object."};
    }
    return (this->*command.run)(body, outcome);
  }
  return {refusal::kUnknownCommand, "There is no command " + std::to_string(id) + "."};
}

Outcome Board::handle(unsigned int id, const Json::Value& body) {
  ErrorAuxMsg::getInstance()->clear();
  Outcome outcome;
  outcome.reply["status"] = status::kOk;
  if (Refusal why = run(id, body, outcome)) {
    outcome = {};
    outcome.reply = refusalReply(why);
    for (const std::string& message : ErrorAuxMsg::getInstance()->getMessages()) {
      outcome.reply["aux-errors"].append(message);
    }
    ++refused_;
  } else {
    ++accepted_;
  }
  return outcome;
}

// --- what can be asked for

Json::Value Board::storedDocument() const { return serialized(stored_); }
Json::Value Board::dynamicDocument() const { return serialized(dynamic_); }
Json::Value Board::modelDocument() const { return serialized(model_); }
Json::Value Board::networkStackDocument() const { return networkStackStatus_.fields; }
Json::Value Board::systemInfoDocument() const { return systemInfo_.fields; }
Json::Value Board::whitelistDocument() const { return serialized(whitelist_); }

Json::Value Board::debugDocument() const {
  Json::Value info(Json::objectValue);
  info["requests-accepted"] = accepted_;
  info["requests-refused"] = refused_;
  info["module-state"] = Json::Value(Json::objectValue);
  for (const auto& [name, state] : modules_) {
    info["module-state"][name]["error"] = state.error;
    info["module-state"][name]["warn"] = state.warn;
  }
  return info;
}

// --- what is published

void Board::publishStored(Outcome& outcome) const {
  outcome.notifications.push_back({SysmgrPublisher::SYSMGR_STORED_PARAMETERS_UPDATE, storedDocument()});
  outcome.keptStateChanged = true;
}

void Board::publishWhitelist(Outcome& outcome) const {
  Json::Value payload(Json::objectValue);
  payload["white-list"] = whitelistDocument();
  outcome.notifications.push_back({SysmgrPublisher::SYSMGR_MCAST_WHITELIST_UPDATE, std::move(payload)});
  outcome.keptStateChanged = true;
}

Notification Board::dynamicNotification() const {
  return {SysmgrPublisher::SYSMGR_DYNAMIC_INFO_UPDATE, dynamicDocument()};
}

// --- what can be done

Refusal Board::setParameter(const Json::Value& body, Outcome& outcome) {
  if (Refusal why = applyChange(body, stored_)) return why;
  publishStored(outcome);
  return {};
}

Refusal Board::factoryReset(const Json::Value&, Outcome& outcome) {
  const std::string serialNumber = stored_.serialNumber;  // belongs to the board, not to its configuration
  stored_ = factoryParameters(model_);
  stored_.serialNumber = serialNumber;
  for (auto& [name, line] : gpio_) line = {};
  publishStored(outcome);

  WhiteListDb factory = factoryWhitelist();
  if (factory.entries.size() != whitelist_.entries.size()) {
    whitelist_ = std::move(factory);
    publishWhitelist(outcome);
  }
  return {};
}

Refusal Board::setModuleState(const Json::Value& body, Outcome& outcome) {
  if (Refusal why = applyModuleStates(body)) return why;
  outcome.notifications.push_back(dynamicNotification());
  return {};
}

Refusal Board::applyModuleStates(const Json::Value& body) {
  if (!body.isObject()) return wrongType("module-state", body, "an object");
  static const Field<ModuleState> kFields[] = {{"error", &ModuleState::error}, {"warn", &ModuleState::warn}};
  ModuleStates changed = modules_;
  for (auto member = body.begin(); member != body.end(); ++member) {
    const std::string name = member.name();
    if (name.size() > kLongestModuleName) {
      return {refusal::kOutOfRange, "\"" + shownBytes(name) + "\" is no module's name: it is longer than " +
                                        std::to_string(kLongestModuleName) + " bytes (its value is " + shown(*member) +
                                        ")."};
    }
    if (Refusal why = assignMembers(kFields, name, *member, changed[name])) return why;
    if (changed.size() > kMostModules) {
      return {refusal::kTooMany, "\"" + name + "\" is " + shown(*member) + ": there are " +
                                     std::to_string(kMostModules) + " modules already."};
    }
  }
  modules_ = std::move(changed);
  showModuleStates();
  return {};
}

/// What modules report stands in the list of active errors.
void Board::showModuleStates() {
  dynamic_.errors.clear();
  const auto show = [this](bool on, int code, const std::string& text) {
    if (!on) return;
    SystemError error;
    error.code = code;
    error.description = text;
    dynamic_.errors.push_back(error);
  };
  for (const auto& [name, state] : modules_) {
    show(state.error, kModuleErrorCode, name + " reports an error");
    show(state.warn, kModuleWarningCode, name + " reports a warning");
  }
}

Refusal Board::reboot(const Json::Value&, Outcome& outcome) {
  outcome.notifications.push_back({SysmgrPublisher::SYSMGR_REBOOT_REQUEST, Json::Value()});
  return {};
}

Refusal Board::changeWhitelist(const Json::Value& body, Outcome& outcome, const WhitelistChange& change) {
  for (const std::string& name : body.getMemberNames()) {
    if (name != "white-list") return unknownKey(name, body[name]);
  }
  const Json::Value& entries = body["white-list"];
  if (entries.isArray() && entries.empty()) {
    return {refusal::kOutOfRange, "\"white-list\" is [], which holds no entry."};
  }
  WhiteListDb changed = whitelist_;
  if (Refusal why = forEachEntry(entries, [&](const WhiteListEntry& entry) { return change(changed, entry); })) {
    return why;
  }
  whitelist_ = std::move(changed);
  publishWhitelist(outcome);
  return {};
}

Refusal Board::addToWhitelist(const Json::Value& body, Outcome& outcome) {
  return changeWhitelist(body, outcome, addEntry);
}

Refusal Board::removeFromWhitelist(const Json::Value& body, Outcome& outcome) {
  return changeWhitelist(body, outcome, [](WhiteListDb& db, const WhiteListEntry& wanted) {
    std::map<unsigned int, WhiteListEntry>::iterator at;
    if (Refusal why = findEntry(db, wanted, at)) return why;
    db.entries.erase(at);
    return Refusal{};
  });
}

Refusal Board::enableOnWhitelist(const Json::Value& body, Outcome& outcome) {
  return changeWhitelist(body, outcome, [](WhiteListDb& db, const WhiteListEntry& wanted) {
    std::map<unsigned int, WhiteListEntry>::iterator at;
    if (Refusal why = findEntry(db, wanted, at)) return why;
    at->second.enable(wanted.is_enabled());
    return Refusal{};
  });
}

Refusal Board::setGpio(const Json::Value& body, Outcome&) { return applyGpio(body); }

Refusal Board::applyGpio(const Json::Value& body) {
  if (!body.isObject()) return wrongType("gpio", body, "an object");
  static const Field<GpioLine> kFields[] = {{"output", &GpioLine::output}, {"value", &GpioLine::value}};
  GpioLines changed = gpio_;
  for (auto member = body.begin(); member != body.end(); ++member) {
    const auto line = changed.find(member.name());
    if (line == changed.end()) return unknownKey(member.name(), *member);
    if (Refusal why = assignMembers(kFields, line->first, *member, line->second)) return why;
  }
  gpio_ = std::move(changed);
  return {};
}

Refusal Board::getGpio(const Json::Value& body, Outcome& outcome) {
  if (!body.isNull() && !body.isObject()) {
    return {refusal::kMalformedRequest, "The body is " + shown(body) + ", which is not an object."};
  }
  for (const std::string& name : body.getMemberNames()) {
    if (gpio_.count(name) == 0) return {refusal::kNotFound, "There is no GPIO line \"" + shownBytes(name) + "\"."};
  }
  Json::Value& lines = outcome.reply["gpio"];
  for (const auto& [name, line] : gpio_) {
    if (!body.empty() && !body.isMember(name)) continue;
    lines[name]["output"] = line.output;
    lines[name]["value"] = line.value;
  }
  return {};
}

Refusal Board::setIdentify(const Json::Value& body, Outcome& outcome) {
  for (const std::string& name : body.getMemberNames()) {
    if (name != "identify-enable") return unknownKey(name, body[name]);
  }
  const Json::Value& on = body["identify-enable"];
  if (Refusal why = judgeFlag("identify-enable", on)) return why;
  stored_.identifyEnable = on.asBool();
  publishStored(outcome);
  return {};
}

// --- time

std::vector<Notification> Board::moveOn() {
  const auto between = [this](int least, int most) { return std::uniform_int_distribution<int>(least, most)(chance_); };

  constexpr int kSwing = 8;  // degrees around the resting temperature
  int& degrees = dynamic_.temperature.fpga;
  degrees = std::clamp(degrees + between(-1, 1), restingDegrees_ - kSwing, restingDegrees_ + kSwing);
  // The fan follows the temperature.
  constexpr int kSpeedADegree = 60;
  constexpr int kCoolDegrees = -6;
  dynamic_.fanSpeed.main = (degrees - kCoolDegrees) * kSpeedADegree + between(-20, 20);

  for (EthBasicInfo& interface : dynamic_.ethBasics) {
    if (!interface.sfp.present) continue;
    interface.sfp.temperature = 38.5F + 0.25F * static_cast<float>(between(-8, 8));
    interface.sfp.rxPower = -3.25F + 0.01F * static_cast<float>(between(-30, 30));
    interface.ipPresent = interface.ip != 0 && between(0, 19) > 0;  // now and then a cable is pulled
  }
  return {dynamicNotification()};
}

// --- state documents

Json::Value Board::keptState() const {
  Json::Value document(Json::objectValue);
  document["stored"] = serialized(stored_);
  if (stored_.ethIPv4Cfg.empty()) document["stored"]["ethipv4"] = Json::Value(Json::arrayValue);
  document["white-list"] = Json::Value(Json::arrayValue);
  whitelist_.SerializeVariable(document["white-list"]);
  return document;
}

Refusal Board::applyState(const Json::Value& document) {
  Board changed = *this;
  if (Refusal why = changed.apply(document)) return why;
  *this = std::move(changed);
  return {};
}

Refusal Board::restore(const Json::Value& document) {
  Board changed = *this;
  const std::string serialNumber = stored_.serialNumber;
  changed.stored_ = factoryParameters(model_);
  changed.stored_.serialNumber = serialNumber;
  changed.whitelist_ = factoryWhitelist();
  if (Refusal why = changed.apply(document)) return why;
  *this = std::move(changed);
  return {};
}

Refusal Board::apply(const Json::Value& document) {
  struct Piece {
    const char* name;
    Refusal (Board::*take)(const Json::Value& given);
  };
  static const Piece kPieces[] = {
      {"board-model", &Board::applyBoardModel},  // first: it decides on the defaults of the rest
      {"stored", &Board::applyStored},
      {"dynamic", &Board::applyDynamic},
      {"systemInfo", &Board::applySystemInfo},
      {"network-stack-status", &Board::applyNetworkStackStatus},
      {"gpio", &Board::applyGpio},
      {"module-state", &Board::applyModuleStates},
      {"white-list", &Board::applyVariableWhitelist},
  };
  if (!document.isObject()) return wrongType("state", document, "an object");
  for (const std::string& name : document.getMemberNames()) {
    const auto isIt = [&name](const Piece& piece) { return name == piece.name; };
    if (std::none_of(std::begin(kPieces), std::end(kPieces), isIt)) return unknownKey(name, document[name]);
  }
  for (const Piece& piece : kPieces) {
    if (!document.isMember(piece.name)) continue;
    if (Refusal why = (this->*piece.take)(document[piece.name])) return why;
  }
  return {};
}

Refusal Board::applyStored(const Json::Value& given) { return applyDocument(given, stored_); }

Refusal Board::applySystemInfo(const Json::Value& given) {
  if (!given.isObject()) return wrongType("systemInfo", given, "an object");
  systemInfo_.fields = given;
  return {};
}

Refusal Board::applyNetworkStackStatus(const Json::Value& given) {
  if (!given.isObject()) return wrongType("network-stack-status", given, "an object");
  networkStackStatus_.fields = given;
  return {};
}

Refusal Board::applyBoardModel(const Json::Value& given) {
  Json::Value reference = serialized(model_);
  if (Refusal why = comparable("board-model", given, reference)) return why;
  if (given.isMember("model")) {
    const auto model = modelFromText(given["model"].asString());
    if (!model) {
      return {refusal::kOutOfRange, "\"board-model/model\" is " + shown(given["model"]) + ", which is no model."};
    }
    becomeModel(*model);
  }
  if (given.isMember("module")) {
    Json::Value module = given;
    model_.bitstream.Deserialize(module);
    model_.initializeSupportedVideoFormatList();
  }
  return {};
}

Refusal Board::applyDynamic(const Json::Value& given) {
  static const Json::Value kFull = fullDynamicDocument();
  if (Refusal why = comparable("dynamic", given, kFull)) return why;
  Json::Value document = serialized(dynamic_);
  for (auto member = given.begin(); member != given.end(); ++member) document[member.name()] = *member;
  dynamic_.Deserialize(document);
  restingDegrees_ = dynamic_.temperature.fpga;
  return {};
}

Refusal Board::applyVariableWhitelist(const Json::Value& given) {
  WhiteListDb db = factoryWhitelist();
  if (Refusal why = forEachEntry(given, [&db](const WhiteListEntry& entry) { return addEntry(db, entry); })) {
    return why;
  }
  whitelist_ = std::move(db);
  return {};
}

}  // namespace zel::sim
