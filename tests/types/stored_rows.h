#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/support/json_of.h"
#include "types/sys_parameters.h"

namespace zel::test {

/// What holds for one key of the stored parameters, the JSON types included.
struct StoredRow {
  std::string path;         ///< "block/key", or a key at the top
  Json::Value whenNew;      ///< what a new record writes
  Json::Value whenMissing;  ///< what a record writes that has read a document without the key or the block
  Json::Value sample;       ///< another value
  bool inDelta;
  std::function<bool(const SysParameters&)> isSample;  ///< whether the member has the sample's value
};

inline const std::vector<StoredRow>& storedRows() {
  using P = SysParameters;
  using V = Json::Value;
  static const std::vector<StoredRow> rows = {
      {"ptp/ptp-path", V(""), V("/etc/ptp/"), V("/p/"), true, [](const P& p) { return p.ptpPath == "/p/"; }},
      {"rtsp/eth-port", V(""), V("all"), V("eth0"), true, [](const P& p) { return p.rtspEthPort == "eth0"; }},
      {"rtsp/tcp-port", V(8554U), V(8554U), V(4000000000U), true,
       [](const P& p) { return p.rtspTcpPort == 4000000000U; }},
      {"advert/eth-port", V(""), V("all"), V("eth1"), true, [](const P& p) { return p.advertEthPort == "eth1"; }},
      {"advert/tcp-port", V(80U), V(80U), V(81U), true, [](const P& p) { return p.advertTcpPort == 81; }},
      {"advert/board-name-prefix", V(""), V("Velmar ORVEN"), V("Studio"), true,
       [](const P& p) { return p.advertBoardNamePrefix == "Studio"; }},
      {"cfg/cfg-file-path", V(""), V("/etc/aes67/"), V("/c/"), true, [](const P& p) { return p.cfgFilePath == "/c/"; }},
      {"cfg/autosave-enable", V(true), V(true), V(false), true, [](const P& p) { return !p.cfgAutosaveEnable; }},
      {"cfg/offset-from-master-threshold", V(30000U), V(30000U), V(1U), true,
       [](const P& p) { return p.offsetFromMasterThreshold == 1; }},
      {"cfg/pause-audio-streams-ptp-fails", V(false), V(false), V(true), true,
       [](const P& p) { return p.pauseStreamsPtpFail; }},
      {"cfg/identify-enable", V(false), V(false), V(true), true, [](const P& p) { return p.identifyEnable; }},
      {"redundancy/enable", V(true), V(true), V(false), true, [](const P& p) { return !p.redundancyEnable; }},
      {"walkabout/enable", V(true), V(true), V(false), true, [](const P& p) { return !p.walkaboutEnable; }},
      {"sap/enable", V(false), V(false), V(true), true, [](const P& p) { return p.sapEnable; }},
      {"slp/enable", V(true), V(true), V(false), true, [](const P& p) { return !p.slpEnable; }},
      {"vlan/primary-id", V(10), V(10), V(65535), true, [](const P& p) { return p.primaryVlanId == 65535; }},
      {"vlan/secondary-id", V(20), V(20), V(21), true, [](const P& p) { return p.secondaryVlanId == 21; }},
      {"tdm/channels-per-line", V(32U), V(32U), V(8U), true, [](const P& p) { return p.tdmChannelsPerLine == 8; }},
      {"vtc/image-path", V("/firmware/vtc_nios.bin"), V("/firmware/vtc_nios.bin"), V("/v"), true,
       [](const P& p) { return p.vtcImagePath == "/v"; }},
      {"ember/tcp-port", V(9095U), V(9095U), V(9096U), true, [](const P& p) { return p.emberTcpPort == 9096; }},
      {"serial-number", V(""), V(""), V("SN-1"), false, [](const P& p) { return p.serialNumber == "SN-1"; }},
  };
  return rows;
}

/// A record with every row's sample and everything else that travels changed, too.
inline SysParameters fullParameters() {
  SysParameters parameters;
  Json::Value document;
  for (const StoredRow& row : storedRows()) at(document, row.path) = row.sample;
  parameters.Deserialize(document);

  parameters.nmos.enable = false;
  parameters.nmos.slotId = 5;
  parameters.nmos.shelfId = 2;
  parameters.nmos.nodeName = "Node";
  parameters.nmos.deviceName = "Device";
  parameters.nmos.advertisementInterface = "eth1";
  parameters.videoTiming.timingMode = VideoTimingParameters::TIMING_MODE_2059;
  parameters.videoTiming.initBufDelay = 0;
  parameters.videoTiming.minWrRdPtrThresh = 1;
  parameters.videoTiming.maxWrRdPtrThresh = 2;
  parameters.videoTiming.rtpPktsPerFrame = 3;
  parameters.bitstream.type = BitstreamType::BITSTREAM_SDI_BIDIR_ST2110;

  EthIpV4Cfg eth0;
  eth0.eth = "eth0";
  eth0.ip = 0xC0A80064;
  eth0.gw = 0xC0A80001;
  EthIpV4Cfg vlan;
  vlan.eth = "eth0.10";
  vlan.mode.mode = EthMode::ETH_MODE_DHCP;
  vlan.vlan.id = 10;
  vlan.vlan.priority = 5;
  vlan.vlan.tpid = 0x88A8;
  parameters.ethIPv4Cfg = {eth0, vlan};
  return parameters;
}

}  // namespace zel::test
