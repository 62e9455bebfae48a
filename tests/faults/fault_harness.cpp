// Runs one application, with a client, a subscriber and the cache, through a long series of faults, and judges its
// history against what the daemons record: every daemon, and every peer that only poses as one, is a process of its own
// that is really killed, frozen or replaced.
//
//   zelFaultHarness [--client blocking|async] [--episodes N] [--seconds S] [--seed X]   faults of all kinds
//   zelFaultHarness --peers N [--seed X]                      hostile peers only, and the memory that they cost
//   zelFaultHarness --endurance N                             requests and notifications, and the memory that they cost
//   zelFaultHarness --endless S                               what a message of endlessly many frames costs in S
//   seconds
//
// Exit status: 0 right, 1 wrong, 3 right but for a wait that took longer than it may.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string>

#include "common/logger.h"
#include "tests/faults/costs.h"
#include "tests/faults/faults.h"
#include "tests/faults/faulty_daemon.h"
#include "tests/faults/hostile_peer.h"
#include "tests/faults/run.h"
#include "tests/support/private_network.h"

namespace zel::test {

namespace {

using Clock = std::chrono::steady_clock;

struct Options {
  unsigned long episodes = 200;
  unsigned long seconds = 3600;
  unsigned long seed = 1;
  unsigned long peers = 0;
  unsigned long endurance = 0;
  unsigned long endless = 0;
  ClientKind client = ClientKind::kBlocking;
};

struct OptionRow {
  const char* name;
  unsigned long Options::*value;
};
constexpr OptionRow kOptions[] = {
    {"--episodes", &Options::episodes}, {"--seconds", &Options::seconds},     {"--seed", &Options::seed},
    {"--peers", &Options::peers},       {"--endurance", &Options::endurance}, {"--endless", &Options::endless},
};

bool parse(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; i += 2) {
    if (i + 1 < argc && std::strcmp(argv[i], "--client") == 0) {
      const bool async = std::strcmp(argv[i + 1], "async") == 0;
      if (!async && std::strcmp(argv[i + 1], "blocking") != 0) return false;
      options.client = async ? ClientKind::kAsync : ClientKind::kBlocking;
      continue;
    }
    const auto* const row = std::find_if(std::begin(kOptions), std::end(kOptions),
                                         [&](const OptionRow& each) { return std::strcmp(each.name, argv[i]) == 0; });
    if (row == std::end(kOptions) || i + 1 == argc) return false;
    options.*row->value = std::stoul(argv[i + 1]);
  }
  return true;
}

Verdict runEpisodes(const Options& options) {
  Run run(static_cast<std::uint32_t>(options.seed), options.client);
  const auto end = Clock::now() + std::chrono::seconds(options.seconds);
  unsigned long done = 0;
  for (; done < options.episodes && Clock::now() < end && run.requests() + 100 < Journal::kTokens; ++done) {
    const Fault& fault = anyFault(run);
    run.begin(fault.name);
    fault.happens(run);
    run.recover();
  }
  std::printf("%lu episodes, seed %lu\n", done, options.seed);
  return run.judge();
}

Verdict verdict(bool right) { return right ? Verdict::kRight : Verdict::kWrong; }

Verdict run(const Options& options) {
  if (options.peers > 0) return measureHostilePeers(options.peers, static_cast<std::uint32_t>(options.seed));
  if (options.endurance > 0) return verdict(measureEndurance(options.endurance));
  if (options.endless > 0) return verdict(measureEndlessMessage(options.endless));
  return runEpisodes(options);
}

int usage() {
  std::fprintf(stderr, "see the head of fault_harness.cpp\n");
  return 2;
}

}  // namespace

}  // namespace zel::test

int main(int argc, char** argv) {
  using namespace zel::test;
  // This program is also each of its own peers.
  if (argc == 4 && std::strcmp(argv[1], "daemon") == 0) {
    return runFaultyDaemon(std::stoi(argv[2]), DaemonManners::fromText(argv[3]));
  }
  for (const bool large : {false, true}) {
    if (argc == 3 && std::strcmp(argv[1], large ? "peer" : "lean-peer") == 0) {
      return runHostilePeer(static_cast<std::uint32_t>(std::stoul(argv[2])), large);
    }
  }
  if (argc == 2 && std::strcmp(argv[1], "endless") == 0) return runEndlessPeer();

  Options options;
  if (!parse(argc, argv, options)) return usage();
  const std::string why = enterPrivateNetwork();
  if (!why.empty()) {
    std::printf("SKIPPED: this system allows no network namespace (%s)\n", why.c_str());
    return 77;
  }
  Logger::getInstance()->setSink([](Logger::logDebugLevel_t, const std::string&) {});  // hostile peers fill pages
  return static_cast<int>(run(options));
}
