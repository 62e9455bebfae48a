// Prints docs/keys.md: the keys of every document, what a daemon sends, and what the records do with them. The program
// finds a key by writing a record, and what the record does by changing the document and reading it into a record. What
// a daemon sends is in the rows of types/settings.h and conformance/document_rows.h; a key without a row is an error.

#include <json/writer.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "conformance/document_rows.h"
#include "docs/setting_texts.h"
#include "types/settings.h"
#include "types/sysmgr_types.h"

namespace {

/// The place of a value in a document: "rtsp/tcp-port", "ethipv4/0/eth".
using Path = std::vector<std::string>;

/// All elements of an array have the same keys, so the tables show those of the first one.
const std::string kFirst = "0";

std::string shown(const Path& path) {
  std::string text;
  for (const std::string& step : path) {
    if (step == kFirst) {
      text += "[i]";
    } else {
      text += (text.empty() ? "" : "/") + step;
    }
  }
  return text;
}

std::string compact(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, value);
}

std::string literal(const Json::Value& value) { return value.isNull() ? "nothing" : "`" + compact(value) + "`"; }

const char* typeName(const Json::Value& value) {
  switch (value.type()) {
    case Json::intValue: return "integer";
    case Json::uintValue: return "unsigned";
    case Json::realValue: return "real";
    case Json::stringValue: return "text";
    case Json::booleanValue: return "boolean";
    default: return "null";
  }
}

// Documents

Json::Value& at(Json::Value& document, const Path& path, std::size_t steps) {
  Json::Value* value = &document;
  for (std::size_t i = 0; i < steps; ++i) {
    value = value->isArray() ? &(*value)[static_cast<Json::ArrayIndex>(std::stoi(path[i]))] : &(*value)[path[i]];
  }
  return *value;
}

Json::Value valueAt(Json::Value document, const Path& path) { return at(document, path, path.size()); }

Json::Value with(Json::Value document, const Path& path, const Json::Value& value) {
  at(document, path, path.size()) = value;
  return document;
}

Json::Value without(Json::Value document, const std::string& key) {
  document.removeMember(key);
  return document;
}

void collect(const Json::Value& value, Path& here, std::vector<Path>& leaves) {
  if (value.isObject()) {
    for (const std::string& name : value.getMemberNames()) {
      here.push_back(name);
      collect(value[name], here, leaves);
      here.pop_back();
    }
  } else if (value.isArray()) {
    here.push_back(kFirst);
    collect(value[0], here, leaves);
    here.pop_back();
  } else {
    leaves.push_back(here);
  }
}

/// The paths of all values.
std::vector<Path> leavesOf(const Json::Value& document) {
  std::vector<Path> leaves;
  Path here;
  collect(document, here, leaves);
  return leaves;
}

template <class Record>
Json::Value written(const Record& record) {
  Json::Value document(Json::objectValue);
  record.Serialize(document);
  return document;
}

/// Reads a document into a copy of the record.
template <class Record>
Record over(Record record, Json::Value document) {
  record.Deserialize(document);
  return record;
}

/// What the record writes after it has read a document; null when JsonCpp refuses to convert a value of it.
template <class Record>
Json::Value rewritten(const Record& record, const Json::Value& document) {
  try {
    return written(over(record, document));
  } catch (const Json::Exception&) {
    return {};
  }
}

// What a record does with a document

/// Two records that differ in every member. The first one writes every key.
template <class Record>
struct Samples {
  Record one;
  Record other;
};

/// Whether a key is written with a fixed value and never read.
template <class Record>
bool isConstant(const Samples<Record>& samples, const Path& path) {
  const Json::Value value = valueAt(written(samples.one), path);
  if (value != valueAt(written(samples.other), path)) return false;
  if (value == valueAt(rewritten(samples.one, with(written(samples.one), path, "another text")), path)) return true;
  std::fprintf(stderr, "The samples have the same %s.\n", shown(path).c_str());
  std::exit(1);
}

/// The value of a member after both samples have read the document, or "kept" when that is a value of their own.
template <class Record>
std::string ruleOf(const Samples<Record>& samples, const Path& path, const Json::Value& document) {
  if (isConstant(samples, path)) return "not read";
  const Json::Value fromOne = valueAt(rewritten(samples.one, document), path);
  const Json::Value fromOther = valueAt(rewritten(samples.other, document), path);
  return fromOne == fromOther ? literal(fromOne) : "kept";
}

template <class Record>
std::string withoutKey(const Samples<Record>& samples, const Path& path) {
  Json::Value document = written(samples.one);
  Json::Value& parent = at(document, path, path.size() - 1);
  parent.removeMember(path.back());
  parent["another-key"] = true;  // an empty object would count as a missing block
  return ruleOf(samples, path, document);
}

template <class Record>
std::string withNull(const Samples<Record>& samples, const Path& path) {
  return ruleOf(samples, path, with(written(samples.one), path, Json::Value()));
}

template <class Record>
std::string withoutBlock(const Samples<Record>& samples, const Path& path) {
  if (path.size() == 1) return "";
  const Json::Value document = written(samples.one);
  const Json::Value missing = without(document, path.front());
  if (document[path.front()].isObject()) return ruleOf(samples, path, missing);
  return rewritten(samples.one, missing).isMember(path.front()) ? "list kept" : "list emptied";
}

/// Which values at the top level have the effect of an absent key, where the key holds a value of this type.
template <class Record>
std::string formsOfMissing(const Record& record, Json::ValueType type) {
  const Json::Value document = written(record);
  std::string forms = "absent";
  for (const Json::ValueType each : {Json::nullValue, Json::objectValue, Json::arrayValue}) {
    const Json::Value form(each);
    bool missing = true;
    for (const std::string& block : document.getMemberNames()) {
      if (document[block].type() != type) continue;
      const Json::Value absent = without(document, block);
      missing = missing && rewritten(record, with(absent, {block}, form)) == rewritten(record, absent);
    }
    if (missing) forms += ", `" + compact(form) + "`";
  }
  return forms;
}

/// Whether a text is also read from an object that has it under the same key.
template <class Record>
bool isReadFromObject(const Samples<Record>& samples, const Path& path) {
  const Json::Value document = written(samples.other);
  const Json::Value text = valueAt(document, path);
  if (!text.isString() || isConstant(samples, path)) return false;
  Json::Value object;
  object[path.back()] = text;
  return rewritten(Record(), with(document, path, object)) == document;
}

// What a daemon sends

using zel::conformance::DocumentRow;
using zel::conformance::Presence;

/// What the page says about a key on the daemon's side.
struct Sent {
  std::string type;
  std::string values;
  std::string notKnown;
  std::string required;
  std::string setBy;
  std::string meaning;
};

const char* requiredText(Presence presence, bool isDocumentRow) {
  switch (presence) {
    case Presence::kAlways: return "yes";
    case Presence::kWhenSet: return isDocumentRow ? "see above" : "when set";
    case Presence::kIfAny: break;
  }
  return "no";
}

std::string setByText(const zel::SettingRow& row) {
  using Route = zel::SettingRow::Route;
  if (row.key == nullptr) return "";
  return std::string(row.route == Route::kIdentify ? "19" : "2") + ": `" + row.key + "`";
}

Sent sentSetting(const zel::SettingRow& row) {
  const bool hasUnset = row.kind == zel::SettingRow::Kind::kChoice && row.values.least > 0;
  const bool isLeftOut = row.presence == Presence::kWhenSet;
  const std::string unset = hasUnset ? "`\"" + std::string(row.values.text(0)) + "\"`" : isLeftOut ? "left out" : "";
  return {zel::docs::typeName(row),          zel::docs::valuesOf(row), unset,
          requiredText(row.presence, false), setByText(row),           row.meaning};
}

Sent sentRow(const DocumentRow& row, const char* setBy) {
  using Type = DocumentRow::Type;
  Sent sent{"text", row.unit, row.unknown, requiredText(row.presence, true), setBy, row.meaning};
  if (!sent.notKnown.empty()) sent.notKnown = "`" + sent.notKnown + "`";
  switch (row.type) {
    case Type::kBoolean: sent.type = "boolean"; break;
    case Type::kInteger: sent.type = "integer"; break;
    case Type::kUnsigned: sent.type = "unsigned"; break;
    case Type::kReal: sent.type = "real"; break;
    case Type::kText: break;
    case Type::kAddress: sent.values = "IPv4 address, `\"192.168.0.100\"`"; break;
    case Type::kMac: sent.values = "12 hexadecimal digits, `\"025a00000001\"`"; break;
    case Type::kChoice:
      for (int each = 0; each <= row.lastChoice; ++each) {
        sent.values += std::string(each == 0 ? "`\"" : ", `\"") + row.choice(each) + "\"`";
      }
      break;
  }
  return sent;
}

/// The rows of conformance/document_rows.h for a document, and the command that sets their values.
struct Rows {
  const DocumentRow* begin;
  std::size_t count;
  const char* setBy;
};
template <std::size_t count>
Rows rowsOf(const DocumentRow (&rows)[count], const char* setBy = "") {
  return {rows, count, setBy};
}

Sent sentAt(const std::string& path, const Rows& rows) {
  for (std::size_t i = 0; i < rows.count; ++i) {
    if (path == rows.begin[i].path) return sentRow(rows.begin[i], rows.setBy);
  }
  if (const zel::SettingRow* const row = zel::settings::findPath(path)) return sentSetting(*row);
  std::fprintf(stderr, "No row has %s.\n", path.c_str());
  std::exit(1);
}

template <class Record>
void tableOfDaemon(const Samples<Record>& samples, const Rows& rows) {
  std::printf(
      "A daemon sends:\n\n| key | type | values, unit | not known, not set | required | set by command | meaning |\n");
  std::printf("|---|---|---|---|---|---|---|\n");
  for (const Path& path : leavesOf(written(samples.one))) {
    const Sent sent = sentAt(shown(path), rows);
    std::printf("| `%s` | %s | %s | %s | %s | %s | %s |\n", shown(path).c_str(), sent.type.c_str(), sent.values.c_str(),
                sent.notKnown.c_str(), sent.required.c_str(), sent.setBy.c_str(), sent.meaning.c_str());
  }
  std::printf("\nA client's record does:\n\n");
}

// The page

template <class Record>
void table(const char* title, const char* note, const Samples<Record>& samples, const Rows* rows = nullptr) {
  std::printf("\n## %s\n\n%s\n\n", title, note);
  if (rows != nullptr) tableOfDaemon(samples, *rows);
  std::printf(
      "| key | type | a new record writes | key missing | key null | block missing |\n|---|---|---|---|---|---|\n");
  const Json::Value document = written(samples.one);
  const Json::Value fresh = written(Record());
  bool hasObjects = false;
  bool hasLists = false;
  std::vector<Path> alsoInObjects;
  for (const Path& path : leavesOf(document)) {
    std::printf("| `%s` | %s | %s | %s | %s | %s |\n", shown(path).c_str(), typeName(valueAt(document, path)),
                literal(valueAt(fresh, path)).c_str(), withoutKey(samples, path).c_str(),
                withNull(samples, path).c_str(), withoutBlock(samples, path).c_str());
    hasObjects = hasObjects || document[path.front()].isObject();
    hasLists = hasLists || document[path.front()].isArray();
    if (isReadFromObject(samples, path)) alsoInObjects.push_back(path);
  }
  const auto forms = [&](Json::ValueType type) { return formsOfMissing(samples.one, type); };
  if (hasObjects) std::printf("\nA missing block: %s.", forms(Json::objectValue).c_str());
  if (hasLists) std::printf(" A missing list: %s.\n", forms(Json::arrayValue).c_str());
  for (const Path& path : alsoInObjects) {
    Json::Value example;
    example[path.back()][path.back()] = valueAt(written(samples.other), path);
    std::printf("\n`%s` is also read from an object: `%s`.\n", shown(path).c_str(), compact(example).c_str());
  }
}

Json::Value deltaOf(SysParameters record) {
  Json::Value document(Json::objectValue);
  record.SerializeDelta(document);
  return document;
}

bool isInDelta(const SysParameters& record, const Path& path) { return !valueAt(deltaOf(record), path).isNull(); }

/// The value with which a member is not in the delta: that of a new record, or what a missing key sets, or one of the
/// texts of an enumeration.
Json::Value leftOutValue(const SysParameters& record, const Path& path) {
  std::vector<Json::Value> candidates = {valueAt(written(SysParameters()), path),
                                         valueAt(rewritten(SysParameters(), Json::objectValue), path)};
  for (const char* const choice : zel::settings::findPath(shown(path))->choices()) candidates.emplace_back(choice);
  for (const Json::Value& value : candidates) {
    if (!isInDelta(over(record, with(written(record), path, value)), path)) return value;
  }
  std::fprintf(stderr, "%s is in every delta.\n", shown(path).c_str());
  std::exit(1);
}

void deltaTable(const Samples<SysParameters>& samples) {
  std::printf(R"(
## Delta of the stored parameters

`SysParameters::SerializeDelta` writes only the settings that differ from the factory values. A daemon never gets this document:
no request has it.

| key | left out when it is |
|---|---|
)");
  const Json::Value document = without(written(samples.one), "ethipv4");
  Json::Value factory = document;
  for (const Path& path : leavesOf(document)) {
    std::string leftOut = "always";
    if (isInDelta(samples.one, path) || isInDelta(samples.other, path)) {
      const Json::Value value = leftOutValue(samples.one, path);
      leftOut = literal(value);
      factory = with(factory, path, value);
    }
    std::printf("| `%s` | %s |\n", shown(path).c_str(), leftOut.c_str());
  }
  std::printf(R"(| `ethipv4` | empty; otherwise all its entries are written |

Two keys are in every delta. With the values of this table it is `%s`.
)",
              compact(deltaOf(over(SysParameters(), factory))).c_str());
}

// The samples

/// Sets each member that has a row.
SysParameters stored(bool first) {
  SysParameters parameters;
  zel::settings::forEach([&](const auto& row) {
    using Row = std::decay_t<decltype(row)>;
    using Value = typename Row::Type;
    if constexpr (std::is_base_of_v<zel::StoredValue<Value>, Row>) {
      if constexpr (std::is_same_v<Value, std::string>) {
        row.in(parameters) = first ? "a" : "b";
      } else if constexpr (std::is_enum_v<Value>) {
        row.in(parameters) = static_cast<Value>(row.values.least + (first ? 0 : 1));
      } else if constexpr (std::is_same_v<Value, bool>) {
        row.in(parameters) = first;
      } else if constexpr (std::is_integral_v<Value>) {
        row.in(parameters) = first ? 1 : 2;
      }
    }
  });
  EthIpV4Cfg interface;
  interface.eth = first ? "a" : "b";
  interface.mode.mode = first ? EthMode::ETH_MODE_STATIC : EthMode::ETH_MODE_DHCP;  // only a static one has addresses
  interface.ip = interface.mask = interface.gw = 1;
  parameters.ethIPv4Cfg.push_back(interface);
  return parameters;
}

SysParametersDynamic dynamic(bool first) {
  const std::string text = first ? "a" : "b";
  const int number = first ? 1 : 2;
  SysParametersDynamic made;
  made.chipIdVersion = made.chipIdName = text;
  made.temperature.fpga = made.fanSpeed.main = number;
  made.madiLock = first;
  SystemError error;
  error.code = number;
  error.description = text;
  made.errors.push_back(error);
  EthBasicInfo basics;
  basics.name = basics.mac = basics.label = basics.sfp.partNumber = text;
  basics.ip = basics.index = static_cast<uint32_t>(number);
  basics.ipPresent = basics.sfp.present = first;
  basics.sfp.temperature = basics.sfp.rxPower = basics.sfp.txPower = first ? 0.25F : 0.5F;
  basics.sfp.wavelength = number;
  made.ethBasics.push_back(basics);
  return made;
}

BoardModel model(bool first) {
  BoardModel made;
  made.model = first ? BoardModelType::KORVA : BoardModelType::ZIRC;
  made.bitstream.type = first ? BitstreamType::BITSTREAM_SDI_TR04 : BitstreamType::BITSTREAM_SDI_ST2110;
  return made;
}

WhiteListEntry whitelistEntry(bool first) {
  WhiteListEntry made;
  made.ip = made.mask = first ? 1 : 2;
  made.enabled = first;
  return made;
}

Vlan vlan(bool first) {
  Vlan made;
  made.id = made.tpid = first ? 1 : 2;
  made.priority = first ? 1 : 2;
  return made;
}

template <class Make>
auto samples(Make make) {
  return Samples<decltype(make(true))>{make(true), make(false)};
}

}  // namespace

int main() {
  std::printf(R"(# The keys of every document

`docs/make_keys.cpp` prints this page from the rows of the tables and from what the records do, and a test compares. The
rules are in [protocol.md](protocol.md). For each document there are two tables.

"A daemon sends" is the norm. "required": "yes" means that the document always has the key, "when set" that it is left out
where nothing is set, "no" that the daemon may leave it out. "not known, not set": what the daemon sends where it has no value;
where the column is empty, the daemon always has one.
The texts of an enumeration are shown with their exact case. A unit is a "should": the readers show the number as it is.

"A client's record does" is how the library reads the document, whatever the daemon. **The defaults there are those of a
client's record for a key that a document lacks. They are not the factory values of a board**, which are the daemon's own.

A key is missing when it is absent. A key that is null is not missing: JsonCpp converts null to 0, false or the empty
text. That is why a daemon does not send null. A block is a key at the top level that holds an object or a list. Where an
object inside a block is missing, its keys are missing. JsonCpp throws an exception for a value that it cannot convert.

"kept": the member keeps its value. "not read": the key is written with a fixed value and never read.
)");
  const Rows interface = rowsOf(zel::conformance::rows::kInterface, "2: `add-eth-cfg`");
  table(
      "Stored parameters",
      R"(Answer of command 0 under "stored", payload of topic 1000. An entry of "ethipv4" has "static" when its mode is static. A
daemon always sends the whole list. A record that is read a second time replaces the entry of the same name, adds the new
ones, and keeps those that the document does not have; so an application reads each document into a new record.)",
      samples(stored), &interface);
  deltaTable(samples(stored));
  const Rows dynamicRows = rowsOf(zel::conformance::rows::kDynamic);
  table(
      "Dynamic information",
      R"(Answer of command 1 under "dynamic", payload of topic 1001. No command sets these values, except "errors" (command 7).
An empty list may be left out. The values of "sfp-info" except "present" are required where a module is present, and may be
left out where none is. A reader cannot tell a power of -1 dBm from one that is not known.)",
      samples(dynamic), &dynamicRows);
  const Rows modelRows = rowsOf(zel::conformance::rows::kBoardModel);
  table("Board model", R"(Answer of command 3 under "board-model". "module" is the FPGA bitstream that runs.)",
        samples(model), &modelRows);
  const Rows entryRows = rowsOf(zel::conformance::rows::kWhitelistEntry, "13, 14, 15");
  table("Whitelist entry", R"(An element of "white-list", in requests, answers and topic 1004.)",
        samples(whitelistEntry), &entryRows);
  table("VLAN tag", "A record of its own. The stored interface configurations do not contain it.", samples(vlan));
}
