#pragma once

#include <list>

#include "common/eth_basic_info.h"

namespace zel {

/// The host's interfaces but the loopback, as `EthIpUtils` lists them, with their addresses: one look at the host
/// instead of one an interface, which takes ten seconds where there are a thousand.
std::list<EthBasicInfo> hostInterfaces();

}  // namespace zel
