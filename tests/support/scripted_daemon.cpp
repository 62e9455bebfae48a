#include "tests/support/scripted_daemon.h"

#include <json/reader.h>
#include <json/writer.h>

#include <algorithm>
#include <csignal>
#include <memory>

#include "tests/support/frames.h"
#include "tests/support/wait_until.h"

namespace zel::test {

namespace {

constexpr const char* kStopEndpoint = "inproc://stop";

Json::Value parsed(const std::string& text) {
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  Json::Value value;
  return reader->parse(text.data(), text.data() + text.size(), &value, nullptr) ? value : Json::Value();
}

}  // namespace

Answer::Answer(const Json::Value& document) {
  Json::StreamWriterBuilder settings;
  settings["indentation"] = "";
  frames = {Json::writeString(settings, document)};
}

Answer Answer::after(std::chrono::milliseconds wait) && {
  delay = wait;
  return std::move(*this);
}

Answer Answer::inside(Envelope kind) && {
  envelope = kind;
  return std::move(*this);
}

ScriptedDaemon::ScriptedDaemon(const std::string& endpoint)
    : router_(context_, zmq::socket_type::router), stop_(context_, zmq::socket_type::pair) {
  router_.set(zmq::sockopt::linger, 0);
  router_.bind(endpoint);
  stop_.bind(kStopEndpoint);
  // The signals of a test are for its own thread.
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  thread_ = std::thread([this] { serve(); });
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

// A peer that cannot be stopped ends the test.
ScriptedDaemon::~ScriptedDaemon() {  // NOLINT(bugprone-exception-escape)
  zmq::socket_t stopper(context_, zmq::socket_type::pair);
  stopper.connect(kStopEndpoint);
  stopper.send(zmq::message_t(), zmq::send_flags::none);
  thread_.join();
}

void ScriptedDaemon::answer(Answer message) { answerWith({std::move(message)}); }

void ScriptedDaemon::answerWith(std::vector<Answer> messages) {
  const std::lock_guard<std::mutex> lock(mutex_);
  queue_.push_back(std::move(messages));
}

void ScriptedDaemon::onRequest(Handler handler) {
  const std::lock_guard<std::mutex> lock(mutex_);
  handler_ = std::move(handler);
}

std::vector<Request> ScriptedDaemon::requests() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return requests_;
}

std::size_t ScriptedDaemon::requestCount() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return requests_.size();
}

Request ScriptedDaemon::lastRequest() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return requests_.empty() ? Request() : requests_.back();
}

bool ScriptedDaemon::waitForRequests(std::size_t count) const {
  std::unique_lock<std::mutex> lock(mutex_);
  return came_.wait_for(lock, kSoon, [&] { return requests_.size() >= count; });
}

void ScriptedDaemon::serve() {
  for (;;) {
    const auto wait =
        delayed_.empty()
            ? std::chrono::milliseconds(-1)
            : std::max(std::chrono::ceil<std::chrono::milliseconds>(delayed_.begin()->first - Clock::now()),
                       std::chrono::milliseconds(0));
    zmq::pollitem_t items[] = {{router_.handle(), 0, ZMQ_POLLIN, 0}, {stop_.handle(), 0, ZMQ_POLLIN, 0}};
    zmq::poll(items, 2, wait);
    if (items[1].revents != 0) return;
    if (items[0].revents != 0) take();
    sendDue();
  }
}

void ScriptedDaemon::take() {
  std::vector<std::string> frames = receiveFrames(router_);
  const auto delimiter = std::find(frames.begin(), frames.end(), std::string());
  if (delimiter == frames.end()) return;  // no request
  const std::vector<std::string> envelope(frames.begin(), delimiter + 1);

  Request request;
  request.frames.assign(delimiter + 1, frames.end());
  if (!request.frames.empty()) request.id = request.frames[0];
  if (request.frames.size() > 1) request.body = request.frames[1];
  request.json = parsed(request.body);
  request.peer = envelope.front();

  std::vector<Answer> answers{Answer(Json::Value(Json::objectValue))};
  Handler handler;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    requests_.push_back(request);
    if (!queue_.empty()) {
      answers = std::move(queue_.front());
      queue_.pop_front();
    } else {
      handler = handler_;
    }
  }
  if (handler) answers = handler(request);
  const auto now = Clock::now();
  for (Answer& answer : answers) {
    const auto due = now + answer.delay;
    delayed_.emplace(due, Delayed{envelope, std::move(answer)});
  }
  came_.notify_all();
}

void ScriptedDaemon::sendDue() {
  while (!delayed_.empty() && delayed_.begin()->first <= Clock::now()) {
    send(delayed_.begin()->second);
    delayed_.erase(delayed_.begin());
  }
}

void ScriptedDaemon::send(const Delayed& message) {
  std::vector<std::string> frames = message.envelope;
  switch (message.answer.envelope) {
    case Answer::Envelope::kRight: break;
    case Answer::Envelope::kWithoutDelimiter: frames.pop_back(); break;
    // The envelope: the peer's identity, the request's number (4 bytes) where the peer uses numbers, the delimiter.
    case Answer::Envelope::kOfAnotherRequest: frames.at(1).back() = static_cast<char>(frames.at(1).back() + 1); break;
  }
  frames.insert(frames.end(), message.answer.frames.begin(), message.answer.frames.end());
  sendFrames(router_, frames);
}

PublisherFake::PublisherFake(const std::string& endpoint) : publisher_(context_, zmq::socket_type::xpub) {
  publisher_.set(zmq::sockopt::linger, 0);
  publisher_.bind(endpoint);
}

PublisherFake::~PublisherFake() = default;

void PublisherFake::publish(const std::vector<std::string>& frames) { sendFrames(publisher_, frames); }

std::size_t PublisherFake::subscriptions(const std::string& topic) {
  zmq::message_t event;
  while (publisher_.recv(event, zmq::recv_flags::dontwait)) {
    const std::string text = event.to_string();  // one byte, 1 for a subscription and 0 for its end, then the topic
    if (text.empty()) continue;
    subscriptions_[text.substr(1)] = text[0] == 1 ? 1 : 0;
  }
  const auto found = subscriptions_.find(topic);
  return found == subscriptions_.end() ? 0 : found->second;
}

bool PublisherFake::waitForSubscription(const std::string& topic) {
  return waitUntil([&] { return subscriptions(topic) > 0; });
}

bool PublisherFake::waitForUnsubscription(const std::string& topic) {
  return waitUntil([&] { return subscriptions(topic) == 0; });
}

}  // namespace zel::test
