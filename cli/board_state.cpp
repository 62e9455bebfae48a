#include "cli/board_state.h"

#include <map>
#include <optional>

#include "cli/host_interfaces.h"
#include "cli/json_paths.h"
#include "types/whitelist.h"

namespace zel::ctl {

namespace {

constexpr int kUnknownTemperature = 65535;
constexpr int kUnknown = -1;

template <class Number>
Json::Value knownOrNull(Number value, int unknown) {
  return value == static_cast<Number>(unknown) ? Json::Value() : Json::Value(value);
}

Json::Value servicesOf(const SysParameters& stored) {
  Json::Value services;
  services["identify"] = stored.identifyEnable;
  services["nmos"] = stored.nmos.enable;
  services["redundancy"] = stored.redundancyEnable;
  services["sap"] = stored.sapEnable;
  services["slp"] = stored.slpEnable;
  services["walkabout"] = stored.walkaboutEnable;
  return services;
}

Json::Value sfpOf(const SfpInfo& sfp) {
  Json::Value document;
  document["present"] = sfp.present;
  if (!sfp.present) return document;
  document["part-number"] = sfp.partNumber;
  document["temperature"] = sfp.temperature;
  document["rx-power"] = knownOrNull(sfp.rxPower, kUnknown);
  document["tx-power"] = knownOrNull(sfp.txPower, kUnknown);
  document["wavelength"] = knownOrNull(sfp.wavelength, kUnknown);
  return document;
}

/// The interfaces that are there, in the daemon's order, and then those that are only configured.
Json::Value interfacesOf(const SysParameters& stored, const SysParametersDynamic& dynamic) {
  std::map<std::string, const EthIpV4Cfg*> configured;
  for (const EthIpV4Cfg& config : stored.ethIPv4Cfg) configured[config.eth] = &config;

  Json::Value interfaces(Json::arrayValue);
  for (const EthBasicInfo& info : dynamic.ethBasics) {
    Json::Value row;
    row["name"] = info.name;
    row["label"] = info.label;
    row["mac"] = info.mac;
    row["address-present"] = info.ipPresent;
    if (info.ipPresent) row["address"] = IpAddress(info.ip).toString();
    row["sfp"] = sfpOf(info.sfp);
    if (const std::optional<bool> link = linkOf(info)) row["link"] = *link;
    const auto config = configured.find(info.name);
    if (config != configured.end()) {
      row["mode"] = EthMode::toText(config->second->mode.mode);
      configured.erase(config);
    }
    interfaces.append(row);
  }
  for (const auto& [name, config] : configured) {
    Json::Value row;
    row["name"] = name;
    row["mode"] = EthMode::toText(config->mode.mode);
    interfaces.append(row);
  }
  return interfaces;
}

Json::Value errorsOf(const SysParametersDynamic& dynamic) {
  Json::Value errors(Json::arrayValue);
  for (const SystemError& error : dynamic.errors) {
    Json::Value row;
    error.Serialize(row);
    errors.append(row);
  }
  return errors;
}

Json::Value whitelistOf(const Json::Value& entries) {
  Json::Value counts;
  counts["entries"] = entries.size();
  Json::Value& enabled = counts["enabled"] = 0U;
  for (const Json::Value& entry : entries) {
    if (entry["enabled"].asBool()) enabled = enabled.asUInt() + 1;
  }
  return counts;
}

/// What the daemon says about PTP; empty when it says nothing.
Json::Value ptpOf(const Json::Value& network) {
  Json::Value ptp(Json::objectValue);
  const Json::Value* const state = valueAt(network, "ptp/state");
  const Json::Value* const offset = valueAt(network, "ptp/offset-from-master");
  if (state != nullptr && state->isString()) ptp["state"] = *state;
  if (offset != nullptr && offset->isNumeric()) ptp["offset"] = *offset;
  return ptp;
}

}  // namespace

Json::Value documentIfServed(Daemon& daemon, const char* name) {
  try {
    return daemon.get(name);
  } catch (const Failure& failure) {
    if (failure.status() != Exit::kRefused) throw;
    return Json::Value(Json::objectValue);
  }
}

BoardState readBoard(Daemon& daemon) {
  BoardState board;
  board.stored = daemon.record<SysParameters>("stored");
  board.dynamic = daemon.record<SysParametersDynamic>("dynamic");
  board.model = daemon.record<BoardModel>("model");
  board.network = documentIfServed(daemon, "network");
  board.whitelist = daemon.whitelist();
  return board;
}

Json::Value pageOf(const BoardState& board) {
  const auto& [stored, dynamic, model, network, whitelist] = board;
  Json::Value page;
  page["model"] = BoardModelType::toText(model.model);
  page["model-name"] = BoardModelType::displayName(model.model);
  page["bitstream"] = BitstreamType::toText(model.bitstream.type);
  page["bitstream-configured"] = BitstreamType::toText(stored.bitstream.type);
  page["serial-number"] = stored.serialNumber;
  page["fpga"]["name"] = dynamic.chipIdName;
  page["fpga"]["version"] = dynamic.chipIdVersion;
  page["fpga"]["temperature"] = knownOrNull(dynamic.temperature.fpga, kUnknownTemperature);
  page["fan-speed"] = knownOrNull(dynamic.fanSpeed.main, kUnknown);
  page["madi-lock"] = dynamic.madiLock;
  page["ptp"] = ptpOf(network);
  page["ptp-offset-threshold"] = stored.offsetFromMasterThreshold;
  page["services"] = servicesOf(stored);
  page["vlans"]["primary"] = stored.primaryVlanId;
  page["vlans"]["secondary"] = stored.secondaryVlanId;
  page["whitelist"] = whitelistOf(whitelist);
  page["errors"] = errorsOf(dynamic);
  page["interfaces"] = interfacesOf(stored, dynamic);
  return page;
}

}  // namespace zel::ctl
