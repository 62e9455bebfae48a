// Follows the board's configuration: shows it at the start and whenever it has changed, until it is told to end.
//
// The application has a poll loop of its own. What else it waits for, here the signals that end it, stands in the same
// poll set as the cache.

#include <json/value.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "config/system_default_cfg.h"

namespace {

void show(const SystemDefaultCfg& cache) {
  unsigned int port = 0;
  cache.getRtspTcpPort(&port);
  std::printf("%s, RTSP port %u, streams on", BoardModelType::displayName(cache.getBoardModel().model), port);
  std::vector<IpAddress> addresses;
  cache.getTrafficInterfacesIPv4Address(addresses);
  for (const IpAddress& address : addresses) std::printf(" %s", address.toString().c_str());
  std::puts(addresses.empty() ? " no interface" : "");
  std::fflush(stdout);
}

/// Takes every notification that is there. @return whether there was one
bool takeNotifications(SystemDefaultCfg& cache, const zmq_pollitem_t& item) {
  bool taken = false;
  for (;;) {
    try {
      if (cache.processEvent(item) == 0) return taken;
      taken = true;
    } catch (const Json::Exception& wrongType) {
      // The cache keeps what it had and works on.
      std::fprintf(stderr, "a notification was dropped: %s\n", wrongType.what());
    }
  }
}

/// A descriptor that is readable when the process is told to end. A poll goes on under signals.
int endDescriptor() {
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGINT);
  sigaddset(&ends, SIGTERM);
  sigprocmask(SIG_BLOCK, &ends, nullptr);
  return signalfd(-1, &ends, SFD_CLOEXEC);
}

}  // namespace

int main() {
  const int end = endDescriptor();  // first, so that the threads of ZeroMQ leave the signals to us

  SystemDefaultCfg& cache = SystemDefaultCfg::getInstance();  // fetches the configuration
  PollFds fds;
  if (cache.initSubscribers(fds) < 0) return 1;  // follows it from here on
  cache.init();                                  // and what changed between the two is fetched here
  fds.add({nullptr, end, ZMQ_POLLIN, 0});
  show(cache);

  for (;;) {
    const int ready = fds.poll(1000);
    if (ready < 0 || fds[1].revents != 0) break;
    const bool changed = takeNotifications(cache, fds[0]);
    // There was no daemon at the start: try again while nothing else is to be done.
    const bool fetched = ready == 0 && !cache.isInitialized() && cache.init() == 0;
    if (changed || fetched) show(cache);
  }
  close(end);
  return 0;
}
