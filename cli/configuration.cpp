#include "cli/configuration.h"

#include <json/reader.h>

#include <algorithm>
#include <memory>
#include <set>
#include <sstream>

#include "cli/json_paths.h"
#include "cli/keys.h"
#include "cli/notices.h"
#include "cli/output.h"
#include "cli/suggest.h"
#include "cli/values.h"
#include "common/shared/format_text.h"
#include "types/whitelist.h"

#ifndef SYSMGRCTL_VERSION
#error "the build says which version this is"
#endif

namespace zel::ctl {

namespace {

constexpr const char* kModelKey = "board-model";
constexpr const char* kVersionKey = "library-version";
constexpr const char* kInterfaces = "ethipv4";
constexpr const char* kNone = "none";  ///< in place of the elements of an empty list

/// The rows that a configuration states: those that a request sets and the stored document shows.
std::vector<const SettingRow*> statedRows() {
  std::vector<const SettingRow*> rows = settableRows();
  const auto isChange = [](const SettingRow* row) { return row->route == SettingRow::Route::kListChange; };
  rows.erase(std::remove_if(rows.begin(), rows.end(), isChange), rows.end());
  return rows;
}

/// Null: a configuration does not state the key, or it is that of a list.
const SettingRow* statedRow(const std::string& key) {
  const SettingRow* const row = settings::findPath(key);
  const std::vector<const SettingRow*> rows = statedRows();
  return std::find(rows.begin(), rows.end(), row) == rows.end() ? nullptr : row;
}

bool isText(const SettingRow& row) { return row.kind == SettingRow::Kind::kText; }

std::string inList(const char* list, const std::string& name) { return std::string(list) + "/" + name; }

// --- from the records

Configuration::Texts textsOf(const SysParameters& stored) {
  Json::Value document;
  stored.Serialize(document);
  Configuration::Texts texts;
  for (const SettingRow* const row : statedRows()) {
    const Json::Value* const value = valueAt(document, row->path);
    texts[row->path] = value == nullptr ? kUnset : typedText(*row, *value);
  }
  return texts;
}

Configuration::Texts textsOf(const std::list<EthIpV4Cfg>& interfaces) {
  Configuration::Texts texts;
  for (const EthIpV4Cfg& config : interfaces) texts[inList(kInterfaces, config.eth)] = typedText(config);
  return texts;
}

Configuration::Texts textsOf(const Json::Value& whitelist) {
  Configuration::Texts texts;
  for (Json::Value element : whitelist) {
    WhiteListEntry entry;
    entry.Deserialize(element);
    texts[inList(kWhitelistMember, entry.getIpStr())] = typedMask(entry.mask) + (entry.enabled ? " on" : " off");
  }
  return texts;
}

// --- the file

/// A text in double quotes, as JSON has it.
std::string quoted(const std::string& text) { return Output::asJson(text); }

std::string keyText(const std::string& key) {
  constexpr const char* kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._:-";
  return key.find_first_not_of(kPlain) == std::string::npos ? key : quoted(key);
}

void writeList(std::string& text, const char* name, const std::optional<Configuration::Texts>& list) {
  if (!list) return;
  text += "\n";
  if (list->empty()) text += std::string(name) + " = " + kNone + "\n";
  for (const auto& [key, value] : *list) text += joined({keyText(key), " = ", value, "\n"});
}

std::string trimmed(const std::string& text) {
  constexpr const char* kBlanks = " \t\r";
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string::npos) return "";
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

/// A line of a file in its parts.
struct Line {
  std::string key;
  std::string value;
  bool isQuoted = false;  ///< the value is in double quotes
};

/// Takes a text in double quotes off the beginning of `rest`.
std::string takeQuoted(std::string& rest) {
  std::size_t end = 1;
  while (end < rest.size() && rest[end] != '"') end += rest[end] == '\\' ? 2 : 1;
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  builder["strictRoot"] = false;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value value;
  const bool isRead = end < rest.size() && reader->parse(rest.data(), rest.data() + end + 1, &value, nullptr);
  if (!isRead || !value.isString()) throw usage("a text in double quotes is not a text of JSON: " + rest);
  rest = trimmed(rest.substr(end + 1));
  return value.asString();
}

/// The parts of a line that is not empty. @throws Failure
Line partsOf(std::string rest) {
  Line line;
  const bool isKeyQuoted = rest.front() == '"';
  if (isKeyQuoted) line.key = takeQuoted(rest);
  const std::size_t equals = rest.find('=');
  if (equals == std::string::npos || (isKeyQuoted && equals != 0)) throw usage("'" + rest + "' is not KEY = VALUE");
  if (!isKeyQuoted) line.key = trimmed(rest.substr(0, equals));
  rest = trimmed(rest.substr(equals + 1));
  line.isQuoted = !rest.empty() && rest.front() == '"';
  if (!line.isQuoted) {
    line.value = rest;
    return line;
  }
  line.value = takeQuoted(rest);
  if (!rest.empty() && rest.front() != '#') throw usage("'" + rest + "' is behind the value");
  return line;
}

/// Reads the lines of a file.
class FileReader {
 public:
  Configuration take() { return std::move(configuration_); }

  /// @throws Failure
  void read(const Line& given) {
    Line line = given;
    if (!keys_.insert(line.key).second) throw usage("it is given twice");
    const SettingRow* const row = statedRow(line.key);
    if (!line.isQuoted) dropRemark(line, row != nullptr && isText(*row));
    if (line.key == kVersionKey) return;
    if (line.key == kModelKey) return readModel(line.value);
    if (row != nullptr) return readSetting(*row, line.value);
    if (readElement(line, kInterfaces, configuration_.interfaces, typedInterface)) return;
    if (readElement(line, kWhitelistMember, configuration_.whitelist, typedRange)) return;
    throw unknown(line.key);
  }

 private:
  /// A remark may follow a value. In a text it cannot be told from a part of it.
  static void dropRemark(Line& line, bool isText) {
    const std::size_t remark = line.value.find('#');
    if (remark == std::string::npos) return;
    if (isText) throw usage("a text with '#' needs double quotes");
    line.value = trimmed(line.value.substr(0, remark));
  }

  void readModel(const std::string& text) {
    const std::optional<BoardModelType::board_models_t> model = BoardModelType::fromText(text);
    const std::string undefined = BoardModelType::toText(BoardModelType::BOARD_MODEL_UNDEFINED);
    if (!model && text != undefined) throw usage("'" + text + "' is not a board model");
    configuration_.model = model ? BoardModelType::toText(*model) : undefined;  // a model may have another name, too
  }

  void readSetting(const SettingRow& row, const std::string& text) {
    const bool isUnset = text == kUnset && !isText(row);
    configuration_.settings[row.path] = isUnset ? kUnset : typedText(row, parseSetting(row, text));
  }

  /// Reads an element of a list, or "none" for an empty one. @return whether it is of this list
  static bool readElement(const Line& line, const char* list, std::optional<Configuration::Texts>& texts,
                          std::string (*read)(const std::string& name, const std::string& value)) {
    const std::string prefix = inList(list, "");
    const bool isElement = line.key.size() > prefix.size() && line.key.compare(0, prefix.size(), prefix) == 0;
    if (!isElement && line.key != list) return false;
    if (!texts) texts.emplace();
    if (!isElement && line.value != kNone) throw usage("'" + line.value + "' is not 'none'");
    if (isElement) (*texts)[line.key] = read(line.key.substr(prefix.size()), line.value);
    return true;
  }

  static std::string typedInterface(const std::string& name, const std::string& value) {
    return typedText(parseInterface(name, value));
  }

  static std::string typedRange(const std::string& name, const std::string& value) {
    const std::size_t blank = std::min(value.find(' '), value.size());
    const Network network = parseNetwork(name + value.substr(0, blank));
    return typedMask(network.mask.getAddress()) + (parseSwitch(trimmed(value.substr(blank))) ? " on" : " off");
  }

  static Failure unknown(const std::string& key) {
    Words keys = {kModelKey, kVersionKey};
    for (const SettingRow* const row : statedRows()) keys.emplace_back(row->path);
    return {Exit::kNotFound, "there is no such key", didYouMean(key, keys)};
  }

  Configuration configuration_;
  std::set<std::string> keys_;
};

// --- differences

void compareLists(const std::optional<Configuration::Texts>& from, const std::optional<Configuration::Texts>& to,
                  Differences& differences) {
  if (!from || !to) return;
  Configuration::Texts all = *from;
  all.insert(to->begin(), to->end());
  for (const auto& [key, text] : all) {
    const auto old = from->find(key);
    const auto now = to->find(key);
    Difference difference{key, std::nullopt, std::nullopt};
    if (old != from->end()) difference.from = old->second;
    if (now != to->end()) difference.to = now->second;
    if (difference.from != difference.to) differences.push_back(difference);
  }
}

}  // namespace

Configuration liveConfiguration(Daemon& daemon) {
  const auto stored = daemon.record<SysParameters>("stored");
  Configuration configuration;
  configuration.model = BoardModelType::toText(daemon.record<BoardModel>("model").model);
  configuration.settings = textsOf(stored);
  configuration.interfaces = textsOf(stored.ethIPv4Cfg);
  configuration.whitelist = textsOf(daemon.whitelist());
  return configuration;
}

Configuration factoryConfiguration(const BoardModel& model) {
  SysParameters stored;
  Json::Value nothing(Json::objectValue);  // a missing key becomes the factory value
  stored.Deserialize(nothing);
  stored.videoTiming.timingMode = VideoTimingParameters::TIMING_MODE_LOW_LATENCY;
  {
    const NoticesOnStandardError notices;  // one model's defaults are read from this host
    stored.setEthIpv4DefaultConfig(model);
  }
  Configuration configuration;
  configuration.model = BoardModelType::toText(model.model);
  configuration.settings = textsOf(stored);
  configuration.interfaces = textsOf(stored.ethIPv4Cfg);
  return configuration;
}

std::string textOf(const Configuration& configuration) {
  std::string text =
      "# The configuration of a board. 'sysmgrctl import' puts it back; a line begins with # or is KEY = VALUE.\n";
  text += std::string(kModelKey) + " = " + configuration.model + "\n";
  text += std::string(kVersionKey) + " = " SYSMGRCTL_VERSION "\n\n";
  for (const SettingRow* const row : statedRows()) {
    const auto found = configuration.settings.find(row->path);
    if (found == configuration.settings.end()) continue;
    text += joined({found->first, " = ", isText(*row) ? quoted(found->second) : found->second, "\n"});
  }
  writeList(text, kInterfaces, configuration.interfaces);
  writeList(text, kWhitelistMember, configuration.whitelist);
  return text;
}

Configuration parseConfiguration(const std::string& text, const std::string& name) {
  constexpr const char* kByteOrderMark = "\xEF\xBB\xBF";
  FileReader reader;
  std::istringstream stream(text);
  std::string each;
  for (std::size_t number = 1; std::getline(stream, each); ++number) {
    if (number == 1 && each.rfind(kByteOrderMark, 0) == 0) each.erase(0, 3);
    each = trimmed(each);
    if (each.empty() || each.front() == '#') continue;
    Line line;
    try {
      line = partsOf(each);
      reader.read(line);
    } catch (const Failure& failure) {
      const std::string key = line.key.empty() ? "" : ", " + line.key;
      throw Failure(failure.status(), joined({name, ", line ", std::to_string(number), key, ": ", failure.what()}),
                    failure.advice())
          .about(line.key);
    }
  }
  return reader.take();
}

Differences differencesOf(const Configuration& from, const Configuration& to) {
  Differences differences;
  for (const SettingRow* const row : statedRows()) {
    const auto old = from.settings.find(row->path);
    const auto now = to.settings.find(row->path);
    if (old == from.settings.end() || now == to.settings.end() || old->second == now->second) continue;
    differences.push_back({row->path, old->second, now->second});
  }
  compareLists(from.interfaces, to.interfaces, differences);
  compareLists(from.whitelist, to.whitelist, differences);
  return differences;
}

}  // namespace zel::ctl
