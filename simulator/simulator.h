#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
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
#include "simulator/store.h"

namespace zel::sim {

struct SimulatorOptions {
  Board board;                                ///< as it is when the simulator starts
  std::string storeFile;                      ///< keeps the board's state across restarts; empty: nothing is kept
  std::chrono::milliseconds liveInterval{0};  ///< how often the board moves on by itself; 0: never
  std::vector<FaultRule> faults;              ///< how it misbehaves
  std::string faultFile;                      ///< more of that, read at the start and by `reloadFaults`; empty: none
  std::size_t mostGrowth = 0;  ///< bytes that the process may grow by before connections end; 0: no limit
  /// Receives messages for people: at the start, and from another thread when connections were ended.
  std::function<void(const std::string&)> tell;
  std::function<void(const std::string&)> trace;  ///< receives a line for each request; empty: none
};

/// A stand-in for the daemon: a virtual board behind the daemon's two sockets, for any number of clients.
///
/// A request is carried out, put into the store, published and then answered, in this order: who has the answer knows
/// that the change is in force and that its notification is on the way.
/// Threads: `stop`, `reloadFaults` and `misbehave` may be called from any thread, the first two from a signal handler
/// too; everything else from one thread.
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

  static std::string requestEndpoint();
  static std::string publishEndpoint();

 private:
  using Clock = std::chrono::steady_clock;
  /// A request as it came.
  struct Request {
    std::vector<std::string> envelope;  ///< returned with the answer: identity, request number, empty frame
    unsigned int id = 0;
    std::string body;
  };
  using Waiting = std::multimap<std::size_t, Request>;  ///< by size

  std::string openStore();
  std::string listen();
  void wakeUp() const noexcept;
  bool goesOn();
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
  Outcome change(unsigned int id, const Json::Value& body);
  void answer(const Request& request, const std::string& text);
  void refuse(const Request& request, const Refusal& why);
  void publish(const Notification& notification);
  void moveOn();
  void tell(const std::string& text) const;
  void trace(const Request& request, const Exchange& exchange, const std::string& answer) const;
  [[noreturn]] void crash(bool flush);

  void at(Clock::time_point time, std::function<void()> action);
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
  zmq::socket_t publisher_;
  Waiting waiting_;
  std::size_t waitingBytes_ = 0;
  WireJsonReader reader_;
  std::multimap<Clock::time_point, std::function<void()>> timers_;
  std::optional<MemoryGuard> guard_;
};

/// A simulator in a thread of its own, which ends with this object.
class BackgroundSimulator {
 public:
  explicit BackgroundSimulator(SimulatorOptions options = {});
  ~BackgroundSimulator();
  BackgroundSimulator(const BackgroundSimulator&) = delete;
  BackgroundSimulator& operator=(const BackgroundSimulator&) = delete;

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
