// Gives an interface a static address: reads its present configuration, checks the new one, stores it.

#include <json/value.h>

#include <algorithm>
#include <cstdio>

#include "client/sysmgr_client.h"
#include "client/zmq_utils.h"

int main(int argc, char** argv) try {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s INTERFACE ADDRESS\n", argv[0]);
    return 2;
  }
  SysMgrClient client;
  client.init(ZmqUtils::getInstance().getContext());

  SysParameters stored;
  if (client.getStoredParameters(stored) < 0) return 1;  // the log says why
  const auto entry = std::find_if(stored.ethIPv4Cfg.begin(), stored.ethIPv4Cfg.end(),
                                  [&](const EthIpV4Cfg& cfg) { return cfg.eth == argv[1]; });
  if (entry == stored.ethIPv4Cfg.end()) {
    std::fprintf(stderr, "the board has no interface %s\n", argv[1]);
    return 1;
  }

  IpAddress address(entry->ip);
  if (address.setAddress(argv[2]) < 0) return 1;
  entry->mode.mode = EthMode::ETH_MODE_STATIC;
  entry->ip = address.getAddress();
  if (entry->validate() < 0 || client.addEthIPv4Cfg(*entry) < 0) return 1;
  std::printf("%s has the address %s\n", argv[1], address.toString().c_str());
} catch (const Json::Exception& error) {
  std::fprintf(stderr, "a document of the daemon's has a value of a wrong type: %s\n", error.what());
  return 1;
}
