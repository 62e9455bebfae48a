#include <chrono>
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

  const Deadline silent(kSilentSeconds);
  bool told = call.deadline.left() <= silent.left();  // a short wait needs no words
  while (true) {
    try {
      Daemon(told ? call.deadline : silent).get("stored");
      return tellThatItIsReady();
    } catch (const Failure& failure) {
      if (!mayComeRight(failure.status()) || call.deadline.left() <= 2 * kPause) {  // a shorter question tells nothing
        throw Failure(failure.status(), "the daemon is not ready after " + call.deadline.text() + ": " + failure.what(),
                      failure.advice());
      }
    }
    if (!told) note("waiting for the daemon, " + call.deadline.text() + " at most");
    told = true;
    std::this_thread::sleep_for(kPause);
  }
}

}  // namespace zel::ctl
