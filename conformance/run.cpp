#include "conformance/run.h"

#include <chrono>
#include <optional>
#include <thread>

#include "conformance/raw_connection.h"
#include "conformance/saved_state.h"

namespace zel::conformance {

namespace {

/// For a subscription to arrive: no message says that it has.
constexpr std::chrono::milliseconds kSubscribing{300};
constexpr std::chrono::milliseconds kStarting{1000};
constexpr std::chrono::milliseconds kRetry{20};

/// Waits for both endpoints, for a daemon that is just starting, and for the follower's subscription. Whether a daemon
/// is there at all is for the first check.
void waitForDaemon(Session& session) {
  const auto end = std::chrono::steady_clock::now() + kStarting;
  const Options& options = session.options();
  while (std::chrono::steady_clock::now() < end &&
         !(RawConnection(options.requestEndpoint).isOpen() && RawConnection(options.notificationEndpoint).isOpen())) {
    std::this_thread::sleep_for(kRetry);
  }
  std::this_thread::sleep_for(kSubscribing);
}

/// Why a check does not run; empty when it does.
std::string whyNot(Needs needs, const Options& options) {
  switch (needs) {
    case Needs::kNothing: return "";
    case Needs::kWrite: return options.write ? "" : "needs --write";
    case Needs::kReset: return options.write && options.allowReset ? "" : "needs --write --allow-reset";
    case Needs::kReboot: return options.allowReboot ? "" : "needs --allow-reboot";
    case Needs::kRestart:
      return options.write && !options.restartCommand.empty() ? "" : "needs --write --restart-command";
  }
  return "";
}

bool isObserved(const Check& check) { return check.name == kObservedName; }

Result runOne(const Check& check, Session& session) {
  session.beginCheck();
  Result result{&check, {}, ""};
  try {
    check.run(session);
  } catch (const Json::Exception& error) {
    session.fail(std::string("a document has a value of a wrong type: ") + error.what());
  }
  result.failures = session.failures();
  if (!result.failed()) result.skipped = session.skipped();
  return result;
}

/// Runs one check after the other. After a stop only the observed ones, which ask nothing.
void runAll(const std::vector<Check>& checks, Session& session, bool canWrite, Report& report) {
  for (const Check& check : checks) {
    std::string why = whyNot(check.needs, session.options());
    if (why.empty() && check.needs != Needs::kNothing && !canWrite) why = "what the daemon has cannot be saved";
    if (!report.stopped.empty() && !isObserved(check)) why = "the run stopped";
    if (!why.empty()) {
      report.results.push_back({&check, {}, why});
      continue;
    }
    try {
      report.results.push_back(runOne(check, session));
    } catch (const Stopped& stop) {
      report.stopped = stop.why;
      report.results.push_back({&check, session.failures(), "the run stopped"});
    }
  }
}

}  // namespace

Report run(const std::vector<Check>& checks, const Options& options) {
  const auto begin = std::chrono::steady_clock::now();
  Report report;
  Session session(options);
  waitForDaemon(session);
  std::optional<SavedState> saved;
  if (options.write) {
    try {
      saved.emplace(session);
    } catch (const Stopped& stop) {
      report.stopped = stop.why;
    }
  }
  runAll(checks, session, saved && saved->isComplete(), report);
  if (saved && saved->isComplete()) {
    interrupted = false;  // the signal has ended the checks; what they changed is put back all the same
    try {
      report.notPutBack = saved->putBack(session);
    } catch (const Stopped& stop) {
      report.notPutBack = {"the daemon does not answer: " + stop.why};
    }
  }
  report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  return report;
}

}  // namespace zel::conformance
