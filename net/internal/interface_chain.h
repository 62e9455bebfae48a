#pragma once

#include <ifaddrs.h>
#include <sys/socket.h>

#include <list>
#include <string>

#include "common/eth_basic_info.h"

// What the chain of getifaddrs(3) says, apart from the call itself. An empty chain is null.

namespace zel {

/// The interfaces that have a link layer, in the chain's order, with name and MAC address.
std::list<EthBasicInfo> linkLayerInterfaces(const ifaddrs* chain, bool includeLoopback);

/// Fills name and MAC address of the interface; without one of that name, returns false and leaves `info` untouched.
bool readLinkLayer(const ifaddrs* chain, const std::string& name, EthBasicInfo& info);

/// Fills address and address-present flag of the interface that `info` names from its last IPv4 address, or clears
/// them. @return whether there is one
bool readAddress(const ifaddrs* chain, EthBasicInfo& info);

/// `linkLayerInterfaces` without the loopback, each with what `readAddress` says of it, in time linear in the chain.
std::list<EthBasicInfo> addressedInterfaces(const ifaddrs* chain);

/// Marks the address as present and stores it, unless its numeric text is no IPv4 address, which is logged. Ends the
/// process with status 1 when the system library refuses the socket address.
void takeAddress(const sockaddr* address, socklen_t length, EthBasicInfo& info);

}  // namespace zel
