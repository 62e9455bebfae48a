#include <algorithm>

#include "common/status.h"
#include "net/eth_ip_utils.h"
#include "net/shared/host_interfaces.h"
#include "types/shared/board_models.h"
#include "types/sys_parameters.h"

namespace {

using zel::models::FactoryInterface;
using zel::models::kDhcp;
using zel::models::kStatic;
using zel::models::Row;

constexpr uint32_t kStaticIp = 0xC0A80064;  // 192.168.0.100

EthIpV4Cfg toConfig(const FactoryInterface& interface) {
  EthIpV4Cfg config;
  config.eth = interface.eth;
  config.mode.mode = interface.mode;
  if (interface.mode == kStatic) config.ip = kStaticIp;
  config.vlan.id = interface.vlanId;
  return config;
}

void appendFactorySet(std::list<EthIpV4Cfg>& out, const Row& model) {
  for (const FactoryInterface& interface : model.interfaces) {
    if (interface.eth != nullptr) out.push_back(toConfig(interface));
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
  const Row* const row = zel::models::find(model.model);
  if (row == nullptr) return zel::status::kOk;
  if (row->runsOnAnyHost) {
    appendHostSet(out);
  } else {
    appendFactorySet(out, *row);
  }
  return zel::status::kOk;
}

int SysParameters::setEthIpv4DefaultConfig(const BoardModel& model) { return fillEthIPv4DefaultCfg(ethIPv4Cfg, model); }

bool SysParameters::isEthIPv4ConfigDefault(const BoardModel& model) const {
  const Row* const row = zel::models::find(model.model);
  if (row != nullptr && row->runsOnAnyHost) return false;

  std::list<EthIpV4Cfg> defaults;
  fillEthIPv4DefaultCfg(defaults, model);
  if (defaults.size() != ethIPv4Cfg.size()) return false;
  // The order is ignored, and one stored entry may match several equal defaults.
  return std::all_of(defaults.begin(), defaults.end(), [this](const EthIpV4Cfg& wanted) {
    return std::find(ethIPv4Cfg.begin(), ethIPv4Cfg.end(), wanted) != ethIPv4Cfg.end();
  });
}
