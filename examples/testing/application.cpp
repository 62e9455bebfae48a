// A whole program: sets the RTSP port that its argument says, and ends with 0 when the board has it.

#include <json/value.h>

#include <cstdio>
#include <cstdlib>

#include "client/zmq_utils.h"
#include "port_setting.h"

int main(int argc, char** argv) try {
  const auto wanted = static_cast<uint32_t>(argc > 1 ? std::atoi(argv[1]) : 5004);
  SysMgrClient client;
  client.init(ZmqUtils::getInstance().getContext());
  PortOfTheBoard port(client);
  const int status = setPortPatiently(port, wanted);
  SysParameters stored;
  if (status < 0 || client.getStoredParameters(stored) < 0) {
    std::fprintf(stderr, "the port cannot be set: status %d\n", status);
    return 1;
  }
  return stored.rtspTcpPort == wanted ? 0 : 1;
} catch (const Json::Exception&) {
  return 1;
}
