// Stores each port that is typed, and shows what the board has then, until the end of the input. The application's loop
// is Qt's, and no call in it waits for the daemon.

#include <QCoreApplication>
#include <QSocketNotifier>

#include "client/zmq_utils.h"
#include "port_console.h"

int main(int argc, char** argv) {
  QCoreApplication application(argc, argv);
  zel::AsyncClient client(ZmqUtils::getInstance().getContext());
  PortConsole console(client);

  QSocketNotifier due(client.descriptor(), QSocketNotifier::Read);
  QObject::connect(&due, &QSocketNotifier::activated, [&client] { client.process(); });
  QSocketNotifier typed(STDIN_FILENO, QSocketNotifier::Read);
  QObject::connect(&typed, &QSocketNotifier::activated, [&console] {
    if (!console.readInput()) QCoreApplication::quit();
  });
  return QCoreApplication::exec();
}
