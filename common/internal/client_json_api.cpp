#include "common/client_json_api.h"

#include <algorithm>
#include <chrono>
#include <limits>

#include "common/shared/format_text.h"
#include "common/shared/recycled.h"
#include "common/shared/request_connection.h"
#include "common/status.h"

using zel::Clock;

namespace {

/// Keeps the report of a failure. No thread forks meanwhile, so a child has this one or the one before.
int keep(ErrorReport report, ErrorReport& last) {
  const zel::ProcessLock lock(zel::processMutex());
  std::swap(last, report);
  return last.code;
}

}  // namespace

/// The connection of a client that waits.
class ClientJsonApi::Connection final : public zel::RequestConnection {
 public:
  Connection() = default;
  ~Connection() override { retire(); }  // here: the thread that ends the process may be in `closeSockets` until then
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  static void* operator new(std::size_t) { return zel::Recycled<Connection>::take(); }
  static void operator delete(void* memory) { zel::Recycled<Connection>::giveBack(memory); }
  void destroy() {
    retire();
    zel::Recycled<Connection>::destroy(this);
  }
  /// A thread that a forked child does not have may have been changing the connection.
  void renewIfInherited() {
    if (zel::Recycled<Connection>::isInherited(this)) zel::Recycled<Connection>::renew(this);
  }

  /// Hands a request over as soon as a daemon takes it.
  Sending::State send(Sending& request) {
    for (;;) {
      const Sending::State state = request.step();
      if (state != Sending::State::kWaiting) return state;
      zel::waitFor({socket(), 0, ZMQ_POLLOUT, 0}, request.wakeUp());
    }
  }
};

// NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks): its memory is recycled
ClientJsonApi::ClientJsonApi() : connection_(new Connection) {}

ClientJsonApi::~ClientJsonApi() { connection_->destroy(); }

int ClientJsonApi::getCommandDescription(unsigned int id, std::string& description) {
  description = "command " + std::to_string(id);
  return 0;
}

int ClientJsonApi::getClientTimeout() { return timeout_; }

void zel::setTimeout(ClientJsonApi& client, std::chrono::milliseconds timeout) {
  constexpr std::chrono::milliseconds kLongest{std::numeric_limits<int>::max()};
  client.timeout_ = static_cast<int>((timeout.count() > 0 ? std::min(timeout, kLongest) : kDefaultTimeout).count());
}

int ClientJsonApi::init(zmq::context_t& context) {
  connection_->renewIfInherited();
  const std::string address = getIpcConnectAddress();
  const std::string why = connection_->open(context, address);
  if (why.empty()) return zel::status::kOk;
  return keep(
      {zel::status::kCannotConnect, zel::joined({"The client cannot open a connection to ", address, ": ", why})},
      lastError_);
}

std::string ClientJsonApi::nameOf(unsigned int id) {
  std::string name;
  getCommandDescription(id, name);
  return name.empty() ? "command " + std::to_string(id) : name;
}

int ClientJsonApi::sendMessage(IpcMsg& message, Json::Value& reply) {
  Connection::Exchange exchange(*connection_);
  if (exchange.endsElsewhere()) return zel::status::kNotInitialized;
  const auto fail = [&](auto report, const auto&... details) {
    return keep(report(nameOf(message.getId()), details...), lastError_);
  };
  if (const char* const why = exchange.refusal()) return fail(zel::report::notInitialized, why);

  const int wished = getClientTimeout();
  if (const char* const why = exchange.refusal()) return fail(zel::report::notInitialized, why);
  const auto timeout = wished > 0 ? std::chrono::milliseconds(wished) : zel::kDefaultTimeout;
  const Clock::time_point deadline = Clock::now() + timeout;
  const std::string& address = connection_->address();

  std::string body;
  if (const std::string why = zel::writeBody(message.getBody(), body); !why.empty()) {
    exchange.keepConnection();  // nothing was sent
    return fail(zel::report::badRequest, why);
  }
  const std::string id = std::to_string(message.getId());
  Connection::Sending sending(*connection_, id, body, deadline);
  switch (connection_->send(sending)) {
    case Connection::Sending::State::kSent: break;
    case Connection::Sending::State::kCannotConnect: return fail(zel::report::cannotConnect, address, sending.why());
    default: return fail(zel::report::notSent, address, timeout);
  }
  zel::Frame answer;
  if (!connection_->receiveUntil(answer, deadline)) return fail(zel::report::noAnswer, address, timeout);
  if (const std::string why = connection_->read(answer, reply); !why.empty()) {
    return fail(zel::report::badAnswer, why);
  }
  exchange.keepConnection();
  const int status = zel::statusOf(reply);
  return status < 0 ? fail(zel::report::refused, reply) : status;
}

int ClientJsonApi::getLastErrorMessage(ErrorReport& report) {
  report = lastError_;
  return zel::status::kOk;
}
