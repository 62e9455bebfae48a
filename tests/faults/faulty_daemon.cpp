#include "tests/faults/faulty_daemon.h"

#include <chrono>
#include <cstdio>
#include <thread>
#include <utility>
#include <vector>
#include <zmq.hpp>

#include "client/sysmgr_jsonApi.h"
#include "common/shared/wire_json.h"
#include "subscriber/sysmgr_subscriber.h"
#include "tests/faults/journal.h"
#include "tests/support/frames.h"

namespace zel::test {

std::string DaemonManners::text() const {
  return std::to_string(delayMs) + (doubled ? "d" : "-") + (shuffled ? "s" : "-");
}

DaemonManners DaemonManners::fromText(const std::string& text) {
  DaemonManners manners;
  manners.delayMs = std::stoi(text);
  manners.doubled = text.find('d') != std::string::npos;
  manners.shuffled = text.find('s') != std::string::npos;
  return manners;
}

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

class FaultyDaemon {
 public:
  FaultyDaemon(Journal journal, const DaemonManners& manners) : journal_(journal), manners_(manners) {
    for (zmq::socket_t* const socket : {&requests_, &documents_}) socket->set(zmq::sockopt::linger, 0);
    requests_.bind(SysMgrJsonClient().getIpcConnectAddress());
    documents_.bind(SysmgrPublisher::kEndpoint);
  }

  [[noreturn]] void serve() {
    for (;;) {
      zmq::pollitem_t item{requests_.handle(), 0, ZMQ_POLLIN, 0};
      if (zmq::poll(&item, 1, kTick) > 0) take();
      if (!quiet_ && nextTick_ <= Clock::now()) publish();
      // A held answer goes out after a while also when no request follows.
      if (!waiting_.empty() && (waiting_.size() > 1 || due_ <= Clock::now())) answer();
    }
  }

 private:
  static constexpr milliseconds kTick{5};

  void take() {
    Frames frames = receiveFrames(requests_);
    if (frames.size() < 3) return;
    const int id = std::stoi(frames[frames.size() - 2]);
    Json::Value body;
    if (!frames.back().empty() && !reader_.read(frames.back(), body).empty()) return;
    Json::Value reply = answerTo(id, body);
    std::this_thread::sleep_for(milliseconds(manners_.delayMs));
    frames.resize(frames.size() - 2);  // the envelope
    writeWireJson(reply, frames.emplace_back());
    waiting_.push_back(std::move(frames));
    due_ = Clock::now() + milliseconds(manners_.shuffled ? 20 : 0);
  }

  Json::Value answerTo(int id, const Json::Value& body) {
    Json::Value reply(Json::objectValue);
    switch (id) {
      case SysMgrCommands::SYSMGR_GET_STORED_PARAMETERS: reply["stored"] = state(Subject::kStored); break;
      case SysMgrCommands::SYSMGR_GET_DYNAMIC_PARAMETERS: reply["dynamic"] = state(Subject::kDynamic); break;
      case SysMgrCommands::SYSMGR_GET_MCAST_WHITELIST: reply = state(Subject::kWhitelist); break;
      default: break;
    }
    if (!body.isObject() || !body[kToken].isUInt()) return reply;
    reply[kToken] = body[kToken];
    journal_.carriedOut(body[kToken].asUInt());
    quiet_ = body.isMember(kQuiet);
    for (unsigned i = body.get(kFlood, 1).asUInt(); i > 0 && !quiet_; --i) publish();
    return reply;
  }

  Json::Value state(Subject subject) const { return documentOf(subject, journal_.newest(subject)); }

  void publish() {
    const std::uint32_t number = journal_.publish();
    const Subject subject = subjectOf(number);
    Frames frames{topicOf(subject), ""};
    writeWireJson(documentOf(subject, number), frames.back());
    sendFrames(documents_, frames);
    nextTick_ = Clock::now() + kTick;
  }

  void answer() {
    for (; !waiting_.empty(); waiting_.pop_back()) {
      sendFrames(requests_, waiting_.back());
      if (manners_.doubled) sendFrames(requests_, waiting_.back());
    }
  }

  Journal journal_;
  DaemonManners manners_;
  zmq::context_t context_;
  zmq::socket_t requests_{context_, zmq::socket_type::router};
  zmq::socket_t documents_{context_, zmq::socket_type::pub};
  WireJsonReader reader_;
  std::vector<Frames> waiting_;
  Clock::time_point due_{};
  Clock::time_point nextTick_{};
  bool quiet_ = false;
};

}  // namespace

int runFaultyDaemon(int journalDescriptor, const DaemonManners& manners) {
  FaultyDaemon daemon(Journal::inherit(journalDescriptor), manners);
  std::printf("ready\n");
  std::fflush(stdout);
  daemon.serve();
}

}  // namespace zel::test
