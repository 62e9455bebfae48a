// Runs one client through a long series of faults and judges its history against what the daemons record: every daemon,
// and every peer that only poses as one, is a process of its own that is really killed, frozen or replaced.
//
//   zelFaultHarness [--episodes N] [--seconds S] [--seed X]

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <thread>

#include "client/sysmgr_jsonApi.h"
#include "client/zmq_utils.h"
#include "tests/faults/faulty_daemon.h"
#include "tests/faults/history.h"
#include "tests/faults/hostile_peer.h"
#include "tests/faults/journal.h"
#include "tests/support/child_process.h"
#include "tests/support/private_network.h"
#include "tests/support/wait_until.h"

namespace zel::test {

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds kFaultyLimit{60};
constexpr milliseconds kHealthyLimit{2000};

class Client final : public SysMgrJsonClient {
 public:
  int getClientTimeout() override { return static_cast<int>(limit.count()); }
  milliseconds limit = kHealthyLimit;
};

long residentKiB() {
  std::ifstream pages("/proc/self/statm");
  long size = 0;
  long resident = 0;
  pages >> size >> resident;
  return resident * sysconf(_SC_PAGESIZE) / 1024;
}

/// Whether a connection to the daemon's port is open on our side only.
bool deadConnectionOpen() {
  std::ifstream connections("/proc/self/net/tcp");
  std::string line;
  std::getline(connections, line);  // the heading
  while (std::getline(connections, line)) {
    std::istringstream columns(line);
    std::string number, local, remote, state;
    columns >> number >> local >> remote >> state;
    constexpr const char* kDaemonsPort = ":15B4";
    constexpr const char* kCloseWait = "08";
    if (state == kCloseWait && remote.find(kDaemonsPort) != std::string::npos) return true;
  }
  return false;
}

long openDescriptors() {
  const int next = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(next);
  return next;
}

/// One client and, beside it, the daemon or the peer of the moment.
class Run {
 public:
  explicit Run(std::uint32_t seed) : random(seed) {
    client_.init(ZmqUtils::getInstance().getContext());
    startDaemon();
    recover("start");
  }

  bool judge() const {
    std::printf("memory %+ld KiB at most since the warm-up, descriptors %+ld\n", worstGrowth_,
                openDescriptors() - descriptors_);
    return history_.judge(journal_);
  }
  std::uint32_t requests() const { return token_; }

  void startDaemon(const DaemonManners& manners = {}) {
    start({"daemon", std::to_string(journal_.descriptor()), manners.text()});
  }
  void startHostilePeer(std::uint32_t seed) {
    start({"peer", std::to_string(seed)});
    honest_ = false;
  }
  void kill() {
    peer_.reset();
    honest_ = true;
  }
  ChildProcess& peer() { return *peer_; }

  /// One request, for the record.
  int call(const char* fault, milliseconds limit = kFaultyLimit) {
    Json::Value body;
    body["token"] = ++token_;
    IpcMsg request(SysMgrCommands::SYSMGR_SET_PARAMETER, body);
    Json::Value reply;
    client_.limit = limit;
    const auto begin = Clock::now();
    const int status = client_.sendMessage(request, reply);
    const auto took = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin);
    const bool own = status >= 0 && reply["token"].isUInt() && reply["token"].asUInt() == token_;
    history_.add({token_, status, own, honest_, took, limit, fault});
    if (warm_) worstGrowth_ = std::max(worstGrowth_, residentKiB() - resident_);
    return status;
  }

  /// Brings a healthy daemon back. The very next request has to be answered.
  void recover(const char* fault) {
    kill();
    startDaemon();
    // What is written into a connection that is just dying is lost, and nobody can tell. The client is given the time
    // that it takes to see the end of the old one.
    waitUntil([] { return !deadConnectionOpen(); });
    if (call(fault, kHealthyLimit) < 0) history_.addDeadClient(fault);
  }

  void warmUpDone() {
    warm_ = true;
    resident_ = residentKiB();
    descriptors_ = openDescriptors();
  }

  unsigned below(unsigned limit) { return static_cast<unsigned>(random()) % limit; }
  std::mt19937 random;

 private:
  void start(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "/proc/self/exe");
    peer_ = std::make_unique<ChildProcess>(ChildProcess::run(arguments));
    if (!peer_->waitForOutput("ready")) {
      std::fprintf(stderr, "a peer does not start: %s\n", peer_->errors().c_str());
      std::exit(2);
    }
  }

  Journal journal_ = Journal::create();
  History history_;
  Client client_;
  std::unique_ptr<ChildProcess> peer_;
  bool honest_ = true;
  std::uint32_t token_ = 0;
  bool warm_ = false;
  long resident_ = 0;
  long descriptors_ = 0;
  long worstGrowth_ = 0;
};

// The faults. Each begins with a healthy daemon that the client is connected to.

void nothing(Run& run, const char* name) {
  for (unsigned i = run.below(20); i > 0; --i) run.call(name);
}

void killedBefore(Run& run, const char* name) {
  run.kill();
  for (unsigned i = 1 + run.below(3); i > 0; --i) run.call(name);
}

/// Acts on the peer at some instant while a request waits.
template <class Action>
void during(Run& run, const char* name, Action action) {
  const std::chrono::microseconds instant(run.below(static_cast<unsigned>(kFaultyLimit.count()) * 1000));
  std::thread other([&] {
    std::this_thread::sleep_for(instant);
    action();
  });
  run.call(name);
  other.join();
}

void killedDuring(Run& run, const char* name) {
  run.kill();
  run.startDaemon({static_cast<int>(run.below(40)), false, false});
  const pid_t daemon = run.peer().pid();
  during(run, name, [daemon] { ::kill(daemon, SIGKILL); });
  run.call(name);
}

void frozen(Run& run, const char* name) {
  run.peer().freeze();
  for (unsigned i = 1 + run.below(3); i > 0; --i) run.call(name);
  run.peer().thaw();
  for (unsigned i = run.below(4); i > 0; --i) run.call(name);
}

void frozenDuring(Run& run, const char* name) {
  const pid_t daemon = run.peer().pid();
  during(run, name, [daemon] { ::kill(daemon, SIGSTOP); });
  during(run, name, [daemon] { ::kill(daemon, SIGCONT); });
  ::kill(daemon, SIGCONT);
  run.call(name);
}

void restarted(Run& run, const char* name) {
  for (unsigned i = 1 + run.below(3); i > 0; --i) {
    run.kill();
    run.startDaemon();
    run.call(name);
  }
}

void unmannered(Run& run, const char* name) {
  run.kill();
  const unsigned delay = run.below(2) == 0 ? 0 : run.below(80);
  run.startDaemon({static_cast<int>(delay), run.below(2) == 0, run.below(2) == 0});
  for (unsigned i = 1 + run.below(20); i > 0; --i) run.call(name);
}

void hostile(Run& run, const char* name) {
  run.kill();
  run.startHostilePeer(static_cast<std::uint32_t>(run.random()));
  for (unsigned i = 1 + run.below(4); i > 0; --i) run.call(name);
}

void underSignals(Run& run, const char* name) {
  struct sigaction handler {};
  handler.sa_handler = [](int) {};
  struct sigaction before {};
  sigaction(SIGALRM, &handler, &before);
  const bool away = run.below(2) == 0;
  if (away) run.kill();
  const itimerval everyTwoMs{{0, 2000}, {0, 2000}};
  const itimerval never{};
  setitimer(ITIMER_REAL, &everyTwoMs, nullptr);
  for (unsigned i = 1 + run.below(4); i > 0; --i) run.call(name);
  setitimer(ITIMER_REAL, &never, nullptr);
  sigaction(SIGALRM, &before, nullptr);
}

void withoutDescriptors(Run& run, const char* name) {
  run.kill();
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit few{static_cast<rlim_t>(openDescriptors()) + run.below(14), before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &few);
  for (unsigned i = 1 + run.below(3); i > 0; --i) run.call(name);
  setrlimit(RLIMIT_NOFILE, &before);
}

struct Fault {
  const char* name;
  void (*happens)(Run& run, const char* name);
};
constexpr Fault kFaults[] = {
    {"nothing", nothing},
    {"killed before the request", killedBefore},
    {"killed during the request", killedDuring},
    {"frozen before the request", frozen},
    {"frozen during the request", frozenDuring},
    {"restarted", restarted},
    {"late, doubled or shuffled answers", unmannered},
    {"a hostile peer", hostile},
    {"signals", underSignals},
    {"no descriptors left", withoutDescriptors},
};

struct Options {
  unsigned long episodes = 200;
  unsigned long seconds = 3600;
  std::uint32_t seed = 1;
};

int runEpisodes(const Options& options) {
  constexpr unsigned long kWarmUp = 50;
  Run run(options.seed);
  const auto end = Clock::now() + std::chrono::seconds(options.seconds);
  unsigned long done = 0;
  while (done < options.episodes && Clock::now() < end && run.requests() + 100 < Journal::kTokens) {
    const Fault& fault = kFaults[run.below(std::size(kFaults))];
    fault.happens(run, fault.name);
    run.recover(fault.name);
    if (++done == kWarmUp) run.warmUpDone();
  }
  std::printf("%lu episodes, seed %u\n", done, options.seed);
  return run.judge() ? 0 : 1;
}

Options parse(int argc, char** argv) {
  Options options;
  for (int i = 1; i + 1 < argc; i += 2) {
    const unsigned long value = std::stoul(argv[i + 1]);
    if (std::strcmp(argv[i], "--episodes") == 0) options.episodes = value;
    if (std::strcmp(argv[i], "--seconds") == 0) options.seconds = value;
    if (std::strcmp(argv[i], "--seed") == 0) options.seed = static_cast<std::uint32_t>(value);
  }
  return options;
}

}  // namespace

}  // namespace zel::test

int main(int argc, char** argv) {
  using namespace zel::test;
  // This program is also each of its own peers.
  if (argc == 4 && std::strcmp(argv[1], "daemon") == 0) {
    return runFaultyDaemon(std::stoi(argv[2]), DaemonManners::fromText(argv[3]));
  }
  if (argc == 3 && std::strcmp(argv[1], "peer") == 0) {
    return runHostilePeer(static_cast<std::uint32_t>(std::stoul(argv[2])), 5556);
  }
  const std::string why = enterPrivateNetwork();
  if (!why.empty()) {
    std::printf("SKIPPED: this system allows no network namespace (%s)\n", why.c_str());
    return 77;
  }
  return runEpisodes(parse(argc, argv));
}
