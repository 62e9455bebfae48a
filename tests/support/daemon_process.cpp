#include "tests/support/daemon_process.h"

#include <unistd.h>

#include <cstdio>
#include <stdexcept>

namespace zel::test {

ChildProcess startDaemon(const ScriptedDaemon::Handler& handler) {
  ChildProcess child = ChildProcess::call([&handler]() -> int {
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
  if (!child.waitForOutput("listening\n")) throw std::runtime_error("the daemon does not start: " + child.errors());
  return child;
}

std::vector<Answer> keepSilent(const Request&) { return {}; }

}  // namespace zel::test
