#include "simulator/memory_guard.h"

#include <linux/tcp.h>
#include <malloc.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "simulator/connections.h"

namespace zel::sim {

namespace {

constexpr std::chrono::milliseconds kCalmInterval{50};
constexpr std::chrono::milliseconds kBusyInterval{5};  // clients can send 1 MiB in a millisecond
constexpr std::chrono::seconds kTellInterval{1};
constexpr std::uint64_t kMostSubscriptionsALook = 512;
constexpr std::uint64_t kNeverTooMuch = 512;  // handshake and subscriptions of a client, or a usual request

std::size_t bytesInUse() {
  const struct mallinfo2 heap = mallinfo2();
  return heap.uordblks + heap.hblkhd;
}

/// What the kernel knows of a TCP connection; zeros when it knows nothing.
tcp_info factsOf(int descriptor) {
  tcp_info facts{};
  socklen_t size = sizeof facts;
  getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, &facts, &size);
  return facts;
}

}  // namespace

MemoryGuard::MemoryGuard(const Options& options)
    : options_(options),
      calmInUse_(bytesInUse() + options.mostGrowth / 8),
      mostInUse_(bytesInUse() + options.mostGrowth),
      thread_([this] { watch(); }) {}

MemoryGuard::~MemoryGuard() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ending_ = true;
  }
  isEnding_.notify_one();
  thread_.join();
}

void MemoryGuard::taken(int descriptor) {
  const std::uint64_t bytes = factsOf(descriptor).tcpi_bytes_received;
  const std::lock_guard<std::mutex> lock(mutex_);
  Connection& connection = connections_[descriptor];
  connection.received = std::max(connection.received, bytes);
  connection.taken = bytes;
}

void MemoryGuard::watch() {
  auto nextTell = std::chrono::steady_clock::now();
  unsigned int told = 0;
  std::unique_lock<std::mutex> lock(mutex_);
  std::chrono::milliseconds interval = kCalmInterval;
  while (!isEnding_.wait_for(lock, interval, [this] { return ending_; })) {
    look();
    const auto start = std::chrono::steady_clock::now();
    const std::size_t inUse = bytesInUse();
    const auto took = std::chrono::ceil<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    unsigned int count = endFastSubscribers();
    if (inUse > mostInUse_) count += endThoseThatHoldMost();
    interval = count > 0 || inUse > calmInUse_ ? kBusyInterval : kCalmInterval;
    interval = std::max(interval, 10 * took);  // counting keeps all threads from the heap
    ended_ += count;
    if (ended_ == told || !options_.tell || std::chrono::steady_clock::now() < nextTell) continue;
    options_.tell(std::to_string(ended_ - told) + " connections ended: their clients sent too much.");
    told = ended_;
    nextTell = std::chrono::steady_clock::now() + kTellInterval;
  }
}

/// Learns what has come over each connection.
void MemoryGuard::look() {
  std::map<int, Connection> now;
  for (const auto& [descriptor, endpoint] : acceptedConnections({options_.requestEndpoint, options_.publishEndpoint})) {
    const tcp_info facts = factsOf(descriptor);
    Connection connection = connections_[descriptor];
    // Fewer bytes than before: the descriptor was another connection's then.
    if (facts.tcpi_bytes_received < connection.received) connection = {};
    connection.news = facts.tcpi_bytes_received - connection.received;
    connection.received = facts.tcpi_bytes_received;
    connection.unfetched = facts.tcpi_notsent_bytes;
    connection.subscribes = endpoint == options_.publishEndpoint;
    now[descriptor] = connection;
  }
  connections_ = std::move(now);
}

/// A subscriber sends its few topics and rests. Each topic costs a walk through all others when its connection ends, so
/// many may not even come to be known. @return how many were ended
unsigned int MemoryGuard::endFastSubscribers() {
  unsigned int count = 0;
  for (const auto& [descriptor, connection] : connections_) {
    if (connection.subscribes && connection.news > kMostSubscriptionsALook) count += endConnection(descriptor) ? 1 : 0;
  }
  return count;
}

/// Ends the connections that hold at least the average. @return how many
unsigned int MemoryGuard::endThoseThatHoldMost() {
  std::uint64_t sum = 0;
  for (const auto& [descriptor, connection] : connections_) sum += connection.held();
  unsigned int count = 0;
  for (const auto& [descriptor, connection] : connections_) {
    const std::uint64_t held = connection.held();
    if (held > kNeverTooMuch && held * connections_.size() >= sum) count += endConnection(descriptor) ? 1 : 0;
  }
  return count;
}

}  // namespace zel::sim
