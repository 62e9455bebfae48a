#pragma once

#include <array>
#include <atomic>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "client/async_client.h"
#include "client/sysmgr_client.h"
#include "common/event_descriptor.h"
#include "config/system_default_cfg.h"
#include "subscriber/sysmgr_subscriber.h"
#include "tests/faults/random_program.h"
#include "view/board_view.h"

namespace zel::test {

/// A client of each kind that waits for its answers.
struct Clients {
  SysMgrClient typed;
  SysMgrJsonClient json;
};

class Receiver final : public SysmgrSubscriber {
 public:
  void use(App& app, Frame& frame) {
    app_ = &app;
    frame_ = &frame;
  }
  int notifyStoredParametersUpdate(SysParameters& parameters) override;

 private:
  App* app_ = nullptr;
  Frame* frame_ = nullptr;
};

/// Sends a request in its destructor, as static objects may. Its client may be connected at any time.
class Farewell {
 public:
  explicit Farewell(Record& record);
  void connect();
  ~Farewell();
  Farewell(const Farewell&) = delete;
  Farewell& operator=(const Farewell&) = delete;

 private:
  Record& record_;
  SysMgrClient client_;
  pid_t connectedBy_ = 0;
};

enum class Storage { kStack, kHeap, kFunctionStatic, kStatic };

/// An object of the application, if there is one.
template <class T>
struct Slot {
  T* object = nullptr;
  Storage storage = Storage::kStack;

  Slot() = default;
  Slot(const Slot&) = delete;
  Slot& operator=(const Slot&) = delete;
  ~Slot() {
    if (storage == Storage::kStack) destroy();
  }
  /// What is static lives on until the process ends.
  void destroy() {
    if (storage <= Storage::kHeap) delete object;
    object = nullptr;
  }
  void forget() { object = nullptr; }
  explicit operator bool() const { return object != nullptr; }
  T* operator->() const { return object; }
};

/// What one thread of the application has. It is in the thread's stack, and so is what `Storage::kStack` says.
struct Frame {
  unsigned thread = 0;
  Slot<zmq::context_t> context;
  Slot<Clients> clients;
  Slot<Receiver> receiver;
  Slot<AsyncClient> async;
  Slot<BoardView> view;
  SystemDefaultCfg* cache = nullptr;
  bool follows = false;  ///< the cache
  std::optional<PollFds> fds;
  std::optional<EventDescriptor> events;
  const void* formerContext = nullptr;  ///< where the thread's last context was
  unsigned action = 0;                  ///< of the next callback: one of the words of `App::atNextCallback`
  AsyncClient::Id last = 0;
  std::uint32_t asyncNumber = 0;         ///< of the asynchronous client, among all
  std::vector<std::uint32_t> submitted;  ///< the tokens of the asynchronous client
};

/// The other thread that a step means.
inline unsigned otherThread(unsigned number) { return 1 + number % (Record::kThreads - 1); }

/// An application that does what a program says, and enters what it sees in the record. Its operations are what the
/// programs consist of; the table in random_app.cpp says when each may follow.
class App {
 public:
  App(Record& record, Program program);
  /// The main program. @return where it returns from main
  int main();

  /// Runs in a callback: does what `atNextCallback` has announced.
  void act(Frame& frame);
  /// As `act`, for a callback of an object that a process has made and another one may have inherited.
  void act(Frame& frame, unsigned maker);

  // clang-format off
  void makeClients(Frame& frame, unsigned number);
  void initClients(Frame& frame, unsigned number);
  void set(Frame& frame, unsigned number);
  void ask(Frame& frame, unsigned number);
  void setTimeout(Frame& frame, unsigned number);
  void destroyClients(Frame& frame, unsigned number);
  void makeReceiver(Frame& frame, unsigned number);
  void changeTopics(Frame& frame, unsigned number);
  void receive(Frame& frame, unsigned number);
  void makeEvents(Frame& frame, unsigned number);
  void destroyEvents(Frame& frame, unsigned number);
  void turnEvents(Frame& frame, unsigned number);
  void waitForEver(Frame& frame, unsigned number);
  void destroyReceiver(Frame& frame, unsigned number);
  void makeAsync(Frame& frame, unsigned number);
  void submit(Frame& frame, unsigned number);
  void cancel(Frame& frame, unsigned number);
  void turnAsync(Frame& frame, unsigned number);
  void finishAsync(Frame& frame, unsigned number);
  void destroyAsync(Frame& frame, unsigned number);
  void makeView(Frame& frame, unsigned number);
  void setInView(Frame& frame, unsigned number);
  void turnView(Frame& frame, unsigned number);
  void checkView(Frame& frame, unsigned number);
  void destroyView(Frame& frame, unsigned number);
  void checkQuiet(Frame& frame, unsigned number);
  void getCache(Frame& frame, unsigned number);
  void initCache(Frame& frame, unsigned number);
  void followCache(Frame& frame, unsigned number);
  void readCache(Frame& frame, unsigned number);
  void checkCache(Frame& frame, unsigned number);
  void useCacheForEver(Frame& frame, unsigned number);
  void makeContext(Frame& frame, unsigned number);
  void destroyContext(Frame& frame, unsigned number);
  void makeContextWhereOneWas(Frame& frame, unsigned number);
  void resetContext(Frame& frame, unsigned number);
  void startThread(Frame& frame, unsigned number);
  void joinThread(Frame& frame, unsigned number);
  void forkChild(Frame& frame, unsigned number);
  void forkManyChildren(Frame& frame, unsigned number);
  void comeAndGo(Frame& frame, unsigned number);
  void comeAndGoForEver(Frame& frame, unsigned number);
  void sendSignals(Frame& frame, unsigned number);
  void limitDescriptors(Frame& frame, unsigned number);
  void usePlugin(Frame& frame, unsigned number);
  void pause(Frame& frame, unsigned number);
  void breakBoard(Frame& frame, unsigned number);
  void mendBoard(Frame& frame, unsigned number);
  void atNextCallback(Frame& frame, unsigned number);
  void makeFarewell(Frame& frame, unsigned number);
  void connectFarewell(Frame& frame, unsigned number);
  void checkLeftovers(Frame& frame, unsigned number);
  void end(Frame& frame, unsigned number);
  // clang-format on

 private:
  Record::Process& self() { return record_.processes[process_]; }
  void becomeProcess(unsigned process);
  void run(Frame& frame);
  void runThread(unsigned thread);
  /// Notes that the process ends now. Does not return where another thread ends it already.
  void beginEnd(int status);
  void endNow(unsigned how);
  void fail(const std::string& what);
  void expectSuccess(const char* what, int result);
  template <class T, class... Arguments>
  void make(Frame& frame, Slot<T>& slot, unsigned number, Arguments&&... arguments);
  void renewContext();
  zmq::context_t& contextOf(Frame& frame);
  void collectItems(Frame& frame);
  void takeNotifications(Frame& frame);
  void connect(Frame& frame);
  void forkNow(Frame& frame, unsigned what);
  void connectAgain(Frame& frame);
  void tryInherited(Frame& frame);
  std::uint32_t beginRequest();
  void endRequest(std::uint32_t token, int status);
  void mend();
  void liftLimits();

  Record& record_;
  const Program program_;
  bool hasThreads_;  ///< the program starts some
  bool forks_;
  std::atomic<unsigned> process_{0};                      ///< a child's writes beside the reads of its parent's threads
  std::array<std::thread*, Record::kThreads> threads_{};  ///< never destroyed: a child inherits what it does not have
  std::mutex forking_;
  std::atomic<bool> ends_{false};
  std::atomic<bool> lastThreadEnds_{false};
  std::atomic<int> runningThreads_{1};
  int descriptorsBefore_;
  std::atomic<bool> isShort_{false};     ///< descriptors were limited, or there may be too many sockets
  std::atomic<bool> hasStatics_{false};  ///< something is not given back before the end
  std::atomic<bool> cacheIsMade_{false};
  Farewell* farewell_ = nullptr;
};

}  // namespace zel::test
