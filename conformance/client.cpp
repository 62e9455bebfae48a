#include "conformance/client.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "common/envelope.h"
#include "common/shared/read_number.h"
#include "common/shared/socket_parts.h"
#include "conformance/documents.h"

namespace zel::conformance {

namespace {

constexpr std::int64_t kMostFrameBytes = std::int64_t{64} << 20U;  // beyond the wire's limit, so that it is seen
constexpr int kMostQueued = 100000;
constexpr Client::Milliseconds kConnectLimit{2000};
constexpr Follower::Milliseconds kQuiet{60};
constexpr Client::Milliseconds kTurn{50};  // between looks at the signal

zmq::socket_t makeSocket(zmq::context_t& context, zmq::socket_type type) {
  zmq::socket_t socket(context, type);
  socket.set(zmq::sockopt::linger, 0);
  socket.set(zmq::sockopt::maxmsgsize, kMostFrameBytes);
  socket.set(zmq::sockopt::rcvhwm, kMostQueued);
  return socket;
}

/// Waits until the socket is ready. @throws Stopped after a signal
bool waitOn(zmq::socket_t& socket, short events, Clock::time_point deadline) {
  for (;;) {
    if (interrupted) throw Stopped{"interrupted by a signal"};
    const auto turn = std::min(deadline, Clock::now() + kTurn);
    if (waitFor({socket.handle(), 0, events, 0}, turn)) return true;
    if (Clock::now() >= deadline) return false;
  }
}

bool takeMessage(zmq::socket_t& socket, std::vector<std::string>& frames) {
  frames.clear();
  for (;;) {
    Frame frame;
    if (!frame.receiveNow(socket.handle())) return false;
    frames.emplace_back(frame.text());
    if (!frame.more()) return true;
  }
}

bool sendMessage(zmq::socket_t& socket, const std::vector<std::string>& frames) {
  for (std::size_t i = 0; i < frames.size(); ++i) {
    const int flags = ZMQ_DONTWAIT | (i + 1 < frames.size() ? ZMQ_SNDMORE : 0);
    const auto send = [&] { return zmq_send(socket.handle(), frames[i].data(), frames[i].size(), flags); };
    if (despiteSignals(send) < 0) return false;
  }
  return true;
}

}  // namespace

// --- answers

int Answer::status() const {
  if (!document.isObject()) return 0;
  const Json::Value& status = document[envelope::kStatus];
  return status.isInt() ? status.asInt() : 0;
}

std::string Answer::text() const { return came && !frames.empty() ? shown(frames.front()) : "nothing"; }

// --- requests

Client::Client(zmq::context_t& context, std::string endpoint, Milliseconds patience, Observer& observer)
    : context_(context), endpoint_(std::move(endpoint)), patience_(patience), observer_(observer) {
  reconnect();
}

void Client::reconnect() {
  socket_ = makeSocket(context_, zmq::socket_type::dealer);
  socket_.set(zmq::sockopt::immediate, true);  // a message waits for a connection, not for a daemon that comes later
  socket_.connect(endpoint_);
}

/// A request number as a REQ socket makes it. Its bytes are not text, and some of them are 0.
std::vector<std::string> Client::envelope(std::uint32_t number) const {
  std::string bytes(sizeof number, '\0');
  std::memcpy(bytes.data(), &number, sizeof number);
  return {bytes, ""};
}

Answer Client::ask(int id, const Json::Value& body) {
  std::string text;
  if (!body.isNull()) writeWireJson(body, text);
  return askFrames({std::to_string(id), text});
}

Answer Client::askFrames(const std::vector<std::string>& content) {
  drain();
  send(content);
  return receive();
}

void Client::send(const std::vector<std::string>& content) {
  std::vector<std::string> message = envelope(++number_);
  message.insert(message.end(), content.begin(), content.end());
  request_ = "command";
  for (const std::string& frame : content) request_ += " " + (frame.empty() ? "(no body)" : shown(frame));
  const auto id = readNumber<unsigned int>(content.empty() ? "" : content.front());
  id_ = id && *id < 1000 ? static_cast<int>(*id) : -1;
  isQuery_ = isQueryId(id_) && content.size() == 2 && content.back().empty();
  if (!sendRaw(message)) {
    observer_.found(wasConnected_ ? "survives" : "endpoints", endpoint_ + " did not take " + request_);
    throw Stopped{(wasConnected_ ? "the daemon is gone from " : "no daemon takes requests on ") + endpoint_};
  }
  wasConnected_ = true;
  sent_ = Clock::now();
}

bool Client::sendRaw(const std::vector<std::string>& frames) {
  return waitOn(socket_, ZMQ_POLLOUT, Clock::now() + kConnectLimit) && sendMessage(socket_, frames);
}

bool Client::receiveMessage(std::vector<std::string>& frames, Clock::time_point deadline) {
  return waitOn(socket_, ZMQ_POLLIN, deadline) && takeMessage(socket_, frames);
}

Answer Client::receive() {
  const std::vector<std::string> wanted = envelope(number_);
  const auto deadline = sent_ + patience_;
  for (std::vector<std::string> frames; receiveMessage(frames, deadline);) {
    const bool isIts = frames.size() >= wanted.size() && std::equal(wanted.begin(), wanted.end(), frames.begin());
    if (isIts) return take(std::move(frames));
    const bool isOther = frames.size() >= 2 && frames[0].size() == wanted[0].size() && frames[1].empty();
    observer_.found(isOther ? "one-answer" : "envelope", "before the answer to " + request_ +
                                                             " came a message that does not begin with its envelope: " +
                                                             (frames.empty() ? "" : shown(frames.front())));
  }
  Answer none;
  none.request = request_;
  observer_.missed(request_);
  reconnect();
  return none;
}

Answer Client::take(std::vector<std::string> frames) {
  Answer answer;
  answer.request = request_;
  answer.came = true;
  answer.frames.assign(frames.begin() + 2, frames.end());
  const auto took = std::chrono::duration_cast<Milliseconds>(Clock::now() - sent_);
  answer.document = observer_.judgeAnswer(request_, id_, isQuery_, answer.frames, took);
  return answer;
}

void Client::drain() {
  for (std::vector<std::string> frames; takeMessage(socket_, frames);) {
    observer_.found("one-answer", "a second answer came: " + (frames.empty() ? "" : shown(frames.back())));
  }
}

bool Client::waitUntilServed(Milliseconds limit) { return waitOn(socket_, ZMQ_POLLOUT, Clock::now() + limit); }

// --- notifications

Follower::Follower(zmq::context_t& context, const std::string& endpoint, Observer& observer)
    : socket_(makeSocket(context, zmq::socket_type::sub)), observer_(observer) {
  socket_.connect(endpoint);
}

void Follower::subscribe(const std::string& topic) { socket_.set(zmq::sockopt::subscribe, topic); }
void Follower::unsubscribe(const std::string& topic) { socket_.set(zmq::sockopt::unsubscribe, topic); }

bool Follower::next(Notice& notice, Milliseconds limit) {
  std::vector<std::string> frames;
  if (!waitOn(socket_, ZMQ_POLLIN, Clock::now() + limit) || !takeMessage(socket_, frames)) return false;
  notice.payload = observer_.judgeNotification(frames);
  notice.topic = frames.size() == 2 ? frames.front() : "";
  const TopicRow* const row = topicRow(notice.topic);
  if (row == nullptr || notice.topic == kRebootTopic) return true;

  const Json::Value* document = &notice.payload;
  if (row->isWrapped) {
    if (!document->isObject() || !(*document)[row->member].isArray()) {
      observer_.found("wrapped", "a notification of " + notice.topic + " has the payload " + shown(notice.payload));
      return true;
    }
    document = &(*document)[row->member];
  } else if (!document->isObject() || document->isMember(row->member)) {
    observer_.found("not-wrapped", "a notification of " + notice.topic + " has the payload " + shown(notice.payload));
    return true;
  }
  for (const Breach& breach : judgeDocument(row->member, *document)) {
    observer_.found(breach.rule, "in a notification of " + notice.topic + " " + breach.text);
  }
  return true;
}

std::vector<Notice> Follower::settle() {
  std::vector<Notice> notices;
  for (Notice notice; notices.size() < kMostQueued && next(notice, kQuiet);) notices.push_back(notice);
  return notices;
}

}  // namespace zel::conformance
