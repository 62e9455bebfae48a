#include "types/sys_parameters.h"

#include <algorithm>
#include <functional>
#include <string>
#include <unordered_set>

#include "common/ip_address.h"
#include "common/logger.h"
#include "types/internal/mark.h"
#include "types/internal/walks.h"

namespace zel {

namespace {

struct SameName {
  bool operator()(const EthIpV4Cfg* a, const EthIpV4Cfg* b) const { return a->eth == b->eth; }
};
struct HashOfName {
  std::size_t operator()(const EthIpV4Cfg* cfg) const { return std::hash<std::string>()(cfg->eth); }
};

/// Overwrites the entries that the array names and adds the new ones; those that it does not name stay.
void merge(Json::Value& array, std::list<EthIpV4Cfg>& list) {
  Logger::log(Logger::LEVEL_LIFECYCLE,
              "We do have saved eth on the list: discarding the %d olds and getting the new %d", int(list.size()),
              int(array.size()));
  // Of several entries with one name the first is found. Pointers, not names: overwriting an entry moves its name.
  std::unordered_set<EthIpV4Cfg*, HashOfName, SameName> byName(list.size() + array.size());
  for (EthIpV4Cfg& entry : list) byName.insert(&entry);

  forEachRecord<EthIpV4Cfg>(array, [&](EthIpV4Cfg&& entry) {
    if (const auto found = byName.find(&entry); found != byName.end()) {
      **found = std::move(entry);
    } else {
      list.push_back(std::move(entry));
      byName.insert(&list.back());
    }
  });
  if (!std::is_sorted(list.begin(), list.end())) list.sort();
}

}  // namespace

/// The values that `reset` gives to members whose key is missing: those of a board that nothing has configured. A
/// default-constructed record differs from them.
template <>
const SysParameters& factory<SysParameters>() {
  static Singleton<const SysParameters> record;
  return record.get([] {
    auto* const made = new SysParameters;
    made->ptpPath = "/etc/ptp/";
    made->rtspEthPort = made->advertEthPort = "all";
    made->advertBoardNamePrefix = "Velmar ORVEN";
    made->cfgFilePath = "/etc/aes67/";
    made->videoTiming.timingMode = VideoTimingParameters::TIMING_MODE_LOW_LATENCY;
    return made;
  });
}

/// VLAN ids are written signed and read unsigned, of which they keep the low bits.
struct VlanId : LowBits<uint16_t> {
  static void read(const Json::Value& json, uint16_t& id) { id = static_cast<uint16_t>(json.asUInt()); }
};

// In the order of reading: where a value is refused, the members before it have been read. Writing has no order, since
// a JSON object keeps its names sorted.
template <class Io>
void walk(Io& io, const SysParameters&) {
  using P = SysParameters;
  const auto onOff = [&io](Key service, bool P::*member) {
    io.block(service, [member](auto& block) { block.reset("enable", member); });
  };

  io.block("ptp", [](auto& ptp) { ptp.reset("ptp-path", &P::ptpPath, UpToNul{}); });
  io.block("rtsp", [](auto& rtsp) {
    rtsp.reset("eth-port", &P::rtspEthPort, UpToNul{});
    rtsp.reset("tcp-port", &P::rtspTcpPort);
  });
  io.block("advert", [](auto& advert) {
    advert.reset("eth-port", &P::advertEthPort, UpToNul{});
    advert.reset("tcp-port", &P::advertTcpPort);
    advert.reset("board-name-prefix", &P::advertBoardNamePrefix, UpToNul{});
  });
  io.block("cfg", [](auto& cfg) {
    cfg.reset("cfg-file-path", &P::cfgFilePath, UpToNul{});
    cfg.reset("offset-from-master-threshold", &P::offsetFromMasterThreshold);
    cfg.reset("pause-audio-streams-ptp-fails", &P::pauseStreamsPtpFail);
    cfg.reset("autosave-enable", &P::cfgAutosaveEnable);
    cfg.reset("identify-enable", &P::identifyEnable);
  });
  io.keepBlock("bitstream", [](auto& bitstream) { bitstream.in(&P::bitstream); });
  onOff("redundancy", &P::redundancyEnable);
  onOff("walkabout", &P::walkaboutEnable);
  onOff("sap", &P::sapEnable);
  onOff("slp", &P::slpEnable);
  io.block("vlan", [](auto& vlan) {
    vlan.reset("primary-id", &P::primaryVlanId, VlanId{});
    vlan.reset("secondary-id", &P::secondaryVlanId, VlanId{});
  });

  constexpr Key kInterfaces = "ethipv4";
  if constexpr (Io::kReading) {
    Json::Value& array = io.insert(kInterfaces);
    if (!array.empty()) merge(array, io.record().ethIPv4Cfg);
  } else {
    io.list(kInterfaces, &P::ethIPv4Cfg);
  }

  io.block("tdm", [](auto& tdm) { tdm.reset("channels-per-line", &P::tdmChannelsPerLine); });
  io.block("vtc", [](auto& vtc) { vtc.reset("image-path", &P::vtcImagePath); });
  if constexpr (!Io::kDelta) io.reset("serial-number", &P::serialNumber);
  io.in(&P::nmos);

  constexpr Key kVideoTiming = "videoTimingParameters";
  if constexpr (Io::kDelta) io.insert(kVideoTiming);  // there in any case, so that receivers always see the same shape
  io.keepBlock(kVideoTiming, [](auto& timing) { timing.in(&P::videoTiming); });

  io.block("ember", [](auto& ember) { ember.reset("tcp-port", &P::emberTcpPort); });
  if constexpr (Io::kDelta) io.constant("version", 1);
}

}  // namespace zel

void SysParameters::Serialize(Json::Value& root) const { zel::writeRecord(*this, root); }
int SysParameters::Deserialize(Json::Value& root) { return zel::readRecord(*this, root); }
// NOLINTNEXTLINE(readability-make-member-function-const): its signature is part of the binary interface
void SysParameters::SerializeDelta(Json::Value& root) { zel::writeDelta(*this, root); }

void SysParameters::dumpParameter(const BoardModel& model) const {
  using zel::mark;
  constexpr auto kLevel = Logger::LEVEL_CONFIG;

  Logger::log(kLevel, "Board model               [%s]", BoardModelType::displayName(model.model));
  Logger::log(kLevel, "Bitstream");
  Logger::log(kLevel, "   Running                [%s]", BitstreamType::toText(model.bitstream.type));
  Logger::log(kLevel, "   Configured             [%s]", BitstreamType::toText(bitstream.type));
  Logger::log(kLevel, "Advertisements [eth:port] %s:%d", advertEthPort.c_str(), advertTcpPort);
  Logger::log(kLevel, "   Board Prefix:          %s", advertBoardNamePrefix.c_str());
  Logger::log(kLevel, "RTSP           [eth:port] %s:%d", rtspEthPort.c_str(), rtspTcpPort);
  Logger::log(kLevel, "CFG");
  Logger::log(kLevel, "    Store Path            [%s]", cfgFilePath.c_str());
  Logger::log(kLevel, "    Autosave              [%s]", mark(cfgAutosaveEnable));
  Logger::log(kLevel, "Redundancy Enable         [%s]", mark(redundancyEnable));
  Logger::log(kLevel, "Walkabout Enable          [%s]", mark(walkaboutEnable));
  Logger::log(kLevel, "SAP Enable                [%s]", mark(sapEnable));
  Logger::log(kLevel, "SLP Enable                [%s]", mark(slpEnable));
  Logger::log(kLevel, "Pause senders PTP fail    [%s]", mark(pauseStreamsPtpFail));
  Logger::log(kLevel, "Identify Enable           [%s]", mark(identifyEnable));
  Logger::log(kLevel, "TDM Channels per line     [%d]", tdmChannelsPerLine);
  Logger::log(kLevel, "VTC Image path            [%s]", vtcImagePath.c_str());
  Logger::log(kLevel, "Serial number             [%s]", serialNumber.c_str());
  Logger::log(kLevel, "Ember TCP port            [%d]", emberTcpPort);
  Logger::log(kLevel, "VLAN Configuration");
  Logger::log(kLevel, "   Primary                [%d]", primaryVlanId);
  Logger::log(kLevel, "   Secondary              [%d]", secondaryVlanId);
  nmos.dumpParameter();
  Logger::log(kLevel, "| %6s | %7s | %11s | %11s | %11s | %15s |", "Iface", "Mode", "IP", "NetMask", "GW",
              "VLAN:pri Tpid");
  for (const EthIpV4Cfg& cfg : ethIPv4Cfg) {
    const auto text = [](uint32_t address) { return IpAddress(address).toString(); };
    Logger::log(kLevel, "| %6s | %7s | %11s | %11s | %11s | %d:%d 0x%x |", cfg.eth.c_str(),
                EthMode::toText(cfg.mode.mode), text(cfg.ip).c_str(), text(cfg.mask).c_str(), text(cfg.gw).c_str(),
                cfg.vlan.id, cfg.vlan.priority, cfg.vlan.tpid);
  }
}
