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

namespace zel::test {

namespace {

using std::chrono::milliseconds;

class Board {
 public:
  explicit Board(Record& record) : record_(record) {
    for (auto* const socket : {&requests_, &publisher_}) socket->set(zmq::sockopt::linger, 0);
    bind(requests_, "tcp://127.0.0.1:5556");
    bind(publisher_, SysmgrPublisher::kEndpoint);
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

  /// The kernel may still hold the port of the board before.
  static void bind(zmq::socket_t& socket, const char* endpoint) {
    for (int left = 5000;; --left) {
      try {
        return socket.bind(endpoint);
      } catch (const zmq::error_t&) {
        if (left == 0) throw;
        std::this_thread::sleep_for(milliseconds(1));
      }
    }
  }

  std::string stored() const {
    return R"({"rtsp":{"tcp-port":)" + std::to_string(record_.version) + R"(},"ember":{"tcp-port":)" +
           std::to_string(record_.written) + "}}";
  }

  void publish(const std::string& payload) {
    publisher_.send(zmq::str_buffer("1000"), zmq::send_flags::sndmore);
    publisher_.send(zmq::buffer(payload), zmq::send_flags::none);
  }
  void change() {
    ++record_.version;
    publish(stored());
  }

  void serve() {
    std::vector<zmq::message_t> frames;
    do {
      frames.emplace_back();
      if (!requests_.recv(frames.back())) return;
    } while (frames.back().more());
    if (frames.size() < 3) return;
    const std::string answer = answerTo(std::stoi(frames[frames.size() - 2].to_string()), frames.back().to_string());
    std::this_thread::sleep_for(milliseconds(record_.delayMs));
    if (has(kSilent)) return;
    std::vector<std::string>& last = lastAnswers_[frames.front().to_string()];
    if (has(kBelated)) send(last);
    last.clear();
    for (std::size_t i = 0; i + 2 < frames.size(); ++i) last.push_back(frames[i].to_string());
    last.push_back(answer);
    for (int times = has(kDoubled) ? 2 : 1; times > 0; --times) send(last);
  }

  void send(const std::vector<std::string>& frames) {
    for (const std::string& frame : frames) {
      const bool isLast = &frame == &frames.back();
      requests_.send(zmq::buffer(frame), isLast ? zmq::send_flags::none : zmq::send_flags::sndmore);
    }
  }

  std::string answerTo(int id, const std::string& text) {
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
  std::map<std::string, std::vector<std::string>> lastAnswers_;  ///< the frames, by the client's identity
  zmq::context_t context_;
  zmq::socket_t requests_{context_, ZMQ_ROUTER};
  zmq::socket_t publisher_{context_, ZMQ_PUB};
};

}  // namespace

void runRandomBoard(Record& record) { Board(record).run(); }

}  // namespace zel::test
