// Stores each port that is typed, and shows what the board has then, until the end of the input. The application's loop
// is sd-event(3), and no call in it waits for the daemon.

#include <sys/epoll.h>
#include <systemd/sd-event.h>

#include "client/zmq_utils.h"
#include "port_console.h"

namespace {

int process(sd_event_source*, int, uint32_t, void* client) {
  static_cast<zel::AsyncClient*>(client)->process();
  return 0;
}

int readInput(sd_event_source* source, int, uint32_t, void* console) {
  if (static_cast<PortConsole*>(console)->readInput()) return 0;
  return sd_event_exit(sd_event_source_get_event(source), 0);
}

}  // namespace

int main() {
  zel::AsyncClient client(ZmqUtils::getInstance().getContext());
  PortConsole console(client);

  sd_event* loop = nullptr;
  if (sd_event_new(&loop) < 0 || sd_event_add_io(loop, nullptr, client.descriptor(), EPOLLIN, process, &client) < 0 ||
      sd_event_add_io(loop, nullptr, STDIN_FILENO, EPOLLIN, readInput, &console) < 0) {
    return 1;
  }
  const int result = sd_event_loop(loop);
  sd_event_unref(loop);
  return result < 0 ? 1 : 0;
}
