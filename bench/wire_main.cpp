// One job of the wire benchmark, done by the contestant that this program is built with, against zelBenchDaemon:
//
//   zelBenchLibrary JOB [COUNT]      (or zelBenchFloor)
//
//   set COUNT      sets one key                     get COUNT    gets the stored document
//   change COUNT   sets one key and waits until another process's cache holds it
//   absorb COUNT   takes notifications as fast as they come
//   first          fetches everything once          once         sets one key once, to see the memory it takes
//   getter COUNT   asks the cache                   follower     the other process of `change`
//   submit COUNT   sets one key through a loop      sets COUNT   sets one key 500 times, in calls that wait
//   queue COUNT    sets one key 500 times, through a loop that is given all of them at once
//
// Prints one line: median and 99th percentile of an operation in microseconds, the process's CPU time per operation,
// operations per second, and the most memory that it held, in KB.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zmq.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/contestant.h"

namespace {

using zel::bench::contestant;
using Clock = std::chrono::steady_clock;  // one clock for all processes of the machine

constexpr int kWarmUp = 200;
constexpr int kMany = 500;  // sets in an operation of `sets` and `queue`

std::int64_t now() { return std::chrono::nanoseconds(Clock::now().time_since_epoch()).count(); }

double cpuMicroseconds() {
  rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  const auto microseconds = [](const timeval& time) { return 1e6 * double(time.tv_sec) + double(time.tv_usec); };
  return microseconds(usage.ru_utime) + microseconds(usage.ru_stime);
}

/// The high-water mark of this program's memory, not of the one that started it.
long peakKilobytes() {
  long peak = 0;
  char line[256];
  std::FILE* const status = std::fopen("/proc/self/status", "r");
  while (status != nullptr && std::fgets(line, sizeof line, status) != nullptr) {
    if (std::sscanf(line, "VmHWM: %ld", &peak) == 1) break;
  }
  if (status != nullptr) std::fclose(status);
  return peak;
}

struct Result {
  double median = 0, p99 = 0, cpu = 0, perSecond = 0;
};

void print(const Result& result) {
  std::printf("%.3f %.3f %.3f %.0f %ld\n", result.median, result.p99, result.cpu, result.perSecond, peakKilobytes());
}

/// @param operation  does its work and returns how long it took, in nanoseconds
template <class Operation>
Result measure(int count, Operation operation, int warmUp = kWarmUp) {
  for (int i = 0; i < std::min(count, warmUp); ++i) operation();
  std::vector<std::int64_t> times(static_cast<std::size_t>(count));
  const double cpu = cpuMicroseconds();
  const std::int64_t start = now();
  for (std::int64_t& time : times) time = operation();
  const std::int64_t elapsed = now() - start;
  Result result;
  result.cpu = (cpuMicroseconds() - cpu) / count;
  result.perSecond = 1e9 * count / double(elapsed);
  std::sort(times.begin(), times.end());
  result.median = double(times[times.size() / 2]) / 1e3;
  result.p99 = double(times[times.size() * 99 / 100]) / 1e3;
  return result;
}

template <class Work>
auto timed(Work work) {
  return [work] {
    const std::int64_t start = now();
    work();
    return now() - start;
  };
}

/// Ports of five digits that differ from call to call, so that every set is a change.
std::uint32_t nextPort() {
  static std::uint32_t port = 0;
  port = (port + 1) % 10000;
  return 20000 + port;
}

struct Held {
  std::uint32_t port;
  std::int64_t since;
};

template <class T>
void put(int descriptor, const T& value) {
  if (write(descriptor, &value, sizeof value) != sizeof value) std::exit(1);
}
template <class T>
T take(int descriptor) {
  T value;
  if (read(descriptor, &value, sizeof value) != sizeof value) std::exit(1);
  return value;
}

/// Tells on the standard output which port the cache holds, and since when.
void runFollower() {
  contestant().fetchAll();
  contestant().follow();
  for (std::uint32_t known = contestant().cachedPort();;) {
    contestant().absorb();
    if (contestant().cachedPort() == known) continue;
    known = contestant().cachedPort();
    put(STDOUT_FILENO, Held{known, now()});
  }
}

class Follower {
 public:
  explicit Follower(const char* program) {
    int ends[2];
    if (pipe(ends) != 0) std::exit(1);
    child_ = fork();
    if (child_ == 0) {
      dup2(ends[1], STDOUT_FILENO);
      close(ends[0]);
      close(ends[1]);
      execl(program, program, "follower", static_cast<char*>(nullptr));
      _exit(1);
    }
    close(ends[1]);
    from_ = ends[0];
  }
  ~Follower() {
    kill(child_, SIGTERM);
    waitpid(child_, nullptr, 0);
  }
  Follower(const Follower&) = delete;
  Follower& operator=(const Follower&) = delete;

  /// Until the other process follows, changes may pass it by: they are repeated.
  void waitUntilItFollows() {
    for (;;) {
      contestant().set(nextPort());
      timeval patience{0, 20000};
      fd_set set;
      FD_ZERO(&set);
      FD_SET(from_, &set);
      if (select(from_ + 1, &set, nullptr, nullptr, &patience) == 1) break;
    }
    take<Held>(from_);
  }
  std::int64_t waitUntilHeld(std::uint32_t port) const {
    for (;;) {
      const Held held = take<Held>(from_);
      if (held.port == port) return held.since;
    }
  }

 private:
  pid_t child_ = 0;
  int from_ = -1;
};

Result change(const char* program, int count) {
  Follower follower(program);
  contestant().connect();
  follower.waitUntilItFollows();
  return measure(count, [&follower] {
    const std::uint32_t port = nextPort();
    const std::int64_t start = now();
    contestant().set(port);
    return follower.waitUntilHeld(port) - start;
  });
}

/// Asks the daemon for a flood of notifications.
class Flood {
 public:
  Flood() : context_(zmq_ctx_new()), socket_(zmq_socket(context_, ZMQ_REQ)) {
    zmq_connect(socket_, "tcp://127.0.0.1:5556");
  }
  ~Flood() {
    zmq_close(socket_);
    zmq_ctx_term(context_);
  }
  Flood(const Flood&) = delete;
  Flood& operator=(const Flood&) = delete;
  void start(int count) {
    const std::string body = std::to_string(count);
    zmq_send(socket_, "9000", 4, ZMQ_SNDMORE);
    zmq_send(socket_, body.data(), body.size(), 0);
    char answer[32];
    zmq_recv(socket_, answer, sizeof answer, 0);
  }

 private:
  void* context_;
  void* socket_;
};

void absorbAll(int count) {
  while (count > 0) count -= contestant().absorb();
}

Result absorb(int count) {
  contestant().fetchAll();
  contestant().follow();
  Flood flood;
  flood.start(kWarmUp);
  absorbAll(kWarmUp);

  const double cpu = cpuMicroseconds();
  const std::int64_t start = now();
  flood.start(count);
  absorbAll(count);
  Result result;
  result.perSecond = 1e9 * count / double(now() - start);
  result.cpu = (cpuMicroseconds() - cpu) / count;
  result.median = 1e6 / result.perSecond;
  return result;
}

Result first() {
  Result result;
  const double cpu = cpuMicroseconds();
  result.median = double(timed([] { contestant().fetchAll(); })()) / 1e3;
  result.cpu = cpuMicroseconds() - cpu;
  return result;
}

Result getter(int count) {
  contestant().fetchAll();
  std::uint32_t sum = 0;
  const std::int64_t start = now();
  for (int i = 0; i < count; ++i) sum += contestant().cachedPort();
  Result result;
  result.median = double(now() - start) / 1e3 / count;
  if (sum == 1) std::puts("");  // the sum is used
  return result;
}

Result run(const char* program, const std::string& job, int count) {
  if (job == "change") return change(program, count);
  if (job == "absorb") return absorb(count);
  if (job == "first") return first();
  if (job == "getter") return getter(count);
  if (job == "submit" || job == "queue") {
    contestant().connectLoop();
    if (job == "submit") return measure(count, timed([] { contestant().setInLoop(nextPort()); }));
    return measure(count, timed([] { contestant().queueInLoop(nextPort(), kMany); }), 1);
  }
  contestant().connect();
  if (job == "sets") {
    const auto setMany = [] {
      for (int i = 0; i < kMany; ++i) contestant().set(nextPort());
    };
    return measure(count, timed(setMany), 1);
  }
  if (job == "set") return measure(count, timed([] { contestant().set(nextPort()); }));
  if (job == "get") return measure(count, timed([] { contestant().get(); }));
  if (job == "once") {
    contestant().set(nextPort());
    return {};
  }
  std::fprintf(stderr, "%s: no job is called '%s'\n", program, job.c_str());
  std::exit(2);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string job = argc > 1 ? argv[1] : "";
  const int count = argc > 2 ? std::atoi(argv[2]) : 1;
  if (job == "follower") runFollower();
  print(run(argv[0], job, count));
}
