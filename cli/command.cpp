#include "cli/command.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "cli/json_paths.h"
#include "cli/keys.h"
#include "cli/values.h"
#include "client/endpoints.h"
#include "types/sysmgr_types.h"
#include "types/whitelist.h"

namespace zel::ctl {

namespace {

constexpr std::size_t kAny = Argument::kAny;

Offers documentNames(const Words&, const std::string&) { return documents(); }

/// The paths that a document has as a rule: those of a new record. The daemon is not asked.
Offers usualPaths(const Words& before, const std::string&) {
  Json::Value document;
  const std::string name = before.empty() ? "" : before.front();
  if (name == "stored") SysParameters().Serialize(document);
  if (name == "dynamic") SysParametersDynamic().Serialize(document);
  if (name == "model") BoardModel().Serialize(document);
  return offersOf(pathsOf(document));
}

/// A document of the daemon's; null when it does not answer at once.
Json::Value documentForOffers(const char* name) {
  constexpr double kSeconds = 0.3;
  const Deadline deadline(kSeconds);
  try {
    return Daemon(deadline).get(name);
  } catch (const Failure&) {
    return Json::Value();
  }
}

/// The names of a list's elements, with a word about each.
Offers elementsOf(const Json::Value& list, const char* name, const char* word) {
  Offers offers;
  if (!list.isArray()) return offers;
  for (const Json::Value& element : list) {
    if (element.isObject() && element[name].isString()) {
      offers.push_back({cellOf(element[name]), element[word].isString() ? cellOf(element[word]) : ""});
    }
  }
  return offers;
}

Offers runningInterfaces(const Words&, const std::string&) {
  return elementsOf(documentForOffers("dynamic")["eth-basics"], "name", "label");
}

Offers configuredInterfaces(const Words&, const std::string&) {
  return elementsOf(documentForOffers("stored")["ethipv4"], "eth", "mode");
}

Offers ranges(const Words&, const std::string&) {
  Offers offers;
  for (Json::Value element : documentForOffers("whitelist")) {
    WhiteListEntry entry;
    if (!element.isObject()) continue;
    entry.Deserialize(element);
    offers.push_back({entry.getIpStr() + typedMask(entry.mask), entry.enabled ? "in force" : "not in force"});
  }
  return offers;
}

Offers gpioLines(const Words&, const std::string&) {
  const Json::Value lines = documentForOffers("gpio");
  return lines.isObject() ? offersOf(lines.getMemberNames()) : Offers();
}

Offers gpioFields(const Words&, const std::string&) {
  Offers offers;
  forEachLeaf(documentForOffers("gpio"), [&offers](const std::string& path, const Json::Value& value) {
    offers.push_back({path + "=", "now " + cellOf(value)});
  });
  return offers;
}

/// The files and folders whose paths begin so.
Offers files(const Words&, const std::string& begin) {
  const std::string folder = begin.substr(0, begin.rfind('/') + 1);
  const bool wantsHidden = begin.size() > folder.size() && begin[folder.size()] == '.';
  Offers offers;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(folder.empty() ? "." : folder, error)) {
    const std::string name = entry.path().filename().string();
    const bool isHidden = name.front() == '.';
    if (isHidden == wantsHidden) offers.push_back({folder + name + (entry.is_directory(error) ? "/" : "")});
  }
  std::sort(offers.begin(), offers.end(), [](const Offer& a, const Offer& b) { return a.word < b.word; });
  return offers;
}

Offers sidesOfDiff(const Words& before, const std::string& begin) {
  Offers offers = {{"live", "the configuration that the daemon keeps"}, {"factory", "that of the model's factory"}};
  for (Offer& offer : files(before, begin)) offers.push_back(std::move(offer));
  return offers;
}

Offers keysAndValues(const Words& before, const std::string& begin) {
  std::size_t loose = 0;  // words that are a key or a value of their own
  for (const std::string& word : before) loose += loose % 2 == 1 || word.find('=') == std::string::npos ? 1 : 0;
  const bool isKey = loose % 2 == 0;
  Offers offers;
  for (const SettingRow* const row : settableRows()) {
    if (isKey) {
      offers.push_back({row->path, row->meaning});
    } else if (before.back() == row->path) {
      offers = row == &settings::kRemoveInterface ? configuredInterfaces(before, begin) : offersOf(offeredValues(*row));
    }
  }
  return offers;
}

Offers onOff(const Words&, const std::string&) { return offersOf(switchWords()); }
Offers watched(const Words&, const std::string&) { return offersOf(watchableDocuments()); }

Offers models(const Words&, const std::string&) {
  Offers offers;
  for (int value = 0; value < BoardModelType::BOARD_MODEL_UNDEFINED; ++value) {
    const auto model = static_cast<BoardModelType::board_models_t>(value);
    offers.push_back({BoardModelType::toText(model), BoardModelType::displayName(model)});
  }
  return offers;
}

const Argument kNewRange = {"address", "ADDRESS", "the range: 239.1.0.0/16, or 239.1.0.0 with MASK", 1};
const Argument kRange = {"address", "ADDRESS", kNewRange.help, 1, 1, ranges};
const Argument kMask = {"mask", "MASK", "its mask, where ADDRESS has no /PREFIX"};
const Option kYes = {"--yes", nullptr, "do it without asking"};
const Option kConfirm = {"--confirm", "SECONDS", "bring the old values back after this time, unless 'confirm' follows"};
const Option kLeases = {"--leases", "DIRECTORY", "where the DHCP client keeps its leases", files};

std::string listOfDocuments() {
  std::string lines = "Documents:\n";
  for (Offer& document : documents()) {
    document.word.resize(11, ' ');
    lines += "  " + document.word + document.meaning + "\n";
  }
  return lines + "\n";
}

}  // namespace

const std::vector<Command>& commands() {
  static const std::vector<Command> kCommands = {
      {"status",
       "the board on one page",
       runStatus,
       {},
       {{"--watch", nullptr, "draw it again and again"},
        {"--interval", "SECONDS", "the time between two pictures; 1 where nothing else is said"},
        {"--count", "N", "end after N pictures"}}},
      {"get",
       "a document of the daemon's, or one value of it",
       runGet,
       {{"document", "DOCUMENT", "what to read", 1, 1, documentNames},
        {"path", "PATH", "the places in it: rtsp/tcp-port", 0, kAny, usualPaths}},
       {{"--values", nullptr, "print the values alone, a line each", nullptr, 'g'}},
       listOfDocuments() + "A single value is printed alone, for use in scripts. With --json and a PATH the output "
                           "is an object with the paths as its members."},
      {"set",
       "change stored parameters",
       runSet,
       {{"keys", "KEY VALUE", "keys with their values, also as KEY=VALUE; several are set together or not at all", 0,
         kAny, keysAndValues}},
       {{"--list", nullptr, "list the keys with their types and meanings"}, kConfirm},
       "Keys are those that 'get stored' and 'watch' show: sysmgrctl set rtsp/tcp-port 5004\n"
       "A value that begins with a dash goes behind '--': sysmgrctl set -- nmos/node-name -x"},
      {"export",
       "write what can be set on the board into a file",
       runExport,
       {{"file", "FILE", "the file, replaced in one step; standard output without it or for -", 0, 1, files}},
       {},
       "The file has a line KEY = VALUE for each key that 'set' takes, each interface and each whitelist range."},
      {"import",
       "set what a file says",
       runImport,
       {{"file", "FILE", "a file that 'export' has written, or a part of one; - is standard input", 1, 1, files}},
       {{"--dry-run", nullptr, "only show what would change"},
        {"--other-model", nullptr, "also a file of another board model"},
        kConfirm},
       "It shows what it changes, and changes nothing else. A key that the file does not have stays. The interfaces "
       "and the whitelist are replaced as a whole where the file has one of their elements. Stopped at any moment, it "
       "ends in the same state when it is run again.",
       30},
      {"confirm",
       "keep what a change with --confirm has set",
       runConfirm,
       {},
       {{"--undo", nullptr, "bring the old values back now"}}},
      {"diff",
       "show how two configurations differ",
       runDiff,
       {{"sides", "FILE", "a file, 'live' or 'factory'", 0, 2, sidesOfDiff}},
       {},
       "With one FILE the other side is 'live', without any it is from 'factory' to 'live'. The exit status is 1 when "
       "there is a difference."},
      {"eth", "stored IPv4 configurations of the interfaces", nullptr},
      {"eth list", "list them", runEthList},
      {"eth add",
       "add the configuration of an interface, or replace it",
       runEthAdd,
       {{"name", "NAME", "the interface: eth1, eth0.10", 1, 1, runningInterfaces}},
       {{"--dhcp", nullptr, "take the address from a DHCP server"},
        {"--address", "ADDRESS", "a fixed address: 192.168.0.100/24, or without /PREFIX and with --mask"},
        {"--mask", "MASK", "its network mask: 255.255.255.0"},
        {"--gateway", "ADDRESS", "the default gateway"}}},
      {"eth remove",
       "remove the configuration of an interface",
       runEthRemove,
       {{"name", "NAME", "the interface", 1, 1, configuredInterfaces}}},
      {"eth defaults",
       "the factory configurations of a board model",
       runEthDefaults,
       {},
       {{"--model", "MODEL", "of this model, without asking the daemon", models}}},
      {"eth validate",
       "check whether they can be applied",
       runEthValidate,
       {{"name", "NAME", "only this interface", 0, 1, configuredInterfaces}},
       {},
       "The exit status is 1 when one of them cannot."},
      {"whitelist", "from where multicast streams are accepted", nullptr},
      {"whitelist list", "list the ranges", runWhitelistList},
      {"whitelist add",
       "add a range",
       runWhitelistAdd,
       {kNewRange, kMask},
       {{"--disabled", nullptr, "do not put it in force yet"}}},
      {"whitelist remove", "remove a range", runWhitelistRemove, {kRange, kMask}},
      {"whitelist enable", "put a range in force", runWhitelistEnable, {kRange, kMask}},
      {"whitelist disable", "keep a range, but not in force", runWhitelistDisable, {kRange, kMask}},
      {"module",
       "report the state of a module of the board to the daemon",
       runModule,
       {{"name", "NAME", "the module", 1}},
       {{"--error", nullptr, "it has failed"}, {"--warn", nullptr, "it needs attention"}},
       "Without --error and --warn the module is reported to be well."},
      {"identify",
       "let the identification LEDs blink",
       runIdentify,
       {{"state", "on|off", "whether they blink", 1, 1, onOff}}},
      {"gpio", "general purpose lines", nullptr},
      {"gpio get", "read them", runGpioGet, {{"lines", "LINE", "only these lines", 0, kAny, gpioLines}}},
      {"gpio set",
       "change them",
       runGpioSet,
       {{"changes", "LINE/FIELD=VALUE", "what to change; VALUE is JSON, or else a text", 1, kAny, gpioFields}},
       {},
       "LINE and FIELD are as 'gpio get' shows them: sysmgrctl gpio set gpio0/value=true"},
      {"reboot", "restart the board", runReboot, {}, {kYes}},
      {"factory-reset", "set the whole configuration back to the factory's", runFactoryReset, {}, {kYes}},
      {"watch",
       "print what changes, as it changes",
       runWatch,
       {{"documents", "DOCUMENT", "only changes of these", 0, kAny, watched}},
       {{"--count", "N", "end after N changes"},
        {"--timeout", "SECONDS", "end after this time"},
        {"--time", nullptr, "begin each line with the time"},
        {"--exec", "COMMAND", "run this command in a shell for each line"}},
       "Each line is a change: the document, the key, the old and the new value; '-' where there is none. A value that "
       "changes faster than the lines are written is one change.\n"
       "With --json each line is an object: {\"event\", \"key\", \"old\", \"new\"}.\n"
       "Documents: stored, dynamic, whitelist, reboot. Without --count and --timeout it runs until "
       "Ctrl-C. The exit status is 3 when the time ends before N changes have come."},
      {"record",
       "keep what the board reports in a file, for 'sysmgr-sim --replay'",
       runRecord,
       {{"file", "FILE", "a new file, an event a line; standard output for -", 1}},
       {{"--timeout", "SECONDS", "end after this time"}},
       "Each line is a JSON object: the stored parameters, the dynamic information, the board model and\n"
       "the whitelist at the start and whenever the daemon is back, and every notification as it came.\n"
       "Without --timeout it runs until Ctrl-C. A daemon that goes away is waited for."},
      {"metrics",
       "the state of the board as metrics for Prometheus",
       runMetrics,
       {{"file", "FILE", "replace this file by them, in one step; standard output without it or for -", 0, 1, files}},
       {},
       "Without a daemon the metric sysmgr_up is 0, there are no others, and the exit status is 8."},
      {"delta", "the stored parameters that are not as the factory set them", runDelta},
      {"dump", "the stored parameters as the library lists them in logs", runDump},
      {"host", "this machine's interfaces, addresses and DHCP leases", runHost, {}, {kLeases}},
      {"doctor",
       "look for what is wrong, and say what to do",
       runDoctor,
       {},
       {kLeases},
       "The exit status is 0 when nothing is wrong (notes do not count), 8 without a daemon, 3 when it "
       "does not answer, and 1 for other problems."},
      {"wait-ready",
       "wait until the daemon answers",
       runWaitReady,
       {},
       {},
       "It waits 30 seconds unless '-w SECONDS' says otherwise. The exit status is 0 once the daemon "
       "has answered, 8 when no daemon came and 3 when one came and did not answer.",
       30},
  };
  return kCommands;
}

const std::vector<Option>& commonOptions() {
  static const std::vector<Option> kOptions = {
      {"--json", nullptr, "JSON on standard output in place of tables"},
      {"--wait", "SECONDS", "how long the whole command may take; 5 where nothing else is said", nullptr, 'w'},
      {"--requests", "ENDPOINT", "where the daemon takes requests, if not at tcp://127.0.0.1:5556"},
      {"--notifications", "ENDPOINT", "where the daemon publishes, if not at tcp://127.0.0.1:5575"},
      {"--verbose", nullptr, "show the library's messages on standard error; -vv shows more of them", nullptr, 'v'},
      {"--help", nullptr, "this help, or the help of a command", nullptr, 'h'},
      {"--version", nullptr, "the version"},
  };
  return kOptions;
}

const Command* commandOf(const std::string& name) {
  for (const Command& command : commands()) {
    if (command.name == name) return &command;
  }
  return nullptr;
}

Words commandsIn(const std::string& group) {
  const std::string prefix = group.empty() ? "" : group + " ";
  Words names;
  for (const Command& command : commands()) {
    const bool inside = command.name.compare(0, prefix.size(), prefix) == 0;
    if (inside && command.name.find(' ', prefix.size()) == std::string::npos) {
      names.push_back(command.name.substr(prefix.size()));
    }
  }
  return names;
}

namespace {

double secondsOf(const Command& command, const Values& values) {
  const auto wait = values.find("--wait");
  if (wait == values.end()) return command.seconds;
  return valueFor("--wait", [&wait] { return parseSeconds(wait->second.back()); });
}

}  // namespace

Call::Call(const Command& command, Values values)
    : deadline(secondsOf(command, values)),
      output(values.count("--json") > 0),
      seconds_(command.seconds),
      values_(std::move(values)) {
  if (has("--wait")) output.endBy(deadline);
  useEndpoints(word("--requests"), word("--notifications"));
}

const Words& Call::words(const std::string& key) const {
  static const Words kNone;
  const auto found = values_.find(key);
  return found == values_.end() ? kNone : found->second;
}

void Call::beginTime() {
  if (!has("--wait")) deadline = Deadline(seconds_);
}

Daemon& Call::daemon() {
  if (!daemon_) daemon_ = std::make_unique<Daemon>(deadline);
  return *daemon_;
}

}  // namespace zel::ctl
