#include "tests/support/daemon_process.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <stdexcept>

namespace zel::test {

ChildProcess prepareDaemon(const ScriptedDaemon::Handler& handler) {
  ChildProcess child = ChildProcess::call([&handler]() -> int {
    raise(SIGSTOP);
    ScriptedDaemon daemon;
    daemon.onRequest([&handler](const Request& request) {
      std::printf("request %s\n", request.id.c_str());
      std::fflush(stdout);
      return handler ? handler(request) : std::vector<Answer>{Answer("{}")};
    });
    std::printf("listening\n");
    std::fflush(stdout);
    for (;;) pause();
  });
  child.waitUntilFrozen();
  return child;
}

void listen(ChildProcess& daemon) {
  daemon.thaw();
  if (!daemon.waitForOutput("listening\n")) throw std::runtime_error("the daemon does not start: " + daemon.errors());
}

ChildProcess startDaemon(const ScriptedDaemon::Handler& handler) {
  ChildProcess child = prepareDaemon(handler);
  listen(child);
  return child;
}

std::vector<Answer> keepSilent(const Request&) { return {}; }

}  // namespace zel::test
