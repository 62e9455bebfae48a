#include "tests/faults/faults.h"

#include <sys/resource.h>
#include <sys/time.h>

#include <csignal>
#include <thread>

#include "tests/faults/process_figures.h"

namespace zel::test {

namespace {

using std::chrono::milliseconds;

/// Some requests. In between the application takes what has come, or it leaves it unread.
void work(Run& run, unsigned requests) {
  for (; requests > 0; --requests) {
    run.request();
    if (run.below(2) == 0) run.listen(milliseconds(run.below(20)));
  }
}

/// Acts on the peer at some instant while a request waits.
template <class Action>
void during(Run& run, Action action) {
  const std::chrono::microseconds instant(run.below(static_cast<unsigned>(Run::kFaultyLimit.count()) * 1000));
  std::thread other([&] {
    std::this_thread::sleep_for(instant);
    action();
  });
  work(run, 1);
  other.join();
}

void nothing(Run& run) { work(run, run.below(20)); }

void killedBefore(Run& run) {
  run.kill();
  work(run, 1 + run.below(3));
}

void killedDuring(Run& run) {
  run.kill();
  run.startDaemon({static_cast<int>(run.below(40)), false, false});
  const pid_t daemon = run.peer().pid();
  during(run, [daemon] { ::kill(daemon, SIGKILL); });
  work(run, 1);
}

void frozen(Run& run) {
  run.peer().freeze();
  work(run, 1 + run.below(3));
  constexpr milliseconds kLongSilence{3200};  // nobody gives a frozen peer up, however long it is
  if (run.below(20) == 0) run.listen(kLongSilence);
  run.peer().thaw();
  work(run, run.below(4));
}

void frozenDuring(Run& run) {
  const pid_t daemon = run.peer().pid();
  during(run, [daemon] { ::kill(daemon, SIGSTOP); });
  during(run, [daemon] { ::kill(daemon, SIGCONT); });
  ::kill(daemon, SIGCONT);
  work(run, 1);
}

void restarted(Run& run) {
  for (unsigned i = 1 + run.below(3); i > 0; --i) {
    run.kill();
    run.startDaemon();
    work(run, 1);
  }
}

void unmannered(Run& run) {
  run.kill();
  const unsigned delay = run.below(2) == 0 ? 0 : run.below(80);
  run.startDaemon({static_cast<int>(delay), run.below(2) == 0, run.below(2) == 0});
  work(run, 1 + run.below(20));
}

void hostile(Run& run) {
  run.kill();
  run.startHostilePeer(static_cast<std::uint32_t>(run.random()));
  work(run, 1 + run.below(4));
}

/// More than all queues on the way hold; the application comes back late or at once.
void flooded(Run& run) {
  Json::Value wishes;
  wishes[kFlood] = 1000 + run.below(4000);
  run.call(Run::kHealthyLimit, wishes);
  if (run.below(2) == 0) work(run, 1 + run.below(3));
  run.expectFollowing();
}

void underSignals(Run& run) {
  struct sigaction handler {};
  handler.sa_handler = [](int) {};
  struct sigaction before {};
  sigaction(SIGALRM, &handler, &before);
  const bool away = run.below(2) == 0;
  if (away) run.kill();
  const itimerval everyTwoMs{{0, 2000}, {0, 2000}};
  const itimerval never{};
  setitimer(ITIMER_REAL, &everyTwoMs, nullptr);
  work(run, 1 + run.below(4));
  setitimer(ITIMER_REAL, &never, nullptr);
  sigaction(SIGALRM, &before, nullptr);
}

void withoutDescriptors(Run& run) {
  run.kill();
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit few{static_cast<rlim_t>(nextDescriptor()) + run.below(14), before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &few);
  work(run, 1 + run.below(3));
  setrlimit(RLIMIT_NOFILE, &before);
}

void renewed(Run& run) {
  if (run.below(2) == 0) run.kill();
  run.renewClient();
  work(run, run.below(3));
}

constexpr Fault kFaults[] = {
    {"nothing", nothing},
    {"killed before the request", killedBefore},
    {"killed during the request", killedDuring},
    {"frozen before the request", frozen},
    {"frozen during the request", frozenDuring},
    {"restarted", restarted},
    {"late, doubled or shuffled answers", unmannered},
    {"a hostile peer", hostile},
    {"a flood of notifications", flooded},
    {"signals", underSignals},
    {"no descriptors left", withoutDescriptors},
    {"a client destroyed while requests wait", renewed},
};

}  // namespace

const Fault& anyFault(Run& run) { return kFaults[run.below(std::size(kFaults))]; }

}  // namespace zel::test
