#pragma once

#include <json/value.h>

#include <optional>
#include <string>

#include "common/eth_basic_info.h"

namespace zel::ctl {

/// The interfaces of this machine.
struct Host {
  Json::Value interfaces;      ///< of each: "name", "mac", "address" where there is one, and "mode" if leases are known
  std::string leaseDirectory;  ///< where the DHCP client keeps its leases
  bool leasesAreKnown;         ///< whether they can be read
};

/// @param leases  the lease directory; empty: the library's own
Host examineHost(const std::string& leases);

/// Whether an interface has a link: a cable with a peer that is on. Nothing: this machine has no interface of this name
/// with this MAC address, so it is not the board.
std::optional<bool> linkOf(const EthBasicInfo& interface);

}  // namespace zel::ctl
