#include "common/subscribe_json_client.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <optional>
#include <thread>
#include <utility>

#include "common/internal/socket_owner.h"
#include "common/logger.h"
#include "common/shared/recycled.h"
#include "common/shared/socket_parts.h"
#include "common/shared/wire_json.h"
#include "common/status.h"

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

/// How long a publisher may take to see the subscriptions of a renewed connection. They come right behind the
/// handshake, but a libzmq publisher that sends without a pause looks at them only every 3 million ticks of its
/// processor's counter, and a busy machine is slower. libzmq has no sign that a subscription is seen.
constexpr std::chrono::milliseconds kSubscribeTime = 20ms;

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

/// Numbers the endpoints of the monitors. Not inside the class: the library exports what its public classes hold.
std::atomic<unsigned int> monitorsOpened{0};

/// Only the events of an existing connection. Attempts that are refused raise no event: an application that
/// sleeps for a day without a daemon finds an empty queue.
constexpr int kLinkEvents = ZMQ_EVENT_HANDSHAKE_SUCCEEDED | ZMQ_EVENT_HANDSHAKE_FAILED_NO_DETAIL |
                            ZMQ_EVENT_HANDSHAKE_FAILED_PROTOCOL | ZMQ_EVENT_HANDSHAKE_FAILED_AUTH |
                            ZMQ_EVENT_DISCONNECTED;
constexpr int kAttemptEvents = ZMQ_EVENT_CONNECTED | ZMQ_EVENT_CLOSED;

}  // namespace

/// The sockets, and the care for the connection behind them.
///
/// libzmq itself reconnects when a peer goes away. It gives a connection up for good after a violation of its protocol,
/// a message over the limit included. Both look the same here; so after each loss the address is connected anew, unless
/// libzmq was faster.
class SubscribeJsonClient::Connection final : public zel::SocketOwner {
 public:
  explicit Connection(zmq::context_t& context) : context_(context) {}
  ~Connection() override { retire(); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  static void* operator new(std::size_t) { return zel::Recycled<Connection>::take(); }
  static void operator delete(void* memory) { zel::Recycled<Connection>::giveBack(memory); }

  bool open(const std::string& address) {
    if (!attach(context_)) return false;
    const Use use(*this);
    if (!use) return false;
    const Clock::time_point deadline = Clock::now() + kConnectLimit;
    const bool renewed = link_.socket != nullptr;
    CloseUnlessKept onFailure{*this};
    if (!zel::descriptorsAvailable() || !(renewed ? drop() : open(link_, kLinkEvents))) return false;
    address_ = address;
    if (!establish(deadline)) return false;
    onFailure.kept = true;
    if (renewed && linked_) std::this_thread::sleep_for(kSubscribeTime);
    return true;
  }

  /// Runs an action with the open socket.
  /// @return what the action returns; nothing when there is no open socket or its use is refused
  template <class Action>
  auto whileOpen(Action action) -> std::optional<decltype(action())> {
    const Use use(*this);
    if (!use || link_.socket == nullptr) return {};
    return action();
  }

  void* socket() const { return link_.socket; }

  int setFilter(int option, const std::string& topic) const {
    return zmq_setsockopt(link_.socket, option, topic.data(), topic.size()) == 0 ? kOk : kCannotConnect;
  }

  /// Takes the next notification. @return 1, or 0 when there is none
  int take(std::string& topic, int& errorCode, Json::Value& payload) {
    Frame first;
    if (!first.receiveNow(link_.socket)) {
      tendLink(true);
      return 0;
    }
    topic.assign(first.text());
    errorCode = takePayload(first, payload);
    return 1;
  }

  int linkDescriptor() const override { return descriptorOf(link_.monitor); }

  std::optional<Clock::time_point> tendLink(bool readable) override {
    if (link_.socket == nullptr) return {};
    if (readable || reviveAt_) noteEvents();         // libzmq may have been faster
    if (!reviveAt_ || mayHoldMessages()) return {};  // to disconnect would drop the messages
    if (*reviveAt_ <= Clock::now()) revive();
    return reviveAt_;
  }

 private:
  /// A SUB socket, and the PAIR socket on which libzmq reports the events of its connection.
  struct Monitored {
    void* socket = nullptr;
    void* monitor = nullptr;
  };

  /// Closes the sockets with its scope, unless they are to be kept.
  struct CloseUnlessKept {
    Connection& connection;
    bool kept = false;
    ~CloseUnlessKept() {
      if (!kept) connection.closeSockets();
    }
  };

  bool open(Monitored& pair, int events) {
    const std::string endpoint = "inproc://zel-subscriber-" + std::to_string(++monitorsOpened);
    pair.socket = openSocket(ZMQ_SUB);
    pair.monitor = openSocket(ZMQ_PAIR);
    return pair.socket != nullptr && pair.monitor != nullptr && zel::setOptions(pair.socket, kSocketOptions) &&
           zel::setOptions(pair.monitor, kMonitorOptions) &&
           zmq_socket_monitor(pair.socket, endpoint.c_str(), events) == 0 && zel::connect(pair.monitor, endpoint) == 0;
  }

  void close(Monitored& pair) noexcept {
    // Stop monitoring first. If the PAIR socket were closed while events are sent, libzmq's I/O thread would block
    // forever, and with it every socket.
    if (pair.socket != nullptr) zmq_socket_monitor(pair.socket, nullptr, 0);
    closeSocket(pair.monitor);
    closeSocket(pair.socket);
  }

  /// @return the next event's number; 0 when there is none
  static int nextEvent(const Monitored& pair) {
    Frame event;
    if (!event.receiveNow(pair.monitor)) return 0;
    std::uint16_t number = 0;
    std::memcpy(&number, event.text().data(), sizeof number);
    Frame address;
    address.receiveNow(pair.monitor);
    return number;
  }
  /// @return 0 at the deadline
  static int awaitEvent(const Monitored& pair, Clock::time_point deadline) {
    for (;;) {
      if (const int event = nextEvent(pair); event != 0) return event;
      if (!zel::waitFor({pair.monitor, 0, ZMQ_POLLIN, 0}, deadline)) return 0;
    }
  }

  /// The descriptor that is readable when there is something to do for the socket.
  static int descriptorOf(void* socket) {
    int descriptor = -1;
    std::size_t size = sizeof descriptor;
    if (socket != nullptr) zmq_getsockopt(socket, ZMQ_FD, &descriptor, &size);
    return descriptor;
  }

  /// Whether a peer accepts connections at the address. A socket of its own asks: one that reports every attempt would
  /// go on reporting as long as it lives.
  bool isListening(Clock::time_point deadline) {
    struct Probe : Monitored {
      Connection& connection;
      explicit Probe(Connection& owner) : connection(owner) {}
      ~Probe() { connection.close(*this); }
    } probe(*this);
    return open(probe, kAttemptEvents) && zel::connect(probe.socket, address_) == 0 &&
           awaitEvent(probe, deadline) == ZMQ_EVENT_CONNECTED;
  }

  /// Connects the socket, and waits for the handshake with a peer that is there.
  /// @return whether the address is valid
  bool establish(Clock::time_point deadline) {
    const bool there = isListening(deadline);
    if (zel::connect(link_.socket, address_) != 0) return false;
    reviveAt_.reset();
    linked_ = false;
    while (there && !linked_) {
      const int event = awaitEvent(link_, deadline);
      noteEvent(event);
      if (event == 0) break;
    }
    noteEvents();
    return true;
  }

  /// Ends the connection, together with what it holds unread.
  /// @return true
  bool drop() {
    // Only behind the last frame of a message: libzmq aborts when it is asked for the rest of one that it has dropped.
    if (takeMessage()) {
      Logger::log(Logger::LEVEL_PROGRESS,
                  "SubscribeJsonClient: dropped the unread notifications of the connection to %s", address_.c_str());
    }
    linked_ = false;
    disconnect();
    return true;
  }

  /// Takes all frames of the next message. @return whether there was one
  bool takeMessage() const {
    Frame frame;
    if (!frame.receiveNow(link_.socket)) return false;
    while (frame.more() && frame.receiveNow(link_.socket)) continue;
    return true;
  }

  /// Takes the frames behind a topic, all of them.
  int takePayload(Frame& topic, Json::Value& payload) {
    Frame frame;
    const bool two = topic.more() && frame.receiveNow(link_.socket) && !frame.more();
    while (frame.more() && frame.receiveNow(link_.socket)) continue;
    if (!two) return kBadNotificationFrames;
    if (!frame.text().empty()) return reader_.read(frame.text(), payload).empty() ? kOk : kBadNotificationJson;
    payload = Json::Value();
    return kOk;
  }

  void noteEvents() {
    while (const int event = nextEvent(link_)) noteEvent(event);
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
    const int events = zel::eventsOf(link_.socket);
    return events < 0 || (events & ZMQ_POLLIN) != 0;
  }

  void revive() {
    disconnect();
    reviveAt_.reset();
    if (zel::connect(link_.socket, address_) != 0) reviveAt_ = Clock::now() + kReconnectInterval;
  }

  void disconnect() {
    // libzmq remembers a connection that it has given up, and to connect does nothing until it has forgotten it.
    zel::despiteSignals([&] { return zmq_disconnect(link_.socket, address_.c_str()); });
    awaitEnd();
    noteEvents();  // the last events of the old connection: the next ones are the new one's
  }

  /// Waits for the end of the connection that was given up. libzmq's thread does the first step of it, this thread the
  /// second one, and libzmq's thread the last one, before it begins a new connection. Until then the old one lives on,
  /// and may even complete a handshake once more; taken for the new one's, that would hide that the new one is gone for
  /// good. A connection that has ended by itself causes no event here.
  void awaitEnd() const {
    const zmq_pollitem_t commands{nullptr, descriptorOf(link_.socket), ZMQ_POLLIN, 0};
    if (!zel::waitFor(commands, Clock::now() + kEndLimit)) return;
    mayHoldMessages();                           // lets libzmq process the commands: the second step
    zel::waitFor(commands, Clock::now() + 1ms);  // in case these were commands of something else
    mayHoldMessages();
  }

  void closeSockets() noexcept override {
    close(link_);
    reviveAt_.reset();
    linked_ = false;
  }
  void forgetSockets() noexcept override {
    link_ = {};
    reviveAt_.reset();
    linked_ = false;
  }

  zmq::context_t& context_;
  std::string address_;
  Monitored link_;
  bool linked_ = false;  ///< a handshake has succeeded, and no loss has been reported since
  std::optional<Clock::time_point> reviveAt_;
  zel::WireJsonReader reader_;
};

// NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks): its memory is recycled
SubscribeJsonClient::SubscribeJsonClient(zmq::context_t& context) : connection_(new Connection(context)) {}

SubscribeJsonClient::~SubscribeJsonClient() { delete connection_; }

int SubscribeJsonClient::connect(const std::string& address) {
  return connection_->open(address) ? kOk : kCannotConnect;
}

int SubscribeJsonClient::subscribe(const std::string& topic) {
  return connection_->whileOpen([&] { return connection_->setFilter(ZMQ_SUBSCRIBE, topic); }).value_or(kNotInitialized);
}

int SubscribeJsonClient::unsubscribe(const std::string& topic) {
  return connection_->whileOpen([&] { return connection_->setFilter(ZMQ_UNSUBSCRIBE, topic); })
      .value_or(kNotInitialized);
}

int SubscribeJsonClient::getPollItems(PollFds& pollFds) {
  const auto add = [&] {
    pollFds.add({connection_->socket(), 0, ZMQ_POLLIN, 0});
    return kOk;
  };
  return connection_->whileOpen(add).value_or(kNotInitialized);
}

int SubscribeJsonClient::processEvent(const zmq_pollitem_t&, std::string& topic, int& errorCode, Json::Value& payload) {
  return connection_->whileOpen([&] { return connection_->take(topic, errorCode, payload); }).value_or(0);
}
