#include "tests/faults/random_board.h"

#include <unistd.h>

#include <algorithm>
#include <map>
#include <string>
#include <thread>
#include <vector>
#include <zmq.hpp>

#include "client/sysmgr_jsonApi.h"
#include "common/shared/wire_json.h"
#include "subscriber/sysmgr_subscriber.h"
#include "tests/support/frames.h"

namespace zel::test {

namespace {

using std::chrono::milliseconds;

class Board {
 public:
  explicit Board(Record& record) : record_(record) {
    for (auto* const socket : {&requests_, &publisher_}) socket->set(zmq::sockopt::linger, 0);
    bindAfterAnother(requests_, "tcp://127.0.0.1:5556");
    bindAfterAnother(publisher_, SysmgrPublisher::kEndpoint);
    record_.board = getpid();
  }

  [[noreturn]] void run() {
    for (;;) {
      zmq::pollitem_t item{requests_.handle(), 0, ZMQ_POLLIN, 0};
      if (zmq::poll(&item, 1, milliseconds(2)) > 0) {
        serve();
      } else {
        ++record_.idleRounds;
      }
      if (has(kChatty)) change();
      obey(record_.orders.exchange(0));
    }
  }

 private:
  bool has(Manner manner) const { return (record_.manners & manner) != 0; }

  std::string stored() const {
    return R"({"rtsp":{"tcp-port":)" + std::to_string(record_.version) + R"(},"ember":{"tcp-port":)" +
           std::to_string(record_.written) + "}}";
  }

  void publish(const std::string& payload) { sendFrames(publisher_, {"1000", payload}); }
  void change() {
    ++record_.version;
    publish(stored());
  }

  void serve() {
    const Frames frames = receiveFrames(requests_);
    if (frames.size() < 3) return;
    const std::string answer = answerOf(std::stoi(frames[frames.size() - 2]), frames.back());
    std::this_thread::sleep_for(milliseconds(record_.delayMs));
    if (has(kSilent)) return;
    Frames& last = lastAnswers_[frames.front()];
    if (has(kBelated)) sendFrames(requests_, last);
    last = answerTo(frames, answer);
    for (int times = has(kDoubled) ? 2 : 1; times > 0; --times) sendFrames(requests_, last);
  }

  std::string answerOf(int id, const std::string& text) {
    Json::Value body;
    reader_.read(text, body);
    std::string answer = "{}";
    switch (id) {
      case SysMgrCommands::SYSMGR_GET_STORED_PARAMETERS:
        answer = R"({"stored":)" + (has(kWrongType) ? R"({"rtsp":{"tcp-port":"many"}})" : stored()) + "}";
        break;
      case SysMgrCommands::SYSMGR_GET_DYNAMIC_PARAMETERS: answer = R"({"dynamic":{"madi-lock":true}})"; break;
      case SysMgrCommands::SYSMGR_GET_BOARD_MODEL: answer = R"({"board-model":{"model":"KORVA"}})"; break;
      case SysMgrCommands::SYSMGR_GET_MCAST_WHITELIST: answer = R"({"white-list":[]})"; break;
      case SysMgrCommands::SYSMGR_GET_GPIO_CONFIGURATION: answer = text; break;  // the token that was asked with
      case SysMgrCommands::SYSMGR_SET_PARAMETER:
        if (has(kRefusing)) return R"({"status":-7,"error":"not today"})";
        carryOut(body);
        break;
      default: break;
    }
    return has(kGarbled) ? "nonsense" : answer;
  }

  void carryOut(const Json::Value& body) {
    for (const char* const key : {"rtsp-tcp-port", "ember-tcp-port"}) {
      if (!body.isMember(key)) continue;
      const std::uint32_t token = body[key].asUInt();
      ++record_.request(token).carriedOut;
      record_.request(token).place = ++record_.lastPlace;
      if (key[0] == 'e') record_.written = std::max(record_.written.load(), token);
    }
    change();
  }

  void obey(unsigned orders) {
    for (int i = (orders & kBurst) != 0 ? 3000 : (orders & kFewChanges) != 0 ? 5 : 0; i > 0; --i) change();
    if ((orders & kMalformed) != 0) publish("nonsense");
    if ((orders & kOverSize) != 0) publish(std::string(kMaxFrameBytes + 1, ' '));
    if ((orders & kMistyped) != 0) publish(R"({"rtsp":{"tcp-port":"many"}})");
  }

  Record& record_;
  WireJsonReader reader_;
  std::map<std::string, Frames> lastAnswers_;  ///< by the client's identity
  zmq::context_t context_;
  zmq::socket_t requests_{context_, ZMQ_ROUTER};
  zmq::socket_t publisher_{context_, ZMQ_PUB};
};

}  // namespace

void runRandomBoard(Record& record) { Board(record).run(); }

}  // namespace zel::test
