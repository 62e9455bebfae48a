#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>

#include "cli/board_state.h"
#include "cli/command.h"
#include "cli/values.h"
#include "common/shared/format_text.h"

namespace zel::ctl {

namespace {

std::string namesOf(const Json::Value& services, bool on) {
  Words names;
  for (const std::string& name : services.getMemberNames()) {
    if (name != "redundancy" && services[name].asBool() == on) names.push_back(name);
  }
  return names.empty() ? "none" : listed(names);
}

std::string withUnit(const Json::Value& value, const char* unit) {
  return value.isNull() ? "unknown" : cellOf(value) + " " + unit;
}

std::string ptpText(const Json::Value& page) {
  const Json::Value& ptp = page["ptp"];
  const Json::Value& limit = page["ptp-offset-threshold"];
  const std::string state = ptp["state"].isNull() ? "unknown" : cellOf(ptp["state"]);
  const std::string allowed = withUnit(limit, "ns");
  if (ptp["offset"].isNull()) return state + " (limit " + allowed + ")";
  const bool isFar = std::fabs(ptp["offset"].asDouble()) > limit.asDouble();
  return state + ", offset " + withUnit(ptp["offset"], "ns") +
         (isFar ? ", beyond the limit of " + allowed : " (limit " + allowed + ")");
}

std::string redundancyText(const Json::Value& page) {
  if (!page["services"]["redundancy"].asBool()) return "off";
  return "on, VLANs " + cellOf(page["vlans"]["primary"]) + " and " + cellOf(page["vlans"]["secondary"]);
}

std::string bitstreamText(const Json::Value& page) {
  const std::string configured = cellOf(page["bitstream-configured"]);
  const std::string running = cellOf(page["bitstream"]);
  return running == configured ? running : running + " (configured: " + configured + ")";
}

std::string errorsText(const Json::Value& errors) {
  if (errors.empty()) return "none";
  Words texts;
  for (const Json::Value& error : errors) texts.push_back(cellOf(error["code"]) + " " + cellOf(error["description"]));
  return std::to_string(errors.size()) + ": " + listed(texts, "; ");
}

/// The interfaces with their units, for the table.
Json::Value interfaceTable(const Json::Value& interfaces) {
  Json::Value table = interfaces;
  for (Json::Value& row : table) {
    const Json::Value sfp = row["sfp"];
    if (!sfp["present"].asBool()) continue;
    row["module"] = cellOf(sfp["part-number"]) + ", " + withUnit(sfp["wavelength"], "nm") + ", " +
                    withUnit(sfp["temperature"], "°C");
    row["rx"] = withUnit(sfp["rx-power"], "dBm");
    row["tx"] = withUnit(sfp["tx-power"], "dBm");
  }
  return table;
}

void layOut(Output& output, const Json::Value& page) {
  const Json::Value& whitelist = page["whitelist"];
  output.labelled(
      {{"Model", cellOf(page["model-name"])},
       {"PTP", ptpText(page)},
       {"Redundancy", redundancyText(page)},
       {"Errors", errorsText(page["errors"])},
       {"Temperature", withUnit(page["fpga"]["temperature"], "°C")},
       {"Fan", withUnit(page["fan-speed"], "rpm")},
       {"MADI lock", page["madi-lock"].asBool() ? "yes" : "no"},
       {"Bitstream", bitstreamText(page)},
       {"FPGA", cellOf(page["fpga"]["name"]) + " " + cellOf(page["fpga"]["version"])},
       {"Serial number", cellOf(page["serial-number"])},
       {"Services on", namesOf(page["services"], true)},
       {"Services off", namesOf(page["services"], false)},
       {"Whitelist", cellOf(whitelist["entries"]) + " ranges, " + cellOf(whitelist["enabled"]) + " in force"}});
  output.line("");
  output.table(interfaceTable(page["interfaces"]), {{"name", "INTERFACE"},
                                                    {"address", "ADDRESS"},
                                                    {"mode", "MODE"},
                                                    {"label", "LABEL"},
                                                    {"rx", "RECEIVED"},
                                                    {"tx", "SENT"},
                                                    {"mac", "MAC"},
                                                    {"module", "SFP"}});
}

void draw(Output& output, Daemon& daemon) {
  const Json::Value page = pageOf(readBoard(daemon));
  output.page(page, [&] { layOut(output, page); });
}

/// One picture; a daemon that is away is a picture, too.
void drawNext(Call& call, const Deadline& deadline) {
  try {
    Daemon daemon(deadline);
    draw(call.output, daemon);
  } catch (const Failure& failure) {
    if (call.output.isJson()) return note(failure.what());
    call.output.line(failure.what());
  }
}

void watchStatus(Call& call) {
  constexpr double kInterval = 1;
  constexpr double kAnswer = 5;
  constexpr std::int64_t kMost = 1000000000;
  const auto number = [&call](const char* option) {
    return valueFor(option, [&] { return parseNumber(call.word(option), 1, kMost); });
  };
  const double interval = call.has("--interval")
                              ? valueFor("--interval", [&call] { return parseSeconds(call.word("--interval")); })
                              : kInterval;
  const std::int64_t count = call.has("--count") ? number("--count") : kMost;
  for (std::int64_t i = 0; i < count; ++i) {
    const Deadline pause(interval);
    if (i > 0) call.output.separatePictures();
    drawNext(call, Deadline(kAnswer));
    call.output.showPicture();
    if (i + 1 == count) return;
    if (call.has("--wait") && call.deadline.left() < pause.left()) {
      std::this_thread::sleep_for(call.deadline.left());
      throw timeIsOver(call.deadline);
    }
    std::this_thread::sleep_for(pause.left());
  }
}

}  // namespace

void runStatus(Call& call) {
  if (call.has("--watch")) return watchStatus(call);
  if (call.has("--interval") || call.has("--count")) throw usage("--interval and --count go with --watch");
  draw(call.output, call.daemon());
}

}  // namespace zel::ctl
