#include "conformance/documents.h"

#include <algorithm>
#include <map>
#include <set>
#include <sstream>

#include "client/commands.h"
#include "common/ip_address.h"
#include "common/shared/format_text.h"
#include "conformance/observer.h"
#include "subscriber/sysmgr_subscriber.h"

namespace zel::conformance {

namespace {

using Type = DocumentRow::Type;

constexpr TopicRow kTopics[] = {
    {kStoredTopic, SysMgrCommands::SYSMGR_GET_STORED_PARAMETERS, "stored", false},
    {kDynamicTopic, SysMgrCommands::SYSMGR_GET_DYNAMIC_PARAMETERS, "dynamic", false},
    {kRebootTopic, -1, "", false},
    {kWhitelistTopic, SysMgrCommands::SYSMGR_GET_MCAST_WHITELIST, kWhitelistMember, true},
};

// --- the rules of each document, from both tables

Type typeOf(const SettingRow& row) {
  switch (row.kind) {
    case SettingRow::Kind::kSwitch: return Type::kBoolean;
    case SettingRow::Kind::kNumber:
      return row.highest == std::numeric_limits<std::uint32_t>::max() ? Type::kUnsigned : Type::kInteger;
    case SettingRow::Kind::kChoice: return Type::kChoice;
    default: return Type::kText;
  }
}

/// Every text of an enumeration that a document may have, those included that no request sets.
std::vector<std::string> textsOf(const SettingRow& row) {
  std::vector<std::string> texts;
  if (row.values.text == nullptr) return texts;
  for (std::int64_t each = 0; each <= row.values.most; ++each) texts.emplace_back(row.values.text(each));
  return texts;
}

bool isValue(const SettingRow& row) {
  using Kind = SettingRow::Kind;
  return row.route != SettingRow::Route::kListChange && row.kind != Kind::kBlock && row.kind != Kind::kInterfaceList;
}

template <std::size_t count>
void append(std::vector<ValueRule>& rules, const DocumentRow (&rows)[count], const std::string& prefix = "") {
  for (const DocumentRow& row : rows) {
    ValueRule rule;
    rule.path = prefix + row.path;
    rule.type = row.type;
    rule.presence = row.presence;
    for (int each = 0; row.choice != nullptr && each <= row.lastChoice; ++each)
      rule.texts.emplace_back(row.choice(each));
    rules.push_back(rule);
  }
}

std::map<std::string, std::vector<ValueRule>> makeRules() {
  std::map<std::string, std::vector<ValueRule>> rules;
  settings::forEach([&](const SettingRow& row) {
    if (isValue(row)) rules["stored"].push_back({row.path, typeOf(row), row.presence, textsOf(row), &row});
  });
  append(rules["stored"], rows::kInterface);
  append(rules["dynamic"], rows::kDynamic);
  append(rules["board-model"], rows::kBoardModel);
  append(rules[kWhitelistMember], rows::kWhitelistEntry, "[i]/");
  return rules;
}

// --- one value

bool isWhole(const Json::Value& value) { return value.type() == Json::intValue || value.type() == Json::uintValue; }

bool isMac(const std::string& text) {
  return text.size() == 12 && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

bool isAddress(const std::string& text) {
  IpAddress address;
  return !text.empty() && address.setAddress(text) == 0;
}

/// The rule that the value breaks; null when it breaks none.
const char* brokenRule(const ValueRule& rule, const Json::Value& value) {
  if (value.isNull()) return "no-null";
  switch (rule.type) {
    case Type::kBoolean: return value.isBool() ? nullptr : "value-types";
    case Type::kReal: return value.isNumeric() && !value.isBool() ? nullptr : "value-types";
    case Type::kInteger:
    case Type::kUnsigned:
      if (!value.isNumeric() || value.isBool()) return "value-types";
      if (!isWhole(value)) return "numbers";
      return (rule.type == Type::kInteger ? value.isInt() : value.isUInt()) ? nullptr : "numbers";
    default: break;
  }
  if (!value.isString()) return "value-types";
  const std::string text = value.asString();
  if (text.find('\0') != std::string::npos) return "no-nul";
  if (rule.type == Type::kAddress && !isAddress(text)) return "addresses";
  if (rule.type == Type::kMac && !isMac(text)) return "addresses";
  const bool isChoice = rule.type == Type::kChoice;
  if (isChoice && std::find(rule.texts.begin(), rule.texts.end(), text) == rule.texts.end()) return "exact-texts";
  return nullptr;
}

bool isSettable(const SettingRow& row, const Json::Value& value) {
  const auto within = [&row](std::int64_t number) { return number >= row.values.least && number <= row.values.most; };
  if (row.kind == SettingRow::Kind::kNumber && isWhole(value)) return value.isInt64() && within(value.asInt64());
  if (row.kind == SettingRow::Kind::kText && value.isString()) {
    return within(static_cast<std::int64_t>(value.asString().size()));
  }
  return true;
}

// --- a document

class Judge {
 public:
  Judge(const std::string& member, const std::vector<ValueRule>& rules) : member_(member), rules_(rules) {}

  std::vector<Breach> judge(const Json::Value& document) {
    walk(document, "");
    for (const ValueRule& rule : rules_) {
      if (rule.presence == Presence::kAlways) demand(document, rule.path, "");
    }
    return std::move(breaches_);
  }

 private:
  void add(const char* rule, const std::string& path, const std::string& what) {
    breaches_.push_back({rule, "\"" + member_ + (path.empty() || path[0] == '[' ? "" : "/") + path + "\" " + what});
  }

  /// Whether a rule is about the path, or about something below it.
  bool isKnown(const std::string& path) const {
    return std::any_of(rules_.begin(), rules_.end(), [&path](const ValueRule& rule) {
      if (rule.path.compare(0, path.size(), path) != 0) return false;
      const char next = rule.path.c_str()[path.size()];
      return next == '\0' || next == '/' || next == '[';
    });
  }

  void walk(const Json::Value& value, const std::string& path) {
    const auto rule =
        std::find_if(rules_.begin(), rules_.end(), [&path](const ValueRule& each) { return each.path == path; });
    if (rule != rules_.end()) return judgeValue(*rule, value);
    const bool isList = isKnown(path + "[i]");
    if (isList ? !value.isArray() : !value.isObject()) {
      return add(value.isNull() ? "no-null" : "value-types", path, "is " + shown(value));
    }
    if (isList) {
      for (const Json::Value& element : value) walk(element, path + "[i]");
      return;
    }
    for (const std::string& name : value.getMemberNames()) {
      const std::string below = path.empty() ? name : joined({path, "/", name});
      if (isKnown(below)) {
        walk(value[name], below);
      } else if (name.rfind("x-", 0) != 0) {
        add("own-members", below, "is not a key of keys.md and does not begin with x-");
      }
    }
  }

  void judgeValue(const ValueRule& rule, const Json::Value& value) {
    if (const char* const broken = brokenRule(rule, value)) return add(broken, rule.path, "is " + shown(value));
    if (rule.setting != nullptr && !isSettable(*rule.setting, value)) {
      add("settable", rule.path, "is " + shown(value) + ", which command 2 does not accept");
    }
  }

  /// Reports a required value that is missing: in each element of an array.
  void demand(const Json::Value& value, const std::string& path, const std::string& done) {
    if (path.empty()) return;
    if (path.compare(0, 3, "[i]") == 0) {
      if (!value.isArray()) return;
      const std::string rest = path.substr(path.size() > 3 ? 4 : 3);
      for (const Json::Value& element : value) demand(element, rest, done + "[i]");
      return;
    }
    if (!value.isObject()) return;  // reported as a value of the wrong type
    const std::size_t end = std::min(path.find('/'), path.find('['));
    const std::string name = path.substr(0, end);
    const std::string here = done.empty() ? name : done + "/" + name;
    const bool isList = end != std::string::npos && path[end] == '[';
    if (!value.isMember(name)) {
      if (!isList) add("whole-documents", here, "is missing");
      return;
    }
    const std::string rest = end == std::string::npos ? "" : path.substr(path[end] == '/' ? end + 1 : end);
    demand(value[name], rest, here);
  }

  const std::string& member_;
  const std::vector<ValueRule>& rules_;
  std::vector<Breach> breaches_;
};

void demandUnique(const char* list, const char* key, const Json::Value& entries, std::vector<Breach>& breaches) {
  if (!entries.isArray()) return;
  std::set<std::string> seen;
  for (const Json::Value& entry : entries) {
    if (!entry.isObject() || !entry[key].isString() || seen.insert(entry[key].asString()).second) continue;
    breaches.push_back({"one-entry", std::string("\"") + list + "\" has two entries of " + shown(entry[key])});
  }
}

void demandSorted(const Json::Value& entries, bool isBefore(const Json::Value& a, const Json::Value& b),
                  const char* rule, const char* what, std::vector<Breach>& breaches) {
  for (Json::ArrayIndex i = 1; entries.isArray() && i < entries.size(); ++i) {
    if (entries[i - 1].isObject() && entries[i].isObject() && isBefore(entries[i], entries[i - 1])) {
      breaches.push_back(
          {rule, std::string(what) + ": " + shown(entries[i]) + " comes after " + shown(entries[i - 1])});
    }
  }
}

std::uint32_t addressOf(const Json::Value& entry) {
  IpAddress address;
  if (entry["ip"].isString()) address.setAddress(entry["ip"].asString());
  return address.getAddress();
}

void judgeInterfaces(const Json::Value& entries, std::vector<Breach>& breaches) {
  demandUnique("ethipv4", "eth", entries, breaches);
  const auto byName = [](const Json::Value& a, const Json::Value& b) { return a["eth"] < b["eth"]; };
  demandSorted(entries, byName, "eth-sorted", "\"ethipv4\" is not sorted by name", breaches);
  for (Json::ArrayIndex i = 0; entries.isArray() && i < entries.size(); ++i) {
    const Json::Value& entry = entries[i];
    if (!entry.isObject()) continue;
    const bool isStatic = entry["mode"] == EthMode::toText(EthMode::ETH_MODE_STATIC);
    const Json::Value& addresses = entry["static"];
    if (!isStatic && entry.isMember("static")) breaches.push_back({"eth-dhcp", "\"ethipv4\" has " + shown(entry)});
    if (!isStatic ||
        (addresses.isObject() && addresses.isMember("ip") && addresses.isMember("mask") && addresses.isMember("gw"))) {
      continue;
    }
    breaches.push_back({"whole-documents", "\"ethipv4\" has an entry without its addresses: " + shown(entry)});
  }
}

}  // namespace

const TopicRow* topicRow(const std::string& topic) {
  for (const TopicRow& row : kTopics) {
    if (topic == row.topic) return &row;
  }
  return nullptr;
}

const std::vector<ValueRule>* rulesOfDocument(const std::string& member) {
  static const auto kRules = makeRules();
  const auto found = kRules.find(member);
  return found == kRules.end() ? nullptr : &found->second;
}

std::vector<Breach> judgeDocument(const std::string& member, const Json::Value& document) {
  const std::vector<ValueRule>* const rules = rulesOfDocument(member);
  if (rules == nullptr) return {};
  std::vector<Breach> breaches = Judge(member, *rules).judge(document);
  if (member == "stored" && document.isObject()) judgeInterfaces(document["ethipv4"], breaches);
  if (member == "dynamic" && document.isObject()) {
    demandUnique("eth-basics", "name", document["eth-basics"], breaches);
  }
  if (member == kWhitelistMember) {
    demandUnique(kWhitelistMember, "ip", document, breaches);
    const auto byAddress = [](const Json::Value& a, const Json::Value& b) { return addressOf(a) < addressOf(b); };
    demandSorted(document, byAddress, "whitelist-sorted", "\"white-list\" is not sorted by address", breaches);
  }
  return breaches;
}

Json::Value valueAt(const Json::Value& document, const std::string& path) {
  const Json::Value* value = &document;
  std::istringstream steps(path);
  for (std::string step; std::getline(steps, step, '/');) {
    if (!value->isObject()) return {};
    value = &(*value)[step];
  }
  return *value;
}

}  // namespace zel::conformance
