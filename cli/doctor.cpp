#include <algorithm>
#include <list>
#include <map>
#include <optional>
#include <set>

#include "cli/advice.h"
#include "cli/command.h"
#include "cli/following.h"
#include "cli/host_interfaces.h"
#include "cli/json_paths.h"
#include "cli/keys.h"
#include "cli/publisher_probe.h"
#include "cli/view_counters.h"
#include "client/endpoints.h"
#include "client/zmq_utils.h"
#include "common/error_aux_msg.h"
#include "common/shared/format_text.h"
#include "common/shared/ipv4.h"
#include "types/sysmgr_types.h"
#include "types/whitelist.h"
#include "view/board_view.h"

namespace zel::ctl {

namespace {

/// What the checks look at.
struct Snapshot {
  Json::Value storedDocument;
  Json::Value modelDocument;
  SysParameters stored;
  SysParametersDynamic dynamic;
  BoardModel model;
  Json::Value whitelist;
  Host host;
};

/// The results of the checks, in their order.
class Findings {
 public:
  void fine(const std::string& what) { add("ok", what, ""); }
  /// Odd, but perhaps meant.
  void note(const std::string& what, const std::string& advice) { add("note", what, advice); }
  void problem(const std::string& what, const std::string& advice) {
    add("problem", what, advice);
    ++problems_;
  }

  int problems() const { return problems_; }
  const Json::Value& list() const { return list_; }

 private:
  void add(const char* severity, const std::string& what, const std::string& advice) {
    Json::Value finding;
    finding["severity"] = severity;
    finding["what"] = what;
    if (!advice.empty()) finding["advice"] = advice;
    list_.append(finding);
  }

  Json::Value list_{Json::arrayValue};
  int problems_ = 0;
};

using Check = void (*)(const Snapshot& board, Findings& findings);

std::set<std::string> namesOf(const std::list<EthBasicInfo>& interfaces) {
  std::set<std::string> names;
  for (const EthBasicInfo& info : interfaces) names.insert(info.name);
  return names;
}

void checkModel(const Snapshot& board, Findings& findings) {
  if (board.model.model == BoardModelType::BOARD_MODEL_UNDEFINED) {
    findings.problem("the daemon does not know which board this is",
                     "factory settings and traffic interfaces depend on it: look at 'sysmgrctl get model'");
  }
  const BitstreamType::bitstream_t running = board.model.bitstream.type;
  const BitstreamType::bitstream_t configured = board.stored.bitstream.type;
  if (configured != BitstreamType::BITSTREAM_NONE && configured != running) {
    findings.note(std::string("the bitstream ") + BitstreamType::toText(configured) + " is configured, but " +
                      BitstreamType::toText(running) + " is running",
                  "'sysmgrctl reboot' lets the board load the configured one");
  }
}

/// Names a text of the daemon's that selects no value.
/// @param used  the text of the value that the record has instead
void checkText(const std::string& path, const Json::Value& document, bool (*isKnown)(std::string_view text),
               const std::string& used, Findings& findings) {
  const Json::Value* const value = valueAt(document, path);
  if (value == nullptr || !value->isString() || value->asString().empty()) return;
  if (value->asString() == used || isKnown(value->asString())) return;
  findings.problem(path + " '" + value->asString() + "' is not known, read as " + used,
                   "is the daemon of another version than this program? Letter case counts");
}

void checkTexts(const Snapshot& board, Findings& findings) {
  checkText(
      "model", board.modelDocument, [](auto text) { return BoardModelType::fromText(text).has_value(); },
      BoardModelType::toText(board.model.model), findings);
  checkText("module", board.modelDocument, settings::kBitstreamModule.values.reads,
            BitstreamType::toText(board.model.bitstream.type), findings);
  Json::Value read;
  board.stored.Serialize(read);
  for (const SettingRow* const row : settableRows()) {
    if (row->kind != SettingRow::Kind::kChoice) continue;
    const Json::Value* const used = valueAt(read, row->path);
    checkText(row->path, board.storedDocument, row->values.reads, used == nullptr ? "" : used->asString(), findings);
  }
  for (const EthIpV4Cfg& config : board.stored.ethIPv4Cfg) {
    for (const char* const place : {"/mode", "/mode/mode"}) {
      checkText(
          "ethipv4/" + config.eth + place, board.storedDocument,
          [](auto text) { return EthMode::fromText(text).has_value(); }, EthMode::toText(config.mode.mode), findings);
    }
  }
}

void checkErrors(const Snapshot& board, Findings& findings) {
  for (const SystemError& error : board.dynamic.errors) {
    findings.problem("the board reports error " + std::to_string(error.code) + ": " + error.description,
                     "the text is the daemon's; 'sysmgrctl watch dynamic' shows when it goes");
  }
}

void checkInterfaceNames(const Snapshot& board, Findings& findings) {
  const std::pair<const char*, std::string> named[] = {
      {"rtsp/eth-port", board.stored.rtspEthPort},
      {"advert/eth-port", board.stored.advertEthPort},
      {"nmos/advertisement-interface", board.stored.nmos.advertisementInterface}};
  const std::set<std::string> there = namesOf(board.dynamic.ethBasics);
  for (const auto& [key, name] : named) {
    if (name == "all" || there.count(name) > 0) continue;
    findings.problem(std::string(key) + " names '" + name + "', which is not an interface of the board",
                     std::string("set one of those in 'sysmgrctl status': sysmgrctl set ") + key + " NAME");
  }
}

void checkConfigurations(const Snapshot& board, Findings& findings) {
  const std::set<std::string> there = namesOf(board.dynamic.ethBasics);
  std::map<uint32_t, std::string> owners;
  for (const EthIpV4Cfg& config : board.stored.ethIPv4Cfg) {
    ErrorAuxMsg::getInstance()->clear();
    if (config.validate() != 0) {
      const std::vector<std::string> messages = ErrorAuxMsg::getInstance()->getMessages();
      findings.problem("the configuration of " + config.eth +
                           " cannot be applied: " + (messages.empty() ? "it is not valid" : messages.back()),
                       "'sysmgrctl eth add " + config.eth + " ...' replaces it");
    }
    if (there.count(config.eth) == 0) {
      findings.note("a configuration is stored for " + config.eth + ", which the board does not have",
                    "'sysmgrctl eth remove " + config.eth + "' removes it");
    }
    for (const std::string& odd : adviceOn(config)) {
      findings.note(config.eth + ": " + odd, "'sysmgrctl eth add " + config.eth + " ...' replaces the configuration");
    }
    if (config.mode.mode != EthMode::ETH_MODE_STATIC || config.ip == 0) continue;
    const auto [owner, isNew] = owners.emplace(config.ip, config.eth);
    if (!isNew) {
      findings.problem(
          owner->second + " and " + config.eth + " have the same address, " + IpAddress(config.ip).toString(),
          "give one of them another with 'sysmgrctl eth add'");
    }
  }
}

void checkAddresses(const Snapshot& board, Findings& findings) {
  for (const EthBasicInfo& info : board.dynamic.ethBasics) {
    if (info.ipPresent) continue;
    findings.note(info.name + " has no address", "is its cable plugged in, and does a DHCP server answer there?");
  }
}

void checkPorts(const Snapshot& board, Findings& findings) {
  for (const SharedPort& shared : sharedPorts(board.stored)) {
    findings.problem(std::string(shared.key) + " and " + shared.other + " are both " + std::to_string(shared.port),
                     std::string("give one of them another port: sysmgrctl set ") + shared.other + " NUMBER");
  }
}

void checkVlans(const Snapshot& board, Findings& findings) {
  if (board.stored.redundancyEnable && board.stored.primaryVlanId == board.stored.secondaryVlanId) {
    findings.note("redundancy is on, and both networks use VLAN " + std::to_string(board.stored.primaryVlanId),
                  "two networks need two ids: sysmgrctl set vlan/secondary-id NUMBER");
  }
}

void checkAutosave(const Snapshot& board, Findings& findings) {
  if (board.stored.cfgAutosaveEnable) return;
  findings.note("changes are not saved by themselves: a restart loses them",
                "'sysmgrctl set cfg/autosave-enable on' changes that");
}

void checkWhitelist(const Snapshot& board, Findings& findings) {
  for (const Json::Value& element : board.whitelist) {
    Json::Value copy = element;
    WhiteListEntry entry;
    entry.Deserialize(copy);
    for (const std::string& odd : adviceOn(entry)) {
      findings.note("the whitelist: " + odd, "'sysmgrctl whitelist remove' and 'whitelist add' replace the range");
    }
    if (!isMulticast(entry.ip)) {
      findings.problem("the whitelist holds " + entry.getIpStr() + ", which is not a multicast address",
                       "'sysmgrctl whitelist remove " + entry.getIpStr() + " " + entry.getMaskStr() + "' removes it");
    }
  }
}

void checkHost(const Snapshot& board, Findings& findings) {
  if (!board.host.leasesAreKnown) {
    findings.note("the DHCP leases in " + board.host.leaseDirectory + " cannot be read",
                  "without them nothing shows which addresses come from DHCP; is a DHCP client installed?");
  }
  std::set<std::string> names;
  for (const Json::Value& interface : board.host.interfaces) names.insert(interface["name"].asString());
  Words strangers;
  for (const EthBasicInfo& info : board.dynamic.ethBasics) {
    if (names.count(info.name) == 0) strangers.push_back(info.name);
  }
  if (strangers.empty()) return;
  findings.note("the daemon reports " + listed(strangers) + ", which this machine does not have",
                "'sysmgrctl host' shows what it has; does the daemon run in a container, or is it a stand-in?");
}

constexpr Check kChecks[] = {checkModel,          checkTexts,     checkErrors, checkInterfaceNames,
                             checkConfigurations, checkAddresses, checkPorts,  checkVlans,
                             checkAutosave,       checkWhitelist, checkHost};

/// Reads what the checks look at. @return nothing when the daemon does not get that far; the findings say why
std::optional<Snapshot> examine(Call& call, Findings& findings, Exit& status) {
  Snapshot board;
  try {
    Daemon& daemon = call.daemon();
    board.storedDocument = daemon.get("stored");
    board.stored = Daemon::read<SysParameters>("stored", board.storedDocument);
    findings.fine("a daemon is there and answers");
    board.dynamic = daemon.record<SysParametersDynamic>("dynamic");
    board.modelDocument = daemon.get("model");
    board.model = Daemon::read<BoardModel>("model", board.modelDocument);
    board.whitelist = daemon.whitelist();
    for (const char* name : {"info", "network", "debug"}) daemon.get(name);
    findings.fine("it answers every question");
  } catch (const Failure& failure) {
    status = failure.status();
    const char* const advice =
        status == Exit::kNoDaemon
            ? "start the daemon, and look into its log when it does not stay; 'sysmgrctl wait-ready' waits for it"
        : status == Exit::kTimeOut ? "it is there, but stuck or very busy: look into its log, and restart it"
                                   : "is it of another version than this program? Its log may say more";
    findings.problem(failure.what(), advice);
    return std::nullopt;
  }
  board.host = examineHost(call.word("--leases"));
  return board;
}

void checkPublisher(bool accepts, Findings& findings) {
  if (accepts) return findings.fine("it takes subscribers for its notifications");
  findings.problem("no program accepts subscribers for notifications at " + notificationEndpoint(),
                   "programs that follow changes see none: restart the daemon, and look into its log");
}

/// Follows the daemon until a view of it is live. @return the counters of the view
Json::Value checkView(const Deadline& whole, Findings& findings) {
  constexpr double kSeconds = 2;
  const Deadline limit(kSeconds);
  BoardView view(ZmqUtils::getInstance().getContext());
  openView(view);
  while (view.state() != BoardView::State::kLive && !limit.isOver() && !whole.isOver()) {
    attend(view, static_cast<long>(std::min(limit.left(), whole.left()).count()));
  }
  const std::string counted = textOf(view.counters());
  if (view.state() == BoardView::State::kLive) {
    findings.fine("a program can follow it: " + counted);
  } else {
    findings.problem("a program cannot follow it: " + counted,
                     "'sysmgrctl watch -v' shows more; is the daemon of another version than this program?");
  }
  return documentOf(view.counters());
}

std::string marked(const Json::Value& finding) {
  std::string mark = finding["severity"].asString();
  mark.resize(9, ' ');
  return mark + cellOf(finding["what"]);
}

}  // namespace

void runDoctor(Call& call) {
  Findings findings;
  Exit status = Exit::kOther;
  const bool publishes = publisherAccepts(call.deadline);  // first: a daemon that does not answer takes all the time
  const std::optional<Snapshot> board = examine(call, findings, status);
  if (status != Exit::kNoDaemon) checkPublisher(publishes, findings);
  Json::Value document;
  if (board) {
    if (publishes) document["view"] = checkView(call.deadline, findings);
    for (const Check check : kChecks) check(*board, findings);
  }
  document["findings"] = findings.list();
  call.output.page(document, [&] {
    for (const Json::Value& finding : findings.list()) {
      call.output.line(marked(finding));
      if (finding.isMember("advice")) call.output.line("         -> " + cellOf(finding["advice"]));
    }
  });
  if (findings.problems() > 0) {
    const std::string count = std::to_string(findings.problems());
    throw Failure(status, count + (findings.problems() == 1 ? " problem was" : " problems were") + " found");
  }
}

}  // namespace zel::ctl
