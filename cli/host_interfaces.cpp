#include "cli/host_interfaces.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <unistd.h>

#include <list>
#include <memory>

#include "common/ip_address.h"
#include "net/eth_ip_utils.h"
#include "types/sysmgr_eth_types.h"

namespace zel::ctl {

Host examineHost(const std::string& leases) {
  if (!leases.empty()) dhcp_lease = leases;
  Host host{Json::arrayValue, dhcp_lease, access(dhcp_lease.c_str(), R_OK | X_OK) == 0};

  EthIpUtils utils;
  std::list<EthBasicInfo> interfaces;
  utils.get_eth_info(interfaces, true);
  for (EthBasicInfo& info : interfaces) {
    Json::Value row;
    row["name"] = info.name;
    row["mac"] = info.mac;
    if (utils.get_ip_address(info)) row["address"] = IpAddress(info.ip).toString();
    if (host.leasesAreKnown) {
      row["mode"] = EthMode::toText(utils.set_ip_mode(info) ? EthMode::ETH_MODE_DHCP : EthMode::ETH_MODE_STATIC);
    }
    host.interfaces.append(row);
  }
  return host;
}

std::optional<bool> linkOf(const EthBasicInfo& interface) {
  EthBasicInfo own;
  if (!EthIpUtils().get_eth_info(own, interface.name) || own.mac != interface.mac) return std::nullopt;
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return std::nullopt;
  const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, freeifaddrs);
  while (list != nullptr && list->ifa_name != interface.name) list = list->ifa_next;
  if (list == nullptr) return std::nullopt;
  return (list->ifa_flags & IFF_RUNNING) != 0;
}

}  // namespace zel::ctl
