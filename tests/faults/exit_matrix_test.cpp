// The end of a process, in every state of its context, client, subscriber and cache and in every way: soon, whatever
// the daemon does. One round a cell by default; by hand, with more: ZEL_EXIT_ROUNDS=100. Each row prints its worst
// time.

#include <gmock/gmock.h>
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
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "client/async_client.h"
#include "client/zmq_utils.h"
#include "common/event_descriptor.h"
#include "config/system_default_cfg.h"
#include "tests/support/child_process.h"
#include "tests/support/fake_board.h"
#include "tests/support/wait_until.h"
#include "view/board_view.h"

/// Replaces the library's function, so that the cache waits 100 ms for a daemon that does not answer, not 5 s.
int ClientJsonApi::getClientTimeout() { return 100; }

/// No leak check: threads that end with the process still hold memory.
extern "C" const char* __lsan_default_options();  // NOLINT(bugprone-reserved-identifier): the sanitizer's name
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_options() { return "detect_leaks=0"; }

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using zel::AsyncClient;
using zel::test::ChildProcess;
using zel::test::FakeBoard;
using zel::test::kSlowdown;
using zel::test::waitUntil;

// ---- the daemon beside the process

enum class Daemon {
  kNone,     ///< nobody listens
  kHealthy,  ///< answers, and publishes without end
  kSilent,   ///< shakes hands and does nothing more
};

/// The daemon of a row, as the process sees it.
struct Peer {
  pid_t pid;
  void kill() const { ::kill(pid, SIGKILL); }
  void freeze() const { ::kill(pid, SIGSTOP); }
};

void tell(const char* what) {
  std::puts(what);
  std::fflush(stdout);
}

[[noreturn]] void serve(Daemon daemon) {
  if (daemon == Daemon::kSilent) {
    const zel::test::ScriptedDaemon requests;
    const zel::test::PublisherFake publisher;
    tell("ready");
    for (;;) pause();
  }
  FakeBoard board;
  tell("ready");
  for (;;) {
    board.publisher.publish("1000", "{}");
    std::this_thread::sleep_for(1ms);
  }
}

// ---- the objects, in static storage as applications have them

class Client final : public SysMgrJsonClient {
 public:
  explicit Client(int timeoutMs = 1000) : timeoutMs_(timeoutMs) {}
  int getClientTimeout() override {
    if (inside) inside();
    return timeoutMs_;
  }
  int request() {
    Json::Value reply;
    return getBoardModel(reply);
  }
  std::function<void()> inside;  ///< runs in the middle of a request

 private:
  int timeoutMs_;
};

class Subscriber : public SysmgrSubscriber {
 public:
  int notifyStoredParametersUpdate(SysParameters&) override {
    if (inside) inside();
    return ++received, 0;
  }
  std::function<void()> inside;
  int received = 0;
  PollFds fds;
};

zmq::context_t& context() { return ZmqUtils::getInstance().getContext(); }

Client& connectedClient(int timeoutMs = 1000) {
  static Client client(timeoutMs);
  client.init(context());
  return client;
}

Subscriber& subscribed(Subscriber& subscriber) {
  subscriber.init(context());
  subscriber.subscribeAll();
  subscriber.getPollItems(subscriber.fds);
  return subscriber;
}

Subscriber& subscribed() {
  static Subscriber subscriber;
  return subscribed(subscriber);
}

void receive(Subscriber& subscriber) {
  subscriber.fds.poll(1000);
  while (subscriber.processEvent(subscriber.fds[0]) != 0) continue;
}

PollFds& followingCache() {
  static PollFds fds;
  SystemDefaultCfg::getInstance().initSubscribers(fds);
  return fds;
}

/// Runs an action in a thread that outlives everything, and goes on when it has most likely reached its wait.
void inAnotherThread(std::function<void()> action) {
  static std::atomic<bool> begun{false};
  std::thread([action = std::move(action)] {
    begun = true;
    action();
    for (;;) pause();
  }).detach();
  waitUntil([] { return begun.load(); });
  std::this_thread::sleep_for(5ms);
}

/// A subscriber that connects as it is constructed: its destructor runs before the exit handler of the context.
struct ConnectedSubscriber : Subscriber {
  ConnectedSubscriber() { subscribed(*this); }
};

/// Takes notifications without end, as a thread does that nobody stops.
template <class Source>
[[noreturn]] void follow(Source& source, PollFds& fds) {
  for (;;) {
    fds.poll(1000);
    while (source.processEvent(fds[0]) != 0) continue;
  }
}

/// The poll set belongs to the thread: in static storage it would be destroyed while the thread polls it.
void followCacheInAnotherThread() {
  PollFds& fds = *new PollFds;
  SystemDefaultCfg::getInstance().initSubscribers(fds);
  inAnotherThread([&fds] { follow(SystemDefaultCfg::getInstance(), fds); });
}

void askCacheInAnotherThread() {
  SystemDefaultCfg::getInstance();
  inAnotherThread([] {
    for (std::list<EthBasicInfo> interfaces;;) {
      const int result = SystemDefaultCfg::getInstance().getEthDynamicBasicInfo(interfaces);
      if (result < 0) std::this_thread::sleep_for(1ms);
    }
  });
}

void followInAnotherThread(Subscriber& subscriber) {
  PollFds& fds = *new PollFds;
  subscriber.getPollItems(fds);
  inAnotherThread([&subscriber, &fds] { follow(subscriber, fds); });
}

AsyncClient& asyncClient() {
  static AsyncClient client(context());
  return client;
}

AsyncClient::Id submit(AsyncClient& client, std::function<void()> completion = {}) {
  return client.submit(zel::requests::boardModel(), [completion = std::move(completion)](const auto&) {
    if (completion) completion();
  });
}

/// Waits for the descriptor as an application's loop does, and has the client do what is due.
void turn(AsyncClient& client, std::chrono::milliseconds limit = 1000ms) {
  pollfd watched{client.descriptor(), POLLIN, 0};
  poll(&watched, 1, static_cast<int>(limit.count()));
  client.process();
}

void answered(AsyncClient& client) {
  bool done = false;
  submit(client, [&done] { done = true; });
  while (!done) turn(client);
}

/// Uses everything of a client without end, as a thread does that nobody stops.
void useInAnotherThread(AsyncClient& client) {
  inAnotherThread([&client] {
    for (unsigned round = 0;; ++round) {
      AsyncClient::Id last = 0;
      while (client.pending() < 8 && (last = submit(client)) != 0) continue;
      if (round % 4 == 0) client.cancel(last);
      turn(client, 10ms);
    }
  });
}

/// A callback that has begun, in a thread that does not come back from it.
class Callback {
 public:
  void operator()() {
    begun_ = true;
    for (;;) pause();
  }
  void waitForIt() {
    waitUntil([this] { return begun_.load(); });
  }

 private:
  std::atomic<bool> begun_{false};
};

void completeInAnotherThread(AsyncClient& client) {
  static Callback completion;
  inAnotherThread([&client] {
    submit(client, [] { completion(); });
    for (;;) turn(client);
  });
  completion.waitForIt();
}

void callBackInAnotherThread(zel::BoardView& view) {
  static Callback callback;
  inAnotherThread([&view] {
    view.open();
    view.set(
        zel::settings::kRtspTcpPort, 5004, [](const auto&) { callback(); }, 20ms);
    for (;;) view.process();
  });
  callback.waitForIt();
}

/// Takes notifications without end, in a loop that watches an event descriptor.
void watchInAnotherThread(Subscriber& subscriber) {
  PollFds& fds = *new PollFds;
  subscriber.getPollItems(fds);
  inAnotherThread([&subscriber, &fds] {
    zel::EventDescriptor events(fds);
    pollfd watched{events.descriptor(), POLLIN, 0};
    for (;;) {
      poll(&watched, 1, 1000);
      events.poll();
      subscriber.processEvent(fds[0]);
    }
  });
}

// ---- the states

using End = std::function<void()>;  ///< ends the process; returns where that is up to main or to another thread

struct State {
  const char* name;
  Daemon daemon;
  /// Brings the process into the state and ends it there.
  void (*enter)(const Peer& daemon, const End& end);
  /// The application destroys an object while its own callback may run: the thread sanitizer reports that, rightly.
  bool racesByItself = false;
};
void PrintTo(const State& state, std::ostream* out) { *out << state.name; }

const State kStates[] = {
    {"NothingUsed", Daemon::kNone, [](const Peer&, const End& end) { end(); }},
    {"ContextMade", Daemon::kNone,
     [](const Peer&, const End& end) {
       context();
       end();
     }},
    {"ClientMade", Daemon::kNone,
     [](const Peer&, const End& end) {
       static Client client;
       end();
     }},
    {"ClientWithNobody", Daemon::kNone,
     [](const Peer&, const End& end) {
       connectedClient();
       end();
     }},
    {"ClientAfterARequestNotSent", Daemon::kNone,
     [](const Peer&, const End& end) {
       connectedClient(20).request();
       end();
     }},
    {"ClientAnswered", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       connectedClient().request();
       end();
     }},
    {"ClientOnTheStack", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       Client client;
       client.init(context());
       client.request();
       end();
     }},
    {"ClientWithTheDaemonGone", Daemon::kHealthy,
     [](const Peer& daemon, const End& end) {
       connectedClient().request();
       daemon.kill();
       end();
     }},
    {"ClientWithTheDaemonFrozen", Daemon::kHealthy,
     [](const Peer& daemon, const End& end) {
       Client& client = connectedClient(20);
       client.request();
       daemon.freeze();
       client.request();
       end();
     }},
    {"ClientInARequest", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       Client& client = *new Client;  // in use to the very end
       client.init(context());
       client.inside = end;
       client.request();
     }},
    {"ClientInARequestOfAnotherThread", Daemon::kSilent,
     [](const Peer& daemon, const End& end) {
       daemon.freeze();
       static Client& client = *new Client(60'000);  // in use to the very end
       client.init(context());
       inAnotherThread([] { client.request(); });
       end();
     }},
    {"ClientInARequestOfAnotherThreadWithNobody", Daemon::kNone,
     [](const Peer&, const End& end) {
       static Client& client = *new Client(60'000);
       client.init(context());
       inAnotherThread([] { client.request(); });
       end();
     }},
    {"ClientAfterAResetOfTheContext", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       {
         Client first;
         first.init(context());
         first.request();
       }
       ZmqUtils::getInstance().resetContext();
       connectedClient().request();
       end();
     }},
    {"SubscriberMade", Daemon::kNone,
     [](const Peer&, const End& end) {
       static Subscriber subscriber;
       end();
     }},
    {"SubscriberWithNobody", Daemon::kNone,
     [](const Peer&, const End& end) {
       subscribed();
       end();
     }},
    {"SubscriberReceiving", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       receive(subscribed());
       end();
     }},
    {"SubscriberWithUnreadMessages", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       Subscriber& subscriber = subscribed();
       subscriber.fds.poll(1000);
       std::this_thread::sleep_for(10ms);
       end();
     }},
    {"SubscriberWithTheDaemonGone", Daemon::kHealthy,
     [](const Peer& daemon, const End& end) {
       Subscriber& subscriber = subscribed();
       receive(subscriber);
       daemon.kill();
       subscriber.fds.poll(20);
       end();
     }},
    {"SubscriberWithTheDaemonFrozen", Daemon::kHealthy,
     [](const Peer& daemon, const End& end) {
       receive(subscribed());
       daemon.freeze();
       end();
     }},
    {"SubscriberInACallback", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       Subscriber& subscriber = subscribed(*new Subscriber);  // in use to the very end
       subscriber.inside = end;
       while (subscriber.received == 0) receive(subscriber);
     }},
    {"SubscriberInThePollOfAnotherThread", Daemon::kSilent,
     [](const Peer&, const End& end) {
       static Subscriber& subscriber = subscribed(*new Subscriber);
       inAnotherThread([] { subscriber.fds.poll(-1); });
       end();
     }},
    {"SubscriberAfterAResetOfTheContext", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       {
         Subscriber first;
         first.init(context());
       }
       ZmqUtils::getInstance().resetContext();
       receive(subscribed());
       end();
     }},
    {"CacheWithNobody", Daemon::kNone,
     [](const Peer&, const End& end) {
       SystemDefaultCfg::getInstance();
       end();
     }},
    {"CacheFollowingNobody", Daemon::kNone,
     [](const Peer&, const End& end) {
       followingCache();
       end();
     }},
    {"CacheFetched", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       SystemDefaultCfg::getInstance();
       end();
     }},
    {"CacheFollowing", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       PollFds& fds = followingCache();
       fds.poll(1000);
       while (SystemDefaultCfg::getInstance().processEvent(fds[0]) != 0) continue;
       end();
     }},
    {"CacheWithUnreadMessages", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       followingCache().poll(1000);
       std::this_thread::sleep_for(10ms);
       end();
     }},
    {"CacheWithTheDaemonGone", Daemon::kHealthy,
     [](const Peer& daemon, const End& end) {
       PollFds& fds = followingCache();
       fds.poll(1000);
       daemon.kill();
       fds.poll(20);
       end();
     }},
    {"CacheWithTheDaemonFrozen", Daemon::kHealthy,
     [](const Peer& daemon, const End& end) {
       followingCache().poll(1000);
       daemon.freeze();
       end();
     }},
    {"CacheInThePollOfAnotherThread", Daemon::kSilent,
     [](const Peer&, const End& end) {
       followCacheInAnotherThread();
       end();
     }},
    {"CacheReceivingInAnotherThread", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       followCacheInAnotherThread();
       end();
     }},
    {"CacheInARequestOfAnotherThread", Daemon::kSilent,
     [](const Peer&, const End& end) {
       askCacheInAnotherThread();
       end();
     }},
    {"CacheInAnsweredRequestsOfAnotherThread", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       askCacheInAnotherThread();
       end();
     }},
    {"CacheBeingMadeInAnotherThread", Daemon::kNone,
     [](const Peer&, const End& end) {
       inAnotherThread([] { SystemDefaultCfg::getInstance(); });
       end();
     }},
    {"CacheInInitOfAnotherThread", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       followingCache();
       inAnotherThread([] {
         for (;;) SystemDefaultCfg::getInstance().init();
       });
       end();
     }},
    {"FunctionStaticSubscriberInThePollOfAnotherThread", Daemon::kSilent,
     [](const Peer&, const End& end) {
       followInAnotherThread(subscribed());
       end();
     }},
    {"FunctionStaticSubscriberReceivingInAnotherThread", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       followInAnotherThread(subscribed());
       end();
     }},
    {"FunctionStaticConnectedSubscriberInThePollOfAnotherThread", Daemon::kSilent,
     [](const Peer&, const End& end) {
       static ConnectedSubscriber subscriber;
       followInAnotherThread(subscriber);
       end();
     }},
    {"FunctionStaticConnectedSubscriberReceivingInAnotherThread", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       static ConnectedSubscriber subscriber;
       followInAnotherThread(subscriber);
       end();
     },
     true},
    {"FunctionStaticClientInRequestsOfAnotherThread", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       Client& client = connectedClient();
       inAnotherThread([&client] {
         for (;;) client.request();
       });
       end();
     }},
    {"ClientsBeingInitializedInAnotherThread", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       static Client& client = *new Client;
       inAnotherThread([] {
         for (;;) {
           if (client.init(context()) < 0) std::this_thread::sleep_for(1ms);
           Client another;
           another.init(context());
         }
       });
       end();
     }},
    {"SubscribersBeingMadeInAnotherThread", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       inAnotherThread([] {
         for (;;) {
           Subscriber subscriber;
           subscribed(subscriber);
         }
       });
       end();
     }},
    {"AsyncClientWithNobody", Daemon::kNone,
     [](const Peer&, const End& end) {
       submit(asyncClient());
       end();
     }},
    {"AsyncClientIdle", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       answered(asyncClient());
       end();
     }},
    {"AsyncClientOnTheStack", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       AsyncClient client(context());
       answered(client);
       submit(client);
       end();
     }},
    {"AsyncClientWithRequestsThatWait", Daemon::kSilent,
     [](const Peer& daemon, const End& end) {
       answered(asyncClient());
       daemon.freeze();
       for (int i = 0; i < 3; ++i) submit(asyncClient());
       asyncClient().process();
       end();
     }},
    {"AsyncClientWithTheDaemonGone", Daemon::kHealthy,
     [](const Peer& daemon, const End& end) {
       answered(asyncClient());
       daemon.kill();
       submit(asyncClient());
       turn(asyncClient(), 20ms);
       end();
     }},
    {"AsyncClientInACompletion", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       AsyncClient& client = *new AsyncClient(context());  // in use to the very end
       bool done = false;
       submit(client, [&] {
         done = true;
         end();
       });
       submit(client);
       while (!done) turn(client);
     }},
    {"AsyncClientInACompletionOfAnotherThread", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       completeInAnotherThread(*new AsyncClient(context()));
       end();
     }},
    {"StaticAsyncClientInACompletionOfAnotherThread", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       completeInAnotherThread(asyncClient());
       end();
     }},
    {"ViewInACallbackOfAnotherThread", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       callBackInAnotherThread(*new zel::BoardView(context()));
       end();
     }},
    {"StaticViewInACallbackOfAnotherThread", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       static zel::BoardView view(context());
       callBackInAnotherThread(view);
       end();
     }},
    {"AsyncClientInTheLoopOfAnotherThread", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       useInAnotherThread(*new AsyncClient(context()));
       end();
     }},
    {"AsyncClientInTheLoopOfAnotherThreadWithNobody", Daemon::kNone,
     [](const Peer&, const End& end) {
       useInAnotherThread(*new AsyncClient(context()));
       end();
     }},
    {"FunctionStaticAsyncClientInTheLoopOfAnotherThread", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       useInAnotherThread(asyncClient());
       end();
     }},
    {"FunctionStaticAsyncClientInTheLoopOfAnotherThreadWithNobody", Daemon::kNone,
     [](const Peer&, const End& end) {
       useInAnotherThread(asyncClient());
       end();
     }},
    {"AsyncClientsBeingMadeInAnotherThread", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       inAnotherThread([] {
         for (;;) {
           AsyncClient client(context());
           if (submit(client) == 0) std::this_thread::sleep_for(1ms);
           turn(client, 1ms);
         }
       });
       end();
     }},
    {"AsyncClientAfterAForkWithRequestsThatWait", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       AsyncClient& client = asyncClient();
       bool done = false;
       submit(client, [&done] { done = true; });
       const pid_t child = fork();
       if (child == 0) {
         turn(client, 1ms);
         const bool right = submit(client) == 0 && !client.cancel(1) && !done;
         right ? std::exit(0) : _exit(1);
       }
       int status = -1;
       waitpid(child, &status, 0);
       if (status != 0) _exit(9);
       while (!done) turn(client);
       end();
     }},
    {"EventDescriptorInTheLoopOfAnotherThread", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       watchInAnotherThread(subscribed(*new Subscriber));
       end();
     }},
    {"EventDescriptorInTheSilentLoopOfAnotherThread", Daemon::kSilent,
     [](const Peer&, const End& end) {
       watchInAnotherThread(subscribed(*new Subscriber));
       end();
     }},
    {"FunctionStaticSubscriberBehindAnEventDescriptorOfAnotherThread", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       watchInAnotherThread(subscribed());
       end();
     }},
    {"Everything", Daemon::kHealthy,
     [](const Peer&, const End& end) {
       connectedClient().request();
       answered(asyncClient());
       receive(subscribed());
       followingCache().poll(1000);
       end();
     }},
};

// ---- the ways to end

/// What the processes of a cell share with the test.
struct Stamps {
  std::atomic<Clock::rep> begin;      ///< of the end
  std::atomic<Clock::rep> childTook;  ///< the end of a forked child
};

Stamps& stamps() {
  static void* const memory = mmap(nullptr, sizeof(Stamps), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  static Stamps* const made = new (memory) Stamps;
  return *made;
}

Clock::rep now() { return Clock::now().time_since_epoch().count(); }
void beginEnd() { stamps().begin = now(); }

struct Way {
  const char* name;
  int status;     ///< the process's
  void (*end)();  ///< null: the state is left, and main returns. It does not return where `end` has returned.
  bool usesTheLibraryInAFork = false;
};

const Way kWays[] = {
    {"return from main", 0, nullptr},
    {"exit", 0, [] { std::exit(0); }},
    {"exit in another thread", 0,
     [] {
       std::thread([] {
         beginEnd();
         std::exit(0);
       }).detach();
     }},
    {"_exit", 0, [] { _exit(0); }},
    {"quick_exit", 0, [] { std::quick_exit(0); }},
    {"abort", -SIGABRT,
     [] {
       prctl(PR_SET_DUMPABLE, 0);  // whatever the system makes of the dump takes its time
       std::abort();
     }},
    {"exit of a forked child, then exit", 0,
     [] {
       const pid_t child = fork();
       if (child == 0) std::exit(0);
       int status = -1;
       waitpid(child, &status, 0);
       stamps().childTook = now() - stamps().begin;
       beginEnd();
       std::exit(status);
     }},
    {"exit after a forked child used the library anew", 0,
     [] {
       const pid_t child = fork();
       if (child == 0) {
         ZmqUtils::getInstance().resetContext();
         Client client(20);
         client.init(context());
         client.request();
         beginEnd();
         std::exit(0);
       }
       int status = -1;
       waitpid(child, &status, 0);
       stamps().childTook = now() - stamps().begin;
       beginEnd();
       std::exit(status);
     },
     true},
};

// ---- the matrix

struct Times {
  Clock::duration process{};
  Clock::duration child{};
  Clock::duration control{};  ///< how late this test was woken from a sleep of a millisecond meanwhile
  bool late = false;          ///< an end took too long, and not because of a machine that is that busy
};

constexpr Clock::duration kLimit = kSlowdown == 1 ? 100ms : 2500ms;  // under a sanitizer an end takes a second or more

/// Waits for the end of the process. @return how late this test was woken up at most
Clock::duration await(ChildProcess& process) {
  Clock::duration late{};
  const Clock::time_point end = Clock::now() + zel::test::kSoon;
  for (Clock::time_point due = Clock::now(); !process.wait(0ms) && due < end;
       late = std::max(late, Clock::now() - due)) {
    due = Clock::now() + 1ms;
    std::this_thread::sleep_until(due);
  }
  return late;
}

void endOnce(const State& state, const Way& way, Times& worst) {
  std::optional<ChildProcess> daemon;
  if (state.daemon != Daemon::kNone) {
    daemon.emplace(ChildProcess::call([&state]() -> int { serve(state.daemon); }));
    ASSERT_TRUE(daemon->waitForOutput("ready")) << daemon->errors();
  }
  const Peer peer{daemon ? daemon->pid() : -1};
  stamps().childTook = 0;
  ChildProcess process = ChildProcess::call([&] {
    state.enter(peer, [&way] {
      if (way.end == nullptr) return;
      beginEnd();
      way.end();
    });
    while (way.end != nullptr) pause();
    beginEnd();
    return 0;
  });
  const Clock::duration control = await(process);
  const Clock::duration took = Clock::now() - Clock::time_point(Clock::duration(stamps().begin));
  const Clock::duration childTook(stamps().childTook);
  EXPECT_EQ(process.wait(0ms), way.status) << process.errors();
  worst.process = std::max(worst.process, took);
  worst.child = std::max(worst.child, childTook);
  worst.control = std::max(worst.control, control);
  worst.late = worst.late || std::max(took, childTook) - control > kLimit;
}

class ExitMatrix : public testing::TestWithParam<State> {};

TEST_P(ExitMatrix, EndsSoon) {
  const bool callsTheDestroyed = std::string_view(GetParam().name).substr(0, 14) == "FunctionStatic";
  if (callsTheDestroyed && zel::test::kAddressSanitizer) {
    GTEST_SKIP() << "the thread goes on calling an object after its destructor, which the sanitizer reports, rightly";
  }
  if (GetParam().racesByItself && zel::test::kThreadSanitizer) GTEST_SKIP() << "a race of the application's own";
  const char* const wished = std::getenv("ZEL_EXIT_ROUNDS");
  const int rounds = wished == nullptr ? 1 : std::atoi(wished);
  for (const Way& way : kWays) {
    if (way.usesTheLibraryInAFork && zel::test::kSanitized) {
      // Unlike the C library's, the sanitizer's allocator may be locked for ever in a fork of a process with threads.
      std::printf("%-45s %-50s left out: a sanitizer is at work\n", GetParam().name, way.name);
      continue;
    }
    SCOPED_TRACE(way.name);
    Times worst;
    for (int round = 0; round < rounds; ++round) endOnce(GetParam(), way, worst);
    const auto inMs = [](Clock::duration time) { return std::chrono::duration<double, std::milli>(time).count(); };
    std::printf("%-45s %-50s %5.1f ms, its child %5.1f ms, the control %5.1f ms late\n", GetParam().name, way.name,
                inMs(worst.process), inMs(worst.child), inMs(worst.control));
    EXPECT_FALSE(worst.late);
  }
}

INSTANTIATE_TEST_SUITE_P(States, ExitMatrix, testing::ValuesIn(kStates),
                         [](const auto& state) { return std::string(state.param.name); });

}  // namespace
