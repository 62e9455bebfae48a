#pragma once

#include <limits>
#include <random>
#include <string>

#include "types/sysmgr_types.h"

namespace zel::test {

/// Records with random members, always the same ones for a seed. The texts hold quotes, control characters and letters
/// beyond ASCII; no NUL, which some members do not carry.
class RandomRecords {
 public:
  explicit RandomRecords(unsigned int seed) : random_(seed) {}

  SysParameters sysParameters() {
    SysParameters p;
    p.rtspEthPort = text();
    p.rtspTcpPort = word();
    p.advertEthPort = text();
    p.advertTcpPort = word();
    p.advertBoardNamePrefix = text();
    p.cfgFilePath = text();
    p.cfgAutosaveEnable = flag();
    p.serialNumber = text();
    p.offsetFromMasterThreshold = word();
    for (unsigned int i = below(5); i > 0; --i) p.ethIPv4Cfg.push_back(ethIpV4Cfg("eth" + std::to_string(i)));
    p.ethIPv4Cfg.sort();
    p.redundancyEnable = flag();
    p.walkaboutEnable = flag();
    p.sapEnable = flag();
    p.slpEnable = flag();
    p.pauseStreamsPtpFail = flag();
    p.identifyEnable = flag();
    p.nmos = nmos();
    p.videoTiming = videoTiming();
    p.tdmChannelsPerLine = word();
    p.vtcImagePath = text();
    p.bitstream = bitstream();
    p.ptpPath = text();
    p.emberTcpPort = word();
    p.primaryVlanId = static_cast<uint16_t>(word());
    p.secondaryVlanId = static_cast<uint16_t>(word());
    return p;
  }

  NmosParameters nmos() {
    NmosParameters n;
    n.enable = flag();
    n.httpSdpPort = number();
    n.nodePort = number();
    n.queryPort = number();
    n.registrationPort = number();
    n.slotId = number();
    n.shelfId = number();
    n.nodeName = text();
    n.deviceName = text();
    n.advertisementInterface = text();
    return n;
  }

  VideoTimingParameters videoTiming() {
    VideoTimingParameters v;
    v.timingMode = VideoTimingParameters::timing_mode_t(1 + below(3));  // "unset" is never read back
    v.initBufDelay = numberOrNone();
    v.minWrRdPtrThresh = numberOrNone();
    v.maxWrRdPtrThresh = numberOrNone();
    v.rtpPktsPerFrame = numberOrNone();
    return v;
  }

  BitstreamType bitstream() {
    BitstreamType b;
    b.type = BitstreamType::bitstream_t(below(5));
    return b;
  }

  EthIpV4Cfg ethIpV4Cfg(const std::string& name) {
    EthIpV4Cfg cfg;
    cfg.eth = name;
    if (flag()) {
      cfg.mode.mode = EthMode::ETH_MODE_DHCP;
      return cfg;
    }
    cfg.ip = word();
    cfg.mask = word();
    cfg.gw = word();
    return cfg;
  }

  Vlan vlan() {
    Vlan v;
    v.id = static_cast<uint16_t>(word());
    v.priority = static_cast<uint8_t>(word());
    v.tpid = static_cast<uint16_t>(word());
    return v;
  }

  SfpInfo sfp() {
    SfpInfo s;
    s.present = flag();
    s.temperature = float(number()) / 8;
    s.rxPower = float(number()) / 16;
    s.txPower = float(number());
    s.wavelength = number();
    s.partNumber = text();
    return s;
  }

  EthBasicInfo ethBasicInfo() {
    EthBasicInfo info;
    info.name = text();
    info.ip = word();
    info.mac = text();
    info.ipPresent = flag();
    info.index = word();
    info.label = text();
    info.sfp = sfp();
    return info;
  }

  SysParametersDynamic sysParametersDynamic() {
    SysParametersDynamic d;
    d.chipIdVersion = text();
    d.chipIdName = text();
    for (unsigned int i = below(4); i > 0; --i) d.ethBasics.push_back(ethBasicInfo());
    d.temperature.fpga = number();
    d.fanSpeed.main = number();
    d.madiLock = flag();
    for (unsigned int i = below(4); i > 0; --i) {
      SystemError error;
      error.code = number();
      error.description = text();
      d.errors.push_back(error);
    }
    return d;
  }

  WhiteListDb whiteList() {
    WhiteListDb db;
    for (unsigned int i = below(6); i > 0; --i) {
      WhiteListEntry entry;
      entry.setIp(word());
      entry.setMask(word());
      entry.enable(flag());
      db.entries.emplace(entry.ip, entry);
    }
    return db;
  }

  BoardModel boardModel() {
    BoardModel board;
    board.bitstream = bitstream();
    board.setModel(BoardModelType::board_models_t(below(13)));
    return board;
  }

  unsigned int below(unsigned int limit) { return static_cast<unsigned int>(random_() % limit); }
  bool flag() { return below(2) == 1; }
  uint32_t word() { return flag() ? static_cast<uint32_t>(random_()) : below(70000); }
  int number() { return static_cast<int>(word()); }
  int numberOrNone() { return flag() ? number() : -1; }
  std::string text() {
    static const char* const pieces[] = {"eth0", "/etc/", " ",        "\"",           "\\",
                                         "\n",   "\x7f",  "\xc3\xa9", "\xe2\x82\xac", "x"};
    std::string text;
    for (unsigned int i = below(6); i > 0; --i) text += pieces[below(10)];
    return text;
  }

 private:
  std::mt19937 random_;
};

}  // namespace zel::test
