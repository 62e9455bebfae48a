#include "simulator/board.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "client/commands.h"
#include "common/envelope.h"
#include "common/shared/wire_json.h"
#include "simulator/factory.h"
#include "simulator/judge.h"
#include "simulator/whitelist.h"

namespace zel::sim {

namespace {

// --- what is published

void publishStored(const State& state, Outcome& outcome) {
  outcome.notifications.push_back({SysmgrPublisher::SYSMGR_STORED_PARAMETERS_UPDATE, serialized(state.stored)});
  outcome.keptStateChanged = true;
}

void publishWhitelist(const State& state, Outcome& outcome) {
  Json::Value payload(Json::objectValue);
  payload[kWhitelistMember] = serialized(state.whitelist);
  outcome.notifications.push_back({SysmgrPublisher::SYSMGR_MCAST_WHITELIST_UPDATE, std::move(payload)});
  outcome.keptStateChanged = true;
}

void publishDynamic(const State& state, Outcome& outcome) {
  outcome.notifications.push_back({SysmgrPublisher::SYSMGR_DYNAMIC_INFO_UPDATE, serialized(state.dynamic)});
}

/// Publishes the documents that a state document is about, and others that are not what they were.
void publishChanges(const Json::Value& document, const State& before, const State& after, Outcome& outcome) {
  if (document.isMember("stored") || serialized(before.stored) != serialized(after.stored)) {
    publishStored(after, outcome);
  }
  if (document.isMember("dynamic") || document.isMember("module-state") ||
      serialized(before.dynamic) != serialized(after.dynamic)) {
    publishDynamic(after, outcome);
  }
  if (document.isMember(kWhitelistMember) || serialized(before.whitelist) != serialized(after.whitelist)) {
    publishWhitelist(after, outcome);
  }
}

Refusal keepChange(const Board::Keep& keep, const State& next, Outcome& outcome) {
  return outcome.keptStateChanged && keep ? keep(keptDocument(next), outcome.reply) : Refusal{};
}

// --- what can be asked for

/// The document of a query whose row names the member that holds it.
Json::Value documentOf(const CommandRow& query, const State& state) {
  switch (query.id) {
    case SysMgrCommands::SYSMGR_GET_STORED_PARAMETERS: return serialized(state.stored);
    case SysMgrCommands::SYSMGR_GET_DYNAMIC_PARAMETERS: return serialized(state.dynamic);
    case SysMgrCommands::SYSMGR_GET_BOARD_MODEL: return serialized(state.model);
    case SysMgrCommands::SYSMGR_GET_MCAST_WHITELIST: return serialized(state.whitelist);
    default: return state.ownDocuments[query.payload];
  }
}

/// Refuses a state whose documents would not fit into an answer: they are too large or too deep.
Refusal judgeAnswers(const State& state) {
  for (const CommandRow& query : kCommands) {
    if (query.payload == nullptr) continue;
    Json::Value answer(Json::objectValue);
    answer[query.payload] = documentOf(query, state);
    std::string text;
    if (const std::string why = writeWireJson(answer, text); !why.empty()) {
      return {refusal::kOutOfRange,
              std::string("\"") + query.payload + "\": the board cannot answer with this document: " + why + "."};
    }
  }
  return {};
}

Refusal applyAnswerable(const Json::Value& document, State& state) {
  if (Refusal why = applyDocument(document, state)) return why;
  return judgeAnswers(state);
}

// --- what can be done

Refusal setParameter(const Json::Value& body, State& state, Outcome& outcome) {
  if (Refusal why = setKeys(body, SettingRow::Route::kKey, state)) return why;
  publishStored(state, outcome);
  return {};
}

Refusal factoryReset(const Json::Value&, State& state, Outcome& outcome) {
  const std::size_t entriesBefore = state.whitelist.entries.size();
  resetToFactory(state);
  publishStored(state, outcome);
  if (state.whitelist.entries.size() != entriesBefore) publishWhitelist(state, outcome);
  return {};
}

Refusal setModuleState(const Json::Value& body, State& state, Outcome& outcome) {
  if (Refusal why = setModules(body, state)) return why;
  publishDynamic(state, outcome);
  return {};
}

Refusal reboot(const Json::Value&, State&, Outcome& outcome) {
  outcome.notifications.push_back({SysmgrPublisher::SYSMGR_REBOOT_REQUEST, Json::Value()});
  return {};
}

template <Refusal (*change)(const Json::Value& entries, WhiteListDb& db)>
Refusal changeWhitelist(const Json::Value& body, State& state, Outcome& outcome) {
  for (const std::string& name : body.getMemberNames()) {
    if (name != kWhitelistMember) return unknownMember("", name, body[name]);
  }
  const Json::Value& entries = body[kWhitelistMember];
  if (entries.isArray() && entries.empty()) {
    return {refusal::kOutOfRange, "\"white-list\" is [], which holds no entry."};
  }
  if (Refusal why = change(entries, state.whitelist)) return why;
  publishWhitelist(state, outcome);
  return {};
}

Refusal setGpioLines(const Json::Value& body, State& state, Outcome&) { return setGpio(body, state); }

Refusal getGpioLines(const Json::Value& body, State& state, Outcome& outcome) {
  if (!body.isNull() && !body.isObject()) {
    return {refusal::kMalformedRequest, "The body is " + shown(body) + ", which is not an object."};
  }
  Json::Value& lines = outcome.reply["gpio"];
  if (body.empty()) lines = state.gpio;
  for (const std::string& name : body.getMemberNames()) {
    if (!state.gpio.isMember(name)) {
      return {refusal::kNotFound, "There is no GPIO line \"" + shownBytes(name) + "\"."};
    }
    lines[name] = state.gpio[name];
  }
  return {};
}

Refusal setIdentify(const Json::Value& body, State& state, Outcome& outcome) {
  Json::Value change = body;
  change[settings::kIdentifyEnable.key];  // a missing key is refused as a null one is
  if (Refusal why = setKeys(change, SettingRow::Route::kIdentify, state)) return why;
  publishStored(state, outcome);
  return {};
}

struct Command {
  SysMgrCommands::sysmgr_msg_t id;
  bool wantsObject;
  Refusal (*run)(const Json::Value& body, State& state, Outcome& outcome);
};

const Command kCommandsOfTheBoard[] = {
    {SysMgrCommands::SYSMGR_SET_PARAMETER, true, setParameter},
    {SysMgrCommands::SYSMGR_FACTORY_RESET, false, factoryReset},
    {SysMgrCommands::SYSMGR_SET_MODULE_STATE, true, setModuleState},
    {SysMgrCommands::SYSMGR_REBOOT_DEVICE, false, reboot},
    {SysMgrCommands::SYSMGR_ADD_MCAST_WHITELIST, true, changeWhitelist<addToWhitelist>},
    {SysMgrCommands::SYSMGR_REMOVE_MCAST_WHITELIST, true, changeWhitelist<removeFromWhitelist>},
    {SysMgrCommands::SYSMGR_ENABLE_MCAST_WHITELIST, true, changeWhitelist<enableOnWhitelist>},
    {SysMgrCommands::SYSMGR_SET_GPIO_CONFIGURATION, true, setGpioLines},
    {SysMgrCommands::SYSMGR_GET_GPIO_CONFIGURATION, false, getGpioLines},
    {SysMgrCommands::SYSMGR_SET_IDENTIFY_LEDS, true, setIdentify},
};

/// The row of a command; null when the table has none.
const Command* find(unsigned int id) {
  const auto isIt = [id](const Command& command) { return static_cast<unsigned int>(command.id) == id; };
  const auto* const found = std::find_if(std::begin(kCommandsOfTheBoard), std::end(kCommandsOfTheBoard), isIt);
  return found == std::end(kCommandsOfTheBoard) ? nullptr : found;
}

}  // namespace

Json::Value refusalReply(const Refusal& why) {
  Json::Value reply(Json::objectValue);
  reply[envelope::kStatus] = why.status;
  reply[envelope::kError] = why.text;
  for (const std::string& reason : why.reasons) reply[envelope::kAuxErrors].append(reason);
  return reply;
}

// --- requests

template <class Change>
Refusal Board::commit(Change change) {
  State next = state_;
  if (Refusal why = change(next)) return why;
  state_ = std::move(next);
  return {};
}

Refusal Board::run(unsigned int id, const Json::Value& body, const Keep& keep, Outcome& outcome) {
  if (id == static_cast<unsigned int>(SysMgrCommands::SYSMGR_GET_INTERNAL_DEBUG_INFO)) {
    outcome.reply["debug-info"] = debugDocument();
    return {};
  }
  const CommandRow* const row = findCommand(static_cast<SysMgrCommands::sysmgr_msg_t>(id));
  if (row != nullptr && row->payload != nullptr) {
    outcome.reply[row->payload] = documentOf(*row, state_);
    return {};
  }
  const Command* const command = find(id);
  if (command == nullptr) return {refusal::kUnknownCommand, "There is no command " + std::to_string(id) + "."};
  if (command->wantsObject && !body.isObject()) {
    return {refusal::kMalformedRequest, "The body is " + shown(body) + ", which is not an object."};
  }
  return commit([&](State& next) -> Refusal {
    if (Refusal why = command->run(body, next, outcome)) return why;
    return keepChange(keep, next, outcome);
  });
}

Outcome Board::handle(unsigned int id, const Json::Value& body, const Keep& keep) {
  Outcome outcome;
  outcome.reply[envelope::kStatus] = status::kOk;
  if (Refusal why = run(id, body, keep, outcome)) {
    outcome = {};
    outcome.reply = refusalReply(why);
    ++refused_;
  } else {
    ++accepted_;
  }
  return outcome;
}

Outcome Board::alter(const Json::Value& document, const Keep& keep) {
  Outcome outcome;
  outcome.reply[envelope::kStatus] = status::kOk;
  const Refusal why = commit([&](State& next) -> Refusal {
    if (Refusal refused = applyAnswerable(document, next)) return refused;
    publishChanges(document, state_, next, outcome);
    return keepChange(keep, next, outcome);
  });
  if (!why) return outcome;
  outcome = {};
  outcome.reply = refusalReply(why);
  return outcome;
}

Json::Value Board::debugDocument() const {
  Json::Value info(Json::objectValue);
  info["requests-accepted"] = accepted_;
  info["requests-refused"] = refused_;
  info["module-state"] = state_.modules;
  return info;
}

Notification Board::dynamicNotification() const {
  return {SysmgrPublisher::SYSMGR_DYNAMIC_INFO_UPDATE, serialized(state_.dynamic)};
}

// --- time

std::vector<Notification> Board::moveOn() {
  const auto between = [this](int least, int most) { return std::uniform_int_distribution<int>(least, most)(chance_); };

  constexpr int kSwing = 8;  // degrees around the resting temperature
  int& degrees = state_.dynamic.temperature.fpga;
  degrees = std::clamp(degrees + between(-1, 1), state_.restingDegrees - kSwing, state_.restingDegrees + kSwing);
  // The fan follows the temperature.
  constexpr int kSpeedADegree = 60;
  constexpr int kCoolDegrees = -6;
  state_.dynamic.fanSpeed.main = (degrees - kCoolDegrees) * kSpeedADegree + between(-20, 20);

  for (EthBasicInfo& interface : state_.dynamic.ethBasics) {
    if (!interface.sfp.present) continue;
    interface.sfp.temperature = 38.5F + 0.25F * static_cast<float>(between(-8, 8));
    interface.sfp.rxPower = -3.25F + 0.01F * static_cast<float>(between(-30, 30));
    interface.ipPresent = interface.ip != 0 && between(0, 19) > 0;  // now and then a cable is pulled
  }
  return {dynamicNotification()};
}

// --- state documents

Refusal Board::applyState(const Json::Value& document) {
  return commit([&document](State& next) { return applyAnswerable(document, next); });
}

Refusal Board::restore(const Json::Value& document) {
  return commit([&document](State& next) {
    std::string serialNumber = std::move(next.stored.serialNumber);
    next.stored = factoryParameters(next.model);
    next.stored.serialNumber = std::move(serialNumber);
    next.whitelist = factoryWhitelist();
    return applyDocument(document, next);
  });
}

}  // namespace zel::sim
