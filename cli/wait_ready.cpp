#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>

#include "cli/command.h"

namespace zel::ctl {

namespace {

constexpr double kSilentSeconds = 1;              ///< so long nothing is said about waiting
constexpr std::chrono::milliseconds kPause{200};  ///< between two questions to a daemon that refuses to answer

bool mayComeRight(Exit status) {
  return status == Exit::kNoDaemon || status == Exit::kTimeOut || status == Exit::kRefused;
}

}  // namespace

void runWaitReady(Call& call) {
  const auto tellThatItIsReady = [&call] {
    Json::Value document;
    document["ready"] = true;
    call.output.page(document, [&] { call.output.line("The daemon is ready."); });
  };

  // What answers within a second is answered without a word about waiting.
  const Deadline silent(std::min(kSilentSeconds, static_cast<double>(call.deadline.left().count()) / 1000));
  bool told = false;
  while (true) {
    try {
      Board(told ? call.deadline : silent).get("stored");
      return tellThatItIsReady();
    } catch (const Failure& failure) {
      if (mayComeRight(failure.status())) std::this_thread::sleep_for(std::min(kPause, call.deadline.left()));
      if (call.deadline.isOver() || !mayComeRight(failure.status())) {
        throw Failure(failure.status(), "the daemon is not ready after " + call.deadline.text() + ": " + failure.what(),
                      failure.advice());
      }
    }
    if (!told) std::fprintf(stderr, "sysmgrctl: waiting for the daemon, %s at most\n", call.deadline.text().c_str());
    told = true;
  }
}

}  // namespace zel::ctl
