#pragma once

#include <sys/types.h>

#include <optional>
#include <thread>
#include <vector>
#include <zmq.hpp>

#include "common/shared/process_mutex.h"
#include "common/shared/socket_parts.h"

namespace zel {

/// Base of every class that owns ZeroMQ sockets on a borrowed context. Registers the object, so that its sockets are
/// closed at exit, before the context is destroyed.
///
/// How a process ends
///
/// ZeroMQ's context waits in its destructor for every socket that is open on it, and a static object that owns a socket
/// may be destroyed after the context, or be in use by another thread: the process would hang, or crash. Therefore:
///
/// 1. The first owner that attaches to a context registers an exit handler for it. Exit handlers and destructors of
///    static objects run in the reverse order of their registration, so the handler runs before the destructor of the
///    context, which was made earlier.
/// 2. The handler refuses every further use of the context's owners. It closes the sockets of the owners that no thread
///    uses. Where another thread uses one, it shuts the context down, which ends every wait of that thread, and the
///    thread closes the sockets itself when its use is over. The handler waits 50 ms for such threads; the context
///    waits for them without a limit, since their sockets are still open.
/// 3. After that no socket is opened on the context any more. A thread that goes on calling finds its owner ended.
/// 4. A static owner may be destroyed before the handler runs. Its destructor does the handler's work for this owner.
/// 5. The memory of an owner that an application's object holds is never given back (`Recycled`), so a thread that
///    calls a static object after its destruction finds the owner ended, too.
///
/// A forked child must not touch the sockets and contexts of its parent: there the owner refuses every use until it is
/// attached to a context of the child's.
class SocketOwner {
 public:
  virtual ~SocketOwner();
  SocketOwner(const SocketOwner&) = delete;
  SocketOwner& operator=(const SocketOwner&) = delete;

  /// Why a use is refused.
  enum class Refusal {
    kNone,
    kNotAttached,  ///< `attach` has not been called
    kForked,       ///< the owner was attached before this process was forked
    kEnding,       ///< the process, or the owner, is at its end
  };

  /// The time during which a thread works with the sockets of an owner.
  class Use {
   public:
    explicit Use(SocketOwner& owner);
    /// Uses the owner of a socket. A socket that no owner has is not refused, but there is no owner.
    explicit Use(const void* socket);
    Use(Use&& other) noexcept;
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;
    Use& operator=(Use&&) = delete;
    ~Use();

    explicit operator bool() const { return refusal_ == Refusal::kNone; }
    Refusal refusal() const { return refusal_; }
    SocketOwner* owner() const { return owner_; }

   private:
    SocketOwner* owner_;  ///< null: none, or the use is refused
    Refusal refusal_;
  };

  /// Ends a use while application code runs, and begins it anew: the end of the process does not wait for that code.
  /// Behind it the use may be refused.
  class Interruption {
   public:
    Interruption(std::optional<Use>& use, SocketOwner& owner) : use_(use), owner_(owner) { use_.reset(); }
    ~Interruption() { use_.emplace(owner_); }
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

   private:
    std::optional<Use>& use_;
    SocketOwner& owner_;
  };

  /// Registers the exit handler of a context before its first owner attaches.
  static void closeAtExit(zmq::context_t& context);

  /// Whether this thread ends the process: it runs the exit handlers and destroys the static objects.
  static bool isExitThread();

  /// Does what is due for the connection behind the owner's socket, while an application waits for that socket.
  /// @param readable  whether the descriptor of `linkDescriptor` polled readable
  /// @return when to call again at the latest; nothing: not before that descriptor is readable
  virtual std::optional<Clock::time_point> tendLink(bool readable);
  /// The descriptor that is readable when there is something to do for the connection; negative: none.
  virtual int linkDescriptor() const;

 protected:
  SocketOwner() = default;

  /// Binds the owner to a context, before its first socket is opened there.
  /// @return false when the process is ending: nothing has changed
  bool attach(zmq::context_t& context);
  /// Waits until no other thread uses the owner, closes its sockets and refuses every use from there on. To be called
  /// in the destructor of the derived class.
  void retire() noexcept;

  /// Whether the owner was attached in this process, not in the one that was forked.
  bool isOfThisProcess() const;
  /// Whether the parent of this forked process attached the owner.
  bool isInherited() const { return process_ != 0 && !isOfThisProcess(); }

  /// As zmq_socket(3) on the owner's context. Fails with ETERM when the owner's use is refused by now.
  void* openSocket(int type);
  /// Closes the socket, if there is one, and makes the pointer null.
  void closeSocket(void*& socket) noexcept;

  /// Closes every socket of the owner. Runs in the thread that ends the process, or in the last that uses the owner.
  virtual void closeSockets() noexcept = 0;
  /// Drops the sockets without closing them: they belong to the parent of this forked process.
  virtual void forgetSockets() noexcept = 0;

 private:
  enum class State {
    kUnattached,
    kUsable,
    kEnding,   ///< new uses are refused; the sockets are closed when the last use is over
    kClosing,  ///< one thread closes the sockets
    kEnded,
  };

  static void registerHandler(zmq::context_t& context);
  static void endContext(void* context);
  Refusal begin();
  void leave();
  bool isUsedElsewhere() const;
  void announceEnd();
  bool closeIfUnused(ProcessLock& lock) noexcept;

  zmq::context_t* context_ = nullptr;
  pid_t process_ = 0;  ///< the process that attached the owner
  State state_ = State::kUnattached;
  bool isRetired_ = false;  ///< the owner is being destroyed: another thread that calls it does not attach it again
  std::vector<std::thread::id> users_;  ///< the threads of the uses that are not over; one as a rule
  std::size_t openSockets_ = 0;
};

/// Whether the process may open as many more descriptors as a new context and socket need: libzmq aborts the process
/// when it runs out of them halfway.
bool descriptorsAvailable();

}  // namespace zel
