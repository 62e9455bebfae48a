#include "common/poll_fds.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <utility>

#include "common/link_keeper.h"

namespace {

using zel::Clock;
using zel::LinkKeeper;

/// Ends a keeper's wait with its scope.
class Wait {
 public:
  explicit Wait(LinkKeeper& keeper) : keeper_(&keeper) {}
  Wait(Wait&& other) noexcept : keeper_(std::exchange(other.keeper_, nullptr)) {}
  Wait(const Wait&) = delete;
  Wait& operator=(const Wait&) = delete;
  Wait& operator=(Wait&&) = delete;
  ~Wait() {
    if (keeper_ != nullptr) keeper_->endWait();
  }
  LinkKeeper& keeper() const { return *keeper_; }

 private:
  LinkKeeper* keeper_;
};

/// The links behind the sockets of a poll set, during a wait.
class Links {
 public:
  /// @return false when the process is ending
  bool beginWait(const std::vector<zmq_pollitem_t>& items) {
    for (const zmq_pollitem_t& item : items) {
      LinkKeeper* const keeper = item.socket == nullptr ? nullptr : LinkKeeper::of(item.socket);
      if (keeper == nullptr || isThere(*keeper)) continue;
      waits_.emplace_back(*keeper);
      if (!keeper->beginWait()) return false;
    }
    return true;
  }

  void appendWatched(std::vector<zmq_pollitem_t>& items) const {
    for (const Wait& wait : waits_) items.push_back({nullptr, wait.keeper().watched(), ZMQ_POLLIN, 0});
  }

  /// @param watched  what was appended, polled or not yet
  /// @return the earlier of `wakeUp` and what the links wish
  std::optional<Clock::time_point> tend(const zmq_pollitem_t* watched, std::optional<Clock::time_point> wakeUp) const {
    for (const Wait& wait : waits_) {
      const std::optional<Clock::time_point> due = wait.keeper().tend((watched++)->revents != 0);
      if (due && (!wakeUp || *due < *wakeUp)) wakeUp = due;
    }
    return wakeUp;
  }

 private:
  bool isThere(const LinkKeeper& keeper) const {
    return std::any_of(waits_.begin(), waits_.end(), [&](const Wait& wait) { return &wait.keeper() == &keeper; });
  }

  std::vector<Wait> waits_;
};

}  // namespace

void PollFds::add(const zmq_pollitem_t& item) { items_.push_back(item); }

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
  std::optional<Clock::time_point> deadline;
  if (timeoutMs >= 0) deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);

  Links links;
  const bool waitable = links.beginWait(items_);
  for (zmq_pollitem_t& item : items_) item.revents = 0;
  if (!waitable) {
    errno = ETERM;
    return -1;
  }
  std::vector<zmq_pollitem_t> all = items_;
  links.appendWatched(all);

  const zmq_pollitem_t* const watched = all.data() + items_.size();

  const auto isReady = [](const zmq_pollitem_t& item) { return item.revents != 0; };
  std::optional<Clock::time_point> wakeUp = links.tend(watched, deadline);
  for (;;) {
    const int result =
        zmq_poll(all.data(), static_cast<int>(all.size()), wakeUp ? zel::millisecondsUntil(*wakeUp) : -1);
    if (result < 0 && zmq_errno() != EINTR) return -1;
    wakeUp = links.tend(watched, deadline);
    if (result > 0) {
      std::copy_n(all.begin(), items_.size(), items_.begin());
      const auto ready = std::count_if(items_.begin(), items_.end(), isReady);
      if (ready > 0) return static_cast<int>(ready);
    }
    if (deadline && *deadline <= Clock::now()) return 0;
  }
}
