#include <fcntl.h>
#include <json/writer.h>
#include <unistd.h>
#include <zmq.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>
#include <zmq.hpp>

#include "cli/command.h"
#include "cli/following.h"
#include "client/endpoints.h"
#include "client/zmq_utils.h"
#include "common/shared/utf8.h"

namespace zel::ctl {

namespace {

constexpr int kVersion = 1;
constexpr const char* kDocuments[] = {"stored", "dynamic", "model", "whitelist"};
constexpr double kAnswerSeconds = 5;
constexpr std::int64_t kMostFrameBytes = std::int64_t{1024} * 1024;
constexpr int kQueuedNotifications = 100000;
constexpr std::chrono::milliseconds kPause{100};  ///< before a connection is renewed

using Frames = std::vector<std::string>;

/// A file of events, a JSON object a line, each written at once; standard output for the path "-".
class Recording {
 public:
  explicit Recording(std::string path) : path_(std::move(path)) {
    file_ = isStandardOutput() ? fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0)
                               : open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (file_ < 0 && errno == EEXIST) {
      throw Failure(Exit::kOther, "'" + path_ + "' is there already", "a recording is written to a new file");
    }
    if (file_ < 0) throw Failure(Exit::kOther, "cannot make '" + path_ + "': " + std::strerror(errno));
    builder_["indentation"] = "";
    builder_["commentStyle"] = "None";
    builder_["emitUTF8"] = true;
    builder_["precision"] = 17;  // a number is read as the very same

    char time[sizeof "2026-01-01T00:00:00Z"];
    const std::time_t now = std::time(nullptr);
    std::tm parts = {};
    std::strftime(time, sizeof time, "%FT%TZ", gmtime_r(&now, &parts));
    Json::Value head;
    head["recording"] = "sysmgr";
    head["version"] = kVersion;
    head["started"] = time;
    write(head);
  }
  ~Recording() { close(file_); }
  Recording(const Recording&) = delete;
  Recording& operator=(const Recording&) = delete;

  void add(Json::Value event) {
    const auto now = std::chrono::steady_clock::now() - start_;
    event["ms"] = Json::Int64(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
    write(event);
    ++events_;
  }
  std::uint64_t events() const { return events_; }
  bool isStandardOutput() const { return path_ == "-"; }

 private:
  void write(const Json::Value& line) const {
    const std::string text = Json::writeString(builder_, line) + "\n";
    for (std::size_t done = 0; done < text.size();) {
      const ssize_t count = ::write(file_, text.data() + done, text.size() - done);
      if (count < 0 && errno != EINTR) {
        const std::string where = isStandardOutput() ? "standard output" : "'" + path_ + "'";
        throw Failure(Exit::kOther, "cannot write " + where + ": " + std::strerror(errno));
      }
      if (count > 0) done += static_cast<std::size_t>(count);
    }
  }

  std::string path_;
  int file_;
  Json::StreamWriterBuilder builder_;
  std::uint64_t events_ = 0;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

/// Receives everything that the daemon publishes, as frames, and notices when the connection comes and goes.
class Follower {
 public:
  Follower() : socket_(context(), zmq::socket_type::sub), monitor_(context(), zmq::socket_type::pair) {
    constexpr const char* kMonitor = "inproc://sysmgrctl-record";
    socket_.set(zmq::sockopt::linger, 0);
    socket_.set(zmq::sockopt::maxmsgsize, kMostFrameBytes);
    socket_.set(zmq::sockopt::rcvhwm, kQueuedNotifications);
    socket_.set(zmq::sockopt::subscribe, "");
    zmq_socket_monitor(socket_.handle(), kMonitor, ZMQ_EVENT_ALL);
    monitor_.connect(kMonitor);
    socket_.connect(endpoint_);
  }
  ~Follower() { zmq_socket_monitor(socket_.handle(), nullptr, 0); }
  Follower(const Follower&) = delete;
  Follower& operator=(const Follower&) = delete;

  /// Waits until something has come, at most so long.
  /// @param ms  -1: for ever
  void wait(long ms) {
    zmq_pollitem_t items[] = {{socket_.handle(), 0, ZMQ_POLLIN, 0}, {monitor_.handle(), 0, ZMQ_POLLIN, 0}};
    if (zmq_poll(items, 2, ms) < 0 && zmq_errno() != EINTR) {
      throw Failure(Exit::kOther, std::string("cannot wait: ") + zmq_strerror(zmq_errno()));
    }
  }

  /// @return whether a notification was there
  bool takeNotification(Frames& frames) {
    frames.clear();
    for (bool more = true; more;) {
      zmq::message_t frame;
      if (!socket_.recv(frame, zmq::recv_flags::dontwait)) return false;
      frames.push_back(frame.to_string());
      more = frame.more();
    }
    return true;
  }

  bool connected() const { return connected_; }

  /// Whether the connection came (true) or went (false) since the last call; none when neither did.
  std::optional<bool> takeChange() {
    for (std::uint16_t event; (event = nextEvent()) != 0;) {
      if (event == ZMQ_EVENT_HANDSHAKE_SUCCEEDED) return connected_ = true;
      constexpr unsigned int kEnds = ZMQ_EVENT_DISCONNECTED | ZMQ_EVENT_HANDSHAKE_FAILED_NO_DETAIL |
                                     ZMQ_EVENT_HANDSHAKE_FAILED_PROTOCOL | ZMQ_EVENT_HANDSHAKE_FAILED_AUTH;
      if ((event & kEnds) == 0) continue;
      renew();
      if (std::exchange(connected_, false)) return false;
    }
    return std::nullopt;
  }

 private:
  static zmq::context_t& context() { return ZmqUtils::getInstance().getContext(); }

  std::uint16_t nextEvent() {
    zmq::message_t event;
    zmq::message_t endpoint;
    std::uint16_t number = 0;
    if (!monitor_.recv(event, zmq::recv_flags::dontwait)) return 0;
    if (event.size() >= sizeof number) std::memcpy(&number, event.data(), sizeof number);
    if (event.more()) static_cast<void>(monitor_.recv(endpoint, zmq::recv_flags::dontwait));
    return number;
  }

  /// libzmq never connects again after a handshake that failed or a message that is too long. A new connection of the
  /// same socket does, and keeps the subscription.
  void renew() {
    std::this_thread::sleep_for(kPause);
    zmq_disconnect(socket_.handle(), endpoint_.c_str());
    socket_.connect(endpoint_);
  }

  const std::string endpoint_ = notificationEndpoint();
  zmq::socket_t socket_;
  zmq::socket_t monitor_;
  bool connected_ = false;
};

/// Records the four documents; one that the daemon does not deliver is recorded as such.
void recordDocuments(Recording& recording) {
  const Deadline deadline(kAnswerSeconds);
  for (const char* const name : kDocuments) {
    Json::Value event;
    event["document"] = name;
    try {
      event["value"] = Daemon(deadline).get(name);
    } catch (const Failure& failure) {
      event["failed"] = failure.what();
    }
    recording.add(event);
  }
}

std::string hexOf(const std::string& bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const char byte : bytes) {
    text += kDigits[static_cast<unsigned char>(byte) >> 4U];
    text += kDigits[static_cast<unsigned char>(byte) & 0xFU];
  }
  return text;
}

/// Records the frames of a notification as they came: as texts, or as hexadecimal digits where one is not UTF-8.
void recordNotification(Recording& recording, const Frames& frames) {
  bool areTexts = true;
  for (const std::string& frame : frames) areTexts = areTexts && isUtf8(frame);
  Json::Value event;
  Json::Value& list = event[areTexts ? "frames" : "hex-frames"] = Json::Value(Json::arrayValue);
  for (const std::string& frame : frames) list.append(areTexts ? frame : hexOf(frame));
  recording.add(event);
}

void recordConnection(Recording& recording, const char* state) {
  Json::Value event;
  event["connection"] = state;
  recording.add(event);
}

/// Takes what has come, up to a change of the connection.
void takeAll(Follower& follower, Recording& recording, const EndOfFollowing& end) {
  // The notifications of a connection come before its end.
  Frames frames;
  while (!end.hasCome() && follower.takeNotification(frames)) recordNotification(recording, frames);
  const std::optional<bool> connected = follower.takeChange();
  if (!connected) return;
  recordConnection(recording, *connected ? "begins" : "ends");
  if (*connected) recordDocuments(recording);
}

}  // namespace

void runRecord(Call& call) {
  const EndOfFollowing end(call);
  call.daemon().get(kDocuments[0]);  // without a daemon there is nothing to record, and no file
  Follower follower;
  Recording recording(call.word("file"));
  note("recording; Ctrl-C ends it");
  while (!end.hasCome()) {
    takeAll(follower, recording, end);
    follower.wait(end.left());
  }
  const std::string events = std::to_string(recording.events()) + " events";
  if (recording.isStandardOutput()) return note(events);
  Json::Value document;
  document["events"] = Json::UInt64(recording.events());
  call.output.page(document, [&] { call.output.line(events + " are in " + call.word("file")); });
}

}  // namespace zel::ctl
