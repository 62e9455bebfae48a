// Follows the board's configuration: shows it at the start and whenever it has changed, until SIGINT or SIGTERM.
//
// The application has a poll loop of its own. Its other descriptors, here one for the signals, are in the same poll set
// as the cache.

#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>

#include "cache_follower.h"

namespace {

std::string described(const SystemDefaultCfg& cache) {
  unsigned int port = 0;
  cache.getRtspTcpPort(&port);
  std::string text = BoardModelType::displayName(cache.getBoardModel().model);
  text += ", RTSP port " + std::to_string(port);
  return text + (cache.isRedundancyEnable() ? ", redundancy on" : ", redundancy off");
}

/// A descriptor that becomes readable when SIGINT or SIGTERM arrives. A signal alone does not end a poll.
int signalDescriptor() {
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGINT);
  sigaddset(&ends, SIGTERM);
  sigprocmask(SIG_BLOCK, &ends, nullptr);
  return signalfd(-1, &ends, SFD_CLOEXEC);
}

}  // namespace

int main() {
  PollFds fds;
  CacheFollower follower;
  if (!follower.follow(fds)) return 1;
  const int signals = signalDescriptor();  // the first fetch may take 5 s: until here a signal ends the process at once
  const std::size_t signalItem = fds.size();
  fds.add({nullptr, signals, ZMQ_POLLIN, 0});

  std::string shown;
  while (fds.poll(-1) >= 0 && fds[signalItem].revents == 0) {
    follower.update();
    const std::string text = described(follower.cache());
    if (follower.cache().isInitialized() && text != shown) {
      std::puts(text.c_str());
      std::fflush(stdout);
      shown = text;
    }
  }
  close(signals);
}
