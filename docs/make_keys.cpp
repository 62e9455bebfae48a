// Prints docs/keys.md: the keys of every document, with what the records themselves do to them. Nothing here knows a
// key: each one is found by writing a record, and its rule by taking the key away and reading the rest.

#include <cstdio>
#include <string>
#include <vector>

#include "types/sysmgr_types.h"

namespace {

/// The place of a value in a document: "rtsp/tcp-port", "ethipv4/0/eth".
using Path = std::vector<std::string>;

/// The elements of an array are all alike: the first stands for them.
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

Json::Value& at(Json::Value& document, const Path& path, std::size_t steps) {
  Json::Value* value = &document;
  for (std::size_t i = 0; i < steps; ++i) {
    value = value->isArray() ? &(*value)[static_cast<Json::ArrayIndex>(std::stoi(path[i]))] : &(*value)[path[i]];
  }
  return *value;
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

std::string literal(const Json::Value& value) {
  if (value.isNull()) return "nothing";
  if (value.isString()) return "`\"" + value.asString() + "\"`";
  return "`" + value.asString() + "`";
}

template <class Record>
Json::Value written(const Record& record) {
  Json::Value document(Json::objectValue);
  record.Serialize(document);
  return document;
}

/// What a reader makes of the document: the record afterwards, written again.
template <class Record>
Json::Value readInto(Record record, Json::Value document) {
  record.Deserialize(document);
  return written(record);
}

Json::Value valueAt(Json::Value document, const Path& path) { return at(document, path, path.size()); }

/// What becomes of a member when `document` is read into records that hold other values.
template <class Record>
std::string ruleOf(const Path& path, const Json::Value& document, const Record& one, const Record& other) {
  const Json::Value fromOne = valueAt(readInto(one, document), path);
  const Json::Value fromOther = valueAt(readInto(other, document), path);
  return fromOne == fromOther ? literal(fromOne) : "kept";
}

/// What becomes of a member when its key is absent from an object that is there.
template <class Record>
std::string withoutKey(const Path& path, Json::Value document, const Record& one, const Record& other) {
  Json::Value& parent = at(document, path, path.size() - 1);
  parent.removeMember(path.back());
  parent["another-key"] = true;  // an empty object would count as a missing block
  return ruleOf(path, document, one, other);
}

/// What becomes of it when the block that it stands in is absent.
template <class Record>
std::string withoutBlock(const Path& path, Json::Value document, const Record& one, const Record& other) {
  if (path.size() == 1) return "";
  const bool list = document[path.front()].isArray();
  document.removeMember(path.front());
  if (!list) return ruleOf(path, document, one, other);
  return readInto(one, document).isMember(path.front()) ? "list kept" : "list emptied";
}

/// @param one, other  records that differ in every member and write every key
template <class Record>
void table(const char* title, const char* note, const Record& one, const Record& other) {
  std::printf("\n## %s\n\n%s\n\n", title, note);
  std::printf("| key | type | a new record writes | key missing | block missing |\n|---|---|---|---|---|\n");
  const Json::Value document = written(one);
  const Json::Value fresh = written(Record());
  std::vector<Path> leaves;
  Path here;
  collect(document, here, leaves);
  for (const Path& path : leaves) {
    std::printf("| `%s` | %s | %s | %s | %s |\n", shown(path).c_str(), typeName(valueAt(document, path)),
                literal(valueAt(fresh, path)).c_str(), withoutKey(path, document, one, other).c_str(),
                withoutBlock(path, document, one, other).c_str());
  }
}

/// Two of each record, different in every member, that write every key.
struct Samples {
  SysParameters stored;
  SysParametersDynamic dynamic;
  BoardModel model;
  WhiteListEntry range;
  Vlan vlan;
};

Samples samples(bool first) {
  const std::string text = first ? "a" : "b";
  const int number = first ? 1 : 2;
  const unsigned int count = first ? 1 : 2;
  Samples made;

  SysParameters& stored = made.stored;
  for (std::string* member : {&stored.rtspEthPort, &stored.advertEthPort, &stored.advertBoardNamePrefix,
                              &stored.cfgFilePath, &stored.serialNumber, &stored.vtcImagePath, &stored.ptpPath,
                              &stored.nmos.nodeName, &stored.nmos.deviceName, &stored.nmos.advertisementInterface}) {
    *member = text;
  }
  for (uint32_t* member : {&stored.rtspTcpPort, &stored.advertTcpPort, &stored.offsetFromMasterThreshold,
                           &stored.tdmChannelsPerLine, &stored.emberTcpPort}) {
    *member = count;
  }
  for (bool* member : {&stored.cfgAutosaveEnable, &stored.redundancyEnable, &stored.walkaboutEnable, &stored.sapEnable,
                       &stored.slpEnable, &stored.pauseStreamsPtpFail, &stored.identifyEnable, &stored.nmos.enable}) {
    *member = first;
  }
  for (int* member : {&stored.nmos.httpSdpPort, &stored.nmos.nodePort, &stored.nmos.queryPort,
                      &stored.nmos.registrationPort, &stored.nmos.slotId, &stored.nmos.shelfId,
                      &stored.videoTiming.initBufDelay, &stored.videoTiming.minWrRdPtrThresh,
                      &stored.videoTiming.maxWrRdPtrThresh, &stored.videoTiming.rtpPktsPerFrame}) {
    *member = number;
  }
  stored.primaryVlanId = stored.secondaryVlanId = static_cast<uint16_t>(number);
  stored.videoTiming.timingMode =
      first ? VideoTimingParameters::TIMING_MODE_FRAME_SYNC : VideoTimingParameters::TIMING_MODE_2059;
  stored.bitstream.type = first ? BitstreamType::BITSTREAM_SDI_TR04 : BitstreamType::BITSTREAM_SDI_ST2110;
  EthIpV4Cfg interface;
  interface.eth = text;
  interface.ip = interface.mask = interface.gw = count;
  stored.ethIPv4Cfg.push_back(interface);

  SysParametersDynamic& dynamic = made.dynamic;
  dynamic.chipIdVersion = dynamic.chipIdName = text;
  dynamic.temperature.fpga = dynamic.fanSpeed.main = number;
  dynamic.madiLock = first;
  SystemError error;
  error.code = number;
  error.description = text;
  dynamic.errors.push_back(error);
  EthBasicInfo basics;
  basics.name = basics.mac = basics.label = basics.sfp.partNumber = text;
  basics.ip = basics.index = count;
  basics.ipPresent = basics.sfp.present = first;
  basics.sfp.temperature = basics.sfp.rxPower = basics.sfp.txPower = first ? 0.25F : 0.5F;
  basics.sfp.wavelength = number;
  dynamic.ethBasics.push_back(basics);

  made.model.model = first ? BoardModelType::KORVA : BoardModelType::ZIRC;
  made.model.bitstream = stored.bitstream;

  made.range.setIp(count);
  made.range.setMask(count);
  made.range.enable(first);

  made.vlan.id = made.vlan.tpid = static_cast<uint16_t>(number);
  made.vlan.priority = static_cast<uint8_t>(number);
  return made;
}

}  // namespace

int main() {
  const Samples one = samples(true);
  const Samples other = samples(false);
  std::printf(
      "# The keys of every document\n\n"
      "Made by `docs/make_keys.cpp` from what the records do; a test keeps the two the same. \"kept\": the member "
      "stays\n"
      "as it was. A block is a key at the top level that holds an object or an array; it is missing when it is "
      "absent,\n"
      "null or empty.\n");
  table("Stored parameters", "Answer of command 0 under \"stored\", payload of topic 1000.", one.stored, other.stored);
  table("Dynamic information", "Answer of command 1 under \"dynamic\", payload of topic 1001.", one.dynamic,
        other.dynamic);
  table("Board model", "Answer of command 3 under \"board-model\".", one.model, other.model);
  table("Whitelist entry", "An element of \"white-list\", in requests, answers and topic 1004.", one.range,
        other.range);
  table("VLAN tag", "A record of its own; the stored interface configurations do not carry it.", one.vlan, other.vlan);
}
