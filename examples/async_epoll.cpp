// Stores each port that is typed, and shows what the board has then, until the end of the input. The application's loop
// is epoll(7), and no call in it waits for the daemon.

#include <sys/epoll.h>

#include "client/zmq_utils.h"
#include "port_console.h"

namespace {

bool watch(int epoll, int descriptor) {
  epoll_event event{};
  event.events = EPOLLIN;  // level-triggered
  event.data.fd = descriptor;
  return epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &event) == 0;
}

}  // namespace

int main() {
  zel::AsyncClient client(ZmqUtils::getInstance().getContext());
  PortConsole console(client);

  const int epoll = epoll_create1(EPOLL_CLOEXEC);
  if (!watch(epoll, STDIN_FILENO) || !watch(epoll, client.descriptor())) return 1;
  for (;;) {
    epoll_event event{};
    if (epoll_wait(epoll, &event, 1, -1) < 0) continue;  // EINTR: the process was stopped, and goes on
    if (event.data.fd == client.descriptor()) {
      client.process();
    } else if (!console.readInput()) {
      return 0;
    }
  }
}
