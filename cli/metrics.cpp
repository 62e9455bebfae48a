#include <set>
#include <sstream>
#include <utility>

#include "cli/atomic_file.h"
#include "cli/board_state.h"
#include "cli/command.h"
#include "cli/escape.h"
#include "cli/json_paths.h"
#include "common/shared/format_text.h"

namespace zel::ctl {

namespace {

/// The labels of a metric, in the order in which they are written.
using Labels = std::vector<std::pair<const char*, std::string>>;

/// A label's value as the Prometheus text format quotes it, made `visible`.
std::string quoted(const std::string& value) {
  std::string text = "\"";
  std::istringstream lines(value);
  for (std::string line; std::getline(lines, line);) {
    for (const char c : visible(line)) text += c == '\\' || c == '"' ? std::string{'\\', c} : std::string{c};
    if (!lines.eof()) text += "\\n";
  }
  return text + "\"";
}

std::string textOf(const Labels& labels) {
  std::string text;
  for (const auto& [label, value] : labels)
    text += (text.empty() ? "{" : ",") + std::string(label) + "=" + quoted(value);
  return text.empty() ? text : text + "}";
}

/// The metrics as text and as a document.
class Metrics {
 public:
  /// Begins a metric; `add` adds its values.
  void begin(const char* name, const char* help, const char* type = "gauge") {
    name_ = name;
    head_ = std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
  }
  /// Of values with the same labels the first one stays: the text format has each series once.
  /// @param value  a number or a boolean; null: unknown, so that there is no such value
  void add(const Json::Value& value, const Labels& labels = {}) {
    if (value.isNull()) return;
    const std::string series = name_ + textOf(labels);
    if (!series_.insert(series).second) return;
    const Json::Value number = value.isBool() ? Json::Value(value.asInt()) : value;
    text_ += joined({std::exchange(head_, ""), series, " ", cellOf(number), "\n"});
    Json::Value row;
    row["name"] = name_;
    row["value"] = number;
    for (const auto& [label, text] : labels) row["labels"][label] = text;
    document_["metrics"].append(row);
  }
  void single(const char* name, const char* help, const Json::Value& value) {
    begin(name, help);
    add(value);
  }

  const std::string& text() const { return text_; }
  const Json::Value& document() const { return document_; }

 private:
  const char* name_ = "";
  std::string head_;
  std::string text_;
  std::set<std::string> series_;  ///< those that are written
  Json::Value document_;
};

void addBoard(Metrics& metrics, const Json::Value& page) {
  metrics.begin("sysmgr_board_info", "Model, bitstream and serial number of the board.");
  metrics.add(1, {{"model", page["model"].asString()},
                  {"bitstream", page["bitstream"].asString()},
                  {"serial_number", page["serial-number"].asString()}});
  metrics.begin("sysmgr_temperature_celsius", "Temperatures of the board.");
  metrics.add(page["fpga"]["temperature"], {{"sensor", "fpga"}});
  metrics.begin("sysmgr_fan_speed_rpm", "Speeds of the fans.");
  metrics.add(page["fan-speed"], {{"fan", "main"}});
  metrics.single("sysmgr_madi_lock", "Whether the MADI input is locked.", page["madi-lock"]);
  metrics.begin("sysmgr_service_enabled", "Whether a service is switched on.");
  for (const std::string& name : page["services"].getMemberNames()) {
    metrics.add(page["services"][name], {{"service", name}});
  }
  metrics.begin("sysmgr_error", "Errors that the board reports, by their codes; 1 while one is active.");
  for (const Json::Value& error : page["errors"]) {
    metrics.add(1, {{"code", cellOf(error["code"])}, {"description", error["description"].asString()}});
  }
  metrics.single("sysmgr_errors", "How many errors the board reports.", page["errors"].size());
  metrics.begin("sysmgr_whitelist_entries", "Ranges of the multicast whitelist.");
  metrics.add(page["whitelist"]["entries"], {{"state", "all"}});
  metrics.add(page["whitelist"]["enabled"], {{"state", "in-force"}});
}

void addPtp(Metrics& metrics, const Json::Value& page) {
  const Json::Value& ptp = page["ptp"];
  metrics.begin("sysmgr_ptp_state", "State of the PTP clock; 1 for the state that it is in.");
  if (ptp["state"].isString()) metrics.add(1, {{"state", ptp["state"].asString()}});
  metrics.single("sysmgr_ptp_offset_nanoseconds", "Offset from the PTP master.", ptp["offset"]);
  metrics.single("sysmgr_ptp_offset_threshold_nanoseconds", "Offset above which the board counts as not synchronised.",
                 page["ptp-offset-threshold"]);
}

void addInterfaces(Metrics& metrics, const Json::Value& interfaces) {
  struct Row {
    const char* name;
    const char* help;
    const char* path;
  };
  constexpr Row kRows[] = {
      {"sysmgr_interface_address_present", "Whether the interface has an IPv4 address.", "address-present"},
      {"sysmgr_interface_link_up", "Whether the interface has a link, where the command runs on the board.", "link"},
      {"sysmgr_sfp_present", "Whether the interface has an SFP module.", "sfp/present"},
      {"sysmgr_sfp_temperature_celsius", "Temperature of the SFP module.", "sfp/temperature"},
      {"sysmgr_sfp_receive_power_dbm", "Power that the SFP module receives.", "sfp/rx-power"},
      {"sysmgr_sfp_transmit_power_dbm", "Power that the SFP module sends.", "sfp/tx-power"},
  };
  for (const Row& row : kRows) {
    metrics.begin(row.name, row.help);
    for (const Json::Value& interface : interfaces) {
      const Json::Value* const value = valueAt(interface, row.path);
      if (value != nullptr) metrics.add(*value, {{"interface", interface["name"].asString()}});
    }
  }
}

/// The numbers and switches of a document whose layout the daemon chooses: its counters among them.
void addOwn(Metrics& metrics, const char* name, const char* help, const Json::Value& document) {
  metrics.begin(name, help, "untyped");
  forEachLeaf(document, [&metrics](const std::string& path, const Json::Value& value) {
    if (value.isNumeric() || value.isBool()) metrics.add(value, {{"path", path}});
  });
}

void publish(Call& call, const Metrics& metrics) {
  const std::string file = call.word("file");
  if (!file.empty() && file != "-") return replaceFile(file, metrics.text());
  call.output.page(metrics.document(), [&] { call.output.verbatim(metrics.text()); });
}

}  // namespace

void runMetrics(Call& call) {
  constexpr const char* kUp = "sysmgr_up";
  constexpr const char* kUpHelp = "Whether the system manager daemon answers.";
  Metrics metrics;
  try {
    const BoardState board = readBoard(call.daemon());
    const Json::Value page = pageOf(board);
    const Json::Value debug = documentIfServed(call.daemon(), "debug");
    metrics.single(kUp, kUpHelp, true);
    addBoard(metrics, page);
    addPtp(metrics, page);
    addInterfaces(metrics, page["interfaces"]);
    addOwn(metrics, "sysmgr_network_stack", "Numbers in the state of the network stack.", board.network);
    addOwn(metrics, "sysmgr_debug", "The daemon's own counters.", debug);
  } catch (const Failure&) {
    Metrics down;  // a collector sees that the daemon is away, and none of the values from before
    down.single(kUp, kUpHelp, false);
    publish(call, down);
    throw;
  }
  publish(call, metrics);
}

}  // namespace zel::ctl
