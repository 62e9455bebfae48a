#include "client/async_client.h"

#include <sys/epoll.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>

#include "common/shared/recycled.h"
#include "common/shared/request_connection.h"
#include "common/shared/wake_up.h"

namespace zel {

namespace {

/// How many completions one call of `process` runs at most.
constexpr std::size_t kShare = 32;

constexpr const char* kEnding = "the process is ending.";
constexpr const char* kNoMemory = "there is not enough memory to read it";

std::string nameOf(SysMgrCommands::sysmgr_msg_t command) {
  std::string name;
  SysMgrCommands::getCommandNameStr(command, name);
  return name;
}

}  // namespace

/// The queue of requests, the connection that sends the first of them, and the completions that have not run yet.
class AsyncClient::State final : public RequestConnection {
 public:
  State(zmq::context_t& context, const std::string& endpoint) { openLater(context, endpoint); }
  ~State() override { retire(); }
  State(const State&) = delete;
  State& operator=(const State&) = delete;
  static void* operator new(std::size_t) { return Recycled<State>::take(); }
  static void operator delete(void* memory) { Recycled<State>::giveBack(memory); }

  /// Ends the client. A completion may do so inside `process`, which deletes the object when it is over.
  void destroy() {
    retire();
    if (!isProcessing_ || Recycled<State>::isInherited(this)) {
      Recycled<State>::destroy(this);
    } else {
      orphaned_ = true;
    }
  }

  Id append(SysMgrCommands::sysmgr_msg_t command, const Json::Value& body, Complete complete,
            std::chrono::milliseconds timeout) {
    const Use use(*this);
    if (mayNotWork(use)) return 0;
    timeout = timeout > std::chrono::milliseconds::zero() ? std::min(timeout, kLongestTime) : kDefaultTimeout;
    const Id id = ++lastId_;
    Waiting request{command, std::to_string(command), {}, timeout, Clock::now() + timeout, std::move(complete)};
    if (!use) {
      end(request, report::notInitialized(nameOf(command), kEnding));
    } else if (wakeUp_.descriptor() < 0) {
      end(request, report::cannotConnect(nameOf(command), address(), "the client was made with too few descriptors"));
    } else if (const std::string why = writeBody(body, request.body); !why.empty()) {
      end(request, report::badRequest(nameOf(command), why));
    } else {
      enqueue(id, std::move(request));
    }
    if (!isProcessing_) setWakeUp();
    return id;
  }

  bool cancel(Id id) {
    const Use use(*this);
    if (!use) return false;
    const auto found = waiting_.find(id);
    if (found == waiting_.end() || !found->second.complete) return false;
    Waiting& request = found->second;
    if (isSent(id)) {
      end(request, report::cancelledWhenSent(nameOf(request.command), address()));
    } else {
      end(request, report::cancelled(nameOf(request.command)));
      forget(id);
    }
    if (!isProcessing_) setWakeUp();
    return true;
  }

  std::size_t process() {
    Turn turn(*this);
    if (!turn.mayWork()) return 0;
    std::size_t run = 0;
    do {
      if (turn.isConnected()) {
        work();
      } else {
        endAll();
      }
      while (!due_.empty() && run < kShare) {
        ++run;
        turn.runNext();
        if (!turn.mayGoOn()) return run;
      }
    } while (run < kShare && mayAdvance());
    return run;
  }

  std::size_t pending() {
    const Use use(*this);
    return mayNotWork(use) ? 0 : waiting_.size() - (isGivenUp() ? 1 : 0) + due_.size();
  }
  int descriptor() const { return wakeUp_.descriptor(); }

 private:
  struct Waiting {
    SysMgrCommands::sysmgr_msg_t command;
    std::string id;
    std::string body;
    std::chrono::milliseconds timeout;
    Clock::time_point deadline;
    Complete complete;  ///< empty: cancelled after it was sent
  };
  struct Due {
    Complete complete;
    Ending ending{};
  };
  using Queue = std::map<Id, Waiting>;  // the ids count up, so the order is that of submission
  using Deadlines = std::set<std::pair<Clock::time_point, Id>>;

  /// One call of `process`.
  class Turn {
   public:
    explicit Turn(State& state) : state_(state), use_(std::in_place, state) {
      works_ = !mayNotWork(*use_) && !state.isProcessing_;
      if (works_) state.isProcessing_ = true;
    }
    ~Turn() {
      if (!works_) return;
      state_.isProcessing_ = false;
      if (mayGoOn()) state_.setWakeUp();
      const bool orphaned = state_.orphaned_;
      use_.reset();
      if (orphaned) Recycled<State>::destroy(&state_);
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    bool mayWork() const { return works_; }
    bool isConnected() const { return bool(*use_); }
    /// Whether no completion has destroyed the client, or forked the process and returned in the child, and no other
    /// thread has ended the process meanwhile.
    bool mayGoOn() const { return !state_.orphaned_ && !mayNotWork(*use_); }

    void runNext() {
      const Interruption interruption(use_, state_);
      Due due = std::move(state_.due_.front());
      state_.due_.pop_front();
      due.complete(due.ending);
    }

   private:
    State& state_;
    std::optional<Use> use_;
    bool works_;
  };

  /// Whether the object must be left alone: it belongs to the parent process, or to the thread that ends this one.
  static bool mayNotWork(const Use& use) {
    return use.refusal() == Refusal::kForked || (use.refusal() == Refusal::kEnding && !isExitThread());
  }

  /// Whether this call of `process` goes on to the next request. It opens one socket at most, which takes a while.
  bool mayAdvance() const { return advanced_ && !waiting_.empty() && socket() != nullptr; }

  bool isSent(Id id) const { return sent_ && waiting_.begin()->first == id; }
  bool isGivenUp() const { return sent_ && !waiting_.begin()->second.complete; }

  /// Appends a request, and sends it if it is the first. Where memory runs out, nothing is appended.
  void enqueue(Id id, Waiting request) {
    Deadlines deadline{{request.deadline, id}};
    waiting_.emplace(id, std::move(request));
    deadlines_.merge(deadline);
    if (isProcessing_ || waiting_.size() > 1) return;
    try {
      sendFirst();
    } catch (const std::bad_alloc&) {
      // It waits, and `process` tries again.
    }
  }

  bool isAnyLate() const { return !deadlines_.empty() && deadlines_.begin()->first <= Clock::now(); }

  /// Does what can be done without a wait for the request that is first, and ends those whose time is over.
  /// @post `advanced_` if a request has ended
  void work() {
    wakeUp_.settle();
    advanced_ = false;
    if (sent_) {
      takeAnswer();  // before the time-outs: it may have come in time to a loop that is late
    } else if (waiting_.empty() && socket() != nullptr) {
      eventsOf(socket());  // lets libzmq process what its descriptor tells
    }
    while (due_.size() < kShare && isAnyLate()) endLate(deadlines_.begin()->second);
    // What is due runs first: a completion may cancel what waits.
    if (due_.empty() && !waiting_.empty() && !sent_) sendFirst();
  }

  void takeAnswer() {
    Frame answer;
    if (!receive(answer)) return;
    const Id id = waiting_.begin()->first;
    Waiting& request = waiting_.begin()->second;
    Json::Value reply;
    if (const std::string why = readIfPossible(answer, reply); !why.empty()) {
      end(request, report::badAnswer(nameOf(request.command), why));
      closeSockets();
    } else if (statusOf(reply) < 0) {
      end(request, report::refused(nameOf(request.command), reply));
    } else {
      end(request, {}, std::move(reply));
    }
    forget(id);
  }

  /// As `read`. Where the memory does not suffice, the answer cannot be used: the daemon has carried out the request.
  std::string readIfPossible(Frame& answer, Json::Value& reply) {
    try {
      return read(answer, reply);
    } catch (const std::bad_alloc&) {
      return kNoMemory;
    }
  }

  /// Sends the first request if a daemon takes it. Its answer does not come before libzmq's descriptor is readable.
  void sendFirst() {
    const Id id = waiting_.begin()->first;
    Waiting& request = waiting_.begin()->second;
    if (!sending_) {
      if (socket() != nullptr) eventsOf(socket());  // libzmq takes note of a connection that has ended meanwhile
      sending_.emplace(*this, request.id, request.body, request.deadline);
    }
    Sending::State state = sending_->step();
    if (state == Sending::State::kWaiting && (eventsOf(socket()) & ZMQ_POLLOUT) != 0) state = sending_->step();
    switch (state) {
      case Sending::State::kWaiting: return;
      case Sending::State::kSent:
        sending_.reset();
        sent_ = true;
        return;
      case Sending::State::kCannotConnect:
        end(request, report::cannotConnect(nameOf(request.command), address(), sending_->why()));
        break;
      case Sending::State::kNotSent: end(request, notSent(request)); break;
    }
    forget(id);
  }

  void endLate(Id id) {
    Waiting& request = waiting_.find(id)->second;
    const bool sent = isSent(id);
    if (sent) closeSockets();
    end(request, sent ? report::noAnswer(nameOf(request.command), address(), request.timeout) : notSent(request));
    forget(id);
  }

  /// Ends all requests when the process is at its end.
  void endAll() {
    advanced_ = false;
    while (!waiting_.empty()) {
      const Id id = waiting_.begin()->first;
      Waiting& request = waiting_.begin()->second;
      const std::string name = nameOf(request.command);
      end(request, isSent(id) ? report::abandoned(name, address()) : report::notInitialized(name, kEnding));
      forget(id);
    }
  }

  ErrorReport notSent(const Waiting& request) const {
    return report::notSent(nameOf(request.command), address(), request.timeout);
  }

  /// Has the completion run by `process`, unless it has run already. Where memory runs out, nothing has changed.
  void end(Waiting& request, ErrorReport report, Json::Value reply = {}) {
    if (request.complete) {
      Due& due = due_.emplace_back();
      due.complete.swap(request.complete);
      due.ending = {request.command, report.code, std::move(report.text), std::move(reply)};
    }
    advanced_ = true;
  }

  /// Takes a request off the queue.
  void forget(Id id) {
    const auto found = waiting_.find(id);
    if (found == waiting_.begin()) {
      // The socket takes nothing yet: it may be deaf for good, or it has the first half of the request.
      if (sending_) closeSockets();
      sending_.reset();
      sent_ = false;
    }
    deadlines_.erase({found->second.deadline, id});
    waiting_.erase(found);
  }

  /// Sets the descriptor to when the next call of `process` has something to do.
  void setWakeUp() {
    if (socket() != watched_) {
      watched_ = socket();
      wakeUp_.watch(watchedDescriptor_ = descriptorOf(watched_), EPOLLIN);
    }
    if (!due_.empty() || (!waiting_.empty() && !sent_ && !sending_)) return wakeUp_.now();
    if (sending_) wakeUp_.at(sending_->wakeUp());
    if (!deadlines_.empty()) wakeUp_.at(deadlines_.begin()->first);
  }

  void closeSockets() noexcept override {
    if (watched_ != nullptr) wakeUp_.forget(watchedDescriptor_);
    watched_ = nullptr;
    RequestConnection::closeSockets();
  }

  WakeUp wakeUp_;
  void* watched_ = nullptr;  ///< the socket whose descriptor `wakeUp_` watches
  int watchedDescriptor_ = -1;
  Id lastId_ = 0;
  Queue waiting_;
  Deadlines deadlines_;
  std::optional<Sending> sending_;  ///< of the first request, until it is sent
  bool sent_ = false;               ///< the first request is sent and not answered
  bool advanced_ = false;           ///< a request has ended since it was reset
  std::deque<Due> due_;             ///< in the order of the ends
  // The thread that ends the process destroys a static client while another one is in a completion.
  std::atomic<bool> isProcessing_{false};  ///< `process` runs
  std::atomic<bool> orphaned_{false};      ///< destroyed while `process` runs
};

AsyncClient::AsyncClient(zmq::context_t& context, const std::string& endpoint)
    : state_(new State(context, endpoint)) {}  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks): recycled memory

AsyncClient::~AsyncClient() { state_->destroy(); }

AsyncClient::Id AsyncClient::append(SysMgrCommands::sysmgr_msg_t command, const Json::Value& body, Complete complete,
                                    std::chrono::milliseconds timeout) {
  return state_->append(command, body, std::move(complete), timeout);
}

void AsyncClient::readAnswer(Ending& ending, const std::function<void()>& read) {
  if (ending.status < 0) return;
  const auto fail = [&ending](const char* why) {
    ending.status = status::kBadAnswer;
    try {
      ending.text = report::badAnswer(nameOf(ending.command), why).text;
    } catch (const std::bad_alloc&) {
      // Then there is the status alone.
    }
  };
  try {
    read();
  } catch (const Json::Exception& wrongType) {
    fail(wrongType.what());
  } catch (const std::bad_alloc&) {
    fail(kNoMemory);
  }
}

bool AsyncClient::cancel(Id id) { return state_->cancel(id); }

int AsyncClient::descriptor() const { return state_->descriptor(); }

std::size_t AsyncClient::process() { return state_->process(); }

std::size_t AsyncClient::pending() const { return state_->pending(); }

}  // namespace zel
