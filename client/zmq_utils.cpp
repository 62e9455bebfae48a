#include "client/zmq_utils.h"

#include <unistd.h>

#include <new>
#include <utility>

#include "common/logger.h"

namespace {

/// One I/O thread, on purpose, and the default number of sockets.
zmq::context_t makeContext() { return zmq::context_t(1, ZMQ_MAX_SOCKETS_DFLT); }

/// The process that made the context. In a forked child the context's threads do not exist, and ending it would wait
/// for them for ever.
pid_t contextOwner = 0;

void destroyContext(zmq::context_t& context) {
  if (contextOwner == getpid()) {
    context.close();
  } else {
    // Left to the parent: moved to where nobody ends it.
    alignas(zmq::context_t) static unsigned char inherited[sizeof(zmq::context_t)];
    new (inherited) zmq::context_t(std::move(context));
  }
}

}  // namespace

ZmqUtils& ZmqUtils::getInstance() {
  static ZmqUtils instance;
  return instance;
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
  contextOwner = getpid();
}

ZmqUtils::~ZmqUtils() {
  Logger::log(Logger::LEVEL_LIFECYCLE, "ZmqUtils: closing ZMQ context");
  destroyContext(context_);
}
