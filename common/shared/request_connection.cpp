#include "common/shared/request_connection.h"

#include <algorithm>
#include <cerrno>

#include "common/envelope.h"
#include "common/shared/format_text.h"
#include "common/status.h"

namespace zel {

namespace {

/// What the socket is set to before it connects, and why. libzmq 4.3.4 behaves as the reasons say.
constexpr SocketOption kSocketOptions[] = {
    {ZMQ_RCVHWM, 7},            // messages that answer no request wait here until the next call: 7 of up to 1 MiB
    {ZMQ_LINGER, 0},            // a request that failed must not leave later, nor hold up the end of the process
    {ZMQ_IMMEDIATE, 1},         // nothing is queued for a daemon that is not there
    {ZMQ_REQ_CORRELATE, 1},     // an answer carries its request's number: late and doubled ones are dropped
    {ZMQ_RECONNECT_IVL, 10},    // ms; a daemon that is back is found within about 20 ms
    {ZMQ_HANDSHAKE_IVL, 1000},  // ms; a peer that accepts and then says nothing is given up
    {ZMQ_CONNECT_TIMEOUT, 1000},
    {ZMQ_MAXMSGSIZE, static_cast<int>(kMaxFrameBytes)},  // an endless frame cannot take the memory
};

/// How long a socket from before a request may take to be connected again.
constexpr std::chrono::milliseconds kPatience{50};

constexpr const char* kNotConnected = "the client is not connected. Call init first.";
constexpr const char* kForked =
    "the client was connected before the process was forked. Call init again, with a context of this process.";
constexpr const char* kEnding = "the process is ending.";

const Json::Value* find(const Json::Value& object, std::string_view name) {
  return object.find(name.data(), name.data() + name.size());
}

}  // namespace

std::string RequestConnection::open(zmq::context_t& context, const std::string& address) {
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

bool RequestConnection::openLater(zmq::context_t& context, const std::string& address) {
  if (!attach(context)) return false;
  const Use use(*this);
  address_ = address;
  if (use) connect();
  return bool(use);
}

const char* RequestConnection::refusalText(const Use& use) const {
  switch (use.refusal()) {
    case Refusal::kNone: return !isInitialized() ? kNotConnected : !isOfThisProcess() ? kForked : nullptr;
    case Refusal::kNotAttached: return kNotConnected;
    case Refusal::kForked: return kForked;
    default: return kEnding;
  }
}

/// Opens a new socket in place of the one that was there, which stays when that fails.
/// @return empty, or why it fails
std::string RequestConnection::connect() {
  if (!descriptorsAvailable()) return "too few file descriptors are left";
  void* socket = openSocket(ZMQ_REQ);
  if (socket != nullptr && setOptions(socket, kSocketOptions) && zel::connect(socket, address_) == 0) {
    closeSockets();
    socket_ = socket;
    receiveLimit_ = kNoLimit;
    return {};
  }
  const int error = zmq_errno();
  closeSocket(socket);
  return zmq_strerror(error);
}

bool RequestConnection::sendNow(const std::string& frame, int flags) {
  return despiteSignals([&] { return zmq_send(socket_, frame.data(), frame.size(), ZMQ_DONTWAIT | flags); }) >= 0;
}

// A wait in the call itself: a poll before it would cost more system calls.
bool RequestConnection::receiveUntil(Frame& answer, Clock::time_point deadline) {
  do {
    const int left = static_cast<int>(millisecondsUntil(deadline));
    if (left != receiveLimit_ && !setOption(socket_, {ZMQ_RCVTIMEO, left})) return false;
    receiveLimit_ = left;
    if (answer.receive(socket_)) return true;
  } while (zmq_errno() == EINTR);
  return false;
}

std::string RequestConnection::read(Frame& answer, Json::Value& reply) {
  if (answer.more()) return "it has more than one frame";
  Json::Value document;
  if (std::string why = reader_.read(answer.text(), document); !why.empty()) return why;
  if (!document.isObject()) return "it is not a JSON object";
  const Json::Value* const status = find(document, envelope::kStatus);
  if (status != nullptr && !status->isInt()) return "its status is not an integer";
  reply.swap(document);
  return {};
}

RequestConnection::Sending::Sending(RequestConnection& connection, const std::string& id, const std::string& body,
                                    Clock::time_point deadline)
    : connection_(connection),
      id_(id),
      body_(body),
      deadline_(deadline),
      renewAt_(connection.socket_ == nullptr ? Clock::time_point::min() : Clock::now() + kPatience) {}

RequestConnection::Sending::State RequestConnection::Sending::step() {
  if (!begun_) begun_ = begin();
  if (!begun_ && renewAt_ && (*renewAt_ <= Clock::now() || !mayTryAgain())) {
    renewAt_.reset();
    why_ = connection_.connect();
    if (connection_.socket_ == nullptr) return State::kCannotConnect;
    begun_ = begin();
  }
  if (begun_ && connection_.sendNow(body_, 0)) return State::kSent;
  return mayTryAgain() && Clock::now() < deadline_ ? State::kWaiting : State::kNotSent;
}

bool RequestConnection::Sending::begin() {
  return connection_.socket_ != nullptr && connection_.sendNow(id_, ZMQ_SNDMORE);
}

std::string writeBody(const Json::Value& body, std::string& text) {
  return body.isNull() ? std::string() : writeWireJson(body, text);
}

int statusOf(const Json::Value& answer) {
  const Json::Value* const status = find(answer, envelope::kStatus);
  return status == nullptr ? status::kOk : status->asInt();
}

namespace report {

namespace {

ErrorReport report(int code, const std::string& name, std::initializer_list<std::string_view> what) {
  return {code, joined({"\"", name, "\"", joined(what)})};
}

}  // namespace

ErrorReport notInitialized(const std::string& name, std::string_view why) {
  return report(status::kNotInitialized, name, {" was not sent: ", why});
}

ErrorReport badRequest(const std::string& name, std::string_view why) {
  return report(status::kBadRequest, name, {" was not sent: its body cannot be written as JSON text: ", why, "."});
}

ErrorReport cannotConnect(const std::string& name, std::string_view address, std::string_view why) {
  return report(status::kCannotConnect, name,
                {" was not sent: no connection to ", address, " can be opened: ", why, "."});
}

ErrorReport notSent(const std::string& name, std::string_view address, std::chrono::milliseconds timeout) {
  return report(status::kNotSent, name,
                {" was not sent: no daemon took it at ", address, " within ", std::to_string(timeout.count()),
                 " ms. Is the system manager running?"});
}

ErrorReport noAnswer(const std::string& name, std::string_view address, std::chrono::milliseconds timeout) {
  return report(status::kNoAnswer, name,
                {" was sent to ", address, ", but no answer came within ", std::to_string(timeout.count()),
                 " ms. The daemon may have acted on it: read the state back before you repeat it."});
}

ErrorReport cancelled(const std::string& name) {
  return report(status::kCancelled, name, {" was not sent: it was cancelled."});
}

ErrorReport cancelledWhenSent(const std::string& name, std::string_view address) {
  return report(status::kNoAnswer, name,
                {" was cancelled after it was sent to ", address,
                 ". The daemon may have acted on it: read the state back before you repeat it."});
}

ErrorReport abandoned(const std::string& name, std::string_view address) {
  return report(
      status::kNoAnswer, name,
      {" was sent to ", address,
       ", but the process ends before its answer. The daemon may have acted on it: read the state back before "
       "you repeat it."});
}

ErrorReport badAnswer(const std::string& name, std::string_view why) {
  return report(status::kBadAnswer, name, {" was answered, but the answer cannot be used: ", why, "."});
}

ErrorReport refused(const std::string& name, const Json::Value& answer) {
  const int status = statusOf(answer);
  ErrorReport refusal{status, {}};
  const Json::Value& error = answer[envelope::kError];
  if (error.isString()) refusal.text = error.asString();
  if (refusal.text.empty()) {
    refusal = report(status, name, {" was refused by the daemon with the status ", std::to_string(status), "."});
  }

  const Json::Value& auxiliary = answer[envelope::kAuxErrors];
  std::string messages;
  if (auxiliary.isArray()) {
    for (const Json::Value& message : auxiliary) {
      if (message.isString()) messages += (messages.empty() ? "" : "; ") + message.asString();
    }
  }
  if (!messages.empty()) refusal.text += joined({" (", messages, ")"});
  return refusal;
}

}  // namespace report

}  // namespace zel
