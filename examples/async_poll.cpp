// Stores each port that is typed, and shows what the board has then, until the end of the input. The application's loop
// is poll(2), and no call in it waits for the daemon.

#include <poll.h>

#include "client/zmq_utils.h"
#include "port_console.h"

int main() {
  zel::AsyncClient client(ZmqUtils::getInstance().getContext());
  PortConsole console(client);

  pollfd watched[] = {{STDIN_FILENO, POLLIN, 0}, {client.descriptor(), POLLIN, 0}};
  while (poll(watched, 2, -1) >= 0) {
    if (watched[1].revents != 0) client.process();
    if (watched[0].revents != 0 && !console.readInput()) return 0;
  }
  return 1;
}
