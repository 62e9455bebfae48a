// Stores each port that is typed, and shows what the board has then, until the end of the input. The application's loop
// is Asio's, and no call in it waits for the daemon.

#include <asio.hpp>
#include <exception>

#include "client/zmq_utils.h"
#include "port_console.h"

namespace {

/// Calls the action whenever the descriptor is readable, until the action returns false.
template <class Action>
void whenReadable(asio::posix::stream_descriptor& descriptor, Action action) {
  descriptor.async_wait(descriptor.wait_read, [&descriptor, action](const asio::error_code& error) {
    if (!error && action()) whenReadable(descriptor, action);
  });
}

}  // namespace

int main() try {
  zel::AsyncClient client(ZmqUtils::getInstance().getContext());
  PortConsole console(client);

  asio::io_context loop;
  asio::posix::stream_descriptor due(loop, dup(client.descriptor()));  // the loop closes the duplicate
  whenReadable(due, [&] {
    client.process();
    return true;
  });
  asio::posix::stream_descriptor input(loop, dup(STDIN_FILENO));
  whenReadable(input, [&] {
    const bool more = console.readInput();
    if (!more) loop.stop();
    return more;
  });
  loop.run();
  return 0;
} catch (const std::exception& error) {  // Asio's own
  std::fprintf(stderr, "%s\n", error.what());
  return 1;
}
