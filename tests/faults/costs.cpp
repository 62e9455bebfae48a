#include "tests/faults/costs.h"

#include <malloc.h>

#include <cstdio>
#include <functional>
#include <list>

#include "client/zmq_utils.h"
#include "config/system_default_cfg.h"
#include "tests/faults/faulty_daemon.h"
#include "tests/faults/process_figures.h"
#include "tests/faults/run.h"
#include "tests/support/stopwatch.h"
#include "tests/support/wait_until.h"

namespace zel::test {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr long kMiB = 1024;  // in KiB

/// What the process has in use more than when this was made.
class Costs {
 public:
  Costs() { forgetPeak(); }

  long grownKiB() const { return residentKiB() - residentKiB_; }
  long peakGrownKiB() const { return peakKiB() - residentKiB_; }

  bool judge(long mostKiB) const {
    waitUntil([this] { return openDescriptors() <= descriptors_; });  // libzmq closes in a thread of its own
    const long opened = openDescriptors() - descriptors_;
    std::printf("memory %+ld KiB at most since the warm-up (%ld KiB), now %+ld KiB; descriptors %+ld\n", peakGrownKiB(),
                residentKiB_, grownKiB(), opened);
    return opened <= 0 && (kSlowdown > 1 || peakGrownKiB() <= mostKiB);  // sanitizers hold freed memory back
  }

 private:
  const long residentKiB_ = residentKiB();
  const long descriptors_ = openDescriptors();
};

/// An application that only counts what comes.
class Counter final : public SysmgrSubscriber {
 public:
  int notifyStoredParametersUpdate(SysParameters&) override { return ++count, 0; }
  int notifyDynamicInfoUpdate(SysParametersDynamic&) override { return ++count, 0; }
  int notifyMcastWhitelistUpdate(std::list<WhiteListEntry>&) override { return ++count, 0; }
  unsigned long count = 0;
};

/// One request, of one of the kinds in turn.
int request(SysMgrClient& client, SysMgrJsonClient& jsonClient, unsigned long number) {
  switch (number % 4) {
    case 0: {
      SysParameters parameters;
      return client.getStoredParameters(parameters);
    }
    case 1: {
      SysParametersDynamic parameters;
      return client.getDynamicParameters(parameters);
    }
    case 2: {
      std::list<WhiteListEntry> entries;
      return client.getMcastWhitelist(entries);
    }
    default: {
      Json::Value change;
      change[kToken] = 0;
      change[kFlood] = 3;  // as many documents as there are queries
      Json::Value reply;
      return jsonClient.setSysMgrParameter(change, reply);
    }
  }
}

}  // namespace

Verdict measureHostilePeers(unsigned long peers, std::uint32_t seed) {
  // A frame of the largest size, and what libzmq and JsonCpp need for it.
  constexpr long kMostKiB = (1 + 8) * kMiB;
  constexpr unsigned long kWarmUp = 20;
  Run run(seed);
  run.begin("a hostile peer");
  const auto meet = [&run](std::uint32_t peer) {
    run.kill();
    run.startHostilePeer(peer, false);
    for (int i = 0; i < 3; ++i) {
      run.call();
      run.listen(milliseconds(10));
    }
    run.recover();
  };
  for (unsigned long i = 0; i < kWarmUp; ++i) meet(static_cast<std::uint32_t>(seed + i));
  const Costs costs;
  for (unsigned long i = 0; i < peers; ++i) meet(static_cast<std::uint32_t>(seed + kWarmUp + i));
  std::printf("%lu hostile peers, seed %u\n", peers, seed);
  const bool bounded = costs.judge(kMostKiB);
  const Verdict verdict = run.judge();
  return bounded ? verdict : Verdict::kWrong;
}

bool measureEndurance(unsigned long exchanges) {
  const Journal journal = Journal::create();
  ChildProcess daemon =
      ChildProcess::run({"/proc/self/exe", "daemon", std::to_string(journal.descriptor()), DaemonManners().text()});
  if (!daemon.waitForOutput("ready")) return false;

  zmq::context_t& context = ZmqUtils::getInstance().getContext();
  SysMgrJsonClient jsonClient;
  jsonClient.init(context);
  SystemDefaultCfg& cache = SystemDefaultCfg::getInstance();
  PollFds fds;
  Counter counter;
  counter.init(context);
  counter.subscribeAll();
  counter.getPollItems(fds);
  cache.initSubscribers(fds);

  unsigned long requests = 0;
  unsigned long failed = 0;
  const auto exchange = [&](unsigned long upTo) {
    while (requests + counter.count < upTo) {
      if (request(cache.getClientReference(), jsonClient, requests++) != 0) ++failed;
      while (counter.processEvent(fds[0]) != 0) continue;
      while (cache.processEvent(fds[1]) != 0) continue;
    }
  };
  exchange(exchanges / 10);
  const Costs costs;
  const Clock::time_point begin = Clock::now();
  exchange(exchanges);
  const std::chrono::duration<double> took = Clock::now() - begin;
  std::printf("%lu requests (%lu failed) and %lu notifications, nine tenths of them in %.1f s\n", requests, failed,
              counter.count, took.count());
  return costs.judge(kMiB) && failed == 0;
}

bool measureEndlessMessage(unsigned long seconds) {
  const milliseconds limit(seconds * 1000);
  ChildProcess peer = ChildProcess::run({"/proc/self/exe", "endless"});
  if (!peer.waitForOutput("ready")) return false;
  zmq::context_t& context = ZmqUtils::getInstance().getContext();
  const auto measure = [](const char* who, const std::function<void()>& wait) {
    const Costs costs;
    const auto took = std::chrono::duration_cast<milliseconds>(timeOf(wait).wall);
    const long most = costs.peakGrownKiB();
    const bool freed = waitUntil([&] {
      malloc_trim(0);  // the C library keeps what it was given back
      return costs.grownKiB() < 8 * kMiB;
    });
    std::printf("%s: %+ld KiB in %lld ms, %s\n", who, most, static_cast<long long>(took.count()),
                freed ? "given back" : "kept");
    return freed;
  };
  const bool request = measure("a request", [&] {
    SysMgrJsonClient client;
    zel::setTimeout(client, limit);
    client.init(context);
    Json::Value reply;
    client.getStoredParameters(reply);
  });
  const bool subscriber = measure("a subscriber", [&] {
    Counter counter;
    counter.init(context);
    counter.subscribeAll();
    PollFds fds;
    counter.getPollItems(fds);
    fds.poll(limit.count());
  });
  return request && subscriber;
}

}  // namespace zel::test
