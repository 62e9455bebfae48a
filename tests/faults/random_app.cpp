#include "tests/faults/random_app.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "client/zmq_utils.h"
#include "common/logger.h"
#include "tests/faults/process_figures.h"
#include "tests/support/leaks.h"
#include "tests/support/wait_until.h"

/// The memory of a thread that runs to the end of the process is not a leak. `checkLeftovers` looks for leaks instead.
extern "C" const char* __lsan_default_options();  // NOLINT(bugprone-reserved-identifier): the sanitizer's name
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_options() {
  return "leak_check_at_exit=0";
}
/// A thread that runs to the end of the process is not a leak either.
extern "C" const char* __tsan_default_options();  // NOLINT(bugprone-reserved-identifier): the sanitizer's name
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options() {
  return "report_thread_leaks=0";
}

namespace zel::test {

namespace {

using std::chrono::milliseconds;

/// What a callback throws.
struct Thrown {};

const std::vector<const char*> kStorages{"stack", "heap", "function-static", "static"};
const std::vector<const char*> kEnds{"return or exit", "exit",    "quick_exit", "_exit",
                                     "abort",          "SIGTERM", "last thread"};
const std::vector<const char*> kChildren{"exits", "_exits", "becomes another program", "goes on",
                                         "tries what it inherits and goes on"};
const std::vector<const char*> kFarewells{"connected", "not connected yet"};
const std::vector<const char*> kPlugins{"unloaded at once", "loaded to the end"};
const std::vector<const char*> kComers{"clients", "asynchronous clients", "views"};
const std::vector<const char*> kBreaks{"slow",   "silent", "doubled",   "refusing",      "garbled",  "wrong types",
                                       "chatty", "burst",  "malformed", "over size",     "mistyped", "few changes",
                                       "killed", "frozen", "thawed",    "gone a moment", "belated"};
const std::vector<const char*> kActions{"nothing",
                                        "request",
                                        "submit",
                                        "cancel",
                                        "destroy the client",
                                        "destroy the view",
                                        "change topics",
                                        "throw",
                                        "a child exits",
                                        "a child goes on",
                                        "exit",
                                        "quick_exit",
                                        "a child tries what it inherits and goes on"};
enum End : unsigned { kReturn, kExit, kQuickExit, kUnderscoreExit, kAbort, kTerminate, kLastThread };
enum Child : unsigned { kChildExits, kChildUnderscoreExits, kChildExecs, kChildGoesOn, kChildTries };

constexpr milliseconds kTimeout{60};
constexpr milliseconds kHealthy{2000 * kSlowdown};  ///< for what a healthy board answers, on a loaded machine

std::array<Clients, Record::kThreads>& staticClients() {
  static std::array<Clients, Record::kThreads> made;
  return made;
}
std::array<Receiver, Record::kThreads>& staticReceivers() {
  static std::array<Receiver, Record::kThreads> made;
  return made;
}
// Made before main, as static objects are.
[[maybe_unused]] auto& clientsBeforeMain = staticClients();
[[maybe_unused]] auto& receiversBeforeMain = staticReceivers();

template <class T, unsigned Thread, class... Arguments>
T* functionStatic(bool& isNew, Arguments&&... arguments) {
  isNew = false;
  static T made = (isNew = true, T(std::forward<Arguments>(arguments)...));
  return &made;
}

/// The static object of a thread; null where it was taken before.
template <class T, class... Arguments>
T* staticOf(unsigned thread, Arguments&&... arguments) {
  bool isNew = false;
  T* object = nullptr;
  switch (thread) {
    case 0: object = functionStatic<T, 0>(isNew, std::forward<Arguments>(arguments)...); break;
    case 1: object = functionStatic<T, 1>(isNew, std::forward<Arguments>(arguments)...); break;
    case 2: object = functionStatic<T, 2>(isNew, std::forward<Arguments>(arguments)...); break;
    default: object = functionStatic<T, 3>(isNew, std::forward<Arguments>(arguments)...); break;
  }
  return isNew ? object : nullptr;
}

/// @return a context at the address if the allocator hands it out
std::unique_ptr<zmq::context_t> contextAt(const void* address) {
  auto made = std::make_unique<zmq::context_t>();
  std::vector<std::unique_ptr<zmq::context_t>> others;
  while (address != nullptr && made.get() != address && others.size() < 32) {
    others.push_back(std::exchange(made, std::make_unique<zmq::context_t>()));
  }
  return made;
}

/// A static object that owns a context, which may be at the address of an earlier one.
struct StaticContext {
  explicit StaticContext(const void* address) : context(contextAt(address)) {}
  std::unique_ptr<zmq::context_t> context;
};

template <class T>
T* beforeMain(unsigned thread) {
  static std::array<bool, Record::kThreads> taken{};
  if constexpr (std::is_same_v<T, Clients>) {
    return std::exchange(taken[thread], true) ? nullptr : &staticClients()[thread];
  } else if constexpr (std::is_same_v<T, Receiver>) {
    return std::exchange(taken[thread], true) ? nullptr : &staticReceivers()[thread];
  } else {
    return nullptr;
  }
}

int openDescriptorsNow() { return static_cast<int>(openDescriptors()); }

int runningThreads() {
  int count = 0;
  for ([[maybe_unused]] const auto& each : std::filesystem::directory_iterator("/proc/self/task")) ++count;
  return count;
}

/// @return whether a loop that watches the descriptor has something to do; what was made without one is asked always
bool waitReadable(int descriptor, unsigned limitMs) {
  pollfd watched{descriptor, POLLIN, 0};
  return ::poll(&watched, 1, static_cast<int>(limitMs)) > 0 || descriptor < 0;
}

/// Under the leak sanitizer: prints the memory that no pointer leads to.
void reportLeaks() {
#ifdef ZEL_LEAK_CHECK
  __lsan_do_recoverable_leak_check();
#endif
}

[[noreturn]] void stay() {
  for (;;) ::pause();
}

void note(Record& record, const std::string& failure) {
  if (record.hasFailed.exchange(true)) return;
  std::snprintf(record.failure.data(), record.failure.size(), "%s", failure.c_str());
}

/// While an object of this class lives, no thread gives the board a new fault.
class Check {
 public:
  explicit Check(Record& record) : record_(record) {
    ++record_.checkers;
    waitUntil([this] { return record_.breakers == 0; }, milliseconds(100));
  }
  ~Check() { --record_.checkers; }
  Check(const Check&) = delete;
  Check& operator=(const Check&) = delete;

 private:
  Record& record_;
};

template <class Turn, class Predicate>
bool turnUntil(Turn turn, Predicate holds, int limitMs) {
  for (const auto end = Clock::now() + milliseconds(limitMs); !holds(); turn()) {
    if (Clock::now() > end) return false;
  }
  return true;
}

}  // namespace

const std::vector<Row>& rows() {
  constexpr unsigned kObjects = kHasObjects;
  static const std::vector<Row> made{
      // name, operation, needs, without, gives, takes, weight, limit in ms, words
      {"makeClients", &App::makeClients, 0, kHasClients, kHasClients, 0, 40, 500, kStorages},
      {"initClients", &App::initClients, kHasClients, 0, 0, 0, 4, 500, {}},
      {"set", &App::set, kHasClients, 0, 0, 0, 30, 500, {}},
      {"ask", &App::ask, kHasClients, 0, 0, 0, 15, 500, {}},
      {"setTimeout", &App::setTimeout, kHasClients, 0, 0, 0, 4, 500, {}},
      {"destroyClients", &App::destroyClients, kHasClients, 0, 0, kHasClients, 8, 500, {}},
      {"makeReceiver", &App::makeReceiver, 0, kHasReceiver, kHasReceiver, 0, 30, 1000, kStorages},
      {"changeTopics", &App::changeTopics, kHasReceiver, 0, 0, 0, 4, 500, {}},
      {"receive", &App::receive, 0, 0, 0, 0, 25, 1500, {}},
      {"makeEvents", &App::makeEvents, 0, kHasEvents, kHasEvents, 0, 15, 500, {}},
      {"destroyEvents", &App::destroyEvents, kHasEvents, 0, 0, kHasEvents, 3, 500, {}},
      {"turnEvents", &App::turnEvents, kHasEvents, 0, 0, 0, 20, 1500, {}},
      {"waitForEver", &App::waitForEver, kHasReceiver, kIsMain, kIsLast, 0, 10, 1 << 30, {}},
      {"destroyReceiver", &App::destroyReceiver, kHasReceiver, 0, 0, kHasReceiver, 6, 500, {}},
      {"makeAsync", &App::makeAsync, 0, kHasAsync, kHasAsync, 0, 40, 500, kStorages},
      {"submit", &App::submit, kHasAsync, 0, 0, 0, 40, 500, {}},
      {"cancel", &App::cancel, kHasAsync, 0, 0, 0, 15, 500, {}},
      {"turnAsync", &App::turnAsync, kHasAsync, 0, 0, 0, 40, 1000, {}},
      {"finishAsync", &App::finishAsync, kHasAsync, 0, 0, 0, 15, 3000, {}},
      {"destroyAsync", &App::destroyAsync, kHasAsync, 0, 0, kHasAsync, 10, 500, {}},
      {"makeView", &App::makeView, 0, kHasView, kHasView, 0, 30, 500, kStorages},
      {"setInView", &App::setInView, kHasView, 0, 0, 0, 20, 500, {}},
      {"turnView", &App::turnView, kHasView, 0, 0, 0, 40, 1000, {}},
      {"checkView", &App::checkView, kHasView, 0, 0, 0, 8, 20000, {}},
      {"checkQuiet", &App::checkQuiet, 0, 0, 0, 0, 10, 20000, {}},
      {"destroyView", &App::destroyView, kHasView, 0, 0, kHasView, 10, 500, {}},
      {"getCache", &App::getCache, kMayUseCache, kHasCache, kHasCache, 0, 20, 20500, {}},
      {"initCache", &App::initCache, kHasCache | kMayUseCache, 0, 0, 0, 8, 2500, {}},
      {"followCache", &App::followCache, kHasCache | kMayUseCache, 0, 0, 0, 20, 1000, {}},
      {"readCache", &App::readCache, kHasCache | kMayUseCache, 0, 0, 0, 8, 500, {}},
      {"checkCache", &App::checkCache, kHasCache | kMayUseCache, 0, 0, 0, 10, 20000, {}},
      {"useCacheForEver", &App::useCacheForEver, kHasCache | kMayUseCache, kIsMain, kIsLast, 0, 25, 1 << 30, {}},
      {"makeContext", &App::makeContext, 0, kHasContext | kObjects, kHasContext, 0, 30, 500, kStorages},
      {"destroyContext", &App::destroyContext, kHasContext, kObjects, 0, kHasContext, 50, 500, {}},
      {"makeContextWhereOneWas", &App::makeContextWhereOneWas, 0, kHasContext | kObjects, kHasContext, 0, 15, 1000, {}},
      {"resetContext", &App::resetContext, kIsMain, kObjects | kHasThreads | kHasCache, 0, 0, 40, 500, {}},
      {"startThread", &App::startThread, kIsMain, 0, 0, 0, 120, 500, {}},
      {"joinThread", &App::joinThread, kIsMain, 0, 0, 0, 10, 1 << 30, {}},
      {"forkChild", &App::forkChild, 0, 0, 0, 0, 15, 20000, kChildren},
      {"forkManyChildren", &App::forkManyChildren, 0, 0, 0, 0, 6, 20000, {}},
      {"comeAndGo", &App::comeAndGo, 0, 0, 0, 0, 15, 1000, kComers},
      {"comeAndGoForEver", &App::comeAndGoForEver, 0, kIsMain, kIsLast, 0, 25, 1 << 30, kComers},
      {"sendSignals", &App::sendSignals, 0, 0, 0, 0, 4, 500, {}},
      {"limitDescriptors", &App::limitDescriptors, kIsMain, kHasThreads, 0, 0, 6, 500, {}},
      {"usePlugin", &App::usePlugin, kIsMain, 0, 0, 0, 10, 1000, kPlugins},
      {"pause", &App::pause, 0, 0, 0, 0, 20, 3000, {}},
      {"breakBoard", &App::breakBoard, 0, 0, 0, 0, 60, 500, kBreaks},
      {"mendBoard", &App::mendBoard, 0, 0, 0, 0, 20, 20000, {}},
      {"atNextCallback", &App::atNextCallback, 0, 0, 0, 0, 30, 500, kActions},
      {"makeFarewell", &App::makeFarewell, kIsMain, kHasFarewell, kHasFarewell, 0, 8, 500, kFarewells},
      {"connectFarewell", &App::connectFarewell, kHasFarewell, 0, 0, 0, 15, 500, {}},
      {"checkLeftovers",
       &App::checkLeftovers,
       kIsMain,
       kObjects | kHasEvents | kHasThreads | kHasCache | kHasContext,
       0,
       0,
       20,
       20000,
       {}},
      {"end", &App::end, 0, 0, kIsLast, 0, 8, 1 << 30, kEnds},
  };
  return made;
}

// ---- the process

static bool mayFork(const Step& step) {
  const bool inCallback =
      step.operation == &App::atNextCallback && (step.number == 8 || step.number == 9 || step.number == 12);
  return inCallback || step.operation == &App::forkChild;
}

App::App(Record& record, Program program)
    : record_(record),
      program_(std::move(program)),
      hasThreads_(std::any_of(program_.begin(), program_.end(),
                              [](const Step& step) { return step.operation == &App::startThread; })),
      forks_(std::any_of(program_.begin(), program_.end(), mayFork)),
      descriptorsBefore_(openDescriptorsNow()) {
  Logger::getInstance()->setSink([](Logger::logDebugLevel_t, const std::string&) {});
  becomeProcess(0);
}

void App::becomeProcess(unsigned process) {
  process_ = process;
  self().pid = getpid();
}

int App::main() {
  {
    Frame frame;
    run(frame);
    if (!lastThreadEnds_) beginEnd(0);
  }
  if (!lastThreadEnds_) return 0;
  // The last thread ends the process with `exit`: the context's own threads would keep it alive.
  if (--runningThreads_ == 0) endNow(kExit);
  pthread_exit(nullptr);
}

void App::run(Frame& frame) {
  frame.fds.emplace();
  for (std::size_t i = 0; i < program_.size(); ++i) {
    const Step& step = program_[i];
    if (step.thread != frame.thread) continue;
    Record::Process::Thread& doing = self().threads[frame.thread];
    doing.since = now();
    doing.step = static_cast<int>(i);
    try {
      (this->*step.operation)(frame, step.number);
    } catch (const Thrown&) {
    } catch (const Json::Exception&) {
    } catch (const zmq::error_t&) {  // too few descriptors for a context
    }
    self().threads[frame.thread].step = -1;
  }
}

void App::runThread(unsigned thread) {
  const unsigned process = process_;
  {
    Frame frame;
    frame.thread = thread;
    run(frame);
    const auto stays = [](const auto& slot) { return slot && slot.storage != Storage::kStack; };
    if (stays(frame.context) || stays(frame.clients) || stays(frame.receiver) || stays(frame.async) ||
        stays(frame.view)) {
      hasStatics_ = true;
    }
  }
  if (process_ != process) endNow(kExit);     // the only thread of a child
  if (--runningThreads_ == 0) endNow(kExit);  // the main thread has left
}

void App::fail(const std::string& what) {
  if (!ends_) note(record_, what);  // at the end nothing has to work
}

/// Operations that succeed whatever the board does, except where descriptors or sockets are short.
void App::expectSuccess(const char* what, int result) {
  if (result < 0 && !isShort_) fail(std::string(what) + " returns " + std::to_string(result));
}

// ---- objects

template <class T, class... Arguments>
void App::make(Frame& frame, Slot<T>& slot, unsigned number, Arguments&&... arguments) {
  // No thread forks while another one makes a context or a static object: see docs/api-rules.md.
  const std::lock_guard<std::mutex> lock(forking_);
  slot.storage = static_cast<Storage>(number);
  // A thread that uses a static object may still do so when another one ends the process. The sanitizers report that,
  // rightly, and the `init` of a client calls its virtual operations.
  const bool mayBeStatic = !hasThreads_ || (!kSanitized && !std::is_same_v<T, Clients>);
  // The child of a fork cannot destroy a context of its parent's, and no thread may begin to use one that another
  // thread destroys at the end of the process: so it must not be static.
  const bool mayLast = mayBeStatic && !((forks_ || hasThreads_) && std::is_same_v<T, zmq::context_t>);
  if (!mayLast) slot.storage = std::min(slot.storage, Storage::kHeap);
  if (frame.context && frame.context.storage == Storage::kStack) slot.storage = Storage::kStack;
  if (frame.context && slot.storage > Storage::kHeap && frame.context.storage <= Storage::kHeap) {
    slot.storage = Storage::kStack;
  }
  if (slot.storage == Storage::kStatic) slot.object = beforeMain<T>(frame.thread);
  if (slot.storage == Storage::kFunctionStatic) {
    if constexpr (std::is_same_v<T, zmq::context_t>) {
      StaticContext* const owner = staticOf<StaticContext>(frame.thread, frame.formerContext);
      slot.object = owner == nullptr ? nullptr : owner->context.get();
    } else {
      slot.object = staticOf<T>(frame.thread, std::forward<Arguments>(arguments)...);
    }
  }
  hasStatics_ = hasStatics_ || slot;
  if (!slot) {
    if (slot.storage > Storage::kHeap) slot.storage = Storage::kHeap;
    slot.object = new T(std::forward<Arguments>(arguments)...);
  }
}

zmq::context_t& App::contextOf(Frame& frame) {
  return frame.context ? *frame.context.object : ZmqUtils::getInstance().getContext();
}

void App::makeContext(Frame& frame, unsigned number) { make(frame, frame.context, number); }
void App::destroyContext(Frame& frame, unsigned) {
  frame.formerContext = frame.context.object;
  frame.context.destroy();
}

/// Makes a context where another one was before, on which a client was connected.
void App::makeContextWhereOneWas(Frame& frame, unsigned) {
  makeContext(frame, static_cast<unsigned>(Storage::kHeap));
  makeClients(frame, static_cast<unsigned>(Storage::kHeap));
  destroyClients(frame, 0);
  destroyContext(frame, 0);
  makeContext(frame, static_cast<unsigned>(Storage::kFunctionStatic));
}

void App::resetContext(Frame&, unsigned) {
  if (!hasStatics_ && !cacheIsMade_) renewContext();
}

/// Without descriptors there is no context until another call succeeds.
void App::renewContext() {
  try {
    ZmqUtils::getInstance().resetContext();
  } catch (const zmq::error_t&) {
    liftLimits();
    ZmqUtils::getInstance().resetContext();
  }
}

// ---- requests that wait

std::uint32_t App::beginRequest() {
  const std::uint32_t token = ++record_.lastToken;
  Record::Request& request = record_.request(token);
  request.status = status::kNoAnswer;  // until it is known: the process may end meanwhile
  request.ends = 0;
  request.carriedOut = 0;
  request.client = 0;
  return token;
}

void App::endRequest(std::uint32_t token, int status) {
  record_.request(token).status = status;
  ++record_.request(token).ends;
}

void App::makeClients(Frame& frame, unsigned number) {
  make(frame, frame.clients, number);
  initClients(frame, 0);
  setTimeout(frame, static_cast<unsigned>(kTimeout.count()));
}

void App::initClients(Frame& frame, unsigned) {
  expectSuccess("init of a client", frame.clients->typed.init(contextOf(frame)));
  expectSuccess("init of a client", frame.clients->json.init(contextOf(frame)));
}

void App::setTimeout(Frame& frame, unsigned number) {
  const milliseconds timeout(1 + number % 100);
  frame.clients->typed.setTimeout(timeout);
  zel::setTimeout(frame.clients->json, timeout);
}

void App::set(Frame& frame, unsigned) {
  const std::uint32_t token = beginRequest();
  endRequest(token, frame.clients->typed.setRtspTcpPort(token));
}

void App::ask(Frame& frame, unsigned number) {
  for (unsigned i = 0; i <= number % 4; ++i) {
    const std::uint32_t token = beginRequest();
    Json::Value request;
    request["token"] = token;
    Json::Value reply;
    if (frame.clients->json.getGpioConfiguration(request, reply) == 0 && reply["token"].asUInt() != token) {
      fail("the answer of another request");
    }
  }
}

void App::destroyClients(Frame& frame, unsigned) { frame.clients.destroy(); }

// ---- notifications

int Receiver::notifyStoredParametersUpdate(SysParameters&) {
  app_->act(*frame_);
  return 0;
}

void App::makeReceiver(Frame& frame, unsigned number) {
  make(frame, frame.receiver, number);
  frame.receiver->use(*this, frame);
  connect(frame);
  collectItems(frame);
}

void App::connect(Frame& frame) {
  expectSuccess("init of a subscriber", frame.receiver->init(contextOf(frame)));
  expectSuccess("subscribeAll", frame.receiver->subscribeAll());
}

/// Makes the poll set anew. An item must not stay in it when its socket is closed.
void App::collectItems(Frame& frame) {
  const bool hadEvents = frame.events.has_value();
  frame.events.reset();
  frame.fds.emplace();
  if (frame.receiver) frame.receiver->getPollItems(*frame.fds);
  if (frame.follows) frame.follows = frame.cache->initSubscribers(*frame.fds) == 0;
  if (hadEvents) frame.events.emplace(*frame.fds);
}

void App::changeTopics(Frame& frame, unsigned number) {
  constexpr auto kTopic = SysmgrPublisher::SYSMGR_STORED_PARAMETERS_UPDATE;
  number % 2 == 0 ? frame.receiver->unsubscribe(kTopic) : frame.receiver->subscribe(kTopic);
}

/// Takes the notifications that wait now, not those that a chatty board publishes meanwhile.
void App::takeNotifications(Frame& frame) {
  for (int i = 0; i < 5000 && frame.receiver && frame.receiver->processEvent({}) != 0; ++i) continue;
  for (int i = 0; i < 5000 && frame.follows && frame.cache->processEvent({}) != 0; ++i) continue;
}

void App::receive(Frame& frame, unsigned number) {
  frame.fds->poll(number % 30);
  takeNotifications(frame);
}

void App::makeEvents(Frame& frame, unsigned) { frame.events.emplace(*frame.fds); }

void App::destroyEvents(Frame& frame, unsigned) { frame.events.reset(); }

void App::turnEvents(Frame& frame, unsigned number) {
  if (!waitReadable(frame.events->descriptor(), number % 30)) return;
  frame.events->poll();
  takeNotifications(frame);
}

void App::waitForEver(Frame& frame, unsigned) {
  while (process_ == 0) {  // nobody ends a child, which may have been forked in a callback
    frame.fds->poll(-1);
    try {
      takeNotifications(frame);
    } catch (const Json::Exception&) {
    } catch (const Thrown&) {
    }
  }
}

void App::destroyReceiver(Frame& frame, unsigned) {
  const bool hadEvents = frame.events.has_value();
  frame.events.reset();  // they watch the socket
  frame.receiver.destroy();
  collectItems(frame);
  if (hadEvents) frame.events.emplace(*frame.fds);
}

// ---- requests that do not wait

void App::makeAsync(Frame& frame, unsigned number) {
  make(frame, frame.async, number, contextOf(frame));
  frame.submitted.clear();
  frame.asyncNumber = ++record_.lastClient;
}

void App::submit(Frame& frame, unsigned number) {
  for (unsigned i = 0; i <= number % 5 && frame.async; ++i) {
    const std::uint32_t token = beginRequest();
    frame.submitted.push_back(token);
    record_.request(token).client = frame.asyncNumber;
    const milliseconds timeout(1 + number % 150);
    frame.last = frame.async->submit(
        requests::set(settings::kRtspTcpPort, token),
        [this, &frame, token, maker = process_.load()](const Answer<void>& answer) {
          endRequest(token, answer.status);
          act(frame, maker);
        },
        timeout);
    if (frame.last == 0) endRequest(token, status::kCancelled);  // nothing is submitted
  }
}

void App::cancel(Frame& frame, unsigned number) {
  if (frame.async) frame.async->cancel(frame.last - std::min<AsyncClient::Id>(number % 4, frame.last));
}

void App::turnAsync(Frame& frame, unsigned number) {
  if (!frame.async) return;
  if (waitReadable(frame.async->descriptor(), number % 40)) frame.async->process();
}

/// Turns until nothing waits: each request has ended once, within its time-out.
void App::finishAsync(Frame& frame, unsigned) {
  const auto isDone = [&frame] { return !frame.async || frame.async->pending() == 0; };
  const auto turn = [&] { turnAsync(frame, 10); };
  if (!turnUntil(turn, isDone, 1000 * kSlowdown)) return fail("requests that never end");
  if (!frame.async) return;
  for (const std::uint32_t token : frame.submitted) {
    if (record_.request(token).ends != 1) return fail("a completion that did not run");
  }
}

void App::destroyAsync(Frame& frame, unsigned) { frame.async.destroy(); }

// ---- the view

void App::makeView(Frame& frame, unsigned number) {
  make(frame, frame.view, number, contextOf(frame));
  const auto callback = [this, &frame, maker = process_.load()](const auto&...) { act(frame, maker); };
  frame.view->onChange(callback);
  frame.view->onState(callback);
  frame.view->onResynchronised(callback);
  expectSuccess("open", frame.view->open());
}

void App::setInView(Frame& frame, unsigned number) {
  if (!frame.view) return;
  const std::uint32_t token = beginRequest();
  const auto written = [this, &frame, token, maker = process_.load()](const Answer<void>& answer) {
    endRequest(token, answer.status);
    if (answer.ok() && frame.view && frame.view->get(settings::kEmberTcpPort) < token) {
      fail("the completion of a write that saw an older value");
    }
    act(frame, maker);
  };
  const AsyncClient::Id id = frame.view->set(settings::kEmberTcpPort, token, written, milliseconds(1 + number % 300));
  if (id == 0) endRequest(token, status::kCancelled);
}

void App::turnView(Frame& frame, unsigned number) {
  if (!frame.view) return;
  if (waitReadable(frame.view->descriptor(), number % 60)) frame.view->process();
}

void App::checkView(Frame& frame, unsigned) {
  const Check check(record_);
  mend();
  if (!frame.view || frame.view->descriptor() < 0) return;  // made with too few descriptors
  frame.view->open();                                       // it may have failed for the same reason
  frame.action = 0;
  const auto turn = [&] { turnView(frame, 10); };
  const auto isLive = [&] { return !frame.view || frame.view->state() == BoardView::State::kLive; };
  if (!turnUntil(turn, isLive, 10000 * kSlowdown)) return fail("a view that is not live beside a healthy board");
  const std::uint32_t version = record_.version;
  const auto isCurrent = [&] { return !frame.view || frame.view->get(settings::kRtspTcpPort) >= version; };
  if (turnUntil(turn, isCurrent, 1000 * kSlowdown)) return;
  fail("a view that shows " + std::to_string(frame.view->get(settings::kRtspTcpPort)) + " and is " +
       (isLive() ? "live" : "not live") + " beside a board that is at " + std::to_string(version));
}

/// Whatever a loop watches, the loop has nothing to do at times.
void App::checkQuiet(Frame& frame, unsigned) {
  const Check check(record_);
  mend();
  frame.action = 0;
  const auto expectQuiet = [this](const char* what, int descriptor, auto turn) {
    if (descriptor < 0) return;
    const auto isQuiet = [descriptor] { return !waitReadable(descriptor, 5); };
    if (!turnUntil(turn, isQuiet, 2000 * kSlowdown)) fail(std::string(what) + " that is readable all the time");
  };
  if (frame.async) expectQuiet("a client", frame.async->descriptor(), [&frame] { frame.async->process(); });
  if (frame.view && frame.view->open() == 0) {  // it may have failed without descriptors
    expectQuiet("a view", frame.view->descriptor(), [&frame] { frame.view->process(); });
  }
  if (frame.events) expectQuiet("an event descriptor", frame.events->descriptor(), [&] { turnEvents(frame, 0); });
}

void App::destroyView(Frame& frame, unsigned) { frame.view.destroy(); }

// ---- the cache

void App::getCache(Frame& frame, unsigned) {
  cacheIsMade_ = true;
  frame.cache = &SystemDefaultCfg::getInstance();  // throws where descriptors are short
  frame.cache->getClientReference().setTimeout(kTimeout);
}

void App::initCache(Frame& frame, unsigned) {
  if (frame.cache != nullptr) frame.cache->init();
}

void App::followCache(Frame& frame, unsigned) {
  if (frame.cache == nullptr) return;
  frame.follows = true;
  collectItems(frame);
}

void App::readCache(Frame& frame, unsigned) {
  std::list<EthBasicInfo> interfaces;
  if (frame.cache != nullptr) frame.cache->getEthDynamicBasicInfo(interfaces);
}

/// After another `init`, as the documentation has it for an application that may have missed notifications, the cache
/// is not older than the board was at the call.
void App::checkCache(Frame& frame, unsigned) {
  if (frame.cache == nullptr) return;
  const Check check(record_);
  mend();
  frame.action = 0;
  SystemDefaultCfg& cache = *frame.cache;
  cache.getClientReference().setTimeout(kHealthy);
  const std::uint32_t version = record_.version;
  int result = -1;
  for (int left = 3; result < 0 && left > 0; --left) result = cache.init();  // the first may meet a dying connection
  cache.getClientReference().setTimeout(kTimeout);
  if (result < 0) return fail("a cache that fetches nothing from a healthy board: " + std::to_string(result));
  for (int round = 0; round < 10; ++round) {
    unsigned int shown = 0;
    cache.getRtspTcpPort(&shown);
    if (shown < version) {
      return fail("a cache that shows " + std::to_string(shown) + " after the board was at " + std::to_string(version));
    }
    receive(frame, 3);
  }
}

void App::useCacheForEver(Frame& frame, unsigned number) {
  while (process_ == 0 && frame.cache != nullptr) {  // nobody ends a child
    try {
      for (int left = 20; left > 0; --left) readCache(frame, 0);
      if (number % 4 == 0) initCache(frame, 0);
      receive(frame, number % 3);
    } catch (const Json::Exception&) {
    } catch (const Thrown&) {
    }
  }
}

// ---- threads, processes, signals, limits

void App::startThread(Frame&, unsigned number) {
  const unsigned thread = otherThread(number);
  ++runningThreads_;
  threads_[thread] = new std::thread([this, thread] { runThread(thread); });
}

void App::joinThread(Frame& frame, unsigned number) {
  std::thread*& thread = threads_[otherThread(number)];
  if (thread == nullptr) return;  // it stayed in the parent
  self().threads[frame.thread].step = -1;
  thread->join();
  delete thread;
  thread = nullptr;
}

void App::forkChild(Frame& frame, unsigned number) {
  const unsigned parent = process_;
  forkNow(frame, number);
  if (number != kChildTries || process_ != parent) return;
  std::this_thread::sleep_for(milliseconds(20));
  checkQuiet(frame, 0);  // whatever the child has tried
}

void App::forkNow(Frame& frame, unsigned what) {
  unsigned process = 0;
  pid_t child = -1;
  {
    // No thread forks while another one ends the process: the child could never exit.
    const std::lock_guard<std::mutex> lock(forking_);
    if (ends_ || record_.processCount == Record::kProcesses) return;
    process = record_.processCount++;
    child = fork();
  }
  if (child < 0) std::abort();
  if (child > 0) {
    record_.processes[process].pid = child;
    return;
  }
  const int step = self().threads[frame.thread].step;
  becomeProcess(process);
  self().threads[frame.thread].since = now();
  self().threads[frame.thread].step = step;
  lastThreadEnds_ = false;
  threads_ = {};
  runningThreads_ = 1;
  hasStatics_ = true;
  // Unlike the C library's, a sanitizer's allocator may be locked for ever in a fork of a process with threads.
  if (kSanitized && what != kChildExecs) what = kChildUnderscoreExits;
  switch (what) {
    case kChildExits: endNow(kExit); break;
    case kChildUnderscoreExits: endNow(kUnderscoreExit); break;
    case kChildExecs:
      beginEnd(0);
      execl("/bin/true", "true", nullptr);
      _exit(127);
    case kChildTries: tryInherited(frame); [[fallthrough]];
    default: connectAgain(frame);
  }
}

/// What a child calls of the objects that it has inherited does nothing.
void App::tryInherited(Frame& frame) {
  if (frame.async) {
    submit(frame, 0);
    const bool hasCancelled = frame.async->cancel(1);
    if (hasCancelled || frame.async->pending() > 0 || frame.async->process() > 0)
      fail("a child with its parent's client");
  }
  if (frame.view) {
    setInView(frame, 0);
    if (frame.view->process() > 0) fail("a child with its parent's view");
  }
  if (frame.clients) set(frame, 0);
  if (frame.events) frame.events->poll();
}

/// Children of a busy parent that use the library at once, and end.
void App::forkManyChildren(Frame&, unsigned) {
  if (kSanitized) return;  // as in `forkChild`
  for (int left = 20; left > 0; --left) {
    std::unique_lock<std::mutex> lock(forking_);
    if (ends_) return;
    const pid_t child = fork();
    if (child == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      renewContext();
      Clients clients;
      Json::Value model;
      clients.json.init(ZmqUtils::getInstance().getContext());
      zel::setTimeout(clients.json, milliseconds(3));
      clients.json.getBoardModel(model);
      _exit(0);
    }
    lock.unlock();
    if (child < 0) std::abort();
    if (waitUntil([child] { return waitpid(child, nullptr, WNOHANG) == child; }, 5 * kHealthy)) continue;
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    fail("a child that hangs");
  }
}

/// Objects that live a moment, while other threads fork or end the process. libzmq closes their sockets in a thread of
/// its own: where that one does not get a processor, there are too many of them, and `init` fails. So the thread pauses
/// behind each, longer while another one checks what a healthy board answers. While another thread ends the process it
/// does not pause: then it opens sockets all the time.
void App::comeAndGo(Frame& frame, unsigned number) {
  isShort_ = true;
  zmq::context_t& context = contextOf(frame);
  for (const auto end = Clock::now() + milliseconds(20); Clock::now() < end;) {
    if (number == 0) {
      if (frame.clients) initClients(frame, 0);  // these stay connected
      Clients clients;
      clients.typed.init(context);
      ErrorReport report;
      clients.typed.getLastErrorMessage(report);
    } else if (number == 1) {
      AsyncClient client(context);
      client.submit(requests::boardModel(), {});
    } else {
      BoardView view(context);
      view.open();
      view.process();
    }
    if (!ends_) std::this_thread::sleep_for(milliseconds(record_.checkers == 0 ? 1 : 20));
  }
}

/// The first steps of a forked child that goes on: it makes a context, connects its clients again, and makes new
/// objects in place of the others.
void App::connectAgain(Frame& frame) {
  renewContext();
  frame.context.forget();  // it is the parent's
  // What is inherited may be destroyed, or left alone.
  if (process_ % 2 == 0) {
    frame.async.destroy();
    frame.view.destroy();
  }
  frame.async.forget();
  frame.view.forget();
  frame.submitted.clear();
  if (frame.clients) initClients(frame, 0);
  if (frame.receiver) {
    connect(frame);
  }
  collectItems(frame);
}

void App::sendSignals(Frame&, unsigned number) {
  std::signal(SIGALRM, [](int) {});
  const itimerval interval{{0, static_cast<suseconds_t>(1000 * (number % 4))}, {0, 1000}};
  setitimer(ITIMER_REAL, &interval, nullptr);
}

void App::limitDescriptors(Frame&, unsigned number) {
  if (kSanitized) return;  // the sanitizers need some, too
  isShort_ = true;
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  constexpr rlim_t kNoneAgain = 8;  // below what is open: what is closed cannot be opened again; poll(2) works
  const rlim_t few = std::max(kNoneAgain, static_cast<rlim_t>(std::max(nextDescriptor(), 0)) + number % 30);
  limit.rlim_cur = number % 3 == 0 ? limit.rlim_max : number % 3 == 1 ? few : kNoneAgain;
  setrlimit(RLIMIT_NOFILE, &limit);
}

void App::liftLimits() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

/// Loads a plug-in that has a static client, and uses it.
void App::usePlugin(Frame&, unsigned number) {
  if (hasThreads_) return;  // `init` of a static client, see `make`
  void* const plugin = dlopen(ZEL_RANDOM_PLUGIN, RTLD_NOW);
  if (plugin == nullptr) return expectSuccess(dlerror(), -1);
  reinterpret_cast<void (*)()>(dlsym(plugin, "zelUsePlugin"))();
  if (number == 0) {
    dlclose(plugin);
  } else {
    hasStatics_ = true;
  }
}

void App::pause(Frame&, unsigned number) {
  std::this_thread::sleep_for(milliseconds(number < 950 ? number % 15 : number < 990 ? 300 : 2000));
}

// ---- the board

void App::breakBoard(Frame&, unsigned number) {
  ++record_.breakers;
  if (record_.checkers == 0) {
    const unsigned what = number;
    const pid_t board = record_.board;
    if (what == 0) record_.delayMs = 20;
    if (what >= 1 && what <= 6) record_.manners |= 1U << (what - 1);
    if (what == 16) record_.manners |= kBelated;
    if (what >= 7 && what <= 11) record_.orders |= 1U << (what - 7);
    if (what == 12 || what == 15) {
      record_.wanted = what == 15;
      if (board != 0 && record_.board.exchange(0) == board) kill(board, SIGKILL);
    }
    if (what == 13 && board != 0) kill(board, SIGSTOP);
    if (what == 14 && board != 0) kill(board, SIGCONT);
  }
  --record_.breakers;
}

void App::mend() {
  liftLimits();
  const bool isUp = waitUntil([this] {
    record_.delayMs = 0;
    record_.manners = 0;
    record_.wanted = true;  // another process of the application may be breaking it
    const pid_t board = record_.board;
    if (board != 0) kill(board, SIGCONT);
    return board != 0;
  });
  if (!isUp) fail("no board");
}

void App::mendBoard(Frame&, unsigned) { mend(); }

// ---- callbacks

void App::atNextCallback(Frame& frame, unsigned number) { frame.action = number; }

void App::comeAndGoForEver(Frame& frame, unsigned number) {
  while (process_ == 0) comeAndGo(frame, number);  // as in `waitForEver`
}

void App::act(Frame& frame, unsigned maker) {
  if (maker != process_) fail("a callback of the parent that runs in its child");
  act(frame);
}

void App::act(Frame& frame) {
  switch (std::exchange(frame.action, 0)) {
    case 1:
      if (frame.clients) set(frame, 0);
      break;
    case 2:
      if (frame.async) submit(frame, 1);
      break;
    case 3: return cancel(frame, 1);
    case 4: return frame.async.destroy();
    case 5: return frame.view.destroy();
    case 6:
      if (frame.receiver) changeTopics(frame, 1);
      break;
    case 7: throw Thrown();
    case 8: return forkNow(frame, kChildExits);
    case 9: return forkNow(frame, kChildGoesOn);
    case 10: return endNow(kExit);
    case 11: return endNow(kQuickExit);
    case 12: return forkNow(frame, kChildTries);
    default: break;
  }
}

// ---- the end

Farewell::Farewell(Record& record) : record_(record) { ZmqUtils::getInstance(); }

void Farewell::connect() {
  connectedBy_ = client_.init(ZmqUtils::getInstance().getContext()) < 0 ? 0 : getpid();
  client_.setTimeout(kTimeout);
}

Farewell::~Farewell() {
  if (connectedBy_ != getpid()) return;
  const std::uint32_t token = ++record_.lastToken;
  record_.request(token).carriedOut = 0;
  record_.request(token).ends = 1;
  record_.request(token).status = status::kNoAnswer;
  const int result = client_.setRtspTcpPort(token);
  record_.request(token).status = result;
  if (result == status::kNotInitialized) note(record_, "a static object that cannot send a request in its destructor");
}

void App::makeFarewell(Frame& frame, unsigned number) {
  hasStatics_ = true;
  self().allowanceMs = static_cast<int>(kTimeout.count());
  {
    const std::lock_guard<std::mutex> lock(forking_);
    static Farewell farewell(record_);
    farewell_ = &farewell;
  }
  if (number == 0) connectFarewell(frame, 0);
}

void App::connectFarewell(Frame&, unsigned) {
  const std::lock_guard<std::mutex> lock(forking_);  // no thread ends the process, and destroys it, meanwhile
  if (!ends_ && farewell_ != nullptr) farewell_->connect();
}

void App::checkLeftovers(Frame&, unsigned) {
  if (hasStatics_ || process_ != 0) return;
  liftLimits();
  if (record_.contextDescriptors < 0) {
    std::this_thread::sleep_for(milliseconds(200));
    record_.contextDescriptors = openDescriptorsNow() - descriptorsBefore_;
    record_.contextThreads = runningThreads();
  }
  const auto isClean = [this] {
    return openDescriptorsNow() - descriptorsBefore_ <= record_.contextDescriptors &&
           runningThreads() <= record_.contextThreads;
  };
  if (waitUntil(isClean, milliseconds(1000 * kSlowdown))) return reportLeaks();
  fail(std::to_string(openDescriptorsNow() - descriptorsBefore_) + " descriptors and " +
       std::to_string(runningThreads()) + " threads are left, not " + std::to_string(record_.contextDescriptors) +
       " and " + std::to_string(record_.contextThreads));
}

void App::beginEnd(int status) {
  forking_.lock();
  const bool endsAlready = ends_.exchange(true);
  forking_.unlock();
  if (endsAlready) stay();                       // by another thread
  std::this_thread::sleep_for(milliseconds(2));  // until no `comeAndGo` pauses any more
  self().expected = status;
  self().endBegan = now();
}

void App::endNow(unsigned how) {
  switch (how) {
    case kQuickExit: return beginEnd(0), std::quick_exit(0);
    case kUnderscoreExit: return beginEnd(0), _exit(0);
    case kAbort: return beginEnd(-SIGABRT), std::abort();
    case kTerminate:
      beginEnd(-SIGTERM);
      raise(SIGTERM);
      stay();
    default: return beginEnd(0), std::exit(0);
  }
}

void App::end(Frame& frame, unsigned number) {
  const unsigned how = number;
  const auto stays = [](const Step& step) { return staysForEver(step.operation); };
  const bool mayWait = frame.thread == 0 && std::none_of(program_.begin(), program_.end(), stays);
  if (how == kReturn && frame.thread == 0) return;
  if (how == kLastThread && mayWait) {
    lastThreadEnds_ = true;
    return;
  }
  endNow(how);
}

}  // namespace zel::test
