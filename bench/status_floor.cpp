// The smallest program that asks what `sysmgrctl status` asks, through the library: what its start is measured against.

#include <cstdio>
#include <list>

#include "client/sysmgr_client.h"
#include "client/zmq_utils.h"

int main() {
  SysMgrClient client;
  SysParameters stored;
  SysParametersDynamic dynamic;
  BoardModel model;
  NetworkStackStatus network;
  std::list<WhiteListEntry> whitelist;
  const bool answered = client.init(ZmqUtils::getInstance().getContext()) >= 0 &&
                        client.getStoredParameters(stored) >= 0 && client.getDynamicParameters(dynamic) >= 0 &&
                        client.getBoardModel(model) >= 0 && client.getNetworkStackStatus(network) >= 0 &&
                        client.getMcastWhitelist(whitelist) >= 0;
  if (!answered) return 1;
  std::printf("%s %zu %zu\n", stored.serialNumber.c_str(), dynamic.ethBasics.size(), whitelist.size());
  return 0;
}
