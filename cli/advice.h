#pragma once

#include "cli/daemon.h"
#include "cli/words.h"
#include "types/sysmgr_types.h"
#include "types/whitelist.h"

namespace zel::ctl {

// What is odd about values that the daemon accepts. Each text is a sentence's beginning: "10.0.0.0 is ...".

/// About a fixed address: that of the network, the broadcast address, a gateway outside of the network.
Words adviceOn(const EthIpV4Cfg& config);

/// About a range of the whitelist: bits behind its mask, a mask with gaps.
Words adviceOn(const WhiteListEntry& entry);

/// A pair of services that listen on one TCP port.
struct SharedPort {
  const char* key;
  const char* other;
  std::uint32_t port;
};
std::vector<SharedPort> sharedPorts(const SysParameters& stored);
/// Whether a key of the settings is the port of a service.
bool isPortOfService(const std::string& key);
/// Notes the pairs that the daemon has now, behind a change of a port. A daemon that does not answer is passed over:
/// the change is made all the same.
void noteSharedPorts(Daemon& daemon);

}  // namespace zel::ctl
