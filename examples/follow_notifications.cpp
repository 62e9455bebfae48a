// Follows the daemon's notifications: shows each change of the stored parameters and of the whitelist, and ends when a
// reboot is requested.

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
    while (receiver.processEvent(fds[0]) != 0) std::fflush(stdout);
  }
}
