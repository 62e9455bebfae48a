// The first request: stores a setting, reads the settings back, and says what went wrong if something did.

#include <json/value.h>

#include <cstdio>

#include "client/sysmgr_client.h"
#include "client/zmq_utils.h"

namespace {

int fail(SysMgrClient& client) {
  ErrorReport report;
  client.getLastErrorMessage(report);
  std::fprintf(stderr, "%s (status %d)\n", report.text.c_str(), report.code);
  return 1;
}

}  // namespace

int main() try {
  SysMgrClient client;
  if (client.init(ZmqUtils::getInstance().getContext()) < 0) return fail(client);

  if (client.setRtspTcpPort(5004) < 0) return fail(client);

  SysParameters stored;
  if (client.getStoredParameters(stored) < 0) return fail(client);
  std::printf("RTSP listens on port %u\n", stored.rtspTcpPort);
} catch (const Json::Exception& error) {
  std::fprintf(stderr, "a document of the daemon's has a value of a wrong type: %s\n", error.what());
  return 1;
}
