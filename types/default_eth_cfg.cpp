#include <algorithm>

#include "common/status.h"
#include "net/eth_ip_utils.h"
#include "net/host_interfaces.h"
#include "types/sys_parameters.h"

namespace {

constexpr auto kStatic = EthMode::ETH_MODE_STATIC;
constexpr auto kDhcp = EthMode::ETH_MODE_DHCP;
constexpr uint32_t kStaticIp = 0xC0A80064;  // 192.168.0.100

struct DefaultInterface {
  const char* eth = nullptr;
  EthMode::eth_mode_t mode = kStatic;
  uint16_t vlanId = 0;
};

struct DefaultRow {
  BoardModelType::board_models_t model;
  DefaultInterface interfaces[4];  ///< the unused ones at the end have no name
};

// The factory set of each model. Models without a row have no interfaces, but for the one whose set is the host's.
constexpr DefaultRow kDefaults[] = {
    {BoardModelType::ORVEN_AES67, {{"eth0", kStatic}, {"eth1", kDhcp}, {"eth2", kDhcp}}},
    {BoardModelType::TRISK_AES67, {{"eth0", kStatic}, {"eth1", kDhcp}, {"eth2", kDhcp}}},
    {BoardModelType::ORVEN_AVB, {{"eth0", kStatic}, {"eth1", kDhcp}}},
    {BoardModelType::KORVA, {{"eth0", kDhcp}, {"eth1", kStatic}, {"eth2", kDhcp}, {"eth3", kDhcp}}},
    {BoardModelType::ORVEN_TESSA, {{"eth0", kStatic}, {"eth0.10", kDhcp, 10}, {"eth0.20", kDhcp, 20}}},
    {BoardModelType::BRAVIK_AOIP, {{"eth0", kDhcp}, {"eth1", kStatic}, {"eth2", kDhcp}}},
    {BoardModelType::ORVEN_QUILL_IO, {{"eth0", kStatic}, {"eth1", kDhcp}}},
    {BoardModelType::ZIRC, {{"eth0", kStatic}, {"eth1", kDhcp}, {"eth2", kDhcp}}},
    {BoardModelType::MERIX, {{"eth0", kStatic}, {"eth1", kDhcp}, {"eth2", kDhcp}}},
    {BoardModelType::PIXA_MADI, {{"eth0", kStatic}, {"eth1", kDhcp}, {"eth2", kDhcp}}},
    {BoardModelType::PIXA_AES1616, {{"eth0", kStatic}, {"eth1", kDhcp}, {"eth2", kDhcp}}},
};
constexpr auto kModelOfTheHost = BoardModelType::NIMBRA_AES67;

EthIpV4Cfg toConfig(const DefaultInterface& interface) {
  EthIpV4Cfg config;
  config.eth = interface.eth;
  config.mode.mode = interface.mode;
  if (interface.mode == kStatic) config.ip = kStaticIp;
  config.vlan.id = interface.vlanId;
  return config;
}

void appendFactorySet(std::list<EthIpV4Cfg>& out, BoardModelType::board_models_t model) {
  for (const DefaultRow& row : kDefaults) {
    if (row.model != model) continue;
    for (const DefaultInterface& interface : row.interfaces) {
      if (interface.eth != nullptr) out.push_back(toConfig(interface));
    }
  }
}

/// The host's interfaces as they are now, in the kernel's order.
void appendHostSet(std::list<EthIpV4Cfg>& out) {
  EthIpUtils host;
  for (EthBasicInfo& interface : zel::hostInterfaces()) {
    EthIpV4Cfg& config = out.emplace_back();
    config.eth = interface.name;
    config.mode.mode = host.set_ip_mode(interface) ? kDhcp : kStatic;
    config.ip = interface.ip;  // kept for DHCP too
  }
}

}  // namespace

int SysParameters::fillEthIPv4DefaultCfg(std::list<EthIpV4Cfg>& out, const BoardModel& model) const {
  out.clear();
  if (model.model == kModelOfTheHost) {
    appendHostSet(out);
  } else {
    appendFactorySet(out, model.model);
  }
  return zel::status::kOk;
}

int SysParameters::setEthIpv4DefaultConfig(const BoardModel& model) { return fillEthIPv4DefaultCfg(ethIPv4Cfg, model); }

bool SysParameters::isEthIPv4ConfigDefault(const BoardModel& model) const {
  if (model.model == kModelOfTheHost) return false;

  std::list<EthIpV4Cfg> defaults;
  fillEthIPv4DefaultCfg(defaults, model);
  if (defaults.size() != ethIPv4Cfg.size()) return false;
  // In any order, and an interface may answer for several of its equals.
  return std::all_of(defaults.begin(), defaults.end(), [this](const EthIpV4Cfg& wanted) {
    return std::find(ethIPv4Cfg.begin(), ethIPv4Cfg.end(), wanted) != ethIPv4Cfg.end();
  });
}
