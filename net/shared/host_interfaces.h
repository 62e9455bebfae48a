#pragma once

#include <list>

#include "common/eth_basic_info.h"

namespace zel {

/// The host's interfaces except the loopback, as `EthIpUtils` lists them, with their addresses. It asks the kernel
/// once: `EthIpUtils::get_ip_address`, called for each of a thousand interfaces, takes ten seconds.
std::list<EthBasicInfo> hostInterfaces();

}  // namespace zel
