#include "simulator/factory.h"

#include <cstdint>
#include <cstdio>

#include "common/ip_address.h"
#include "types/shared/board_models.h"

namespace zel::sim {

namespace {

// The chips of each model. What the API itself knows of a model is in the table of types/shared/board_models.h.
struct ModelFacts {
  BoardModelType::board_models_t model;
  BitstreamType::bitstream_t bitstream;
  const char* chip;
  int fpgaDegrees;
  int fanSpeed;
};

constexpr ModelFacts kModelFacts[] = {
    {BoardModelType::ORVEN_AES67, BitstreamType::BITSTREAM_NONE, "ZEL-A1", 47, 3200},
    {BoardModelType::TRISK_AES67, BitstreamType::BITSTREAM_NONE, "ZEL-A1", 46, 3150},
    {BoardModelType::ORVEN_AVB, BitstreamType::BITSTREAM_NONE, "ZEL-A2", 45, 3100},
    {BoardModelType::KORVA, BitstreamType::BITSTREAM_SDI_ST2110, "ZEL-V4", 63, 5200},
    {BoardModelType::ORVEN_TESSA, BitstreamType::BITSTREAM_NONE, "ZEL-A1", 48, 3200},
    {BoardModelType::BRAVIK_AOIP, BitstreamType::BITSTREAM_NONE, "ZEL-A3", 51, 3600},
    {BoardModelType::ORVEN_QUILL_IO, BitstreamType::BITSTREAM_NONE, "ZEL-A2", 44, 3000},
    {BoardModelType::NIMBRA_AES67, BitstreamType::BITSTREAM_NONE, "ZEL-S1", 41, 2800},
    {BoardModelType::ZIRC, BitstreamType::BITSTREAM_HDMI_ST2110, "ZEL-V5", 66, 5600},
    {BoardModelType::VELDA, BitstreamType::BITSTREAM_NONE, "ZEL-A4", 50, 3500},
    {BoardModelType::MERIX, BitstreamType::BITSTREAM_SDI_BIDIR_ST2110, "ZEL-V4", 64, 5300},
    {BoardModelType::PIXA_MADI, BitstreamType::BITSTREAM_NONE, "ZEL-M1", 52, 3700},
    {BoardModelType::PIXA_AES1616, BitstreamType::BITSTREAM_NONE, "ZEL-M2", 49, 3400},
    {BoardModelType::BOARD_MODEL_UNDEFINED, BitstreamType::BITSTREAM_NONE, "ZEL-X0", 40, 2700},
};

const ModelFacts& factsOf(BoardModelType::board_models_t model) {
  for (const ModelFacts& facts : kModelFacts) {
    if (facts.model == model) return facts;
  }
  return factsOf(BoardModelType::BOARD_MODEL_UNDEFINED);
}

std::string macAddress(BoardModelType::board_models_t model, unsigned int index) {
  char text[16];
  std::snprintf(text, sizeof text, "025a%02x0000%02x", static_cast<unsigned int>(model) & 0xFFU, (index + 1) & 0xFFU);
  return text;  // 02: locally administered
}

std::string serialNumber(BoardModelType::board_models_t model) {
  char text[32];
  std::snprintf(text, sizeof text, "ZS%02d-000417", static_cast<int>(model));
  return text;
}

std::uint32_t address(const char* dotted) {
  IpAddress ip;
  ip.setAddress(dotted);
  return ip.getAddress();
}

/// An interface as it runs with its stored configuration; a DHCP server has served the ones that ask for it.
EthBasicInfo runningInterface(const EthIpV4Cfg& cfg, const ModelFacts& facts, unsigned int index) {
  EthBasicInfo info;
  info.name = cfg.eth;
  info.index = index;
  info.label = "Port " + std::to_string(index + 1);
  info.mac = macAddress(facts.model, index);
  info.ip = cfg.mode.mode == EthMode::ETH_MODE_DHCP ? address("10.10.0.100") + (index << 8U) : cfg.ip;
  info.ipPresent = info.ip != 0;
  const bool isVlan = cfg.eth.find('.') != std::string::npos;
  if (index > 0 && !isVlan) {  // the first port is copper, the media ports have modules
    info.sfp.present = true;
    info.sfp.temperature = 38.5F;
    info.sfp.rxPower = -3.25F;
    info.sfp.txPower = -2.5F;
    info.sfp.wavelength = 850;
    info.sfp.partNumber = "ZEL-SFP10-SR";
  }
  return info;
}

}  // namespace

std::optional<BoardModelType::board_models_t> modelFromText(const std::string& text) {
  if (text == "BOARD_MODEL_UNDEFINED" || text == BoardModelType::toText(BoardModelType::BOARD_MODEL_UNDEFINED)) {
    return BoardModelType::BOARD_MODEL_UNDEFINED;
  }
  return BoardModelType::fromText(text);
}

std::vector<std::string> modelTexts() {
  std::vector<std::string> texts;
  for (const models::Row& row : models::kTable) texts.emplace_back(row.text);
  texts.emplace_back(BoardModelType::toText(BoardModelType::BOARD_MODEL_UNDEFINED));
  return texts;
}

BoardModel factoryModel(BoardModelType::board_models_t model) {
  BoardModel made;
  made.bitstream.type = factsOf(model).bitstream;
  made.setModel(model);
  return made;
}

SysParameters factoryParameters(const BoardModel& model) {
  SysParameters stored;
  Json::Value nothing(Json::objectValue);  // what is missing gets its factory value
  stored.Deserialize(nothing);
  stored.videoTiming.timingMode = VideoTimingParameters::TIMING_MODE_LOW_LATENCY;
  stored.boardModel = model;
  stored.serialNumber = serialNumber(model.model);
  stored.setEthIpv4DefaultConfig(model);
  stored.ethIPv4Cfg.sort();
  return stored;
}

SysParametersDynamic factoryDynamic(const BoardModel& model, const SysParameters& stored) {
  const ModelFacts& facts = factsOf(model.model);
  SysParametersDynamic dynamic;
  dynamic.chipIdName = facts.chip;
  dynamic.chipIdVersion = "2.4.1";
  dynamic.temperature.fpga = facts.fpgaDegrees;
  dynamic.fanSpeed.main = facts.fanSpeed;
  dynamic.madiLock = model.model == BoardModelType::PIXA_MADI;

  std::list<EthIpV4Cfg> interfaces = stored.ethIPv4Cfg;
  if (interfaces.empty()) {  // even a board without default configurations has a port to reach it by
    interfaces.emplace_back();
    interfaces.back().eth = "eth0";
    interfaces.back().mode.mode = EthMode::ETH_MODE_DHCP;
  }
  unsigned int index = 0;
  for (const EthIpV4Cfg& cfg : interfaces) dynamic.ethBasics.push_back(runningInterface(cfg, facts, index++));
  return dynamic;
}

WhiteListDb factoryWhitelist() {
  struct Range {
    const char* ip;
    const char* mask;
  };
  constexpr Range kFixed[] = {
      {"224.0.1.129", "255.255.255.255"},      // PTP
      {"239.255.255.253", "255.255.255.255"},  // SLP
      {"239.255.255.255", "255.255.255.255"},  // SAP
  };
  WhiteListDb db;
  int kind = 0;
  for (const Range& range : kFixed) {
    WhiteListEntry entry(address(range.ip), address(range.mask), kind,
                         static_cast<WhiteListEntry::whitelist_entry_t>(kind));
    entry.enable(true);
    db.entries.emplace(entry.ip, entry);
    ++kind;
  }
  return db;
}

Json::Value factoryOwnDocuments(const BoardModel& model, const std::string& serialNumber) {
  Json::Value documents;
  Json::Value& info = documents["systemInfo"];
  info["name"] = BoardModelType::displayName(model.model);
  info["serial-number"] = serialNumber;
  info["software-version"] = "4.2.0";
  info["hardware-revision"] = "B";
  info["kernel"] = "5.15.71";

  Json::Value& status = documents["network-stack-status"];
  status["state"] = "running";
  status["igmp-version"] = 3;
  status["ptp"]["state"] = "slave";
  status["ptp"]["offset-from-master"] = 42;
  return documents;
}

}  // namespace zel::sim
