#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>
#include <zmq.hpp>

#include "common/shared/wire_json.h"
#include "simulator/board.h"
#include "simulator/fault.h"
#include "simulator/memory_guard.h"
#include "simulator/publisher.h"
#include "simulator/socket_file.h"
#include "simulator/store.h"

namespace zel::sim {

class Replay;

struct SimulatorOptions {
  Board board;                                ///< as it is when the simulator starts
  Replay* replay = nullptr;                   ///< a recording, which answers in place of the board
  std::string requests;                       ///< the endpoint on which it answers; empty: the daemon's
  std::string notifications;                  ///< the endpoint on which it publishes; empty: the daemon's
  std::string storeFile;                      ///< keeps the board's state across restarts; empty: nothing is kept
  std::chrono::milliseconds liveInterval{0};  ///< how often the board moves on by itself; 0: never
  std::vector<FaultRule> faults;              ///< how it misbehaves
  std::string faultFile;                      ///< more of that, read at the start and by `reloadFaults`; empty: none
  bool repeatOnSubscribe = false;  ///< publishes the current document of a topic whenever a client subscribes to it
  /// Receives the topic of each subscription, in the publisher's thread; empty: nobody does.
  std::function<void(const std::string& prefix)> onSubscription;
  std::size_t mostGrowth = 0;  ///< bytes that the process may grow by before connections end; 0: no limit
  /// Receives messages for people: at the start, and from another thread when connections were ended.
  std::function<void(const std::string&)> tell;
  std::function<void(const std::string&)> trace;  ///< receives a line for each request; empty: none
};

/// A request that was answered, or would have been without a fault.
struct ServedRequest {
  std::uint64_t number = 0;         ///< from 1 on, since the start
  std::chrono::milliseconds at{0};  ///< since the start
  unsigned int id = 0;              ///< of the command
  std::string body;                 ///< up to 64 KiB of it
  int status = 0;                   ///< of the board's answer
  const char* fault = nullptr;      ///< the fault that struck it; null: none
};

/// A stand-in for the daemon: a virtual board behind the daemon's two sockets, for any number of clients.
///
/// A request is carried out, put into the store, published and then answered, in this order: who has the answer knows
/// that the change is in force and that its notification is on the way.
/// Threads: `stop`, `reloadFaults`, `misbehave` and `post` may be called from any thread, the first two from a signal
/// handler too; everything else from one thread, the one that calls `run`.
class Simulator {
 public:
  explicit Simulator(SimulatorOptions options);
  ~Simulator();
  Simulator(const Simulator&) = delete;
  Simulator& operator=(const Simulator&) = delete;

  /// Takes over what the store holds and begins to listen.
  /// @return empty, or why it cannot
  std::string open();
  /// Serves until `stop` is called, which may have been before.
  void run();
  void stop() noexcept;
  /// Has the orders of the fault file replace those that there are. A file with a mistake replaces none.
  void reloadFaults() noexcept;

  /// Gives one more order to misbehave.
  void misbehave(const FaultRule& rule);

  /// Where it listens, as libzmq writes it; of "tcp://127.0.0.1:*" the port that it has got.
  const std::string& requestEndpoint() const { return options_.requests; }
  const std::string& notificationEndpoint() const { return options_.notifications; }

  using Clock = std::chrono::steady_clock;

  /// Has the action run soon in the thread that serves. An action that did not run until `run` returns is destroyed.
  void post(std::function<void()> action);

  /// Runs an action in the thread that serves, and waits for its end. Any thread except that one.
  /// @return what the action returns; nothing when the simulator has ended before it ran
  template <class Action>
  auto await(Action action) -> std::optional<decltype(action())> {
    auto task = std::make_shared<std::packaged_task<decltype(action())()>>(std::move(action));
    auto result = task->get_future();
    // The simulator alone holds the task, so that the wait ends when it destroys the task.
    post([task = std::move(task)] { (*task)(); });
    try {
      return result.get();
    } catch (const std::future_error&) {
      return std::nullopt;
    }
  }

  // For actions.

  /// Has the action run at this time.
  void at(Clock::time_point time, std::function<void()> action);
  const Board& board() const { return options_.board; }
  FaultInjector& faults() { return faults_; }
  /// Makes a change that no client has asked for: it is stored and published as one that a client asks for.
  using Alteration = std::function<Outcome(Board& board, const Board::Keep& keep)>;
  Outcome alter(const Alteration& make);
  /// Publishes frames as they are.
  void publishFrames(const std::vector<std::string>& frames);
  /// Stops serving requests, which wait then, or goes on.
  void setServing(bool serving);
  /// Goes away as a daemon does that ends: every connection ends, nothing listens, and requests that wait are lost.
  void leave();
  /// Listens again, at the same endpoints. The board is as it was.
  /// @return empty, or why it cannot
  std::string comeBack();
  /// When the clients that wait have fetched the answers that were sent up to now. Before that `leave` and
  /// `dropConnections` lose answers: libzmq sends in a thread of its own, and a client's socket drops what the client
  /// has not fetched when the connection ends.
  Clock::time_point answersAreFetched() const { return lastAnswer_ + std::chrono::milliseconds(100); }
  /// Ends every connection; the clients connect again by themselves.
  /// @return how many there were
  unsigned int dropConnections();
  /// The last requests, the latest at the end.
  const std::deque<ServedRequest>& requests() const { return served_; }
  void forgetRequests();
  /// Has the observer called after each request, with the command's id.
  void observe(std::function<void(unsigned int id)> observer) { observers_.push_back(std::move(observer)); }
  /// Hands a message for people to `SimulatorOptions::tell`.
  void tell(const std::string& text) const;

 private:
  /// A request as it came.
  struct Request {
    std::vector<std::string> envelope;  ///< returned with the answer: identity, request number, empty frame
    unsigned int id = 0;
    std::string body;
    unsigned int stay = 0;  ///< during which it came
  };
  using Waiting = std::multimap<std::size_t, Request>;  ///< by size

  std::string openStore();
  std::string listen();
  std::string tryToListen();
  void endRequestConnections();
  std::string makeRoom() const;
  void wakeUp() const noexcept;
  bool goesOn();
  void runPosted();
  void noteSubscription(const std::string& prefix);
  void repeat(unsigned int topics);
  void serveUntilStopped();
  std::string readFaultFile(std::vector<FaultRule> rules);
  void receiveAll();
  bool receive(std::vector<std::string>& frames);
  void take(std::vector<std::string> frames);
  void wait(Request request);
  Request takeWaiting(Waiting::iterator which);
  void serveWaiting();
  void serve(const Request& request);
  void carryOut(const Request& request, const Exchange& exchange);
  Outcome act(const Request& request);
  Board::Keep keep();
  void answer(const Request& request, const std::string& text);
  void refuse(const Request& request, const Refusal& why);
  void publish(const Notification& notification);
  void moveOn();
  std::optional<Notification> current(SysmgrPublisher::sysmgr_notifications_t topic) const;
  void remember(const Request& request, const Exchange& exchange, int status);
  void trace(const Request& request, const Exchange& exchange, const std::string& answer) const;
  [[noreturn]] void crash(bool flush);

  long untilNextTimer() const;
  void runTimers();

  SimulatorOptions options_;
  FaultInjector faults_;
  std::optional<Store> store_;
  int wakeUp_;  ///< an eventfd
  std::atomic<bool> stopping_{false};
  std::atomic<bool> reloading_{false};
  zmq::context_t context_;
  zmq::socket_t requests_;
  unsigned int stay_ = 1;  ///< how often it has begun to listen
  std::optional<Publisher> publisher_;
  std::list<SocketFile> files_;  ///< of ipc:// endpoints; libzmq leaves them behind
  Waiting waiting_;
  std::size_t waitingBytes_ = 0;
  WireJsonReader reader_;
  std::multimap<Clock::time_point, std::function<void()>> timers_;
  std::optional<MemoryGuard> guard_;
  std::mutex postMutex_;
  std::vector<std::function<void()>> posted_;
  bool ended_ = false;                             ///< nothing is posted any more
  std::atomic<unsigned int> subscribedTopics_{0};  ///< a bit each, by their order; their documents are due
  bool serving_ = true;
  Clock::time_point lastAnswer_;                    ///< when an answer was sent
  std::vector<std::function<void()>> heldAnswers_;  ///< that were due while it did not serve
  const Clock::time_point start_ = Clock::now();
  std::uint64_t servedCount_ = 0;
  std::size_t servedBytes_ = 0;  ///< of the bodies in `served_`
  std::deque<ServedRequest> served_;
  std::vector<std::function<void(unsigned int id)>> observers_;
};

/// A simulator in a thread of its own, which ends with this object.
class SimulatorThread {
 public:
  explicit SimulatorThread(SimulatorOptions options = {});
  ~SimulatorThread();
  SimulatorThread(const SimulatorThread&) = delete;
  SimulatorThread& operator=(const SimulatorThread&) = delete;

  Simulator& simulator() { return simulator_; }
  const Simulator& simulator() const { return simulator_; }
  /// Empty, or why the simulator does not run.
  const std::string& failure() const { return failure_; }
  void misbehave(const FaultRule& rule) { simulator_.misbehave(rule); }
  /// The same, in words; an order with a mistake is returned as its description.
  std::string misbehave(const std::string& rule);

 private:
  Simulator simulator_;
  std::string failure_;
  std::thread thread_;
};

}  // namespace zel::sim
