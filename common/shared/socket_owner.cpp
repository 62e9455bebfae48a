#include "common/shared/socket_owner.h"

#include <cxxabi.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <map>
#include <utility>

#include "common/shared/context_mark.h"
#include "common/shared/no_destructor.h"

/// This library, as exit handlers know it.
extern "C" __attribute__((visibility("hidden"))) void* __dso_handle;  // NOLINT(bugprone-reserved-identifier)

namespace zel {

namespace {

/// What the owners of the process share. Guarded by `processMutex`.
struct Registry {
  /// The owners, and the process that attached each of them. A forked child inherits those of its parent; its exit
  /// handlers do not touch them, since one that was on the stack of another thread is gone.
  std::map<SocketOwner*, pid_t> owners;
  /// The open sockets and their owners.
  std::map<const void*, SocketOwner*> sockets;
  /// The contexts that have an exit handler, and the process in which it has run; 0: in none yet. A child that was
  /// forked while another thread ended the parent goes on.
  std::map<const void*, pid_t> endedIn;
  /// The thread in which the first of the handlers has run, and its process.
  std::thread::id exitThread;
  pid_t exitProcess = 0;

  bool isExitThread() const { return exitThread == std::this_thread::get_id() && exitProcess == getpid(); }
  pid_t processThatEnded(const zmq::context_t& context) const {
    const auto found = endedIn.find(&context);
    return found == endedIn.end() ? 0 : found->second;
  }
};

Registry& registry() {
  static NoDestructor<Registry> made;
  return *made;
}

/// Makes the registry when the library is loaded, before threads may fork while one of them makes it.
[[maybe_unused]] const Registry& registryAtLoad = registry();

/// How long an exit handler waits for the calls of other threads. They are woken up, so it is not long.
constexpr std::chrono::milliseconds kPatience{50};

void pauseUnlocked(ProcessLock& lock) {
  lock.unlock();
  std::this_thread::sleep_for(std::chrono::milliseconds(1));
  lock.lock();
}

}  // namespace

SocketOwner::~SocketOwner() = default;

std::optional<Clock::time_point> SocketOwner::tendLink(bool /*readable*/) { return {}; }
int SocketOwner::linkDescriptor() const { return -1; }

bool SocketOwner::isExitThread() {
  const ProcessLock lock(processMutex());
  return registry().isExitThread();
}

void SocketOwner::closeAtExit(zmq::context_t& context) {
  const ProcessLock lock(processMutex());
  if (!isMarked(context)) registerHandler(context);
}

void SocketOwner::registerHandler(zmq::context_t& context) {
  registry().endedIn[&context] = 0;
  abi::__cxa_atexit(endContext, &context, &__dso_handle);
  mark(context);
}

bool SocketOwner::attach(zmq::context_t& context) {
  const ProcessLock lock(processMutex());
  const bool isEnding = isOfThisProcess() && (state_ == State::kEnding || state_ == State::kClosing);
  if (isEnding || isRetired_) return false;
  const pid_t self = getpid();
  const pid_t ended = registry().processThatEnded(context);
  // The thread that ends the process runs the destructors of static objects, and they know which contexts are left.
  if (ended == self && !registry().isExitThread()) return false;
  if (!isOfThisProcess()) {
    forgetSockets();
    users_.clear();
    openSockets_ = 0;
  }
  registry().owners[this] = self;
  if (ended != 0 || !isMarked(context)) registerHandler(context);
  context_ = &context;
  process_ = self;
  state_ = State::kUsable;
  return true;
}

bool SocketOwner::isOfThisProcess() const { return process_ == getpid(); }

bool SocketOwner::isUsedElsewhere() const {
  const std::thread::id self = std::this_thread::get_id();
  return std::any_of(users_.begin(), users_.end(), [self](std::thread::id user) { return user != self; });
}

void SocketOwner::announceEnd() {
  if (state_ != State::kUsable) return;
  state_ = State::kEnding;
  // The call of another thread may be waiting. Only an open socket keeps the context alive for certain.
  if (isUsedElsewhere() && openSockets_ > 0) zmq_ctx_shutdown(context_->handle());
}

bool SocketOwner::closeIfUnused(ProcessLock& lock) noexcept {
  if (state_ != State::kEnding || !isOfThisProcess() || isUsedElsewhere()) return false;
  state_ = State::kClosing;
  lock.unlock();
  closeSockets();
  lock.lock();
  state_ = State::kEnded;
  return true;
}

void SocketOwner::endContext(void* context) {
  ProcessLock lock(processMutex());
  const pid_t self = getpid();
  registry().exitThread = std::this_thread::get_id();
  registry().exitProcess = self;
  registry().endedIn.find(context)->second = self;  // found: to insert might need memory
  const auto isConcerned = [context, self](const auto& entry) {
    return entry.second == self && entry.first->context_ == context;
  };
  for (const auto& entry : registry().owners) {
    if (isConcerned(entry)) entry.first->announceEnd();
  }
  const auto isLeft = [&](const auto& entry) { return isConcerned(entry) && entry.first->state_ != State::kEnded; };
  for (const Clock::time_point deadline = Clock::now() + kPatience; Clock::now() < deadline; pauseUnlocked(lock)) {
    auto owner = registry().owners.begin();
    // To close sockets unlocks the mutex, and the owners may change meanwhile.
    while (owner != registry().owners.end()) {
      const bool closed = isConcerned(*owner) && owner->first->closeIfUnused(lock);
      owner = closed ? registry().owners.begin() : std::next(owner);
    }
    if (std::none_of(registry().owners.begin(), registry().owners.end(), isLeft)) return;
  }
}

void SocketOwner::retire() noexcept {
  ProcessLock lock(processMutex());
  if (isRetired_) return;
  isRetired_ = true;
  if (isOfThisProcess()) {
    announceEnd();
    while (!closeIfUnused(lock) && state_ != State::kEnded) pauseUnlocked(lock);
  } else {
    forgetSockets();
  }
  registry().owners.erase(this);
}

void* SocketOwner::openSocket(int type) {
  const ProcessLock lock(processMutex());
  if (state_ != State::kUsable) {
    errno = ETERM;
    return nullptr;
  }
  void* const socket = zmq_socket(context_->handle(), type);
  if (socket == nullptr) return nullptr;
  try {
    registry().sockets[socket] = this;
  } catch (...) {
    zmq_close(socket);
    throw;
  }
  ++openSockets_;
  return socket;
}

void SocketOwner::closeSocket(void*& socket) noexcept {
  if (socket == nullptr) return;
  {
    const ProcessLock lock(processMutex());
    --openSockets_;
    registry().sockets.erase(socket);
  }
  zmq_close(socket);
  socket = nullptr;
}

SocketOwner::Refusal SocketOwner::begin() {
  if (isRetired_) return Refusal::kEnding;
  if (state_ == State::kUnattached) return Refusal::kNotAttached;
  if (!isOfThisProcess()) return Refusal::kForked;
  if (state_ != State::kUsable) return Refusal::kEnding;
  users_.push_back(std::this_thread::get_id());
  return Refusal::kNone;
}

void SocketOwner::leave() {
  ProcessLock lock(processMutex());
  const auto user = std::find(users_.begin(), users_.end(), std::this_thread::get_id());
  if (user == users_.end()) return;  // in a child that was forked during the use, and has attached the owner anew
  users_.erase(user);
  if (users_.empty()) closeIfUnused(lock);
}

SocketOwner::Use::Use(SocketOwner& owner) {
  const ProcessLock lock(processMutex());
  refusal_ = owner.begin();
  owner_ = refusal_ == Refusal::kNone ? &owner : nullptr;
}

SocketOwner::Use::Use(const void* socket) : owner_(nullptr), refusal_(Refusal::kNone) {
  const ProcessLock lock(processMutex());
  const auto found = registry().sockets.find(socket);
  if (found == registry().sockets.end()) return;
  refusal_ = found->second->begin();
  if (refusal_ == Refusal::kNone) owner_ = found->second;
}

SocketOwner::Use::Use(Use&& other) noexcept : owner_(std::exchange(other.owner_, nullptr)), refusal_(other.refusal_) {}

SocketOwner::Use::~Use() {
  if (owner_ == nullptr) return;
  const int error = errno;  // of the call that ends with this use
  owner_->leave();
  errno = error;
}

bool descriptorsAvailable() {
  std::array<int, 8> probes;
  bool available = true;
  for (int& probe : probes) {
    probe = eventfd(0, EFD_CLOEXEC);
    if (probe < 0 && (errno == EMFILE || errno == ENFILE)) available = false;
  }
  for (const int probe : probes) {
    if (probe >= 0) close(probe);
  }
  return available;
}

}  // namespace zel
