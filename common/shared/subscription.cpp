#include "common/shared/subscription.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <thread>
#include <utility>

#include "common/logger.h"
#include "common/shared/library_bit.h"
#include "common/shared/wire_json.h"
#include "common/status.h"

namespace zel {

namespace {

using namespace std::chrono_literals;

/// The longest that `connect` waits for a publisher that takes the connection and then says nothing.
constexpr std::chrono::milliseconds kConnectLimit = 200ms;
/// Between the loss of a connection and the next attempt; libzmq adds up to as much again at random.
constexpr std::chrono::milliseconds kReconnectInterval = 50ms;

/// How long a revival waits for libzmq's thread to end the connection before.
constexpr std::chrono::milliseconds kEndLimit = 10ms;

/// What the socket is set to before it connects, and why. libzmq 4.3.4 behaves as the reasons say.
/// ZMQ_CONNECT_TIMEOUT is the only time-out. After the timer of a handshake or a heartbeat has closed a connection with
/// unread messages, libzmq ends the process when they are read (its issue 3937). No timer is needed to see that a peer
/// has ended: on the loopback the kernel closes its connections.
constexpr SocketOption kSocketOptions[] = {
    {ZMQ_LINGER, 0},     // nothing holds up the end of the process
    {ZMQ_RCVHWM, 1000},  // not above the publisher's own limit, where what we do not take waits next
    {ZMQ_RECONNECT_IVL, static_cast<int>(kReconnectInterval.count())},
    {ZMQ_HANDSHAKE_IVL, 0},  // runs on behind the handshake of the oldest protocol
    {ZMQ_HEARTBEAT_IVL, 0},
    {ZMQ_CONNECT_TIMEOUT, 1000},
    {ZMQ_MAXMSGSIZE, static_cast<int>(kMaxFrameBytes)},  // an endless frame cannot take the memory
};

constexpr SocketOption kMonitorOptions[] = {
    {ZMQ_LINGER, 0},
    {ZMQ_RCVHWM, 0},  // no limit: at a limit libzmq's I/O thread would wait for us, and with it every other socket
};

/// Numbers the endpoints of the monitors of this library. Not inside the class: the library exports what its public
/// classes hold.
std::atomic<unsigned int> monitorsOpened{0};

/// The endpoint of the next monitor: unlike every other on the context, those of the other library included.
std::string monitorEndpoint() {
  return "inproc://zel-subscriber-" + std::to_string(kLibraryBit) + '-' + std::to_string(++monitorsOpened);
}

/// Only the events of an existing connection. Attempts that are refused raise no event: an application that
/// sleeps for a day without a daemon finds an empty queue.
constexpr int kLinkEvents = ZMQ_EVENT_HANDSHAKE_SUCCEEDED | ZMQ_EVENT_HANDSHAKE_FAILED_NO_DETAIL |
                            ZMQ_EVENT_HANDSHAKE_FAILED_PROTOCOL | ZMQ_EVENT_HANDSHAKE_FAILED_AUTH |
                            ZMQ_EVENT_DISCONNECTED;
constexpr int kAttemptEvents = ZMQ_EVENT_CONNECTED | ZMQ_EVENT_CLOSED;

}  // namespace

/// Closes the sockets with its scope, unless they are to be kept.
struct Subscription::CloseUnlessKept {
  Subscription& connection;
  bool kept = false;
  ~CloseUnlessKept() {
    if (!kept) connection.closeSockets();
  }
};

bool Subscription::open(const std::string& address) {
  if (!attach(context_)) return false;
  const Use use(*this);
  if (!use) return false;
  const Clock::time_point deadline = Clock::now() + kConnectLimit;
  const bool renewed = link_.socket != nullptr;
  CloseUnlessKept onFailure{*this};
  if (!descriptorsAvailable() || !(renewed ? drop() : open(link_, kLinkEvents))) return false;
  address_ = address;
  if (!establish(deadline)) return false;
  onFailure.kept = true;
  if (renewed && linked_) std::this_thread::sleep_for(kSubscribeTime);
  return true;
}

bool Subscription::openNow(const std::string& address, std::vector<std::string> topics) {
  if (!attach(context_)) return false;
  const Use use(*this);
  address_ = address;
  topics_ = std::move(topics);
  return use && replaceSocket();
}

/// Opens a new socket in place of the one before. @return whether it could be opened
bool Subscription::replaceSocket() {
  closeSockets();
  CloseUnlessKept onFailure{*this};
  if (!descriptorsAvailable() || !open(link_, kLinkEvents) || zel::connect(link_.socket, address_) != 0) return false;
  for (const std::string& topic : *topics_) {
    if (setFilter(ZMQ_SUBSCRIBE, topic) != status::kOk) return false;
  }
  onFailure.kept = true;
  return true;
}

int Subscription::setFilter(int option, const std::string& topic) const {
  const bool set = zmq_setsockopt(link_.socket, option, topic.data(), topic.size()) == 0;
  return set ? status::kOk : status::kCannotConnect;
}

std::optional<int> Subscription::take(std::string& topic, Frame& payload) {
  Frame first;
  if (!first.receiveNow(link_.socket)) {
    tendLink(true);
    return {};
  }
  topic.assign(first.text());
  const bool two = first.more() && payload.receiveNow(link_.socket) && !payload.more();
  while (payload.more() && payload.receiveNow(link_.socket)) continue;
  return two ? status::kOk : status::kBadNotificationFrames;
}

std::optional<Clock::time_point> Subscription::tendLink(bool readable) {
  if (link_.socket == nullptr && !reviveAt_) return {};
  if (readable || reviveAt_) noteEvents();         // libzmq may have been faster
  if (!reviveAt_ || mayHoldMessages()) return {};  // to disconnect would drop the messages
  if (*reviveAt_ <= Clock::now()) revive();
  return reviveAt_;
}

bool Subscription::open(Monitored& pair, int events) {
  const std::string endpoint = monitorEndpoint();
  pair.socket = openSocket(ZMQ_SUB);
  pair.monitor = openSocket(ZMQ_PAIR);
  const auto monitor = [&] { return zmq_socket_monitor(pair.socket, endpoint.c_str(), events); };
  return pair.socket != nullptr && pair.monitor != nullptr && setOptions(pair.socket, kSocketOptions) &&
         setOptions(pair.monitor, kMonitorOptions) && despiteSignals(monitor) == 0 &&
         connect(pair.monitor, endpoint) == 0;
}

void Subscription::close(Monitored& pair) noexcept {
  // Stop monitoring first. If the PAIR socket were closed while events are sent, libzmq's I/O thread would block
  // forever, and with it every socket.
  if (pair.socket != nullptr) zmq_socket_monitor(pair.socket, nullptr, 0);
  closeSocket(pair.monitor);
  closeSocket(pair.socket);
}

/// @return the next event's number; 0 when there is none
int Subscription::nextEvent(const Monitored& pair) {
  Frame event;
  if (!event.receiveNow(pair.monitor)) return 0;
  std::uint16_t number = 0;
  std::memcpy(&number, event.text().data(), sizeof number);
  Frame address;
  address.receiveNow(pair.monitor);
  return number;
}
/// @return 0 at the deadline
int Subscription::awaitEvent(const Monitored& pair, Clock::time_point deadline) {
  for (;;) {
    if (const int event = nextEvent(pair); event != 0) return event;
    if (!waitFor({pair.monitor, 0, ZMQ_POLLIN, 0}, deadline)) return 0;
  }
}

/// Whether a peer accepts connections at the address. A socket of its own asks: one that reports every attempt would
/// go on reporting as long as it lives.
bool Subscription::isListening(Clock::time_point deadline) {
  struct Probe : Monitored {
    Subscription& connection;
    explicit Probe(Subscription& owner) : connection(owner) {}
    ~Probe() { connection.close(*this); }
  } probe(*this);
  return open(probe, kAttemptEvents) && connect(probe.socket, address_) == 0 &&
         awaitEvent(probe, deadline) == ZMQ_EVENT_CONNECTED;
}

/// Connects the socket, and waits for the handshake with a peer that is there.
/// @return whether the address is valid
bool Subscription::establish(Clock::time_point deadline) {
  const bool there = isListening(deadline);
  if (connect(link_.socket, address_) != 0) return false;
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
bool Subscription::drop() {
  // Only behind the last frame of a message: libzmq aborts when it is asked for the rest of one that it has dropped.
  if (takeMessage()) {
    Logger::log(Logger::LEVEL_PROGRESS, "%s: dropped the unread notifications of the connection to %s", name_,
                address_.c_str());
  }
  linked_ = false;
  disconnect();
  return true;
}

/// Takes all frames of the next message. @return whether there was one
bool Subscription::takeMessage() const {
  Frame frame;
  if (!frame.receiveNow(link_.socket)) return false;
  while (frame.more() && frame.receiveNow(link_.socket)) continue;
  return true;
}

void Subscription::noteEvents() {
  while (const int event = nextEvent(link_)) noteEvent(event);
}

void Subscription::noteEvent(int event) {
  if (event == 0) return;
  if (event == ZMQ_EVENT_HANDSHAKE_SUCCEEDED) {
    reviveAt_.reset();
    linked_ = true;
    ++handshakes_;
    return;
  }
  if (!reviveAt_) reviveAt_ = Clock::now() + kReconnectInterval;
  if (!std::exchange(linked_, false)) return;
  ++losses_;
  Logger::log(Logger::LEVEL_PROGRESS, "%s: lost the connection to %s, connecting again", name_, address_.c_str());
}

bool Subscription::mayHoldMessages() const {
  if (link_.socket == nullptr) return false;
  const int events = eventsOf(link_.socket);
  return events < 0 || (events & ZMQ_POLLIN) != 0;
}

void Subscription::revive() {
  if (topics_) {
    reviveAt_.reset();
    if (!replaceSocket()) reviveAt_ = Clock::now() + kReconnectInterval;
    return;
  }
  disconnect();
  reviveAt_.reset();
  if (connect(link_.socket, address_) != 0) reviveAt_ = Clock::now() + kReconnectInterval;
}

void Subscription::disconnect() {
  // libzmq remembers a connection that it has given up, and to connect does nothing until it has forgotten it.
  despiteSignals([&] { return zmq_disconnect(link_.socket, address_.c_str()); });
  awaitEnd();
  noteEvents();  // the last events of the old connection: the next ones are the new one's
}

/// Waits for the end of the connection that was given up. libzmq's thread does the first step of it, this thread the
/// second one, and libzmq's thread the last one, before it begins a new connection. Until then the old one lives on,
/// and may even complete a handshake once more; taken for the new one's, that would hide that the new one is gone for
/// good. A connection that has ended by itself causes no event here.
void Subscription::awaitEnd() const {
  const zmq_pollitem_t commands{nullptr, descriptorOf(link_.socket), ZMQ_POLLIN, 0};
  if (!waitFor(commands, Clock::now() + kEndLimit)) return;
  mayHoldMessages();                      // lets libzmq process the commands: the second step
  waitFor(commands, Clock::now() + 1ms);  // in case these were commands of something else
  mayHoldMessages();
}

void Subscription::closeSockets() noexcept {
  close(link_);
  forgetLink();
}

void Subscription::forgetSockets() noexcept {
  link_ = {};
  forgetLink();
}

void Subscription::forgetLink() noexcept {
  reviveAt_.reset();
  linked_ = false;
}

}  // namespace zel
