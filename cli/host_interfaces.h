#pragma once

#include <json/value.h>

#include <string>

namespace zel::ctl {

/// The interfaces of this machine.
struct Host {
  Json::Value interfaces;      ///< of each: "name", "mac", "address" where there is one, and "mode" if leases are known
  std::string leaseDirectory;  ///< where the DHCP client keeps its leases
  bool leasesAreKnown;         ///< whether they can be read
};

/// @param leases  the lease directory; empty: the library's own
Host examineHost(const std::string& leases);

}  // namespace zel::ctl
