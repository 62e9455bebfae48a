#include <algorithm>
#include <chrono>
#include <cmath>
#include <optional>

#include "cli/board_state.h"
#include "cli/command.h"
#include "cli/following.h"
#include "cli/values.h"
#include "client/zmq_utils.h"
#include "common/shared/format_text.h"
#include "view/board_view.h"

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
    if (row.isMember("link")) row["link"] = row["link"].asBool() ? "up" : "down";
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
  std::vector<Column> columns = {{"name", "INTERFACE"}, {"address", "ADDRESS"}, {"mode", "MODE"}, {"label", "LABEL"},
                                 {"rx", "RECEIVED"},    {"tx", "SENT"},         {"mac", "MAC"},   {"module", "SFP"}};
  const auto hasLink = [](const Json::Value& row) { return row.isMember("link"); };
  const Json::Value& interfaces = page["interfaces"];
  if (std::any_of(interfaces.begin(), interfaces.end(), hasLink)) columns.insert(columns.begin() + 1, {"link", "LINK"});
  output.table(interfaceTable(interfaces), columns);
}

void draw(Output& output, const Json::Value& page) {
  output.page(page, [&] { layOut(output, page); });
}

/// How long the daemon may take for an answer while the pictures go on.
constexpr std::chrono::seconds kAnswer{5};

/// Draws the board as a view of it has it. A daemon that is away is a picture, too.
class Painter {
 public:
  /// @param end  of the command; null: it has none
  Painter(Output& output, double interval, const Deadline* end)
      : output_(output), end_(end), view_(ZmqUtils::getInstance().getContext()) {
    // Between two pictures the daemon is asked for each of the four documents, if it says nothing by itself.
    constexpr double kDocuments = 4;
    constexpr std::chrono::milliseconds kShortest{5};
    const std::chrono::milliseconds each(std::llround(interval * 1000.0 / kDocuments));
    view_.setProbe(std::max(each, kShortest), kAnswer);
    openView(view_);
  }

  void drawNext() {
    try {
      drawBoard();
    } catch (const Failure& failure) {
      if (output_.isJson()) return note(failure.what());
      output_.line(failure.what());
    }
  }

  /// Follows the daemon for a while; does what is due also where the time is over before.
  void rest(const Deadline& pause) {
    do {
      attend(view_, static_cast<long>(pause.left().count()));
    } while (!pause.isOver());
  }

 private:
  /// Until the view has the documents, they are read as without it, and a failure has its reason.
  void drawBoard() {
    const Deadline longest(std::chrono::duration<double>(kAnswer).count());
    const Deadline& answer = end_ != nullptr && end_->left() < longest.left() ? *end_ : longest;
    if (view_.state() == BoardView::State::kConnecting) {
      Daemon daemon(answer);
      page_ = pageOf(readBoard(daemon));
    } else if (view_.state() == BoardView::State::kLive) {
      Daemon daemon(answer);
      page_ = pageOf({view_.stored(), view_.dynamic(), view_.boardModel(), documentIfServed(daemon, "network"),
                      view_.document(zel::Document::kWhitelist)});
    } else {
      const std::string age = "the daemon was last heard " + secondsSinceTold() + " s ago";
      if (output_.isJson()) return note(age);
      output_.line(age + "; this is the board as it was:");
    }
    draw(output_, page_);
  }

  std::string secondsSinceTold() const {
    std::optional<BoardView::Clock::time_point> last;
    for (const zel::Document each :
         {zel::Document::kStored, zel::Document::kDynamic, zel::Document::kBoardModel, zel::Document::kWhitelist}) {
      last = std::max(last, view_.confirmedAt(each));
    }
    const auto since = BoardView::Clock::now() - last.value_or(BoardView::Clock::now());
    return std::to_string(std::chrono::duration_cast<std::chrono::seconds>(since).count());
  }

  Output& output_;
  const Deadline* end_;
  BoardView view_;
  Json::Value page_;  ///< the last one
};

void watchStatus(Call& call) {
  constexpr double kInterval = 1;
  constexpr std::int64_t kMost = 1000000000;
  const auto number = [&call](const char* option) {
    return valueFor(option, [&] { return parseNumber(call.word(option), 1, kMost); });
  };
  const double interval = call.has("--interval")
                              ? valueFor("--interval", [&call] { return parseSeconds(call.word("--interval")); })
                              : kInterval;
  const std::int64_t count = call.has("--count") ? number("--count") : kMost;
  const Deadline* const end = call.end();
  Painter painter(call.output, interval, end);
  for (std::int64_t i = 0; i < count; ++i) {
    const Deadline pause(interval);
    if (i > 0) call.output.separatePictures();
    painter.drawNext();
    call.output.showPicture();
    if (i + 1 == count) return;
    if (end != nullptr && end->left() <= pause.left()) {
      painter.rest(*end);
      throw timeIsOver(*end);
    }
    painter.rest(pause);
  }
}

}  // namespace

void runStatus(Call& call) {
  if (call.has("--watch")) return watchStatus(call);
  if (call.has("--interval") || call.has("--count")) throw usage("--interval and --count go with --watch");
  draw(call.output, pageOf(readBoard(call.daemon())));
}

}  // namespace zel::ctl
