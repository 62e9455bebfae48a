// Writes random applications over the public API, within the rules of docs/api-rules.md, and runs each in a process of
// its own beside a board that misbehaves: each has to end as it should and when it should, and to see what the board
// did. What fails is made as short as possible and written down as C++, for random_found.cpp.
//
//   zelRandomApplications [--programs N] [--seed S] [--seconds T] [--jobs J] [--times N] [--first 1]
//                         [--shrink SECONDS] [--stacks 1]
//   zelRandomApplications --show SEED
//
// Seed S + n is program n. `--times` runs each program so often, `--first 1` ends with the first that fails, `--shrink
// 0` leaves it as it is, and `--stacks 1` shows where a process hangs, with gdb(1).
//
// Exit status: 0 right, 1 wrong. Under the thread sanitizer: TSAN_OPTIONS as in CMakePresets.json.

#include <execinfo.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <new>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "common/status.h"
#include "tests/faults/random_app.h"
#include "tests/faults/random_board.h"
#include "tests/faults/random_program.h"
#include "tests/support/private_network.h"
#include "tests/support/wait_until.h"

namespace zel::test {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kEndLimit{kSlowdown == 1 ? 100 : 2500};  // under a sanitizer an end takes a second or more

struct Options {
  unsigned long programs = 1000;
  unsigned long seconds = 3600;
  unsigned long seed = 1;
  unsigned long jobs = 4;
  unsigned long times = 1;
  unsigned long shrink = 120;
  unsigned long show = 0;
  unsigned long stacks = 0;
  unsigned long first = 0;
};

struct OptionRow {
  const char* name;
  unsigned long Options::*value;
};
bool showsStacks = false;
constexpr OptionRow kOptions[] = {
    {"--programs", &Options::programs}, {"--seconds", &Options::seconds}, {"--seed", &Options::seed},
    {"--jobs", &Options::jobs},         {"--times", &Options::times},     {"--shrink", &Options::shrink},
    {"--show", &Options::show},         {"--stacks", &Options::stacks},   {"--first", &Options::first},
};

/// What the workers share.
struct Progress {
  std::atomic<bool> foundBegun;  ///< one worker runs the programs of random_found.cpp
  std::atomic<unsigned long> next;
  std::atomic<unsigned long> done;
  std::atomic<unsigned long> steps;
  std::atomic<unsigned long> failed;
  std::atomic<unsigned long> unconfirmed;  ///< failed once, and never again
};

template <class T>
T& shared() {
  void* const memory = mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) std::abort();
  return *new (memory) T;
}

/// How long a thread of the process has been ready to run and waited for a processor, at most.
Clock::duration timeWithoutProcessor(pid_t process) {
  std::chrono::nanoseconds longest{};
  std::error_code gone;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task", gone)) {
    std::ifstream file(thread.path() / "schedstat");
    std::int64_t ran = 0;
    std::int64_t waited = 0;
    if (file >> ran >> waited) longest = std::max(longest, std::chrono::nanoseconds(waited));
  }
  return longest;
}

/// Whether a thread of the process runs, is ready to run, or waits for a disk.
bool isBusy(pid_t process) {
  std::error_code gone;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task", gone)) {
    std::ifstream file(thread.path() / "stat");
    std::string line;
    std::getline(file, line);
    const std::size_t state = line.rfind(") ");
    if (state == std::string::npos || std::strchr("RD", line[state + 2]) != nullptr) return true;
  }
  return false;
}

/// Prints where the process crashes, and lets it crash.
void printStack(int signal) {
  std::array<void*, 40> frames{};
  backtrace_symbols_fd(frames.data(), backtrace(frames.data(), frames.size()), STDERR_FILENO);
  std::signal(signal, SIG_DFL);
  raise(signal);
}

/// One process of an application, seen from outside.
struct Watched {
  pid_t pid = 0;
  int descriptor = -1;  ///< of the process; readable when it has ended
  Clock::time_point ended{};
  bool isReaped = false;
  Clock::duration waited{};  ///< since its end began, with no thread that ran or was ready to run
};

/// One run of a program.
class Execution {
 public:
  Execution(Record& record, const Program& program) : record_(record), program_(program) {
    record_.processCount = 1;
    for (Record::Process& each : record_.processes) {
      each.pid = 0;
      each.endBegan = each.expected = each.allowanceMs = 0;
      for (auto& thread : each.threads) thread.step = -1;
    }
    record_.hasFailed = false;
    record_.checkers = record_.breakers = 0;
    firstToken_ = record_.lastToken + 1;
    start();
  }
  ~Execution() {
    for (const Watched& each : processes_) {
      if (!each.isReaped) kill(each.pid, SIGKILL);
    }
    for (const Watched& each : processes_) {
      if (!each.isReaped) waitpid(each.pid, nullptr, 0);
      close(each.descriptor);
    }
    close(output_);
  }
  Execution(const Execution&) = delete;
  Execution& operator=(const Execution&) = delete;

  /// Looks at the processes. @return whether all have ended, or something is wrong
  bool isOver() {
    const Clock::time_point seen = Clock::now();
    late_ = std::max<Clock::duration>(late_, seen - due_);
    findProcesses();
    bool allEnded = true;
    for (std::size_t i = 0; i < processes_.size(); ++i) {
      Watched& each = processes_[i];
      if (each.ended != Clock::time_point()) continue;
      pollfd watched{each.descriptor, POLLIN, 0};
      if (poll(&watched, 1, 0) == 1) {
        each.ended = seen;
      } else {
        allEnded = false;
        if (record_.processes[i].endBegan != 0) measureWait(each);
        judgeTimes(record_.processes[i]);
      }
    }
    readOutput();
    due_ = Clock::now() + milliseconds(1);
    return allEnded || !failure_.empty();
  }

  /// Judges a run that is over. The board is healthy and has carried out what it was sent.
  std::string judge() {
    for (std::size_t i = 0; i < processes_.size() && failure_.empty(); ++i) {
      judgeEnd(processes_[i], record_.processes[i]);
    }
    readOutput();
    if (record_.hasFailed) fail(record_.failure.data());
    if (!text_.empty()) fail("it wrote: " + text_);
    judgeRequests();
    return failure_;
  }
  bool hasFailed() const { return !failure_.empty(); }

 private:
  void fail(const std::string& what) {
    if (failure_.empty()) failure_ = what;
  }

  void start() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) std::abort();
    std::fflush(nullptr);
    const pid_t process = fork();
    if (process == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      prctl(PR_SET_DUMPABLE, 0);  // whatever the system makes of a dump takes its time
      fcntl(ends[1], F_SETFL, 0);
      dup2(ends[1], STDOUT_FILENO);
      dup2(ends[1], STDERR_FILENO);
      close(ends[0]);
      close(ends[1]);
      for (const int crash : {SIGSEGV, SIGABRT}) {
        if (showsStacks) std::signal(crash, printStack);
      }
      std::exit((new App(record_, program_))->main());
    }
    close(ends[1]);
    output_ = ends[0];
    record_.processes[0].pid = process;
  }

  void findProcesses() {
    const std::size_t count = std::min(record_.processCount.load(), Record::kProcesses);
    while (processes_.size() < count) {
      const pid_t pid = record_.processes[processes_.size()].pid;
      if (pid == 0) return;  // just being forked
      Watched& found = processes_.emplace_back();
      found.pid = pid;
      found.descriptor = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    }
  }

  /// How long an end takes depends on the machine, too: only the time counts in which every thread of the process
  /// waited for something.
  void measureWait(Watched& process) const {
    if (!isBusy(process.pid))
      process.waited += std::min<Clock::duration>(Clock::now() - due_, milliseconds(1)) + milliseconds(1);
  }

  void failHanging(const std::string& what) {
    if (showsStacks) {
      for (const Watched& each : processes_) {
        if (each.ended != Clock::time_point()) continue;
        const std::string command = "gdb -p " + std::to_string(each.pid) +
                                    " -batch -ex 'thread apply all bt 25' 2>/dev/null | grep -E '^(#|Thread)' >&2";
        if (std::system(command.c_str()) != 0) continue;
      }
    }
    fail(what);
  }

  void judgeTimes(const Record::Process& process) {
    // A busy machine makes everything late: a process that waited for a processor or a disk did not hang.
    const auto isOver = [&](Clock::rep since, milliseconds limit) {
      const auto took = Clock::now() - Clock::time_point(Clock::duration(since)) - late_;
      if (since == 0 || took <= limit) return false;
      const auto own = took - timeWithoutProcessor(process.pid);
      return own > 2 * limit || (own > limit && !isBusy(process.pid));
    };
    if (isOver(process.endBegan, 3 * kEndLimit + milliseconds(2000))) return failHanging("a process that does not end");
    if (process.endBegan != 0) return;
    for (const auto& thread : process.threads) {
      const int step = thread.step;
      if (step < 0) continue;
      const Row& row = rowOf(program_[static_cast<std::size_t>(step)].operation);
      if (row.limitMs < 1 << 30 && isOver(thread.since, milliseconds(2000 + row.limitMs * kSlowdown))) {
        return failHanging(std::string("it does not return from ") + row.name);
      }
    }
  }

  void judgeEnd(Watched& process, const Record::Process& record) {
    int status = 0;
    if (waitpid(process.pid, &status, 0) != process.pid) return fail("a process that cannot be waited for");
    process.isReaped = true;
    status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    if (status != record.expected) {
      return fail("it ended with " + std::to_string(status) + " and not " + std::to_string(record.expected) + ". " +
                  text_);
    }
    if (record.endBegan == 0) return fail("a process that ended before its end");
    if (process.waited <= kEndLimit + milliseconds(record.allowanceMs)) return;
    fail("its end took " + std::to_string(std::chrono::duration_cast<milliseconds>(process.waited).count()) + " ms");
  }

  void judgeRequests() {
    std::map<std::uint32_t, std::uint32_t> places;  // of the last success of each client
    for (std::uint32_t token = firstToken_; token <= record_.lastToken; ++token) {
      const Record::Request& request = record_.request(token);
      const bool isUnknown = request.status == status::kNoAnswer || request.status == status::kBadAnswer;
      const bool isDone = request.status >= 0;
      if (request.ends > 1) fail("a request that ended twice");
      if (request.carriedOut > 1) fail("a request that was carried out twice");
      if (isDone && request.client != 0 && request.place < std::exchange(places[request.client], request.place)) {
        fail("a request that was carried out before an earlier one");
      }
      if (isDone && request.ends == 1 && request.carriedOut == 0) fail("a success that was not carried out");
      if (!isDone && !isUnknown && request.carriedOut > 0) {
        fail("a request that ended with " + std::to_string(request.status) + " and was carried out");
      }
    }
  }

  void readOutput() {
    std::array<char, 4096> buffer{};
    for (ssize_t count = 0; (count = read(output_, buffer.data(), buffer.size())) > 0;) {
      text_.append(buffer.data(), static_cast<std::size_t>(count));
    }
  }

  Record& record_;
  const Program& program_;
  std::uint32_t firstToken_;
  int output_ = -1;
  std::vector<Watched> processes_;
  Clock::time_point due_ = Clock::now();
  Clock::duration late_{};  ///< how late this thread was woken at most
  std::string text_;
  std::string failure_;
};

/// Runs programs one after the other in a network of its own, beside one board.
class Worker {
 public:
  Worker(const Options& options, Progress& progress) : options_(options), progress_(progress) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    record_.contextDescriptors = -1;
  }
  ~Worker() { endBoard(); }
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  void work() {
    run({{0, &App::makeClients, 1}, {0, &App::set, 0}, {0, &App::destroyClients, 0}, {0, &App::checkLeftovers, 0}});
    const auto end = Clock::now() + std::chrono::seconds(options_.seconds);
    if (!progress_.foundBegun.exchange(true)) runFound();
    for (unsigned long n = 0; (n = progress_.next++) < options_.programs && Clock::now() < end;) {
      if (options_.first != 0 && progress_.failed > 0) return;
      const auto seed = static_cast<std::uint32_t>(options_.seed + n);
      const Program program = generate(seed);
      for (unsigned long times = options_.times; times > 0; --times) {
        const std::string failure = run(program);
        ++progress_.done;
        progress_.steps += program.size();
        if (failure.empty()) continue;
        report(seed, program, failure);
        break;
      }
    }
  }

 private:
  void runFound() {
    for (const FoundProgram& each : foundPrograms()) {
      const std::string failure = run(each.program);
      if (failure.empty()) continue;
      ++progress_.failed;
      print(std::string(each.fault) + ": " + failure + '\n');
    }
  }

  /// @return empty, or what was wrong
  std::string run(const Program& program) {
    healBoard();
    Execution execution(record_, program);
    while (!execution.isOver()) {
      tendBoard();
      std::this_thread::sleep_for(milliseconds(1));
    }
    healBoard();
    return execution.judge();
  }

  // The board

  void tendBoard() {
    if (board_ != 0 && waitpid(board_, nullptr, WNOHANG) == board_) board_ = 0;
    if (board_ != 0 || !record_.wanted) return;
    board_ = fork();
    if (board_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      runRandomBoard(record_);
    }
  }

  /// Has the board run and do what it was sent.
  void healBoard() {
    record_.manners = 0;
    record_.delayMs = 0;
    record_.orders = 0;
    record_.wanted = true;
    waitUntil([this] {
      tendBoard();
      if (board_ > 0) kill(board_, SIGCONT);
      return board_ > 0 && record_.board == board_;
    });
    const std::uint32_t rounds = record_.idleRounds;
    waitUntil([&] { return record_.idleRounds >= rounds + 2; });
  }

  void endBoard() const {
    if (board_ <= 0) return;
    kill(board_, SIGKILL);
    waitpid(board_, nullptr, 0);
  }

  // What fails

  void report(std::uint32_t seed, const Program& program, const std::string& failure) {
    if (options_.shrink == 0) {
      ++progress_.failed;
      return print("seed " + std::to_string(seed) + ": " + failure + '\n');
    }
    constexpr int kAttempts = 12;
    int failures = 0;
    std::string last;
    for (int i = 0; i < kAttempts && failures < 3; ++i) {
      const std::string again = run(program);
      if (again.empty()) continue;
      ++failures;
      last = again;
    }
    if (failures == 0) {
      ++progress_.unconfirmed;
      return print("seed " + std::to_string(seed) + " failed once in " + std::to_string(kAttempts + 1) +
                   " runs: " + failure + '\n');
    }
    ++progress_.failed;
    print("seed " + std::to_string(seed) + " fails: " + last + '\n');
    const Program shortest = shrunk(program, last);
    print("seed " + std::to_string(seed) + ": " + last + "\n  " + std::to_string(shortest.size()) + " of " +
          std::to_string(program.size()) + " steps\n      {\"" + last + "\",\n       {\n" + written(shortest) +
          "     }},\n");
  }

  /// Removes steps, many at first and single ones at last, while the rest still fails.
  Program shrunk(Program program, std::string& failure) {
    const auto end = Clock::now() + std::chrono::seconds(options_.shrink);
    for (std::size_t size = std::max<std::size_t>(program.size() / 2, 1); Clock::now() < end;) {
      bool removed = false;
      for (std::size_t at = 0; at < program.size() && Clock::now() < end;) {
        Program rest = program;
        rest.erase(rest.begin() + static_cast<std::ptrdiff_t>(at),
                   rest.begin() + static_cast<std::ptrdiff_t>(std::min(at + size, rest.size())));
        rest = legal(rest);
        std::string now;
        for (int tries = 4; tries > 0 && now.empty(); --tries) now = run(rest);
        if (now.empty()) {
          at += size;
        } else {
          program = rest;
          failure = now;
          removed = true;
        }
      }
      if (size == 1 && !removed) break;
      size = std::max<std::size_t>(size / 2, 1);
    }
    return program;
  }

  static void print(const std::string& text) {
    if (write(STDOUT_FILENO, text.data(), text.size()) < 0) std::abort();
  }

  const Options& options_;
  Progress& progress_;
  Record& record_ = shared<Record>();
  pid_t board_ = 0;
};

bool parse(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; i += 2) {
    const auto* const row = std::find_if(std::begin(kOptions), std::end(kOptions),
                                         [&](const OptionRow& each) { return std::strcmp(each.name, argv[i]) == 0; });
    if (row == std::end(kOptions) || i + 1 == argc) return false;
    options.*row->value = std::strtoul(argv[i + 1], nullptr, 10);
  }
  return true;
}

int runAll(const Options& options) {
  Progress& progress = shared<Progress>();
  const auto begin = Clock::now();
  for (unsigned long job = 0; job < options.jobs; ++job) {
    if (fork() != 0) continue;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const std::string why = enterPrivateNetwork();
    if (!why.empty()) {
      std::printf("SKIPPED: this system allows no network namespace (%s)\n", why.c_str());
      std::fflush(stdout);
      _exit(77);
    }
    Worker(options, progress).work();
    _exit(0);
  }
  int worst = 0;
  for (int status = 0; wait(&status) > 0;) {
    if (!WIFEXITED(status)) std::printf("a worker was ended by signal %d\n", WTERMSIG(status));
    worst = std::max(worst, WIFEXITED(status) ? WEXITSTATUS(status) : 1);
  }
  if (worst == 77) return worst;
  std::printf("%lu programs with %lu steps from seed %lu in %.0f s: %lu failed, %lu failed once and not again\n",
              progress.done.load(), progress.steps.load(), options.seed,
              std::chrono::duration<double>(Clock::now() - begin).count(), progress.failed.load(),
              progress.unconfirmed.load());
  return progress.failed == 0 && worst == 0 ? 0 : 1;
}

}  // namespace

}  // namespace zel::test

int main(int argc, char** argv) {
  using namespace zel::test;
  Options options;
  if (!parse(argc, argv, options)) {
    std::fprintf(stderr, "see the head of random_applications.cpp\n");
    return 2;
  }
  showsStacks = options.stacks != 0;
  if (options.show == 0) return runAll(options);
  std::fputs(written(generate(static_cast<std::uint32_t>(options.show))).c_str(), stdout);
  return 0;
}
