// A whole program that follows the board. It ends with 0 as soon as eth0 has the address that its argument says, and
// with 1 when that takes longer than 10 s.

#include <json/value.h>

#include <chrono>
#include <cstdio>

#include "address_watch.h"
#include "client/sysmgr_client.h"
#include "client/zmq_utils.h"

int main(int argc, char** argv) try {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s ADDRESS\n", argv[0]);
    return 2;
  }
  AddressWatch watch("eth0");
  PollFds fds;
  watch.init(ZmqUtils::getInstance().getContext());
  watch.subscribeAll();
  watch.getPollItems(fds);

  SysMgrClient client;
  client.init(ZmqUtils::getInstance().getContext());
  SysParametersDynamic now;  // a notification only says what changes later
  if (client.getDynamicParameters(now) == 0) watch.notifyDynamicInfoUpdate(now);

  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (watch.address() != argv[1] && std::chrono::steady_clock::now() < end) {
    fds.poll(50);
    watch.processEvent(fds[0]);
  }
  std::printf("eth0 has the address %s\n", watch.address().c_str());
  return watch.address() == argv[1] ? 0 : 1;
} catch (const Json::Exception& error) {
  std::fprintf(stderr, "a document of the daemon's has a value of a wrong type: %s\n", error.what());
  return 1;
}
