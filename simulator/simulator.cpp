#include "simulator/simulator.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <iterator>
#include <utility>

#include "client/endpoints.h"
#include "client/sysmgr_jsonApi.h"
#include "common/envelope.h"
#include "common/shared/format_text.h"
#include "common/shared/socket_parts.h"
#include "simulator/connections.h"
#include "simulator/current.h"
#include "simulator/judge.h"
#include "simulator/replay.h"

namespace zel::sim {

namespace {

// A client has one request out at a time. What more it sends waits in its own socket, not in the memory of the board,
// and answers that it does not fetch are dropped.
constexpr int kQueuedRequests = 1;
constexpr int kQueuedAnswers = 32;  // with very few, answers are lost: libzmq learns late that those before have left
constexpr int kWaitingConnections = 512;

constexpr int kShutdownMs = 200;  // for the answers that are on their way
constexpr int kFlushMs = 5000;    // for those that have to arrive
constexpr std::size_t kMostFrames = 16;
constexpr std::size_t kMostWaitingRequests = 64;
constexpr std::size_t kMostWaitingBytes = std::size_t{8} << 20U;
constexpr std::size_t kMostRemembered = 1000;
constexpr std::size_t kMostRememberedBody = std::size_t{64} << 10U;
constexpr std::size_t kMostRememberedBytes = std::size_t{1} << 20U;
constexpr std::chrono::seconds kPortsAreFreeWithin{5};
constexpr std::chrono::milliseconds kClientsCloseWithin{500};
constexpr std::chrono::milliseconds kRepeatAfter{10};  // a client subscribes to several topics one after the other
constexpr std::chrono::milliseconds kTurn{10};         // then come new requests, timers and the end of the program

std::string cannotListen(const std::string& endpoint, const zmq::error_t& error) {
  std::string text = "cannot listen on " + endpoint + ": " + error.what();
  if (error.num() == EADDRINUSE) text += ". Is the system manager or another simulator running?";
  return text;
}

/// The path of the file of an ipc:// endpoint; nothing for others, and for those that have no file or a new one.
std::optional<std::string> pathOf(const std::string& endpoint) {
  constexpr std::string_view kIpc = "ipc://";
  if (endpoint.compare(0, kIpc.size(), kIpc) != 0) return std::nullopt;
  std::string path = endpoint.substr(kIpc.size());
  if (path.empty() || path.front() == '@' || path == "*") return std::nullopt;
  return path;
}

bool sendFrame(zmq::socket_t& socket, const std::string& frame, bool more) {
  const int flags = ZMQ_DONTWAIT | (more ? ZMQ_SNDMORE : 0);
  return despiteSignals([&] { return zmq_send(socket.handle(), frame.data(), frame.size(), flags); }) >= 0;
}

}  // namespace

Simulator::Simulator(SimulatorOptions options)
    : options_(std::move(options)), wakeUp_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
  if (!options_.storeFile.empty()) store_.emplace(options_.storeFile);
  if (options_.requests.empty()) options_.requests = zel::requestEndpoint();
  if (options_.notifications.empty()) options_.notifications = zel::notificationEndpoint();
}

Simulator::~Simulator() {
  publisher_.reset();  // its thread may post
  if (wakeUp_ >= 0) close(wakeUp_);
}

std::string Simulator::open() {
  if (wakeUp_ < 0) return "no event descriptor can be made";
  if (std::string why = readFaultFile(options_.faults); !why.empty()) return why;
  // The ports first: a simulator that cannot bind them must not touch the store, which the one that has them may use.
  if (std::string why = listen(); !why.empty()) return why;
  if (options_.mostGrowth > 0) {
    guard_.emplace(MemoryGuard::Options{options_.requests, options_.notifications, options_.mostGrowth, options_.tell});
  }
  return openStore();
}

std::string Simulator::openStore() {
  if (!store_) return {};
  store_->removeLeftovers();
  Json::Value document;
  bool found = false;
  std::string damage;
  if (std::string why = store_->load(document, found, damage); !why.empty()) return why;
  if (found && damage.empty()) {
    damage = options_.board.restore(document).text;
    if (damage.empty()) return {};
  }
  if (found) {
    std::string newPath;
    if (std::string why = store_->setAside(newPath); !why.empty()) return why;
    tell(store_->path() + " is damaged (" + damage + "); it is now " + newPath +
         ", and the board starts with its defaults.");
  }
  std::string warning;
  std::string why = store_->save(options_.board.keptState(), warning);  // shows at once whether it can be written
  if (!warning.empty()) tell(warning);
  return why;
}

/// Sees that libzmq, which removes any file at the path of an ipc:// endpoint, removes only a socket that is left over.
std::string Simulator::makeRoom() const {
  for (const std::string& endpoint : {options_.notifications, options_.requests}) {
    const auto path = pathOf(endpoint);
    if (!path) continue;
    if (std::string why = makeRoomForSocket(*path); !why.empty())
      return joined({"cannot listen on ", endpoint, ": ", why});
  }
  return {};
}

std::string Simulator::listen() {
  if (std::string why = makeRoom(); !why.empty()) return why;
  if (std::string why = tryToListen(); !why.empty()) return why;
  for (const std::string& endpoint : {options_.notifications, options_.requests}) {
    if (const auto path = pathOf(endpoint)) files_.emplace_back(*path);
  }
  return {};
}

std::string Simulator::tryToListen() {
  requests_ = zmq::socket_t(context_, zmq::socket_type::router);
  requests_.set(zmq::sockopt::linger, kShutdownMs);
  requests_.set(zmq::sockopt::maxmsgsize, static_cast<std::int64_t>(kMaxFrameBytes));
  requests_.set(zmq::sockopt::rcvhwm, kQueuedRequests);
  requests_.set(zmq::sockopt::sndhwm, kQueuedAnswers);
  requests_.set(zmq::sockopt::backlog, kWaitingConnections);

  // The publisher first: a client that has an answer may subscribe at once.
  std::string endpoint = options_.notifications;
  try {
    Publisher::OnSubscription onSubscription;
    if (options_.repeatOnSubscribe || options_.onSubscription) {
      onSubscription = [this](const std::string& prefix) {
        if (options_.onSubscription) options_.onSubscription(prefix);
        if (options_.repeatOnSubscribe) noteSubscription(prefix);
      };
    }
    publisher_.emplace(context_, onSubscription);
    publisher_->bind(endpoint);
    options_.notifications = publisher_->endpoint();
    endpoint = options_.requests;
    requests_.bind(endpoint);
    options_.requests = requests_.get(zmq::sockopt::last_endpoint);
  } catch (const zmq::error_t& error) {
    publisher_.reset();
    requests_.close();
    return cannotListen(endpoint, error);
  }
  return {};
}

void Simulator::stop() noexcept {
  stopping_ = true;
  wakeUp();
}

void Simulator::reloadFaults() noexcept {
  reloading_ = true;
  wakeUp();
}

void Simulator::wakeUp() const noexcept {
  const eventfd_t one = 1;
  [[maybe_unused]] const ssize_t written = write(wakeUp_, &one, sizeof one);  // fails only when it is woken already
}

void Simulator::misbehave(const FaultRule& rule) { faults_.add(rule); }

void Simulator::run() {
  serveUntilStopped();
  const std::lock_guard<std::mutex> lock(postMutex_);
  ended_ = true;
  posted_.clear();
}

void Simulator::serveUntilStopped() {
  if (options_.liveInterval.count() > 0) at(Clock::now() + options_.liveInterval, [this] { moveOn(); });
  for (;;) {
    const bool receives = serving_ && publisher_;
    zmq_pollitem_t items[] = {{nullptr, wakeUp_, ZMQ_POLLIN, 0}, {requests_.handle(), 0, ZMQ_POLLIN, 0}};
    const int ready = zmq_poll(items, receives ? 2 : 1, serving_ && !waiting_.empty() ? 0 : untilNextTimer());
    if (ready < 0) {
      if (zmq_errno() == EINTR) continue;
      return;
    }
    if (items[0].revents != 0 && !goesOn()) return;
    if (receives && publisher_ && items[1].revents != 0) receiveAll();
    if (serving_) serveWaiting();
    runTimers();
  }
}

/// What it was woken up for. @return whether it serves on
bool Simulator::goesOn() {
  eventfd_t count = 0;
  eventfd_read(wakeUp_, &count);
  if (stopping_) return false;
  if (reloading_.exchange(false)) {
    if (const std::string why = readFaultFile({}); !why.empty()) tell(why);
  }
  runPosted();
  return true;
}

void Simulator::post(std::function<void()> action) {
  const std::lock_guard<std::mutex> lock(postMutex_);
  if (ended_) return;
  posted_.push_back(std::move(action));
  wakeUp();
}

void Simulator::runPosted() {
  std::vector<std::function<void()>> actions;
  {
    const std::lock_guard<std::mutex> lock(postMutex_);
    actions.swap(posted_);
  }
  for (const std::function<void()>& action : actions) action();
}

// --- for actions

Outcome Simulator::alter(const Alteration& make) {
  Outcome outcome;
  if (options_.replay != nullptr) {
    outcome.reply = refusalReply({refusal::kRecording, "This board is a recording, which cannot be changed."});
    return outcome;
  }
  outcome = make(options_.board, keep());
  for (const Notification& notification : outcome.notifications) publish(notification);
  return outcome;
}

void Simulator::setServing(bool serving) {
  serving_ = serving;
  if (!serving_) return;
  for (const std::function<void()>& send : std::exchange(heldAnswers_, {})) send();
}

void Simulator::leave() {
  if (publisher_) endRequestConnections();
  publisher_.reset();
  requests_.close();
  files_.clear();
  waiting_.clear();
  waitingBytes_ = 0;
  heldAnswers_.clear();
  // libzmq closes ports and connections in a thread of its own, after the answers that are on their way.
  const auto end = Clock::now() + kPortsAreFreeWithin;
  while (hasSocketsAt({options_.requests, options_.notifications}) && Clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

/// Ends the connections of the clients, and waits until they have closed them: what a client requests after that does
/// not go into a connection that is about to end.
void Simulator::endRequestConnections() {
  requests_.unbind(options_.requests);
  const auto connections = [this] { return acceptedConnections({options_.requests}); };
  for (const AcceptedConnection& connection : connections()) finishConnection(connection.descriptor);
  for (const auto end = Clock::now() + kClientsCloseWithin; !connections().empty() && Clock::now() < end;) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

std::string Simulator::comeBack() {
  if (publisher_) return {};
  ++stay_;
  // libzmq gives the ports up in a thread of its own, a moment after the sockets are closed.
  const auto end = Clock::now() + kPortsAreFreeWithin;
  for (;;) {
    std::string why = listen();
    if (why.empty() || Clock::now() > end) return why;
    std::this_thread::sleep_for(kTurn);
  }
}

unsigned int Simulator::dropConnections() {
  unsigned int count = 0;
  for (const AcceptedConnection& connection : acceptedConnections({options_.requests, options_.notifications})) {
    count += endConnection(connection.descriptor) ? 1 : 0;
  }
  return count;
}

void Simulator::forgetRequests() {
  served_.clear();
  servedBytes_ = 0;
}

/// Has the orders of the file, behind the given ones, replace those that there are.
std::string Simulator::readFaultFile(std::vector<FaultRule> rules) {
  if (!options_.faultFile.empty()) {
    if (std::string why = FaultRule::parseFile(options_.faultFile, rules); !why.empty()) return why;
  }
  faults_.replaceAll(std::move(rules));
  return {};
}

// --- time

void Simulator::at(Clock::time_point time, std::function<void()> action) { timers_.emplace(time, std::move(action)); }

long Simulator::untilNextTimer() const {
  if (timers_.empty()) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(timers_.begin()->first - Clock::now()).count();
  return static_cast<long>(std::max<std::chrono::milliseconds::rep>(left, 0));
}

void Simulator::runTimers() {
  const auto now = Clock::now();
  while (!timers_.empty() && timers_.begin()->first <= now) {
    const std::function<void()> action = std::move(timers_.begin()->second);
    timers_.erase(timers_.begin());
    action();
  }
}

void Simulator::moveOn() {
  for (const Notification& notification : options_.board.moveOn()) publish(notification);
  at(Clock::now() + options_.liveInterval, [this] { moveOn(); });
}

// --- requests

void Simulator::receiveAll() {
  std::vector<std::string> frames;
  for (std::size_t count = 0; count < kMostWaitingRequests && waiting_.size() < kMostWaitingRequests && receive(frames);
       ++count) {
    take(std::move(frames));
  }
}

/// The small requests come first, so that they do not wait for all large ones; those of one connection keep their
/// order. When too many bytes wait, the largest request is refused.
void Simulator::wait(Request request) {
  std::size_t rank = request.body.size();
  for (const auto& [earlierRank, earlier] : waiting_) {
    if (earlier.envelope.front() == request.envelope.front()) rank = std::max(rank, earlierRank);
  }
  waitingBytes_ += request.body.size();
  waiting_.emplace(rank, std::move(request));
  while (waitingBytes_ > kMostWaitingBytes) {
    refuse(takeWaiting(std::prev(waiting_.end())),
           {refusal::kBusy, "The board is busy: too many large requests wait. This one was not carried out."});
  }
}

Simulator::Request Simulator::takeWaiting(Waiting::iterator which) {
  Request request = std::move(which->second);
  waiting_.erase(which);
  waitingBytes_ -= request.body.size();
  return request;
}

void Simulator::serveWaiting() {
  for (const auto end = Clock::now() + kTurn; !waiting_.empty() && Clock::now() < end;) {
    serve(takeWaiting(waiting_.begin()));
  }
}

/// @param frames  receives the frames of one message; of one that has far too many only the first
bool Simulator::receive(std::vector<std::string>& frames) {
  frames.clear();
  for (;;) {
    zmq::message_t frame;
    if (zmq_msg_recv(frame.handle(), requests_.handle(), ZMQ_DONTWAIT) < 0) return false;
    if (frames.size() <= kMostFrames) frames.push_back(frame.to_string());
    if (frame.more()) continue;
    if (guard_) guard_->taken(zmq_msg_get(frame.handle(), ZMQ_SRCFD));
    return true;
  }
}

void Simulator::take(std::vector<std::string> frames) {
  // The envelope: the identity of the connection, the frames that the client's socket has added, an empty frame.
  const auto delimiter = std::find(frames.begin() + 1, frames.end(), std::string());
  if (delimiter == frames.end()) return;  // no envelope: an answer would not reach the client

  Request request;
  request.stay = stay_;
  request.envelope.assign(frames.begin(), delimiter + 1);
  const auto content = frames.end() - (delimiter + 1);
  if (content != 2) {
    return refuse(request,
                  {refusal::kMalformedRequest,
                   "A request has two frames, the command id and the body; this "
                   "one has " +
                       std::string(frames.size() > kMostFrames ? "many more" : std::to_string(content)) + "."});
  }
  const std::string& id = *(delimiter + 1);
  const char* const end = id.data() + id.size();
  const auto read = std::from_chars(id.data(), end, request.id);
  if (read.ec != std::errc() || read.ptr != end) {
    return refuse(request, {refusal::kMalformedRequest,
                            "The command id \"" + shownBytes(id) + "\" is not a decimal number of 32 bits."});
  }
  request.body = std::move(*(delimiter + 2));
  wait(std::move(request));
}

void Simulator::serve(const Request& request) {
  const Exchange exchange = faults_.next(request.id);
  if (exchange.actAfter.count() > 0) {
    at(Clock::now() + exchange.actAfter, [this, request, exchange] { carryOut(request, exchange); });
  } else {
    carryOut(request, exchange);
  }
}

void Simulator::carryOut(const Request& request, const Exchange& exchange) {
  if (!publisher_ || request.stay != stay_) return;  // the daemon that took it has ended
  if (exchange.crash == Exchange::Crash::kBeforeActing) crash(false);

  Outcome outcome;
  if (exchange.acts) outcome = act(request);
  for (const Notification& notification : outcome.notifications) publish(notification);
  for (unsigned int sent = 0; sent < exchange.burst; ++sent) {
    if (const auto dynamic = current(SysmgrPublisher::SYSMGR_DYNAMIC_INFO_UPDATE)) publish(*dynamic);
  }
  if (exchange.crash == Exchange::Crash::kBeforeAnswering) crash(true);

  if (exchange.editReply) exchange.editReply(outcome.reply);
  std::string text;
  if (const std::string why = writeWireJson(outcome.reply, text); !why.empty()) {
    writeWireJson(refusalReply({refusal::kMalformedRequest, "The answer cannot be written: " + why + "."}), text);
  }
  const Json::Value status = outcome.reply.isObject() ? outcome.reply.get("status", 0) : Json::Value(0);
  if (exchange.editText) exchange.editText(text);
  trace(request, exchange, text);

  for (int sent = 0; sent < exchange.answers; ++sent) {
    if (exchange.answerAfter.count() > 0) {
      at(Clock::now() + exchange.answerAfter, [this, request, text] { answer(request, text); });
    } else {
      answer(request, text);
    }
  }
  if (exchange.crash == Exchange::Crash::kAfterAnswering) {
    // Not at once: a client's socket drops an answer that it has not fetched yet when it learns that the daemon is
    // gone.
    at(Clock::now() + exchange.crashAfter, [this] { crash(true); });
  }
  remember(request, exchange, status.isInt() ? status.asInt() : 0);
}

Outcome Simulator::act(const Request& request) {
  Json::Value body;
  if (!request.body.empty()) {
    if (const std::string why = reader_.read(request.body, body); !why.empty()) {
      Outcome outcome;
      outcome.reply = refusalReply({refusal::kMalformedRequest, "The body \"" + shownBytes(request.body) +
                                                                    "\" is not one JSON document: " + why + "."});
      return outcome;
    }
  }
  if (options_.replay != nullptr) return options_.replay->handle(request.id, body);
  return options_.board.handle(request.id, body, keep());
}

/// A change is made if, and only if, the store holds it.
Board::Keep Simulator::keep() {
  if (!store_) return {};
  return [this](const Json::Value& keptState, Json::Value& reply) -> Refusal {
    std::string warning;
    if (const std::string why = store_->save(keptState, warning); !why.empty()) {
      return {refusal::kNotStored, "The change cannot be stored: " + why + "."};
    }
    if (!warning.empty()) {
      reply[envelope::kStatus] = kStoredButNotSynced;
      reply[envelope::kAuxErrors].append("The change is stored, but a power failure may undo it: " + warning + ".");
    }
    return {};
  };
}

void Simulator::answer(const Request& request, const std::string& text) {
  if (!publisher_ || request.stay != stay_) return;
  if (!serving_) return heldAnswers_.push_back([this, request, text] { answer(request, text); });
  for (const std::string& frame : request.envelope) {
    if (!sendFrame(requests_, frame, true)) return;  // the client is gone
  }
  sendFrame(requests_, text, false);
  lastAnswer_ = Clock::now();
}

void Simulator::refuse(const Request& request, const Refusal& why) {
  std::string text;
  writeWireJson(refusalReply(why), text);
  trace(request, Exchange(), text);
  answer(request, text);
  remember(request, Exchange(), why.status);
}

void Simulator::remember(const Request& request, const Exchange& exchange, int status) {
  const auto now = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start_);
  served_.push_back(
      {++servedCount_, now, request.id, request.body.substr(0, kMostRememberedBody), status, exchange.fault});
  servedBytes_ += served_.back().body.size();
  while (served_.size() > kMostRemembered || servedBytes_ > kMostRememberedBytes) {
    servedBytes_ -= served_.front().body.size();
    served_.pop_front();
  }
  for (const auto& observer : observers_) observer(request.id);
}

void Simulator::publish(const Notification& notification) {
  std::string payload;
  if (!notification.payload.isNull() && !writeWireJson(notification.payload, payload).empty()) return;
  publishFrames({std::to_string(notification.topic), payload});
}

std::optional<Notification> Simulator::current(SysmgrPublisher::sysmgr_notifications_t topic) const {
  return options_.replay != nullptr ? options_.replay->current(topic) : currentNotification(options_.board, topic);
}

/// Called in the publisher's thread.
void Simulator::noteSubscription(const std::string& prefix) {
  unsigned int topics = 0;
  for (std::size_t index = 0; index < std::size(SysmgrPublisher::kNotifications); ++index) {
    const std::string topic = SysmgrPublisher::topicOf(SysmgrPublisher::kNotifications[index]);
    if (topic.compare(0, prefix.size(), prefix) == 0) topics |= 1U << index;
  }
  // However many clients subscribe meanwhile, a document is published once.
  if ((subscribedTopics_.fetch_or(topics) & topics) == topics) return;
  post([this] { at(Clock::now() + kRepeatAfter, [this] { repeat(subscribedTopics_.exchange(0)); }); });
}

void Simulator::repeat(unsigned int topics) {
  for (std::size_t index = 0; index < std::size(SysmgrPublisher::kNotifications); ++index) {
    if ((topics & (1U << index)) == 0) continue;
    if (const auto notification = current(SysmgrPublisher::kNotifications[index])) publish(*notification);
  }
}

void Simulator::publishFrames(const std::vector<std::string>& frames) {
  if (publisher_) publisher_->publish(frames);
}

void Simulator::tell(const std::string& text) const {
  if (options_.tell) options_.tell(text);
}

void Simulator::trace(const Request& request, const Exchange& exchange, const std::string& answer) const {
  if (!options_.trace) return;
  std::string name;
  SysMgrCommands::getCommandNameStr(static_cast<SysMgrCommands::sysmgr_msg_t>(request.id), name);
  std::string line =
      std::to_string(request.id) + " \"" + name + "\" " + shownBytes(request.body) + " -> " + shownBytes(answer);
  if (exchange.fault != nullptr) line += std::string(" (fault: ") + exchange.fault + ")";
  options_.trace(line);
}

/// Ends the process as a crash does, without destructors and exit handlers.
/// @param flush  whether what was sent leaves first
void Simulator::crash(bool flush) {
  if (flush && publisher_) {
    publisher_->end(kFlushMs);
    requests_.set(zmq::sockopt::linger, kFlushMs);
    requests_.close();
    context_.close();  // waits for the messages on their way, for as long as they may linger
  }
  std::raise(SIGKILL);
  std::abort();
}

// --- in a thread

SimulatorThread::SimulatorThread(SimulatorOptions options)
    : simulator_(std::move(options)), failure_(simulator_.open()) {
  if (failure_.empty()) thread_ = std::thread([this] { simulator_.run(); });
}

SimulatorThread::~SimulatorThread() {
  simulator_.stop();
  if (thread_.joinable()) thread_.join();
}

std::string SimulatorThread::misbehave(const std::string& rule) {
  FaultRule read;
  std::string why = FaultRule::parse(rule, read);
  if (why.empty()) simulator_.misbehave(read);
  return why;
}

}  // namespace zel::sim
