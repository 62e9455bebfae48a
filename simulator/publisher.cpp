#include "simulator/publisher.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <chrono>
#include <utility>

#include "common/shared/socket_parts.h"

namespace zel::sim {

namespace {

constexpr int kQueuedNotifications = 1000;
constexpr int kQueuedSubscriptions = 8;                // of a client, until the publisher takes them
constexpr std::int64_t kMostSubscriptionBytes = 1024;  // and those of a handshake
constexpr int kWaitingConnections = 512;
constexpr int kShutdownMs = 200;  // for the messages that are on their way
constexpr std::size_t kMostWaiting = 10000;
constexpr std::size_t kMostWaitingBytes = std::size_t{16} << 20U;
constexpr std::chrono::milliseconds kTurn{10};  // then what waits is sent

std::size_t sizeOf(const Publisher::Frames& frames) {
  std::size_t size = 0;
  for (const std::string& frame : frames) size += frame.size();
  return size;
}

}  // namespace

Publisher::Publisher(zmq::context_t& context, OnSubscription onSubscription)
    : socket_(context, onSubscription ? zmq::socket_type::xpub : zmq::socket_type::pub),
      onSubscription_(std::move(onSubscription)),
      wakeUp_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
  socket_.set(zmq::sockopt::linger, kShutdownMs);
  socket_.set(zmq::sockopt::maxmsgsize, kMostSubscriptionBytes);
  socket_.set(zmq::sockopt::rcvhwm, kQueuedSubscriptions);
  socket_.set(zmq::sockopt::rcvbuf, static_cast<int>(kMostSubscriptionBytes));
  socket_.set(zmq::sockopt::sndhwm, kQueuedNotifications);
  socket_.set(zmq::sockopt::backlog, kWaitingConnections);
  // Every subscription is reported, not only the first of its topic.
  if (onSubscription_) socket_.set(zmq::sockopt::xpub_verbose, true);
}

Publisher::~Publisher() {
  end(kShutdownMs);
  if (wakeUp_ >= 0) close(wakeUp_);
}

void Publisher::bind(const std::string& endpoint) {
  if (wakeUp_ < 0) throw zmq::error_t();
  socket_.bind(endpoint);
  endpoint_ = socket_.get(zmq::sockopt::last_endpoint);
  thread_ = std::thread([this] { run(); });
}

void Publisher::publish(Frames frames) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const std::size_t size = sizeOf(frames);
    if (waiting_.size() >= kMostWaiting || waitingBytes_ + size > kMostWaitingBytes) return;
    waitingBytes_ += size;
    waiting_.push_back(std::move(frames));
  }
  eventfd_write(wakeUp_, 1);
}

void Publisher::end(int lingerMs) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ending_ = true;
  }
  eventfd_write(wakeUp_, 1);
  if (thread_.joinable()) thread_.join();
  if (socket_.handle() == nullptr) return;
  zmq_setsockopt(socket_.handle(), ZMQ_LINGER, &lingerMs, sizeof lingerMs);  // unlike `set` it does not throw
  socket_.close();
}

void Publisher::run() {
  for (bool more = false; wait(more);) {
    more = onSubscription_ && takeSubscriptions();
    sendAll();
  }
  sendAll();
}

/// Waits until there is something to do.
/// @param already  whether there is something, so that nothing is to be waited for
/// @return false at the end
bool Publisher::wait(bool already) {
  // The descriptor becomes readable when libzmq has something to do for the socket, a subscription for example. A PUB
  // socket itself is never readable, and always writable.
  zmq_pollitem_t items[] = {{nullptr, wakeUp_, ZMQ_POLLIN, 0}, {nullptr, socket_.get(zmq::sockopt::fd), ZMQ_POLLIN, 0}};
  // The descriptor reports only what comes after the socket was looked at last, which sending does, too.
  const bool readable = onSubscription_ && (eventsOf(socket_.handle()) & ZMQ_POLLIN) != 0;
  if (zmq_poll(items, 2, already || readable ? 0 : -1) < 0 && zmq_errno() != EINTR) return false;
  eventsOf(socket_.handle());
  eventfd_t woken = 0;
  eventfd_read(wakeUp_, &woken);
  const std::lock_guard<std::mutex> lock(mutex_);
  return !ending_;
}

/// @return whether there may be more of them
bool Publisher::takeSubscriptions() {
  constexpr char kSubscribes = 1;
  for (const auto end = Clock::now() + kTurn; Clock::now() < end;) {
    zmq::message_t message;
    if (!socket_.recv(message, zmq::recv_flags::dontwait)) return false;
    const std::string text = message.to_string();
    if (!text.empty() && text.front() == kSubscribes) onSubscription_(text.substr(1));
  }
  return true;
}

bool Publisher::takeWaiting(Frames& frames) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (waiting_.empty()) return false;
  frames = std::move(waiting_.front());
  waiting_.pop_front();
  waitingBytes_ -= sizeOf(frames);
  return true;
}

void Publisher::sendAll() {
  for (Frames frames; takeWaiting(frames);) {
    // A send looks for new subscriptions only now and then; asking for the events always does. So a client that
    // subscribed before the message was published receives it.
    eventsOf(socket_.handle());
    for (std::size_t index = 0; index < frames.size(); ++index) {
      const int flags = ZMQ_DONTWAIT | (index + 1 < frames.size() ? ZMQ_SNDMORE : 0);
      const std::string& frame = frames[index];
      const auto send = [&] { return zmq_send(socket_.handle(), frame.data(), frame.size(), flags); };
      if (despiteSignals(send) < 0) break;
    }
  }
}

}  // namespace zel::sim
