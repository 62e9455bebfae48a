#include "common/open_sockets.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <mutex>
#include <new>
#include <set>
#include <utility>

namespace zel {

namespace {

struct Registry {
  std::mutex mutex;
  std::set<SocketHolder*> holders;
  /// The contexts for which an exit handler is registered: the wrapper and what it wraps, since either may be reused.
  std::set<std::pair<const void*, const void*>> contexts;
};

Registry& registry() {
  // In static storage and never destroyed: it is needed until the process is gone.
  alignas(Registry) static unsigned char storage[sizeof(Registry)];
  static Registry* const made = new (storage) Registry;
  return *made;
}

/// How long the end of the process waits for the calls of other threads. They are woken up, so it is not long.
constexpr std::chrono::milliseconds kPatience{50};

}  // namespace

void SocketHolder::attach(zmq::context_t& context) {
  const std::lock_guard<std::mutex> lock(registry().mutex);
  registry().holders.insert(this);
  if (registry().contexts.insert({&context, context.handle()}).second) std::atexit(closeAll);
  context_ = &context;
  owner_ = getpid();
  ended_ = false;
}

void SocketHolder::detach() {
  const std::lock_guard<std::mutex> lock(registry().mutex);
  registry().holders.erase(this);
}

bool SocketHolder::ownsSockets() const { return owner_ == getpid(); }

void SocketHolder::closeAll() {
  const std::lock_guard<std::mutex> lock(registry().mutex);
  for (SocketHolder* const holder : registry().holders) {
    if (holder->ownsSockets()) holder->announceEnd();
  }
  const Clock::time_point deadline = Clock::now() + kPatience;
  for (SocketHolder* const holder : registry().holders) {
    if (holder->ownsSockets()) holder->end(deadline);
  }
  registry().contexts.clear();  // what attaches from here on needs a handler of its own
}

bool SocketHolder::isUsedElsewhere() const {
  const std::thread::id user = user_;
  return user != std::thread::id() && user != std::this_thread::get_id();
}

void SocketHolder::announceEnd() {
  ended_ = true;
  // A call of another thread may be waiting: the shutdown wakes it up.
  if (isUsedElsewhere()) zmq_ctx_shutdown(context_->handle());
}

void SocketHolder::end(Clock::time_point deadline) {
  while (isUsedElsewhere() && Clock::now() < deadline) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  // A call that takes longer is told so, and closes the sockets when it is over.
  std::thread::id user = user_;
  const std::thread::id self = std::this_thread::get_id();
  if (user != std::thread::id() && user != self && user_.compare_exchange_strong(user, self)) return;
  closeSockets();
}

SocketHolder::Use::Use(SocketHolder& holder) : holder_(holder) {
  holder_.user_ = std::this_thread::get_id();
  granted_ = !holder_.ended_;
}

SocketHolder::Use::~Use() {
  // Once the use is over the holder may be destroyed: then it must not be touched any more.
  std::thread::id user = std::this_thread::get_id();
  if (holder_.user_.compare_exchange_strong(user, std::thread::id()) || user == std::thread::id()) return;
  if (holder_.ended_) holder_.closeSockets();
}

bool descriptorsAvailable() {
  std::array<int, 8> probes;
  probes.fill(-1);
  bool available = true;
  for (int& probe : probes) {
    probe = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (probe < 0) available = false;
  }
  for (const int probe : probes) {
    if (probe >= 0) close(probe);
  }
  return available;
}

}  // namespace zel
