// Follows the daemon's notifications: shows each change of the stored parameters and of the whitelist, and ends when a
// reboot is requested.

#include <json/value.h>

#include <cstdio>

#include "client/zmq_utils.h"
#include "subscriber/sysmgr_subscriber.h"

namespace {

class Receiver final : public SysmgrSubscriber {
 public:
  int notifyStoredParametersUpdate(SysParameters& stored) override {
    std::printf("RTSP listens on port %u\n", stored.rtspTcpPort);
    return 0;
  }
  int notifyMcastWhitelistUpdate(std::list<WhiteListEntry>& entries) override {
    std::printf("the whitelist has %zu entries\n", entries.size());
    return 0;
  }
  int notifyRebootRequest() override {
    std::puts("the board is going to restart");
    rebootRequested = true;
    return 0;
  }

  bool rebootRequested = false;
};

/// Takes one notification. @return whether there was one
bool take(Receiver& receiver, const zmq_pollitem_t& item) {
  try {
    return receiver.processEvent(item) != 0;
  } catch (const Json::Exception& error) {
    std::fprintf(stderr, "a notification has a value of a wrong type: %s\n", error.what());
    return true;
  }
}

}  // namespace

int main() {
  Receiver receiver;
  PollFds fds;
  if (receiver.init(ZmqUtils::getInstance().getContext()) < 0) return 1;
  if (receiver.subscribeAll() < 0 || receiver.getPollItems(fds) < 0) return 1;
  std::puts("following");
  std::fflush(stdout);

  while (!receiver.rebootRequested) {
    if (fds.poll(1000) < 0) return 1;
    while (take(receiver, fds[0])) std::fflush(stdout);
  }
}
