// Runs a view beside a faulty board and several writers, and checks what the view promises: never live and different
// from the board at rest; live again soon after the board's return; differences that lead from the first view to the
// last, none out of order; no old value in or after the completion of a write; no call that takes long.
//
//   zelViewHarness [--episodes N] [--seed S] [--probe MS]
//
// Probes find changes that no notification told, and so hide a view that is live and different: the default, 5 s, is
// longer than an episode.
//
// The board is this program in a process of its own (`--board DESCRIPTOR`), which is killed, stopped, and started
// again. Its values are in memory that both processes share, and only ever count up.

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>
#include <zmq.hpp>

#include "client/sysmgr_client.h"
#include "common/logger.h"
#include "common/shared/wire_json.h"
#include "tests/support/frames.h"
#include "tests/support/private_network.h"
#include "tests/support/wait_until.h"
#include "tests/view/applied.h"
#include "view/board_view.h"

namespace {

using std::chrono::milliseconds;
using zel::BoardView;
using zel::Document;
using Clock = std::chrono::steady_clock;
namespace settings = zel::settings;

/// The board's values.
struct Values {
  std::atomic<std::uint32_t> board;  ///< "rtsp/tcp-port": changed by the board itself
  std::atomic<std::uint32_t> view;   ///< "advert/tcp-port": set through the view
  std::atomic<std::uint32_t> other;  ///< "ember/tcp-port": set by a blocking client in another thread
};

std::string storedOf(const Values& values) {
  return R"({"rtsp":{"tcp-port":)" + std::to_string(values.board) + R"(},"advert":{"tcp-port":)" +
         std::to_string(values.view) + R"(},"ember":{"tcp-port":)" + std::to_string(values.other) + "}}";
}

// The board

class Board {
 public:
  explicit Board(Values& values) : values_(values) {
    for (auto* const socket : {&requests_, &publisher_}) socket->set(zmq::sockopt::linger, 0);
    zel::test::bindAfterAnother(requests_, "tcp://127.0.0.1:5556");
    zel::test::bindAfterAnother(publisher_, "tcp://127.0.0.1:5575");
  }

  void run() {
    std::puts("ready");
    std::fflush(stdout);
    for (;;) {
      zmq_pollitem_t items[] = {{requests_.handle(), 0, ZMQ_POLLIN, 0}, {nullptr, STDIN_FILENO, ZMQ_POLLIN, 0}};
      zmq_poll(items, 2, -1);
      if (items[0].revents != 0) serve();
      if (items[1].revents != 0 && !obey()) return;
    }
  }

 private:
  void publish(const std::string& topic, const std::string& payload) {
    zel::test::sendFrames(publisher_, {topic, payload});
  }

  void serve() {
    const zel::test::Frames frames = zel::test::receiveFrames(requests_);
    if (frames.size() < 3) return;
    const std::string answer = answerOf(frames[frames.size() - 2], frames.back());
    zel::test::sendFrames(requests_, zel::test::answerTo(frames, answer));
  }

  std::string answerOf(const std::string& id, const std::string& body) {
    if (id == "0") return R"({"stored":)" + storedOf(values_) + "}";
    if (id == "1") return R"({"dynamic":{"madi-lock":true}})";
    if (id == "3") return R"({"board-model":{"model":"KORVA"}})";
    if (id == "16") return R"({"white-list":[]})";
    Json::Value keys;
    zel::WireJsonReader().read(body, keys);
    // A request that its client has given up (-103) may come late, behind a newer one: values only count up.
    if (keys.isMember("advert-tcp-port"))
      values_.view = std::max(values_.view.load(), keys["advert-tcp-port"].asUInt());
    if (keys.isMember("ember-tcp-port"))
      values_.other = std::max(values_.other.load(), keys["ember-tcp-port"].asUInt());
    publish("1000", storedOf(values_));
    return "{}";
  }

  /// Carries out the orders of the harness, a letter each. @return false at the end
  bool obey() {
    char order = 0;
    if (read(STDIN_FILENO, &order, 1) != 1) return false;
    switch (order) {
      case 'c':
        ++values_.board;
        publish("1000", storedOf(values_));
        break;
      case 'b':
        for (int i = 0; i < 5000; ++i) {
          ++values_.board;
          publish("1000", storedOf(values_));
        }
        break;
      case 'l': ++values_.board; break;  // a change that no notification tells
      case 'm': publish("1000", "nonsense"); break;
      case 'o': publish("1000", std::string(zel::kMaxFrameBytes + 1, ' ')); break;
      case 'w': publish("1000", R"({"rtsp":{"tcp-port":"many"}})"); break;
      default: break;
    }
    return true;
  }

  Values& values_;
  zmq::context_t context_;
  zmq::socket_t requests_{context_, ZMQ_ROUTER};
  zmq::socket_t publisher_{context_, ZMQ_PUB};
};

int runBoard(int descriptor) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  void* const memory = mmap(nullptr, sizeof(Values), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  if (memory == MAP_FAILED) return 1;
  Board(*static_cast<Values*>(memory)).run();
  return 0;
}

/// The process of the board.
class BoardProcess {
 public:
  explicit BoardProcess(int memory) : memory_(memory) { start(); }
  ~BoardProcess() { kill(); }
  BoardProcess(const BoardProcess&) = delete;
  BoardProcess& operator=(const BoardProcess&) = delete;

  void start() {
    int orders[2];
    int news[2];
    if (pipe2(orders, O_CLOEXEC) != 0 || pipe2(news, O_CLOEXEC) != 0) std::abort();
    process_ = fork();
    if (process_ == 0) {
      dup2(orders[0], STDIN_FILENO);
      dup2(news[1], STDOUT_FILENO);
      const std::string descriptor = std::to_string(memory_);
      execl("/proc/self/exe", "zelViewHarness", "--board", descriptor.c_str(), nullptr);
      _exit(127);
    }
    close(orders[0]);
    close(news[1]);
    orders_ = orders[1];
    char ready = 0;
    if (::read(news[0], &ready, 1) != 1) std::abort();
    close(news[0]);
  }
  void order(char what) const {
    if (write(orders_, &what, 1) != 1) std::abort();
  }
  void signal(int number) const { ::kill(process_, number); }
  void kill() const {
    signal(SIGKILL);
    waitpid(process_, nullptr, 0);
    close(orders_);
  }

 private:
  int memory_;
  pid_t process_ = 0;
  int orders_ = -1;
};

// The application

struct Figures {
  std::uint64_t wrong = 0;
  std::vector<double> returns;  ///< ms from the board's return until the view was live
  double longestCall = 0;       ///< ms of processor time
  std::uint64_t writes = 0;
  std::uint64_t writesUnknown = 0;  ///< -103
  std::uint64_t writesNotSent = 0;
  std::uint64_t differences = 0;
};

class Harness {
 public:
  Harness(Values& values, int memory, unsigned int seed, milliseconds probe)
      : values_(values), board_(memory), random_(seed) {
    view_.setProbe(probe);
    view_.onChange([this](const zel::BoardChange& change) { follow(change); });
    if (view_.open() < 0) std::abort();
    other_.init(context_);
    other_.setTimeout(milliseconds(100));
  }

  void run(int episodes) {
    awaitLive("the start");
    for (episode_ = 0; episode_ < episodes; ++episode_) runEpisode();
  }

  const Figures& figures() const { return figures_; }
  const BoardView& view() const { return view_; }

 private:
  int upTo(int most) { return std::uniform_int_distribution<int>(0, most)(random_); }

  void fail(const std::string& what) {
    ++figures_.wrong;
    std::printf("WRONG in episode %d: %s\n", episode_, what.c_str());
  }

  static double processorTime() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
  }

  void process() {
    const double before = processorTime();
    view_.process();
    figures_.longestCall = std::max(figures_.longestCall, processorTime() - before);
  }

  /// Runs the application's loop for a while, or until the condition holds.
  template <class Condition>
  bool runUntil(Condition holds, milliseconds limit) {
    const auto end = Clock::now() + limit;
    while (!holds()) {
      const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
      if (left <= milliseconds(0)) return false;
      pollfd watched{view_.descriptor(), POLLIN, 0};
      if (poll(&watched, 1, static_cast<int>(left.count())) == 1) process();
    }
    return true;
  }
  void run(milliseconds time) {
    runUntil([] { return false; }, time);
  }

  void follow(const zel::BoardChange& change) {
    if (change.document != Document::kStored) return;
    for (const zel::Difference& each : change.differences) zel::test::apply(each, followed_);
    figures_.differences += change.differences.size();
    for (const char* const service : {"rtsp", "advert", "ember"}) {
      const std::uint32_t value = followed_[service]["tcp-port"].asUInt();
      std::uint32_t& last = newest_[service];
      if (value < last)
        fail(std::string(service) + " went back from " + std::to_string(last) + " to " + std::to_string(value));
      last = std::max(last, value);
    }
  }

  void write() {
    const std::uint32_t value = ++written_;
    ++figures_.writes;
    ++open_;
    view_.set(
        settings::kAdvertTcpPort, value,
        [this, value](const zel::Answer<void>& answer) {
          --open_;
          if (answer.status == -103) ++figures_.writesUnknown;
          if (answer.status == -102) ++figures_.writesNotSent;
          const std::uint32_t shown = view_.get(settings::kAdvertTcpPort);
          if (answer.ok() && shown < value) {
            fail("the completion of " + std::to_string(value) + " saw " + std::to_string(shown));
          }
        },
        milliseconds(100 + upTo(900)));
  }

  void awaitLive(const char* when) {
    if (!runUntil([this] { return view_.state() == BoardView::State::kLive; }, milliseconds(10000))) {
      fail(std::string("not live 10 s after ") + when);
    }
  }

  void runEpisode() {
    std::atomic<bool> rest{false};
    std::atomic<bool> done{false};
    std::thread otherWriter([this, &rest, &done, pause = upTo(3)] {
      while (!rest) {
        other_.setEmberTcpPort(++otherWritten_);
        std::this_thread::sleep_for(milliseconds(pause));
      }
      done = true;
    });
    bool isThere = true;
    std::optional<Clock::time_point> returned;
    for (int steps = 1 + upTo(5); steps > 0; --steps) {
      const int what = upTo(10);
      if (what <= 1) {
        if (isThere) board_.order('c');
        write();
      } else if (what == 2) {
        if (isThere) board_.order('b');
        std::this_thread::sleep_for(milliseconds(upTo(60)));  // the application sleeps
      } else if (what == 3) {
        if (isThere) board_.order('m');
      } else if (what == 4) {
        if (isThere) board_.order('o');
      } else if (what == 5) {
        if (isThere) board_.order('w');
      } else if (what == 6 && isThere) {
        board_.kill();
        isThere = false;
      } else if (what == 7 && !isThere) {
        board_.start();
        isThere = true;
        returned = Clock::now();
      } else if (what == 8 && isThere) {
        board_.signal(SIGSTOP);
        run(milliseconds(upTo(100)));
        board_.signal(SIGCONT);
      } else {
        write();
      }
      run(milliseconds(upTo(30)));
    }
    if (!isThere) {
      board_.start();
      returned = Clock::now();
      awaitLive("the board's return");
      figures_.returns.push_back(std::chrono::duration<double, std::milli>(Clock::now() - *returned).count());
    }
    rest = true;
    runUntil([&done] { return done.load(); }, milliseconds(5000));
    otherWriter.join();
    if (!runUntil([this] { return open_ == 0; }, milliseconds(5000))) fail("a write is never completed");
    // The board rests. A document of a wrong type was not the board's state: the next probe replaces it.
    awaitLive("the board's rest");
    run(milliseconds(60));
    check();
  }

  void check() {
    if (view_.state() != BoardView::State::kLive) awaitLive("the rest");
    const SysParameters& stored = view_.stored();
    if (stored.rtspTcpPort != values_.board || stored.advertTcpPort != values_.view ||
        stored.emberTcpPort != values_.other) {
      fail("live and different: " + std::to_string(stored.rtspTcpPort) + " " + std::to_string(stored.advertTcpPort) +
           " " + std::to_string(stored.emberTcpPort) + " instead of " + storedOf(values_));
    }
    if (followed_ != view_.document(Document::kStored)) fail("the differences do not lead to the view");
  }

  Values& values_;
  BoardProcess board_;
  std::mt19937 random_;
  zmq::context_t context_;
  BoardView view_{context_};
  SysMgrClient other_;
  std::uint32_t otherWritten_ = 0;
  std::uint32_t written_ = 0;
  int open_ = 0;
  int episode_ = -1;
  Json::Value followed_;
  std::map<std::string, std::uint32_t> newest_;
  Figures figures_;
};

double percentile(std::vector<double> values, double share) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  return values[std::min(values.size() - 1, static_cast<std::size_t>(share * static_cast<double>(values.size())))];
}

}  // namespace

int main(int count, char** words) try {
  int episodes = 100;
  unsigned int seed = 1;
  milliseconds probe{5000};
  for (int i = 1; i + 1 < count; i += 2) {
    if (std::strcmp(words[i], "--board") == 0) return runBoard(std::atoi(words[i + 1]));
    if (std::strcmp(words[i], "--episodes") == 0) episodes = std::atoi(words[i + 1]);
    if (std::strcmp(words[i], "--probe") == 0) probe = milliseconds(std::atoi(words[i + 1]));
    if (std::strcmp(words[i], "--seed") == 0) seed = static_cast<unsigned int>(std::atoi(words[i + 1]));
  }
  if (const std::string why = zel::test::enterPrivateNetwork(); !why.empty()) {
    std::printf("skipped: %s\n", why.c_str());
    return 77;
  }
  std::signal(SIGPIPE, SIG_IGN);
  Logger::getInstance()->setSink([](Logger::logDebugLevel_t, const std::string&) {});
  const int memory = memfd_create("values", 0);
  if (memory < 0 || ftruncate(memory, sizeof(Values)) != 0) return 1;
  void* const mapped = mmap(nullptr, sizeof(Values), PROT_READ | PROT_WRITE, MAP_SHARED, memory, 0);
  if (mapped == MAP_FAILED) return 1;

  Harness harness(*static_cast<Values*>(mapped), memory, seed, probe);
  harness.run(episodes);
  const Figures& figures = harness.figures();
  const BoardView::Counters& counters = harness.view().counters();
  std::printf("%d episodes: %lu wrong; live %.1f ms after the board's return (p99 of %zu; worst %.1f, half %.1f)\n",
              episodes, static_cast<unsigned long>(figures.wrong), percentile(figures.returns, 0.99),
              figures.returns.size(), percentile(figures.returns, 1), percentile(figures.returns, 0.5));
  std::printf("%lu writes (%lu unknown, %lu not sent), %lu differences, longest call %.2f ms of processor time\n",
              static_cast<unsigned long>(figures.writes), static_cast<unsigned long>(figures.writesUnknown),
              static_cast<unsigned long>(figures.writesNotSent), static_cast<unsigned long>(figures.differences),
              figures.longestCall);
  std::printf(
      "%lu notifications, %lu superseded, %lu malformed, %lu of wrong types, %lu losses, %lu overflows, %lu "
      "resynchronisations, %lu probes without an answer, %lu changes missed\n",
      static_cast<unsigned long>(counters.notifications), static_cast<unsigned long>(counters.superseded),
      static_cast<unsigned long>(counters.malformed), static_cast<unsigned long>(counters.wrongTypes),
      static_cast<unsigned long>(counters.losses), static_cast<unsigned long>(counters.overflows),
      static_cast<unsigned long>(counters.resynchronisations), static_cast<unsigned long>(counters.probesWithoutAnswer),
      static_cast<unsigned long>(counters.missed));
  return figures.wrong == 0 ? 0 : 1;
} catch (const std::exception& error) {
  std::fprintf(stderr, "%s\n", error.what());
  return 1;
}
