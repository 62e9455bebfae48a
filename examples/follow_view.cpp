// Follows a board: says how good its view is, tells each change, and sets the RTSP port on demand, until SIGINT or
// SIGTERM. Nothing in the loop waits, and nothing has to be done about a daemon that restarts.
//
//   zel-example-follow_view [PORT]

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "client/zmq_utils.h"
#include "view/board_view.h"

namespace {

using zel::BoardView;
namespace settings = zel::settings;

int signalDescriptor() {
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGINT);
  sigaddset(&ends, SIGTERM);
  sigprocmask(SIG_BLOCK, &ends, nullptr);
  return signalfd(-1, &ends, SFD_CLOEXEC);
}

const char* nameOf(BoardView::State state) {
  switch (state) {
    case BoardView::State::kConnecting: return "connecting";
    case BoardView::State::kLive: return "live";
    default: return "stale";
  }
}

}  // namespace

int main(int count, char** words) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  BoardView view(ZmqUtils::getInstance().getContext());
  view.onState([&view](BoardView::State, BoardView::State now) {
    std::printf("the view is %s, the RTSP port is %u\n", nameOf(now), view.get(settings::kRtspTcpPort));
  });
  view.onChange(settings::kRtspTcpPort,
                [](uint32_t before, uint32_t now) { std::printf("the RTSP port was %u and is %u\n", before, now); });
  view.onInterfaceChange("eth0", [](const EthBasicInfo*, const EthBasicInfo* now) {
    std::printf("eth0 has the address %s\n", now == nullptr ? "none" : IpAddress(now->ip).toString().c_str());
  });
  if (view.open() < 0) return 1;

  if (count > 1) {
    const auto port = static_cast<uint32_t>(std::strtoul(words[1], nullptr, 10));
    view.set(settings::kRtspTcpPort, port, [](const zel::Answer<void>& answer) {
      std::printf("%s\n", answer.ok() ? "the port is set" : answer.text.c_str());
    });
  }

  pollfd watched[] = {{view.descriptor(), POLLIN, 0}, {signalDescriptor(), POLLIN, 0}};
  while (poll(watched, 2, -1) >= 0 && watched[1].revents == 0) view.process();
  close(watched[1].fd);
}
