// Stores each port that is typed, and shows what the board has then, until the end of the input. The application's loop
// is GLib's, and no call in it waits for the daemon.

#include <glib-unix.h>

#include "client/zmq_utils.h"
#include "port_console.h"

namespace {

struct Application {
  zel::AsyncClient client{ZmqUtils::getInstance().getContext()};
  PortConsole console{client};
  GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
};

gboolean process(gint, GIOCondition, gpointer application) {
  static_cast<Application*>(application)->client.process();
  return G_SOURCE_CONTINUE;
}

gboolean readInput(gint, GIOCondition, gpointer application) {
  auto& [client, console, loop] = *static_cast<Application*>(application);
  if (console.readInput()) return G_SOURCE_CONTINUE;
  g_main_loop_quit(loop);
  return G_SOURCE_REMOVE;
}

}  // namespace

int main() {
  Application application;
  const guint client = g_unix_fd_add(application.client.descriptor(), G_IO_IN, process, &application);
  g_unix_fd_add(STDIN_FILENO, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP), readInput, &application);
  g_main_loop_run(application.loop);
  g_source_remove(client);
  g_main_loop_unref(application.loop);
}
