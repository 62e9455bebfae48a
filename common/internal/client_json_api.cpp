#include "common/client_json_api.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <string_view>

#include "common/envelope.h"
#include "common/internal/socket_owner.h"
#include "common/shared/format_text.h"
#include "common/shared/recycled.h"
#include "common/shared/socket_parts.h"
#include "common/shared/wire_json.h"
#include "common/status.h"

using zel::Clock;
using zel::Frame;
using zel::joined;
using zel::mayTryAgain;
using zel::waitFor;
using zel::envelope::kAuxErrors;
using zel::envelope::kError;
using zel::envelope::kStatus;
using zel::status::kBadAnswer;
using zel::status::kBadRequest;
using zel::status::kCannotConnect;
using zel::status::kNoAnswer;
using zel::status::kNotInitialized;
using zel::status::kNotSent;

namespace {

constexpr int kDefaultTimeoutMs = 5000;

/// What the socket is set to before it connects, and why. libzmq 4.3.4 behaves as the reasons say.
constexpr zel::SocketOption kSocketOptions[] = {
    {ZMQ_RCVHWM, 7},            // what nobody asked for waits here until the next call: no more than 7 MiB
    {ZMQ_LINGER, 0},            // a request that failed must not leave later, nor hold up the end of the process
    {ZMQ_IMMEDIATE, 1},         // nothing is queued for a daemon that is not there
    {ZMQ_REQ_CORRELATE, 1},     // an answer carries its request's number: late and doubled ones are dropped
    {ZMQ_RECONNECT_IVL, 10},    // ms; a daemon that is back is found within about 20 ms
    {ZMQ_HANDSHAKE_IVL, 1000},  // ms; a peer that accepts and then says nothing is given up
    {ZMQ_CONNECT_TIMEOUT, 1000},
    {ZMQ_MAXMSGSIZE, static_cast<int>(zel::kMaxFrameBytes)},  // an endless frame cannot take the memory
};

/// How long a socket from before this call may take to be connected again. Then it is made anew: a peer that broke the
/// protocol has left it deaf for good.
constexpr std::chrono::milliseconds kPatience{50};

const Json::Value* find(const Json::Value& object, std::string_view name) {
  return object.find(name.data(), name.data() + name.size());
}

int statusOf(const Json::Value& answer) {
  const Json::Value* const status = find(answer, kStatus);
  return status == nullptr ? zel::status::kOk : status->asInt();
}

}  // namespace

/// The client's side of the connection: one REQ socket, kept while calls succeed and made anew after a failed one,
/// since a broken connection can leave a socket deaf for good.
class ClientJsonApi::Connection final : public zel::SocketOwner {
 public:
  Connection() = default;
  ~Connection() override { retire(); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  static void* operator new(std::size_t) { return zel::Recycled<Connection>::take(); }
  static void operator delete(void* memory) { zel::Recycled<Connection>::giveBack(memory); }

  /// @return empty, or why the socket cannot be opened
  std::string open(zmq::context_t& context, const std::string& address) {
    if (!attach(context)) return kEnding;
    const Use use(*this);
    if (!use) return kEnding;
    closeSockets();
    address_ = address;
    std::string why = connect();
    if (why.empty()) return {};
    address_.clear();
    return why + '.';
  }

  bool isInitialized() const { return !address_.empty(); }
  const std::string& address() const { return address_; }

  /// Works with the connection until the scope ends; disconnects then unless the connection is worth keeping.
  class Exchange {
   public:
    explicit Exchange(Connection& connection) : connection_(connection), use_(connection) {}
    ~Exchange() {
      if (!keep_ && use_) connection_.closeSockets();
    }
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;
    /// @return null, or why there is nothing to work with
    const char* refusal() const {
      switch (use_.refusal()) {
        case Refusal::kNone: return connection_.isInitialized() ? nullptr : kNotConnected;
        case Refusal::kNotAttached: return kNotConnected;
        case Refusal::kForked: return kForked;
        default: return kEnding;
      }
    }
    /// Whether another thread is ending the process, and may destroy the client meanwhile.
    bool endsElsewhere() const { return use_.refusal() == Refusal::kEnding && !isExitThread(); }
    void keepConnection() { keep_ = true; }

   private:
    Connection& connection_;
    Use use_;
    bool keep_ = false;
  };

  /// Hands both frames of a request to a connected daemon.
  /// @param why  receives why there is no socket
  /// @return 0, or the code of the failure
  int send(const std::string& id, const std::string& body, Clock::time_point deadline, std::string& why) {
    const auto begin = [&](Clock::time_point until) { return sendFrame(id, ZMQ_SNDMORE, until); };
    bool begun =
        socket_ != nullptr && (sendNow(id, ZMQ_SNDMORE) || begin(std::min(deadline, Clock::now() + kPatience)));
    if (!begun) why = connect();
    if (socket_ == nullptr) return kCannotConnect;
    begun = begun || begin(deadline);
    return begun && sendFrame(body, 0, deadline) ? zel::status::kOk : kNotSent;
  }

  /// Writes a request's body; null is no body, an empty frame.
  /// @return empty, or why it cannot be written
  std::string write(const Json::Value& body, std::string& text) {
    return body.isNull() ? std::string() : zel::writeWireJson(body, text);
  }

  /// Waits in the call itself: a poll before it would cost more system calls.
  bool receive(Frame& frame, Clock::time_point deadline) {
    do {
      const int left = static_cast<int>(zel::millisecondsUntil(deadline));
      if (left != receiveLimit_ && !zel::setOption(socket_, {ZMQ_RCVTIMEO, left})) return false;
      receiveLimit_ = left;
      if (frame.receive(socket_)) return true;
    } while (zmq_errno() == EINTR);
    return false;
  }

  /// Reads an answer, an object whose status, where it has one, is an integer.
  /// @param reply  changed on success only
  /// @return empty, or why the answer cannot be used
  std::string read(Frame& frame, Json::Value& reply) {
    if (frame.more()) return "it has more than one frame";
    Json::Value answer;
    if (std::string why = reader_.read(frame.text(), answer); !why.empty()) return why;
    if (!answer.isObject()) return "it is not a JSON object";
    const Json::Value* const status = find(answer, kStatus);
    if (status != nullptr && !status->isInt()) return "its status is not an integer";
    reply.swap(answer);
    return {};
  }

 private:
  /// Opens a new socket in place of the one that was there, which stays when that fails.
  /// @return empty, or why it fails
  std::string connect() {
    if (!zel::descriptorsAvailable()) return "too few file descriptors are left";
    void* socket = openSocket(ZMQ_REQ);
    if (socket != nullptr && zel::setOptions(socket, kSocketOptions) && zel::connect(socket, address_) == 0) {
      closeSockets();
      socket_ = socket;
      receiveLimit_ = kNoLimit;
      return {};
    }
    const int error = zmq_errno();
    closeSocket(socket);
    return zmq_strerror(error);
  }

  bool sendNow(const std::string& frame, int flags) {
    return zmq_send(socket_, frame.data(), frame.size(), ZMQ_DONTWAIT | flags) >= 0;
  }

  bool sendFrame(const std::string& frame, int flags, Clock::time_point deadline) {
    while (!sendNow(frame, flags)) {
      if (!mayTryAgain() || !waitFor({socket_, 0, ZMQ_POLLOUT, 0}, deadline)) return false;
    }
    return true;
  }

  void closeSockets() noexcept override { closeSocket(socket_); }
  void forgetSockets() noexcept override { socket_ = nullptr; }

  static constexpr const char* kNotConnected = "the client is not connected. Call init first.";
  static constexpr const char* kForked =
      "the client was connected before the process was forked. Call init again, with a context of this process.";
  static constexpr const char* kEnding = "the process is ending.";
  static constexpr int kNoLimit = -1;
  void* socket_ = nullptr;
  int receiveLimit_ = kNoLimit;  // ms; what the socket is set to
  std::string address_;
  zel::WireJsonReader reader_;
};

// NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks): its memory is recycled
ClientJsonApi::ClientJsonApi() : connection_(new Connection) {}

ClientJsonApi::~ClientJsonApi() { delete connection_; }

int ClientJsonApi::getCommandDescription(unsigned int id, std::string& description) {
  description = "command " + std::to_string(id);
  return 0;
}

int ClientJsonApi::getClientTimeout() { return kDefaultTimeoutMs; }

int ClientJsonApi::init(zmq::context_t& context) {
  const std::string address = getIpcConnectAddress();
  const std::string why = connection_->open(context, address);
  if (why.empty()) return zel::status::kOk;
  lastError_ = {kCannotConnect, joined({"The client cannot open a connection to ", address, ": ", why})};
  return kCannotConnect;
}

int ClientJsonApi::sendMessage(IpcMsg& message, Json::Value& reply) {
  const unsigned int id = message.getId();
  Connection::Exchange exchange(*connection_);
  if (exchange.endsElsewhere()) return kNotInitialized;
  if (const char* const why = exchange.refusal()) return fail(kNotInitialized, id, joined({" was not sent: ", why}));

  const int wished = getClientTimeout();
  const std::chrono::milliseconds timeout(wished > 0 ? wished : kDefaultTimeoutMs);
  const Clock::time_point deadline = Clock::now() + timeout;
  const auto within = [timeout] { return joined({" within ", std::to_string(timeout.count()), " ms"}); };

  std::string body;
  std::string why = connection_->write(message.getBody(), body);
  if (!why.empty()) {
    exchange.keepConnection();  // nothing was sent
    return fail(kBadRequest, id, joined({" was not sent: its body cannot be written as JSON text: ", why, "."}));
  }
  const int sent = connection_->send(std::to_string(id), body, deadline, why);
  if (sent == kCannotConnect) {
    return fail(kCannotConnect, id,
                joined({" was not sent: no connection to ", connection_->address(), " can be opened: ", why, "."}));
  }
  if (sent < 0) {
    return fail(kNotSent, id,
                joined({" was not sent: no daemon took it at ", connection_->address(), within(),
                        ". Is the system manager running?"}));
  }
  Frame answer;
  if (!connection_->receive(answer, deadline)) {
    return fail(kNoAnswer, id,
                joined({" was sent to ", connection_->address(), ", but no answer came", within(),
                        ". The daemon may have acted on it: read the state back before you repeat it."}));
  }
  why = connection_->read(answer, reply);
  if (!why.empty()) {
    return fail(kBadAnswer, id, joined({" was answered, but the answer cannot be used: ", why, "."}));
  }
  exchange.keepConnection();

  const int status = statusOf(reply);
  return status < 0 ? refused(status, id, reply) : status;
}

int ClientJsonApi::getLastErrorMessage(ErrorReport& report) {
  report = lastError_;
  return zel::status::kOk;
}

int ClientJsonApi::fail(int code, unsigned int id, const std::string& what) {
  std::string name;
  getCommandDescription(id, name);
  if (name.empty()) name = "command " + std::to_string(id);
  lastError_ = {code, joined({"\"", name, "\"", what})};
  return code;
}

int ClientJsonApi::refused(int status, unsigned int id, const Json::Value& reply) {
  const Json::Value& error = reply[kError];
  if (const std::string text = error.isString() ? error.asString() : ""; !text.empty()) {
    lastError_ = {status, text};
  } else {
    fail(status, id, joined({" was refused by the daemon with the status ", std::to_string(status), "."}));
  }

  const Json::Value& auxiliary = reply[kAuxErrors];
  std::string messages;
  if (auxiliary.isArray()) {
    for (const Json::Value& message : auxiliary) {
      if (message.isString()) messages += (messages.empty() ? "" : "; ") + message.asString();
    }
  }
  if (!messages.empty()) lastError_.text += joined({" (", messages, ")"});
  return status;
}
