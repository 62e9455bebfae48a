#include "common/subscribe_json_client.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <optional>
#include <utility>

#include "common/link_keeper.h"
#include "common/logger.h"
#include "common/open_sockets.h"
#include "common/socket_parts.h"
#include "common/status.h"
#include "common/wire_json.h"

using zel::Clock;
using zel::Frame;
using zel::status::kBadNotificationFrames;
using zel::status::kBadNotificationJson;
using zel::status::kCannotConnect;
using zel::status::kNotInitialized;
using zel::status::kOk;

namespace {

using namespace std::chrono_literals;

/// The longest that `connect` waits for a publisher that takes the connection and then says nothing.
constexpr std::chrono::milliseconds kConnectLimit = 200ms;
/// Between the loss of a connection and the next attempt; libzmq adds up to as much again at random.
constexpr std::chrono::milliseconds kReconnectInterval = 50ms;

/// How long a revival waits for libzmq's thread to end the connection before.
constexpr std::chrono::milliseconds kEndLimit = 10ms;

/// What the socket is set to before it connects, and why. libzmq 4.3.4 behaves as the reasons say.
/// No time-out but that of connecting: libzmq ends the process when one of its timers gives a connection up whose
/// messages wait unread, and they are read after all (its issue 3937). On the loopback the kernel tells the end of
/// every peer.
constexpr zel::SocketOption kSocketOptions[] = {
    {ZMQ_LINGER, 0},     // nothing holds up the end of the process
    {ZMQ_RCVHWM, 1000},  // not above the publisher's own limit, where what we do not take waits next
    {ZMQ_RECONNECT_IVL, static_cast<int>(kReconnectInterval.count())},
    {ZMQ_HANDSHAKE_IVL, 0},  // runs on behind the handshake of the oldest protocol
    {ZMQ_HEARTBEAT_IVL, 0},
    {ZMQ_CONNECT_TIMEOUT, 1000},
    {ZMQ_MAXMSGSIZE, static_cast<int>(zel::kMaxFrameBytes)},  // an endless frame cannot take the memory
};

constexpr zel::SocketOption kMonitorOptions[] = {
    {ZMQ_LINGER, 0},
    {ZMQ_RCVHWM, 0},  // no limit: at a limit libzmq's I/O thread would wait for us, and with it every other socket
};

/// Only what tells the state of an existing connection. Attempts that are refused raise no event: an application that
/// sleeps for a day without a daemon finds an empty queue.
constexpr int kLinkEvents = ZMQ_EVENT_HANDSHAKE_SUCCEEDED | ZMQ_EVENT_HANDSHAKE_FAILED_NO_DETAIL |
                            ZMQ_EVENT_HANDSHAKE_FAILED_PROTOCOL | ZMQ_EVENT_HANDSHAKE_FAILED_AUTH |
                            ZMQ_EVENT_DISCONNECTED;
constexpr int kAttemptEvents = ZMQ_EVENT_CONNECTED | ZMQ_EVENT_CLOSED;

/// A SUB socket, and the PAIR socket on which libzmq tells what becomes of its connection.
class WatchedSocket {
 public:
  WatchedSocket() = default;
  ~WatchedSocket() { close(); }
  WatchedSocket(const WatchedSocket&) = delete;
  WatchedSocket& operator=(const WatchedSocket&) = delete;

  bool open(zmq::context_t& context, int events) {
    static std::atomic<unsigned int> opened{0};
    const std::string endpoint = "inproc://zel-subscriber-" + std::to_string(++opened);
    socket_ = zmq_socket(context.handle(), ZMQ_SUB);
    monitor_ = zmq_socket(context.handle(), ZMQ_PAIR);
    return socket_ != nullptr && monitor_ != nullptr && zel::setOptions(socket_, kSocketOptions) &&
           zel::setOptions(monitor_, kMonitorOptions) && zmq_socket_monitor(socket_, endpoint.c_str(), events) == 0 &&
           zel::connect(monitor_, endpoint) == 0;
  }

  void close() noexcept {
    // The telling ends first: libzmq's I/O thread would wait for ever for a listener that goes meanwhile, and with it
    // every socket.
    if (socket_ != nullptr) zmq_socket_monitor(socket_, nullptr, 0);
    if (monitor_ != nullptr) zmq_close(monitor_);
    if (socket_ != nullptr) zmq_close(socket_);
    forget();
  }
  void forget() noexcept { socket_ = monitor_ = nullptr; }

  void* socket() const { return socket_; }
  // The descriptors that are readable when there is something to do for a socket; -1 when there is none.
  int descriptor() const { return descriptorOf(socket_); }
  int monitorDescriptor() const { return descriptorOf(monitor_); }

  /// @return the next event's number; 0 when there is none
  int nextEvent() {
    Frame event;
    if (!event.receiveNow(monitor_)) return 0;
    std::uint16_t number = 0;
    std::memcpy(&number, event.text().data(), sizeof number);
    Frame address;
    address.receiveNow(monitor_);
    return number;
  }
  /// @return 0 at the deadline
  int awaitEvent(Clock::time_point deadline) {
    for (;;) {
      if (const int event = nextEvent(); event != 0) return event;
      if (!zel::waitFor({monitor_, 0, ZMQ_POLLIN, 0}, deadline)) return 0;
    }
  }

 private:
  static int descriptorOf(void* socket) {
    int descriptor = -1;
    std::size_t size = sizeof descriptor;
    zmq_getsockopt(socket, ZMQ_FD, &descriptor, &size);
    return descriptor;
  }

  void* socket_ = nullptr;
  void* monitor_ = nullptr;
};

/// Whether somebody accepts connections at the address. It takes a socket of its own to ask: one that tells of every
/// attempt would go on telling as long as it lives.
bool somebodyListens(zmq::context_t& context, const std::string& address, Clock::time_point deadline) {
  WatchedSocket probe;
  return probe.open(context, kAttemptEvents) && zel::connect(probe.socket(), address) == 0 &&
         probe.awaitEvent(deadline) == ZMQ_EVENT_CONNECTED;
}

}  // namespace

/// The sockets, and the care for the connection behind them.
///
/// libzmq itself reconnects when a peer goes away. It gives a connection up for good after a violation of its protocol,
/// a message over the limit included. Both look the same here; so after each loss the address is connected anew, unless
/// libzmq was faster.
class SubscribeJsonClient::Connection final : public zel::SocketHolder, public zel::LinkKeeper {
 public:
  using SocketHolder::Use;

  explicit Connection(zmq::context_t& context) : context_(context) {}
  ~Connection() override {
    detach();
    close();
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  bool open(const std::string& address) {
    const Clock::time_point deadline = Clock::now() + kConnectLimit;
    close();
    attach(context_);
    const Use use(*this);
    address_ = address;
    if (!zel::descriptorsAvailable() || !link_.open(context_, kLinkEvents)) return false;
    const bool there = somebodyListens(context_, address, deadline);
    if (zel::connect(link_.socket(), address) != 0) return false;
    keepLinkOf(link_.socket());
    if (there) noteEvent(link_.awaitEvent(deadline));
    noteEvents();
    return true;
  }

  /// Gives up what there is. A forked child forgets it: it belongs to the parent and to threads that the child does
  /// not have.
  void close() noexcept {
    if (ownsSockets()) {
      closeSockets();
    } else {
      keepLinkOf(nullptr);
      link_.forget();
    }
    reviveAt_.reset();
    linked_ = false;
  }

  bool isOpen() const { return link_.socket() != nullptr && ownsSockets(); }
  void* socket() const { return link_.socket(); }

  int setFilter(int option, const std::string& topic) {
    if (!isOpen()) return kNotInitialized;
    return zmq_setsockopt(link_.socket(), option, topic.data(), topic.size()) == 0 ? kOk : kCannotConnect;
  }

  /// Takes the frames behind a topic, all of them.
  int takePayload(Frame& topic, Json::Value& payload) {
    Frame frame;
    const bool two = topic.more() && frame.receiveNow(link_.socket()) && !frame.more();
    while (frame.more() && frame.receiveNow(link_.socket())) continue;
    if (!two) return kBadNotificationFrames;
    if (!frame.text().empty()) return reader_.read(frame.text(), payload).empty() ? kOk : kBadNotificationJson;
    payload = Json::Value();
    return kOk;
  }

  bool beginWait() override { return wait_.emplace(*this) && ownsSockets(); }
  void endWait() noexcept override { wait_.reset(); }
  int watched() const override { return link_.monitorDescriptor(); }

  std::optional<Clock::time_point> tend(bool told) override {
    if (told || reviveAt_) noteEvents();             // libzmq may have been faster
    if (!reviveAt_ || mayHoldMessages()) return {};  // to disconnect would drop the messages
    if (*reviveAt_ <= Clock::now()) revive();
    return reviveAt_;
  }

 private:
  void noteEvents() {
    while (const int event = link_.nextEvent()) noteEvent(event);
  }

  void noteEvent(int event) {
    if (event == 0) return;
    if (event == ZMQ_EVENT_HANDSHAKE_SUCCEEDED) {
      reviveAt_.reset();
      linked_ = true;
      return;
    }
    if (!reviveAt_) reviveAt_ = Clock::now() + kReconnectInterval;
    if (!std::exchange(linked_, false)) return;
    Logger::log(Logger::LEVEL_PROGRESS, "SubscribeJsonClient: lost the connection to %s, connecting again",
                address_.c_str());
  }

  bool mayHoldMessages() const {
    const int events = zel::eventsOf(link_.socket());
    return events < 0 || (events & ZMQ_POLLIN) != 0;
  }

  void revive() {
    // libzmq remembers a connection that it has given up, and to connect does nothing until it has forgotten it.
    zel::despiteSignals([&] { return zmq_disconnect(link_.socket(), address_.c_str()); });
    awaitEnd();
    noteEvents();  // the last of the old connection: the next ones are the new one's
    reviveAt_.reset();
    if (zel::connect(link_.socket(), address_) != 0) reviveAt_ = Clock::now() + kReconnectInterval;
  }

  /// Waits for the end of the connection that was given up: libzmq's thread has a part in it, then we have, then it
  /// has again, before it begins with a new one. Until then the old one lives on, and may even succeed once more; taken
  /// for the new one's, that would hide that the new one is gone for good. Nothing is heard of one that has ended by
  /// itself.
  void awaitEnd() const {
    const zmq_pollitem_t whatIsTold{nullptr, link_.descriptor(), ZMQ_POLLIN, 0};
    if (!zel::waitFor(whatIsTold, Clock::now() + kEndLimit)) return;
    mayHoldMessages();                             // which lets libzmq do our part
    zel::waitFor(whatIsTold, Clock::now() + 1ms);  // had it been something else that was told
    mayHoldMessages();
  }

  void closeSockets() noexcept override {
    keepLinkOf(nullptr);
    link_.close();
  }

  zmq::context_t& context_;
  std::string address_;
  WatchedSocket link_;
  bool linked_ = false;
  std::optional<Clock::time_point> reviveAt_;
  std::optional<Use> wait_;
  zel::WireJsonReader reader_;
};

SubscribeJsonClient::SubscribeJsonClient(zmq::context_t& context)
    : connection_(std::make_unique<Connection>(context)) {}

SubscribeJsonClient::~SubscribeJsonClient() = default;

int SubscribeJsonClient::connect(const std::string& address) {
  if (connection_->open(address)) return kOk;
  connection_->close();
  return kCannotConnect;
}

int SubscribeJsonClient::subscribe(const std::string& topic) {
  const Connection::Use use(*connection_);
  return use ? connection_->setFilter(ZMQ_SUBSCRIBE, topic) : kNotInitialized;
}

int SubscribeJsonClient::unsubscribe(const std::string& topic) {
  const Connection::Use use(*connection_);
  return use ? connection_->setFilter(ZMQ_UNSUBSCRIBE, topic) : kNotInitialized;
}

int SubscribeJsonClient::getPollItems(PollFds& pollFds) {
  if (!connection_->isOpen()) return kNotInitialized;
  pollFds.add({connection_->socket(), 0, ZMQ_POLLIN, 0});
  return kOk;
}

int SubscribeJsonClient::processEvent(const zmq_pollitem_t&, std::string& topic, int& errorCode, Json::Value& payload) {
  const Connection::Use use(*connection_);
  if (!use || !connection_->isOpen()) return 0;

  Frame first;
  if (!first.receiveNow(connection_->socket())) {
    connection_->tend(true);
    return 0;
  }
  topic.assign(first.text());
  errorCode = connection_->takePayload(first, payload);
  return 1;
}
