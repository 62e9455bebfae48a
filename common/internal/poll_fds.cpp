#include "common/poll_fds.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <utility>

#include "common/shared/socket_owner.h"

namespace {

using zel::Clock;
using zel::SocketOwner;

/// The uses of the subscribers whose sockets a poll set holds, during a wait.
class Waits {
 public:
  /// @return false when the subscriber of the socket must not be waited for any more
  bool add(const void* socket) {
    SocketOwner::Use use(socket);
    if (!use || use.owner() == nullptr) return false;
    const auto isSame = [&use](const SocketOwner::Use& other) { return other.owner() == use.owner(); };
    if (std::none_of(uses_.begin(), uses_.end(), isSame)) uses_.push_back(std::move(use));
    return true;
  }

  void appendDescriptors(std::vector<zmq_pollitem_t>& items) const {
    for (const SocketOwner::Use& use : uses_) {
      items.push_back({nullptr, use.owner()->linkDescriptor(), ZMQ_POLLIN, 0});
    }
  }

  /// @param descriptors  what was appended, polled or not yet
  /// @return when to tend the links again at the latest, `deadline` if that is earlier
  std::optional<Clock::time_point> tendLinks(const zmq_pollitem_t* descriptors,
                                             std::optional<Clock::time_point> deadline) const {
    std::optional<Clock::time_point> wakeUp = deadline;
    for (const SocketOwner::Use& use : uses_) {
      const std::optional<Clock::time_point> due = use.owner()->tendLink((descriptors++)->revents != 0);
      if (due && (!wakeUp || *due < *wakeUp)) wakeUp = due;
    }
    return wakeUp;
  }

 private:
  std::vector<SocketOwner::Use> uses_;
};

/// @return nothing: wait without end
std::optional<Clock::time_point> deadlineOf(long timeoutMs) {
  const auto now = Clock::now();
  const auto longest = std::chrono::floor<std::chrono::milliseconds>(Clock::time_point::max() - now);
  if (timeoutMs < 0 || timeoutMs > longest.count()) return {};
  return now + std::chrono::milliseconds(timeoutMs);
}

}  // namespace

void PollFds::add(const zmq_pollitem_t& item) {
  if (SocketOwner::Use(item.socket).owner() != nullptr) subscribers_.push_back(item.socket);
  items_.push_back(item);
}

std::size_t PollFds::size() const { return items_.size(); }
bool PollFds::empty() const { return items_.empty(); }
zmq_pollitem_t* PollFds::data() { return items_.data(); }
zmq_pollitem_t& PollFds::operator[](std::size_t index) { return items_[index]; }
const zmq_pollitem_t& PollFds::operator[](std::size_t index) const { return items_[index]; }
zmq_pollitem_t* PollFds::begin() { return items_.data(); }
zmq_pollitem_t* PollFds::end() { return items_.data() + items_.size(); }
const zmq_pollitem_t* PollFds::begin() const { return items_.data(); }
const zmq_pollitem_t* PollFds::end() const { return items_.data() + items_.size(); }

int PollFds::poll(long timeoutMs) {
  const std::optional<Clock::time_point> deadline = deadlineOf(timeoutMs);
  Waits waits;
  bool waitable = true;
  for (zmq_pollitem_t& item : items_) {
    item.revents = 0;
    const bool subscribed = std::find(subscribers_.begin(), subscribers_.end(), item.socket) != subscribers_.end();
    waitable = waitable && (!subscribed || waits.add(item.socket));
  }
  if (!waitable) {
    errno = ETERM;
    return -1;
  }
  std::vector<zmq_pollitem_t> all = items_;
  waits.appendDescriptors(all);
  const zmq_pollitem_t* const descriptors = all.data() + items_.size();

  const auto isReady = [](const zmq_pollitem_t& item) { return item.revents != 0; };
  std::optional<Clock::time_point> wakeUp = waits.tendLinks(descriptors, deadline);
  for (;;) {
    const int result =
        zmq_poll(all.data(), static_cast<int>(all.size()), wakeUp ? zel::millisecondsUntil(*wakeUp) : -1);
    if (result < 0 && zmq_errno() != EINTR) return -1;
    wakeUp = waits.tendLinks(descriptors, deadline);
    if (result > 0) {
      std::copy_n(all.begin(), items_.size(), items_.begin());
      const auto ready = std::count_if(items_.begin(), items_.end(), isReady);
      if (ready > 0) return static_cast<int>(ready);
    }
    if (deadline && *deadline <= Clock::now()) return 0;
  }
}
