// A control loop of 1 ms beside an asynchronous client whose board is slow, silent, killed and restarted: no call of
// the client's takes a millisecond of processor time, and none waits. Prints the figures, beside those of an idle loop.

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "client/async_client.h"
#include "tests/simulator/board_process.h"

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;
using zel::AsyncClient;
using zel::test::ChildProcess;
using zel::test::kSlowdown;

/// What the calls of one kind have taken.
struct Cost {
  std::size_t calls = 0;
  microseconds longest{0};  ///< processor time
  microseconds sum{0};
  long waits = 0;  ///< how often the thread gave the processor up, to wait for something
};

long waitsOfThisThreadSoFar() {
  rusage usage{};
  getrusage(RUSAGE_THREAD, &usage);
  return usage.ru_nvcsw;
}

double inMs(microseconds time) { return static_cast<double>(time.count()) / 1000; }

class Loop {
 public:
  Loop() : timer_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC)) {
    const itimerspec everyMs{{0, 1'000'000}, {0, 1'000'000}};
    timerfd_settime(timer_, 0, &everyMs, nullptr);
  }
  ~Loop() { close(timer_); }
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;

  /// Runs until so many ticks have come.
  /// @param descriptor  is watched besides; negative: none
  void run(int ticks, const std::function<void()>& onTick, int descriptor, const std::function<void()>& onReadable) {
    std::uint64_t expirations = 0;
    static_cast<void>(read(timer_, &expirations, sizeof expirations));  // what came before
    Clock::time_point last = Clock::now();
    while (ticks > 0) {
      pollfd watched[] = {{timer_, POLLIN, 0}, {descriptor, POLLIN, 0}};
      poll(watched, 2, -1);
      if (watched[1].revents != 0) onReadable();
      if (watched[0].revents == 0) continue;
      static_cast<void>(read(timer_, &expirations, sizeof expirations));
      const Clock::time_point now = Clock::now();
      longestGap = std::max(longestGap, std::chrono::duration_cast<microseconds>(now - last));
      last = now;
      --ticks;
      onTick();
    }
  }

  microseconds longestGap{0};  ///< between two ticks

 private:
  int timer_;
};

class AsyncLoop : public testing::Test {
 protected:
  template <class Call>
  void measure(const char* what, Call call) {
    Cost& cost = costs[what];
    const long before = waitsOfThisThreadSoFar();
    const microseconds took = zel::test::processorTimeOf(call);
    cost.waits += waitsOfThisThreadSoFar() - before;
    ++cost.calls;
    cost.longest = std::max(cost.longest, took);
    cost.sum += took;
  }

  void submit() {
    const auto timeout = milliseconds(1 + random() % 200);
    const std::size_t number = ends.size();
    ends.push_back(0);
    measure("submit", [&] {
      ids.push_back(client.submit(
          zel::requests::set(zel::settings::kRtspTcpPort, static_cast<std::uint32_t>(1 + number)),
          [this, number](const zel::Answer<void>& answer) {
            ++ends[number];
            ++statuses[answer.status];
          },
          timeout));
    });
  }
  void cancelAny() {
    measure("cancel", [&] { client.cancel(ids[random() % ids.size()]); });
  }
  void process() {
    measure("process", [&] { client.process(); });
  }
  void tick(Loop& loop, int ticks, bool submits) {
    const auto onTick = [&] {
      if (!submits) return;
      submit();
      if (random() % 5 == 0) cancelAny();
    };
    loop.run(ticks, onTick, client.descriptor(), [&] { process(); });
  }

  static ChildProcess startBoard(std::vector<std::string> arguments) {
    ChildProcess board = zel::test::startBoard(std::move(arguments));
    EXPECT_TRUE(board.waitForOutput(zel::test::kReady));
    return board;
  }

  std::mt19937 random{1};
  zmq::context_t context;
  AsyncClient client{context};
  std::vector<AsyncClient::Id> ids;
  std::vector<int> ends;  ///< how often the completion of each request has run
  std::map<int, std::size_t> statuses;
  std::map<std::string, Cost> costs;
};

TEST_F(AsyncLoop, HoldsUpNoTick) {
  Loop idle;
  idle.run(
      1000, [] {}, -1, [] {});

  Loop loop;
  std::optional<ChildProcess> board(startBoard({"--fault-rule", "do=delay command=any ms=30 times=always"}));
  tick(loop, 250, true);
  board->freeze();
  tick(loop, 250, true);
  board.reset();
  tick(loop, 250, true);
  board.emplace(startBoard({}));
  tick(loop, 250, true);
  tick(loop, 300, false);  // the longest time-out is over

  EXPECT_EQ(client.pending(), 0U);
  EXPECT_THAT(ends, testing::AllOf(testing::SizeIs(1000), testing::Each(1)));
  EXPECT_GT(statuses[0], 100U) << "the board that is back answers";
  std::printf("1,000 requests:");
  for (const auto& [status, times] : statuses) std::printf(" %zu x %d", times, status);
  std::printf("\nlongest gap between ticks of 1 ms: %.2f ms, of an idle loop %.2f ms\n", inMs(loop.longestGap),
              inMs(idle.longestGap));
  for (const auto& [what, cost] : costs) {
    std::printf("%-8s %5zu calls, %4lld us of processor time on average, %4lld at most; %ld waits\n", what.c_str(),
                cost.calls, static_cast<long long>(cost.sum.count() / static_cast<long>(cost.calls)),
                static_cast<long long>(cost.longest.count()), cost.waits);
    EXPECT_LT(cost.longest, milliseconds(1) * kSlowdown) << what;
    // libzmq's own thread may hold a mutex for an instant.
    EXPECT_LE(cost.waits, static_cast<long>(cost.calls / 100)) << what;
  }
}

}  // namespace
