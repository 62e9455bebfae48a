#pragma once

#include <json/value.h>

#include <cstdint>
#include <limits>
#include <list>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "sys_parameters.h"

/// @file
/// The table of the stored parameters: one row for each value of the stored document, and for each key of a SET
/// request. A row says where the value is in the document and in `SysParameters`, which key sets it, and which values
/// the daemon accepts.
///
/// The rows are typed handles, so that a value of a wrong type does not compile:
///
/// @code
/// const uint32_t port = zel::settings::kRtspTcpPort.in(parameters);
/// zel::settings::kRtspTcpPort.in(parameters) = 5004;
/// zel::settings::forEach([](const zel::SettingRow& row) { std::printf("%s: %s\n", row.path, row.meaning); });
/// @endcode
///
/// All rows are constants: any thread may read them at any time, the end of the process included.

namespace zel {

/// What a row of the table says whatever the type of its value.
struct SettingRow {
  /// What the value is.
  enum class Kind {
    kSwitch,         ///< a boolean
    kNumber,         ///< an integer
    kText,           ///< a text
    kChoice,         ///< an enumeration; in JSON one of its texts
    kBlock,          ///< an object; each of its members has a row of its own
    kInterface,      ///< the configuration of one interface, as an element of "ethipv4"
    kInterfaceList,  ///< an array of interface configurations
  };

  /// How a new value reaches the daemon.
  enum class Route {
    kKey,         ///< as the member `key` of a SET request (command 2): {"rtsp-tcp-port": 5004}
    kBlock,       ///< inside its block, which a SET request carries whole as the member `key`: {"nmos": {...}}
    kListChange,  ///< as the member `key` of a SET request that changes the list of interfaces: {"rem-eth-cfg": "eth1"}
    kIdentify,    ///< as the member `key` of the command SET Identify LEDs (19): {"identify-enable": true}
    kNone,        ///< not at all: no request sets this value
  };

  /// The values that the daemon accepts. The client does not check them.
  struct Values {
    const char* name;    ///< a word for them in a list or a help text: "number", "on|off"
    std::int64_t least;  ///< the lowest number, the fewest bytes of a text (NUL is not accepted), the first enumerator
    std::int64_t most;   ///< the highest number, the most bytes of a text, the last enumerator
    const char* (*text)(std::int64_t enumerator) = nullptr;  ///< enumerations only: the text that is written
    bool (*reads)(std::string_view text) = nullptr;          ///< enumerations only: whether the text selects a value
    const char* unit = "";                                   ///< of a number, where there is one; no reader converts
  };

  /// When the stored document of a daemon has the value.
  enum class Presence {
    kAlways,
    kWhenSet,  ///< it is left out where nothing is set; the readers show it as not set then
    kIfAny,    ///< the daemon may leave it out: no reader needs it
  };

  /// The place in the stored document: "rtsp/tcp-port". A row that changes the list of interfaces
  /// (`Route::kListChange`) has a name of the same form instead: "ethipv4/add".
  const char* path;
  const char* key;  ///< the member of the request; null when no request sets the value
  Values values;
  const char* meaning;  ///< in words: "TCP port of the RTSP server"
  Route route = Route::kKey;
  Presence presence = Presence::kAlways;
  Kind kind = Kind::kText;   ///< follows from the row's type
  std::int64_t highest = 0;  ///< of a number: the highest that its C++ type holds; follows from the row's type

  /// The texts of an enumeration's accepted values, in the order of the enumerators; empty for the other kinds.
  std::vector<const char*> choices() const {
    std::vector<const char*> texts;
    if (values.text == nullptr) return texts;
    for (std::int64_t each = values.least; each <= values.most; ++each) texts.push_back(values.text(each));
    return texts;
  }

  /// Whether the daemon accepts a text for an enumeration: each text that the enumeration writes or reads. One that is
  /// only written ("unset") changes nothing; it is accepted because a block is sent back whole. False for other kinds.
  bool acceptsChoice(std::string_view text) const {
    if (values.text == nullptr) return false;
    for (std::int64_t each = 0; each <= values.most; ++each) {
      if (text == values.text(each)) return true;
    }
    return values.reads(text);
  }
};

/// A row whose value is a T.
template <class T>
struct TypedRow : SettingRow {
  using Type = T;

  constexpr explicit TypedRow(const SettingRow& row) : SettingRow(row) {
    if constexpr (std::is_same_v<T, bool>) {
      kind = Kind::kSwitch;
    } else if constexpr (std::is_integral_v<T>) {
      kind = Kind::kNumber;
      highest = std::numeric_limits<T>::max();
    } else if constexpr (std::is_enum_v<T>) {
      kind = Kind::kChoice;
    } else if constexpr (std::is_same_v<T, std::string>) {
      kind = Kind::kText;
    } else if constexpr (std::is_same_v<T, EthIpV4Cfg>) {
      kind = Kind::kInterface;
    } else if constexpr (std::is_same_v<T, std::list<EthIpV4Cfg>>) {
      kind = Kind::kInterfaceList;
    } else {
      kind = Kind::kBlock;
    }
  }

  /// The value as a request carries it: a `uint32_t` as an unsigned number, a `uint16_t` and an `int` as a signed one,
  /// an enumeration as its text, a record as an object.
  Json::Value toJson(const T& value) const {
    if constexpr (std::is_enum_v<T>) {
      return values.text(value);
    } else if constexpr (std::is_same_v<T, std::uint16_t>) {
      return Json::Int{value};
    } else if constexpr (std::is_same_v<T, NmosParameters>) {
      Json::Value document;
      value.Serialize(document);  // unlike the other records it writes a whole document
      return document[path];
    } else if constexpr (std::is_same_v<T, std::list<EthIpV4Cfg>>) {
      Json::Value array(Json::arrayValue);
      for (const EthIpV4Cfg& each : value) each.Serialize(array[array.size()]);
      return array;
    } else if constexpr (std::is_base_of_v<IJsonSerializable, T>) {
      Json::Value object;
      value.Serialize(object);
      return object;
    } else {
      return value;
    }
  }
};

/// A value of the stored document that can be read by itself. A request sets it as a part of its block, or not at all.
template <class T>
struct StoredValue : TypedRow<T> {
  using Place = const T& (*)(const SysParameters& stored);

  constexpr StoredValue(const SettingRow& row, Place place) : TypedRow<T>(row), place_(place) {}

  const T& in(const SysParameters& stored) const { return place_(stored); }
  T& in(SysParameters& stored) const { return const_cast<T&>(place_(stored)); }  // `stored` itself is not const

 private:
  Place place_;
};

/// A value of the stored document that a request can set by itself.
template <class T>
struct Setting : StoredValue<T> {
  using StoredValue<T>::StoredValue;
};

/// A member of a SET request that changes the list of interfaces. It has no value of its own in the stored document.
template <class T>
struct InterfaceChange : TypedRow<T> {
  using TypedRow<T>::TypedRow;
};

namespace settings {

using Presence = SettingRow::Presence;
using Route = SettingRow::Route;

/// The member of `SysParameters`, or the member of a record in it, that a row is about:
/// `member<&SysParameters::nmos, &NmosParameters::nodePort>`.
template <auto... steps>
const auto& member(const SysParameters& stored) {
  return (stored.*....*steps);
}

/// Which values the daemon accepts.
namespace values {

using Values = SettingRow::Values;

/// The texts of an enumeration that `Record` writes and reads, from one enumerator to another.
template <class Record, class Enum>
constexpr Values textsOf(const char* name, Enum first, Enum last) {
  return {name, first, last, [](std::int64_t each) { return Record::toText(static_cast<Enum>(each)); },
          [](std::string_view text) { return Record::fromText(text).has_value(); }};
}

inline constexpr Values kSwitch{"on|off", 0, 1};
inline constexpr Values kPort{"number", 1, 65535};
inline constexpr Values kVlanId{"number", 0, 4094};
inline constexpr Values kTdmChannels{"number", 1, 256};
inline constexpr Values kNanoseconds{"number", 0, std::numeric_limits<std::uint32_t>::max(), nullptr, nullptr, "ns"};
inline constexpr Values kNotNegative{"number", 0, std::numeric_limits<int>::max()};
inline constexpr Values kText{"text", 0, 255};
inline constexpr Values kFilePath{"text", 0, 4095};
inline constexpr Values kInterface{"interface", 0, 255};
inline constexpr Values kInterfaceOrAll{"interface|all", 0, 255};
inline constexpr Values kInterfaceName{"interface", 1, 15};  // as the kernel has it
inline constexpr Values kInterfaceConfiguration{"configuration", 0, 0};
inline constexpr Values kObject{"object", 0, 0};
inline constexpr Values kArray{"array", 0, 0};
inline constexpr Values kBitstreams =
    textsOf<BitstreamType>("bitstream", BitstreamType::BITSTREAM_SDI_TR04, BitstreamType::BITSTREAM_NONE);
inline constexpr Values kTimingModes = textsOf<VideoTimingParameters>(
    "mode", VideoTimingParameters::TIMING_MODE_FRAME_SYNC, VideoTimingParameters::TIMING_MODE_2059);

}  // namespace values

inline constexpr Setting<std::string> kRtspEthPort{
    {"rtsp/eth-port", "rtsp-eth-port", values::kInterfaceOrAll, "interface on which the RTSP server listens"},
    member<&SysParameters::rtspEthPort>};
inline constexpr Setting<std::uint32_t> kRtspTcpPort{
    {"rtsp/tcp-port", "rtsp-tcp-port", values::kPort, "TCP port of the RTSP server"},
    member<&SysParameters::rtspTcpPort>};
inline constexpr Setting<std::uint32_t> kEmberTcpPort{
    {"ember/tcp-port", "ember-tcp-port", values::kPort, "TCP port of the Ember+ provider"},
    member<&SysParameters::emberTcpPort>};
inline constexpr Setting<std::string> kAdvertEthPort{
    {"advert/eth-port", "advert-eth-port", values::kInterfaceOrAll, "interface on which the board advertises itself"},
    member<&SysParameters::advertEthPort>};
inline constexpr Setting<std::uint32_t> kAdvertTcpPort{
    {"advert/tcp-port", "advert-tcp-port", values::kPort, "TCP port that is advertised"},
    member<&SysParameters::advertTcpPort>};
inline constexpr Setting<std::string> kAdvertBoardNamePrefix{
    {"advert/board-name-prefix", "board-name-prefix", values::kText,
     "beginning of the advertised name; a MAC address follows"},
    member<&SysParameters::advertBoardNamePrefix>};
inline constexpr Setting<std::string> kCfgFilePath{
    {"cfg/cfg-file-path", "cfg-file-path", values::kFilePath, "directory in which the daemon keeps its configuration"},
    member<&SysParameters::cfgFilePath>};
inline constexpr Setting<bool> kCfgAutosaveEnable{
    {"cfg/autosave-enable", "cfg-autosave-enable", values::kSwitch, "whether the daemon saves each change by itself"},
    member<&SysParameters::cfgAutosaveEnable>};
inline constexpr Setting<std::uint32_t> kOffsetFromMasterThreshold{
    {"cfg/offset-from-master-threshold", "offset-from-master-threshold", values::kNanoseconds,
     "offset from the PTP master above which the board counts as not synchronised"},
    member<&SysParameters::offsetFromMasterThreshold>};
inline constexpr Setting<bool> kPauseStreamsPtpFail{{"cfg/pause-audio-streams-ptp-fails", "pause-streams-if-ptp-fails",
                                                     values::kSwitch, "whether the streams pause while PTP fails"},
                                                    member<&SysParameters::pauseStreamsPtpFail>};
inline constexpr Setting<bool> kIdentifyEnable{{"cfg/identify-enable", "identify-enable", values::kSwitch,
                                                "whether the identification LEDs blink", Route::kIdentify},
                                               member<&SysParameters::identifyEnable>};
inline constexpr Setting<bool> kRedundancyEnable{{"redundancy/enable", "redundancy-enable", values::kSwitch,
                                                  "whether the streams are sent twice, over two networks"},
                                                 member<&SysParameters::redundancyEnable>};
inline constexpr Setting<bool> kWalkaboutEnable{
    {"walkabout/enable", "walkabout-enable", values::kSwitch, "whether other devices find the board through Walkabout"},
    member<&SysParameters::walkaboutEnable>};
inline constexpr Setting<bool> kSapEnable{
    {"sap/enable", "sap-enable", values::kSwitch, "whether the streams are announced with SAP"},
    member<&SysParameters::sapEnable>};
inline constexpr Setting<bool> kSlpEnable{
    {"slp/enable", "slp-enable", values::kSwitch, "whether other devices find the board through SLP"},
    member<&SysParameters::slpEnable>};
inline constexpr Setting<std::uint32_t> kTdmChannelsPerLine{
    {"tdm/channels-per-line", "tdm-ch-per-line", values::kTdmChannels, "channels on one TDM line"},
    member<&SysParameters::tdmChannelsPerLine>};
inline constexpr Setting<std::uint16_t> kPrimaryVlanId{
    {"vlan/primary-id", "primary-vlan-id", values::kVlanId, "VLAN of the primary network"},
    member<&SysParameters::primaryVlanId>};
inline constexpr Setting<std::uint16_t> kSecondaryVlanId{
    {"vlan/secondary-id", "secondary-vlan-id", values::kVlanId, "VLAN of the secondary network"},
    member<&SysParameters::secondaryVlanId>};
inline constexpr Setting<std::string> kVtcImagePath{
    {"vtc/image-path", "vtc-image-path", values::kFilePath, "image file of the video timing controller"},
    member<&SysParameters::vtcImagePath>};

inline constexpr Setting<BitstreamType> kBitstream{{"bitstream", "bitstream-type", values::kObject, "FPGA bitstream"},
                                                   member<&SysParameters::bitstream>};
inline constexpr StoredValue<BitstreamType::bitstream_t> kBitstreamModule{
    {"bitstream/module", kBitstream.key, values::kBitstreams, "FPGA bitstream to run", Route::kBlock},
    member<&SysParameters::bitstream, &BitstreamType::type>};

inline constexpr Setting<VideoTimingParameters> kVideoTiming{
    {"videoTimingParameters", "videoTimingParameters", values::kObject, "video timing of the FPGA"},
    member<&SysParameters::videoTiming>};
inline constexpr StoredValue<VideoTimingParameters::timing_mode_t> kVideoTimingMode{
    {"videoTimingParameters/timing-mode", kVideoTiming.key, values::kTimingModes, "video timing", Route::kBlock},
    member<&SysParameters::videoTiming, &VideoTimingParameters::timingMode>};
inline constexpr StoredValue<int> kVideoInitBufDelay{
    {"videoTimingParameters/initBufDelay", kVideoTiming.key, values::kNotNegative, "initial delay of the video buffer",
     Route::kBlock, Presence::kWhenSet},
    member<&SysParameters::videoTiming, &VideoTimingParameters::initBufDelay>};
inline constexpr StoredValue<int> kVideoMinWrRdPtrThresh{
    {"videoTimingParameters/minWrRdPtrThresh", kVideoTiming.key, values::kNotNegative,
     "least distance of the buffer's write and read pointers", Route::kBlock, Presence::kWhenSet},
    member<&SysParameters::videoTiming, &VideoTimingParameters::minWrRdPtrThresh>};
inline constexpr StoredValue<int> kVideoMaxWrRdPtrThresh{
    {"videoTimingParameters/maxWrRdPtrThresh", kVideoTiming.key, values::kNotNegative,
     "greatest distance of the buffer's write and read pointers", Route::kBlock, Presence::kWhenSet},
    member<&SysParameters::videoTiming, &VideoTimingParameters::maxWrRdPtrThresh>};
inline constexpr StoredValue<int> kVideoRtpPktsPerFrame{
    {"videoTimingParameters/rtpPktsPerFrame", kVideoTiming.key, values::kNotNegative, "RTP packets in a video frame",
     Route::kBlock, Presence::kWhenSet},
    member<&SysParameters::videoTiming, &VideoTimingParameters::rtpPktsPerFrame>};

inline constexpr Setting<NmosParameters> kNmos{{"nmos", "nmos", values::kObject, "NMOS node"},
                                               member<&SysParameters::nmos>};
inline constexpr StoredValue<bool> kNmosEnable{
    {"nmos/enable", kNmos.key, values::kSwitch, "whether the NMOS node runs", Route::kBlock},
    member<&SysParameters::nmos, &NmosParameters::enable>};
inline constexpr StoredValue<int> kNmosHttpSdpPort{
    {"nmos/http-sdp-port", kNmos.key, values::kPort, "TCP port on which SDP files are served", Route::kBlock},
    member<&SysParameters::nmos, &NmosParameters::httpSdpPort>};
inline constexpr StoredValue<int> kNmosNodePort{
    {"nmos/node-port", kNmos.key, values::kPort, "TCP port of the NMOS Node API", Route::kBlock},
    member<&SysParameters::nmos, &NmosParameters::nodePort>};
inline constexpr StoredValue<int> kNmosQueryPort{
    {"nmos/query-port", kNmos.key, values::kPort, "TCP port of the NMOS Query API", Route::kBlock},
    member<&SysParameters::nmos, &NmosParameters::queryPort>};
inline constexpr StoredValue<int> kNmosRegistrationPort{
    {"nmos/registration-port", kNmos.key, values::kPort, "TCP port of the NMOS Registration API", Route::kBlock},
    member<&SysParameters::nmos, &NmosParameters::registrationPort>};
inline constexpr StoredValue<int> kNmosSlotId{
    {"nmos/slot-id", kNmos.key, values::kNotNegative, "the board's slot in its shelf", Route::kBlock},
    member<&SysParameters::nmos, &NmosParameters::slotId>};
inline constexpr StoredValue<int> kNmosShelfId{
    {"nmos/shelf-id", kNmos.key, values::kNotNegative, "the shelf that the board is in", Route::kBlock},
    member<&SysParameters::nmos, &NmosParameters::shelfId>};
inline constexpr StoredValue<std::string> kNmosNodeName{
    {"nmos/node-name", kNmos.key, values::kText, "name of the NMOS node", Route::kBlock},
    member<&SysParameters::nmos, &NmosParameters::nodeName>};
inline constexpr StoredValue<std::string> kNmosDeviceName{
    {"nmos/device-name", kNmos.key, values::kText, "name of the NMOS device", Route::kBlock},
    member<&SysParameters::nmos, &NmosParameters::deviceName>};
inline constexpr StoredValue<std::string> kNmosAdvertisementInterface{
    {"nmos/advertisement-interface", kNmos.key, values::kInterface, "interface on which the NMOS node is advertised",
     Route::kBlock},
    member<&SysParameters::nmos, &NmosParameters::advertisementInterface>};
/// The record writes this text and never reads it.
inline constexpr TypedRow<std::string> kNmosNodeDescription{{"nmos/node-description", nullptr, values::kText,
                                                             "fixed description of the NMOS node", Route::kNone,
                                                             Presence::kIfAny}};

inline constexpr StoredValue<std::list<EthIpV4Cfg>> kInterfaces{
    {"ethipv4", nullptr, values::kArray, "configurations of the interfaces", Route::kNone, Presence::kWhenSet},
    member<&SysParameters::ethIPv4Cfg>};
inline constexpr InterfaceChange<EthIpV4Cfg> kAddInterface{
    {"ethipv4/add", "add-eth-cfg", values::kInterfaceConfiguration,
     "adds the configuration of an interface, or replaces the one of its name", Route::kListChange}};
inline constexpr InterfaceChange<std::string> kRemoveInterface{{"ethipv4/remove", "rem-eth-cfg", values::kInterfaceName,
                                                                "removes the configuration of an interface",
                                                                Route::kListChange}};

inline constexpr StoredValue<std::string> kPtpPath{
    {"ptp/ptp-path", nullptr, values::kFilePath, "directory of the PTP configuration", Route::kNone},
    member<&SysParameters::ptpPath>};
inline constexpr StoredValue<std::string> kSerialNumber{
    {"serial-number", nullptr, values::kText, "serial number of the board", Route::kNone},
    member<&SysParameters::serialNumber>};

/// Calls `use` with each row, in the order above. `use` is generic (`const auto& row`), or takes a `const SettingRow&`.
template <class Use>
constexpr void forEach(Use&& use) {
  const auto each = [&use](const auto&... rows) { (use(rows), ...); };
  each(kRtspEthPort, kRtspTcpPort, kEmberTcpPort, kAdvertEthPort, kAdvertTcpPort, kAdvertBoardNamePrefix, kCfgFilePath,
       kCfgAutosaveEnable, kOffsetFromMasterThreshold, kPauseStreamsPtpFail, kIdentifyEnable, kRedundancyEnable,
       kWalkaboutEnable, kSapEnable, kSlpEnable, kTdmChannelsPerLine, kPrimaryVlanId, kSecondaryVlanId, kVtcImagePath,
       kBitstream, kBitstreamModule, kVideoTiming, kVideoTimingMode, kVideoInitBufDelay, kVideoMinWrRdPtrThresh,
       kVideoMaxWrRdPtrThresh, kVideoRtpPktsPerFrame, kNmos, kNmosEnable, kNmosHttpSdpPort, kNmosNodePort,
       kNmosQueryPort, kNmosRegistrationPort, kNmosSlotId, kNmosShelfId, kNmosNodeName, kNmosDeviceName,
       kNmosAdvertisementInterface, kNmosNodeDescription, kInterfaces, kAddInterface, kRemoveInterface, kPtpPath,
       kSerialNumber);
}

/// The row with this `path`; null when there is none.
inline const SettingRow* findPath(std::string_view path) {
  const SettingRow* found = nullptr;
  forEach([&](const SettingRow& row) {
    if (path == row.path) found = &row;
  });
  return found;
}

/// The row that a member of a request sets as a whole: for "nmos" that of the block, not those of its members. Null
/// when there is none.
inline const SettingRow* findKey(std::string_view key) {
  const SettingRow* found = nullptr;
  forEach([&](const SettingRow& row) {
    if (row.key != nullptr && key == row.key && row.route != SettingRow::Route::kBlock) found = &row;
  });
  return found;
}

}  // namespace settings

}  // namespace zel
