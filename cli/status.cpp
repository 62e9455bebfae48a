#include <map>

#include "cli/command.h"
#include "common/shared/format_text.h"
#include "types/sysmgr_types.h"
#include "types/whitelist.h"

namespace zel::ctl {

namespace {

constexpr int kUnknownTemperature = 65535;
constexpr int kUnknownSpeed = -1;

Json::Value knownOrNull(int value, int unknown) { return value == unknown ? Json::Value() : Json::Value(value); }

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

/// The interfaces that are there, in the daemon's order, and then those that are only configured.
Json::Value interfacesOf(const SysParameters& stored, const SysParametersDynamic& dynamic) {
  std::map<std::string, const EthIpV4Cfg*> configured;
  for (const EthIpV4Cfg& config : stored.ethIPv4Cfg) configured[config.eth] = &config;

  Json::Value interfaces(Json::arrayValue);
  for (const EthBasicInfo& info : dynamic.ethBasics) {
    Json::Value row;
    row["name"] = info.name;
    row["mac"] = info.mac;
    if (info.ipPresent) row["address"] = IpAddress(info.ip).toString();
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

std::string namesOf(const Json::Value& services, bool on) {
  Words names;
  for (const std::string& name : services.getMemberNames()) {
    if (services[name].asBool() == on) names.push_back(name);
  }
  return names.empty() ? "none" : listed(names);
}

std::string cellOrUnknown(const Json::Value& value) { return value.isNull() ? "unknown" : cellOf(value); }

void layOut(Output& output, const Json::Value& page) {
  const Json::Value& whitelist = page["whitelist"];
  const std::string configured = cellOf(page["bitstream-configured"]);
  const std::string running = cellOf(page["bitstream"]);
  const std::string bitstream = running == configured ? running : running + " (configured: " + configured + ")";
  const std::size_t errors = page["errors"].size();
  output.labelled(
      {{"Model", cellOf(page["model-name"])},
       {"Bitstream", bitstream},
       {"Serial number", cellOf(page["serial-number"])},
       {"FPGA", cellOf(page["fpga"]["name"]) + " " + cellOf(page["fpga"]["version"])},
       {"Temperature", cellOrUnknown(page["fpga"]["temperature"])},
       {"Fan", cellOrUnknown(page["fan-speed"])},
       {"MADI lock", page["madi-lock"].asBool() ? "yes" : "no"},
       {"PTP threshold", cellOf(page["ptp-offset-threshold"])},
       {"Services on", namesOf(page["services"], true)},
       {"Services off", namesOf(page["services"], false)},
       {"Whitelist", cellOf(whitelist["entries"]) + " ranges, " + cellOf(whitelist["enabled"]) + " in force"},
       {"Errors", errors == 0 ? "none" : std::to_string(errors)}});
  std::vector<std::vector<std::string>> errorRows;
  for (const Json::Value& error : page["errors"]) {
    errorRows.push_back({"", cellOf(error["code"]), cellOf(error["description"])});
  }
  output.labelled(errorRows);
  output.line("");
  output.table(page["interfaces"], {{"name", "INTERFACE"}, {"address", "ADDRESS"}, {"mac", "MAC"}, {"mode", "MODE"}});
}

}  // namespace

void runStatus(Call& call) {
  Daemon& daemon = call.daemon();
  const auto stored = daemon.record<SysParameters>("stored");
  const auto dynamic = daemon.record<SysParametersDynamic>("dynamic");
  const auto model = daemon.record<BoardModel>("model");
  const Json::Value whitelist = daemon.whitelist();

  Json::Value page;
  page["model"] = BoardModelType::toText(model.model);
  page["model-name"] = BoardModelType::displayName(model.model);
  page["bitstream"] = BitstreamType::toText(model.bitstream.type);
  page["bitstream-configured"] = BitstreamType::toText(stored.bitstream.type);
  page["serial-number"] = stored.serialNumber;
  page["fpga"]["name"] = dynamic.chipIdName;
  page["fpga"]["version"] = dynamic.chipIdVersion;
  page["fpga"]["temperature"] = knownOrNull(dynamic.temperature.fpga, kUnknownTemperature);
  page["fan-speed"] = knownOrNull(dynamic.fanSpeed.main, kUnknownSpeed);
  page["madi-lock"] = dynamic.madiLock;
  page["ptp-offset-threshold"] = stored.offsetFromMasterThreshold;
  page["services"] = servicesOf(stored);
  page["whitelist"] = whitelistOf(whitelist);
  page["errors"] = errorsOf(dynamic);
  page["interfaces"] = interfacesOf(stored, dynamic);
  call.output.page(page, [&] { layOut(call.output, page); });
}

}  // namespace zel::ctl
