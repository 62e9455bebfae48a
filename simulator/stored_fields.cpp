#include "simulator/stored_fields.h"

#include <algorithm>
#include <limits>
#include <string>

#include "common/ip_address.h"
#include "simulator/field.h"

namespace zel::sim {

namespace {

constexpr Range kPort = {1, 65535};
constexpr Range kVlanId = {0, 4094};
constexpr Range kAnyNumber = {0, std::numeric_limits<std::uint32_t>::max()};
constexpr Range kNotNegative = {0, std::numeric_limits<int>::max()};
constexpr Range kTdmChannels = {1, 256};
constexpr Range kName = {0, 255};
constexpr Range kPath = {0, 4095};
constexpr Range kInterfaceName = {1, 15};  // as the kernel has it
/// Bounds the documents, so that they fit into a frame.
constexpr std::size_t kMostInterfaces = 4096;

// --- an interface's configuration

template <std::uint32_t EthIpV4Cfg::*place>
Refusal applyAddress(const std::string& name, const Json::Value& value, EthIpV4Cfg& cfg) {
  if (!value.isString()) return wrongType(name, value, "a text");
  IpAddress address(cfg.*place);
  if (address.setAddress(value.asString()) < 0) {
    return {refusal::kInvalidAddress, "\"" + name + "\" is " + shown(value) + ", which is no IPv4 address."};
  }
  cfg.*place = address.getAddress();
  return {};
}

Refusal applyStatic(const std::string& name, const Json::Value& value, EthIpV4Cfg& cfg) {
  static const Field<EthIpV4Cfg> kFields[] = {
      {"gw", applyAddress<&EthIpV4Cfg::gw>},
      {"ip", applyAddress<&EthIpV4Cfg::ip>},
      {"mask", applyAddress<&EthIpV4Cfg::mask>},
  };
  return assignMembers(kFields, name, value, cfg);
}

Refusal applyMode(const std::string& name, const Json::Value& value, EthIpV4Cfg& cfg) {
  if (value.isObject()) {
    static const Field<EthIpV4Cfg> kFields[] = {{"mode", applyMode}};
    return assignMembers(kFields, name, value, cfg);
  }
  if (!value.isString()) return wrongType(name, value, "a text");
  const auto mode = EthMode::fromText(value.asString());
  if (!mode) {
    return {refusal::kOutOfRange, "\"" + name + "\" is " + shown(value) + ", which is no mode: static, DHCP."};
  }
  cfg.mode.mode = *mode;
  return {};
}

Refusal readInterface(const std::string& name, const Json::Value& value, EthIpV4Cfg& cfg) {
  static const Field<EthIpV4Cfg> kFields[] = {
      {"eth", &EthIpV4Cfg::eth, kInterfaceName},
      {"mode", applyMode},
      {"static", applyStatic},
  };
  if (Refusal why = assignMembers(kFields, name, value, cfg)) return why;
  if (cfg.eth.empty()) {
    return {refusal::kOutOfRange, "\"" + name + "\" is " + shown(value) + ", which names no interface: \"eth\"."};
  }
  return {};
}

auto findInterface(SysParameters& stored, const std::string& name) {
  return std::find_if(stored.ethIPv4Cfg.begin(), stored.ethIPv4Cfg.end(),
                      [&name](const EthIpV4Cfg& cfg) { return cfg.eth == name; });
}

Refusal mergeInterface(const std::string& name, const EthIpV4Cfg& cfg, SysParameters& stored) {
  const auto known = findInterface(stored, cfg.eth);
  if (known != stored.ethIPv4Cfg.end()) {
    *known = cfg;
    return {};
  }
  if (stored.ethIPv4Cfg.size() >= kMostInterfaces) {
    return {refusal::kTooMany, "\"" + name + "\" adds " + cfg.eth + ": there are " + std::to_string(kMostInterfaces) +
                                   " interfaces already."};
  }
  stored.ethIPv4Cfg.insert(std::upper_bound(stored.ethIPv4Cfg.begin(), stored.ethIPv4Cfg.end(), cfg), cfg);
  return {};
}

Refusal addInterface(const std::string& name, const Json::Value& value, SysParameters& stored) {
  EthIpV4Cfg cfg;
  if (Refusal why = readInterface(name, value, cfg)) return why;
  if (cfg.validate() < 0) {
    return {refusal::kInvalidAddress, "\"" + name + "\" is " + shown(value) + ", which may not be applied."};
  }
  return mergeInterface(name, cfg, stored);
}

Refusal removeInterface(const std::string& name, const Json::Value& value, SysParameters& stored) {
  if (!value.isString()) return wrongType(name, value, "a text");
  const auto known = findInterface(stored, value.asString());
  if (known == stored.ethIPv4Cfg.end()) {
    return {refusal::kInterfaceNotFound, "\"" + name + "\" is " + shown(value) + ", which no interface is called."};
  }
  stored.ethIPv4Cfg.erase(known);
  return {};
}

/// Takes entries that no client could add: a default that was read from the host may be without an address.
Refusal replaceInterfaces(const std::string& name, const Json::Value& value, SysParameters& stored) {
  if (!value.isArray()) return wrongType(name, value, "an array");
  stored.ethIPv4Cfg.clear();
  for (const Json::Value& element : value) {
    EthIpV4Cfg cfg;
    if (Refusal why = readInterface(name, element, cfg)) return why;
    if (Refusal why = mergeInterface(name, cfg, stored)) return why;
  }
  return {};
}

// --- the other blocks that are set as a whole

Refusal ignoreText(const std::string& name, const Json::Value& value, NmosParameters&) {
  return judgeText(name, value, kName);
}

Refusal applyNmos(const std::string& name, const Json::Value& value, SysParameters& stored) {
  static const Field<NmosParameters> kFields[] = {
      {"enable", &NmosParameters::enable},
      {"http-sdp-port", &NmosParameters::httpSdpPort, kPort},
      {"node-port", &NmosParameters::nodePort, kPort},
      {"query-port", &NmosParameters::queryPort, kPort},
      {"registration-port", &NmosParameters::registrationPort, kPort},
      {"slot-id", &NmosParameters::slotId, kNotNegative},
      {"shelf-id", &NmosParameters::shelfId, kNotNegative},
      {"node-name", &NmosParameters::nodeName, kName},
      {"device-name", &NmosParameters::deviceName, kName},
      {"advertisement-interface", &NmosParameters::advertisementInterface, kName},
      {"node-description", ignoreText},  // a fixed text that is only ever written
  };
  return assignMembers(kFields, name, value, stored.nmos);
}

Refusal applyTimingMode(const std::string& name, const Json::Value& value, VideoTimingParameters& timing) {
  if (!value.isString()) return wrongType(name, value, "a text");
  if (value.asString() == VideoTimingParameters::toText(VideoTimingParameters::TIMING_MODE_UNSET)) return {};  // stays
  const auto mode = VideoTimingParameters::fromText(value.asString());
  if (!mode) {
    return {refusal::kOutOfRange,
            "\"" + name + "\" is " + shown(value) + ", which is no mode: frame_sync, low_latency, 2059."};
  }
  timing.timingMode = *mode;
  return {};
}

Refusal applyVideoTiming(const std::string& name, const Json::Value& value, SysParameters& stored) {
  static const Field<VideoTimingParameters> kFields[] = {
      {"timing-mode", applyTimingMode},
      {"initBufDelay", &VideoTimingParameters::initBufDelay, kNotNegative},
      {"minWrRdPtrThresh", &VideoTimingParameters::minWrRdPtrThresh, kNotNegative},
      {"maxWrRdPtrThresh", &VideoTimingParameters::maxWrRdPtrThresh, kNotNegative},
      {"rtpPktsPerFrame", &VideoTimingParameters::rtpPktsPerFrame, kNotNegative},
  };
  return assignMembers(kFields, name, value, stored.videoTiming);
}

Refusal applyModule(const std::string& name, const Json::Value& value, BitstreamType& bitstream) {
  if (!value.isString()) return wrongType(name, value, "a text");
  const std::string text = value.asString();
  const auto type = BitstreamType::fromText(text);
  if (!type && text != BitstreamType::toText(BitstreamType::BITSTREAM_NONE)) {
    return {refusal::kOutOfRange, "\"" + name + "\" is " + shown(value) + ", which is no bitstream."};
  }
  bitstream.type = type.value_or(BitstreamType::BITSTREAM_NONE);
  return {};
}

Refusal applyBitstream(const std::string& name, const Json::Value& value, SysParameters& stored) {
  static const Field<BitstreamType> kFields[] = {{"module", applyModule}};
  return assignMembers(kFields, name, value, stored.bitstream);
}

// --- the table

/// A stored parameter: the flat key with which clients change it, and where it stands in the document. Either may be
/// missing: there are keys that do something, and values that no client sets by a key.
struct StoredField {
  const char* key;
  const char* path;
  Field<SysParameters>::Place place;
  Range range = {0, 0};
};

const StoredField kStoredFields[] = {
    {"rtsp-eth-port", "rtsp/eth-port", &SysParameters::rtspEthPort, kName},
    {"rtsp-tcp-port", "rtsp/tcp-port", &SysParameters::rtspTcpPort, kPort},
    {"ember-tcp-port", "ember/tcp-port", &SysParameters::emberTcpPort, kPort},
    {"advert-eth-port", "advert/eth-port", &SysParameters::advertEthPort, kName},
    {"advert-tcp-port", "advert/tcp-port", &SysParameters::advertTcpPort, kPort},
    {"board-name-prefix", "advert/board-name-prefix", &SysParameters::advertBoardNamePrefix, kName},
    {"cfg-file-path", "cfg/cfg-file-path", &SysParameters::cfgFilePath, kPath},
    {"cfg-autosave-enable", "cfg/autosave-enable", &SysParameters::cfgAutosaveEnable},
    {"offset-from-master-threshold", "cfg/offset-from-master-threshold", &SysParameters::offsetFromMasterThreshold,
     kAnyNumber},
    {"pause-streams-if-ptp-fails", "cfg/pause-audio-streams-ptp-fails", &SysParameters::pauseStreamsPtpFail},
    {"redundancy-enable", "redundancy/enable", &SysParameters::redundancyEnable},
    {"walkabout-enable", "walkabout/enable", &SysParameters::walkaboutEnable},
    {"sap-enable", "sap/enable", &SysParameters::sapEnable},
    {"slp-enable", "slp/enable", &SysParameters::slpEnable},
    {"primary-vlan-id", "vlan/primary-id", &SysParameters::primaryVlanId, kVlanId},
    {"secondary-vlan-id", "vlan/secondary-id", &SysParameters::secondaryVlanId, kVlanId},
    {"tdm-ch-per-line", "tdm/channels-per-line", &SysParameters::tdmChannelsPerLine, kTdmChannels},
    {"vtc-image-path", "vtc/image-path", &SysParameters::vtcImagePath, kPath},
    {"nmos", "nmos", applyNmos},
    {"videoTimingParameters", "videoTimingParameters", applyVideoTiming},
    {"bitstream-type", "bitstream", applyBitstream},
    {"add-eth-cfg", nullptr, addInterface},
    {"rem-eth-cfg", nullptr, removeInterface},
    {nullptr, "ethipv4", replaceInterfaces},
    {nullptr, "cfg/identify-enable", &SysParameters::identifyEnable},
    {nullptr, "ptp/ptp-path", &SysParameters::ptpPath, kPath},
    {nullptr, "serial-number", &SysParameters::serialNumber, kName},
};

/// Sets the value whose key, or path, has a name.
Refusal set(const char* StoredField::*which, const std::string& name, const Json::Value& value, SysParameters& stored) {
  for (const StoredField& field : kStoredFields) {
    const char* const known = field.*which;
    if (known != nullptr && name == known) {
      return assign(Field<SysParameters>{known, field.place, field.range}, name, value, stored);
    }
  }
  return unknownKey(name, value);
}

/// Whether values stand below a block: "rtsp/...".
bool isBlock(const std::string& name) {
  return std::any_of(std::begin(kStoredFields), std::end(kStoredFields), [&name](const StoredField& field) {
    return field.path != nullptr && std::string_view(field.path).substr(0, name.size() + 1) == name + "/";
  });
}

Refusal setBlock(const std::string& block, const Json::Value& value, SysParameters& stored) {
  if (!isBlock(block)) return set(&StoredField::path, block, value, stored);
  if (!value.isObject()) return wrongType(block, value, "an object");
  for (auto member = value.begin(); member != value.end(); ++member) {
    if (Refusal why = set(&StoredField::path, block + "/" + member.name(), *member, stored)) return why;
  }
  return {};
}

template <class SetMember>
Refusal allOrNone(const Json::Value& object, SysParameters& stored, SetMember setMember) {
  SysParameters changed = stored;
  for (auto member = object.begin(); member != object.end(); ++member) {
    if (Refusal why = setMember(member.name(), *member, changed)) return why;
  }
  stored = std::move(changed);
  return {};
}

}  // namespace

Refusal applyChange(const Json::Value& change, SysParameters& stored) {
  return allOrNone(change, stored, [](const std::string& name, const Json::Value& value, SysParameters& changed) {
    return set(&StoredField::key, name, value, changed);
  });
}

Refusal applyDocument(const Json::Value& document, SysParameters& stored) {
  if (!document.isObject()) return wrongType("stored", document, "an object");
  return allOrNone(document, stored, setBlock);
}

}  // namespace zel::sim
