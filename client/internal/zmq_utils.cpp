#include "client/zmq_utils.h"

#include <unistd.h>

#include <atomic>
#include <memory>
#include <new>
#include <utility>

#include "common/client_json_api.h"
#include "common/logger.h"
#include "common/shared/context_mark.h"
#include "common/shared/process_mutex.h"
#include "common/shared/singleton.h"
#include "common/shared/socket_owner.h"

namespace {

/// One I/O thread, on purpose, and the default number of sockets. What a context does not accept stays as it is.
///
/// No thread forks meanwhile: libzmq and its libraries lock mutexes of their own, which a child would inherit locked.
zmq::context_t makeContext() {
  const zel::ProcessLock lock(zel::processMutex());
  zmq::context_t context;
  zmq_ctx_set(context.handle(), ZMQ_IO_THREADS, 1);
  zmq_ctx_set(context.handle(), ZMQ_MAX_SOCKETS, ZMQ_MAX_SOCKETS_DFLT);
  return context;
}

/// The process that made the context. In a forked child the context's threads do not exist, and closing it would wait
/// for them without end.
pid_t contextOwner = 0;

void destroyContext(zmq::context_t& context) {
  if (contextOwner == getpid()) {
    context.close();
  } else {
    // It belongs to the parent: moved into memory whose destructor never runs.
    alignas(zmq::context_t) static unsigned char inherited[sizeof(zmq::context_t)];
    new (inherited) zmq::context_t(std::move(context));
  }
}

/// A client without a daemon. Its `init` registers the exit handler of libzelCommonTypes, which closes the sockets of
/// all its clients and subscribers on the context, and then fails, since the address is not valid.
class NobodysClient final : public ClientJsonApi {
  std::string getIpcConnectAddress() override { return ""; }
};

zel::Singleton<ZmqUtils> singleton;
/// Null until the instance is complete: a process that ends before leaves the context as it is.
std::atomic<ZmqUtils*> instance{nullptr};

}  // namespace

ZmqUtils& ZmqUtils::getInstance() { return singleton.get(make); }

// Exit handlers run in the reverse order of their registration: the two that close the sockets, one of each library,
// are registered behind the one that destroys the context, and both before the destructor of any static object that is
// made later.
ZmqUtils* ZmqUtils::make() {
  std::unique_ptr<ZmqUtils> made(new ZmqUtils);
  zel::atExit([](void*) noexcept { closeAtExit(); });
  NobodysClient().init(made->context_);
  zel::SocketOwner::closeAtExit(made->context_);
  instance = made.get();
  return made.release();
}

void ZmqUtils::closeAtExit() {
  if (ZmqUtils* const made = instance) made->close();
}

ZmqUtils::ZmqUtils() : context_(makeContext()) {
  contextOwner = getpid();
  Logger::log(Logger::LEVEL_LIFECYCLE, "ZmqUtils: initializing ZMQ Context ...");
}

zmq::context_t& ZmqUtils::getContext() { return context_; }

void ZmqUtils::resetContext() {
  Logger::log(Logger::LEVEL_LIFECYCLE, "ZmqUtils: reseting ZMQ Context ...");
  destroyContext(context_);
  context_ = makeContext();
  zel::markForAll(context_);  // the exit handlers of the context before it serve this one, too
  contextOwner = getpid();
}

ZmqUtils::~ZmqUtils() { close(); }

void ZmqUtils::close() noexcept {
  Logger::log(Logger::LEVEL_LIFECYCLE, "ZmqUtils: closing ZMQ context");
  destroyContext(context_);
}
