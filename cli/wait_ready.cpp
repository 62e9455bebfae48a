#include <chrono>
#include <thread>

#include "cli/command.h"

namespace zel::ctl {

namespace {

constexpr double kSilentSeconds = 1;              ///< of waiting before it is announced
constexpr std::chrono::milliseconds kPause{200};  ///< between two requests

bool mayPass(Exit status) { return status == Exit::kNoDaemon || status == Exit::kTimeOut || status == Exit::kRefused; }

}  // namespace

void runWaitReady(Call& call) {
  const auto reportReady = [&call] {
    Json::Value document;
    document["ready"] = true;
    call.output.page(document, [&] { call.output.line("The daemon is ready."); });
  };

  const Deadline silent(kSilentSeconds);
  bool announced = call.deadline.left() <= silent.left();  // a short wait is not announced
  while (true) {
    try {
      Daemon(announced ? call.deadline : silent).get("stored");
      return reportReady();
    } catch (const Failure& failure) {
      if (!mayPass(failure.status())) {
        throw Failure(failure.status(), std::string("the daemon is not ready: ") + failure.what(), failure.advice());
      }
      if (call.deadline.left() <= 2 * kPause) {  // a shorter request would fail in any case
        throw Failure(failure.status(), "the daemon is not ready after " + call.deadline.text() + ": " + failure.what(),
                      failure.advice());
      }
    }
    if (!announced) note("waiting for the daemon, " + call.deadline.text() + " at most");
    announced = true;
    std::this_thread::sleep_for(kPause);
  }
}

}  // namespace zel::ctl
