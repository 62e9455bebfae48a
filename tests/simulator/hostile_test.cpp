#include <gmock/gmock.h>

#include "common/shared/wire_json.h"
#include "simulator/refusal.h"
#include "tests/common/test_client.h"
#include "tests/simulator/board_process.h"
#include "tests/simulator/json_text.h"
#include "tests/simulator/raw_connection.h"
#include "tests/support/frames.h"
#include "tests/support/zmtp.h"

namespace {

using testing::HasSubstr;
using zel::test::ChildProcess;
using zel::test::Frames;
using zel::test::json;
using zel::test::kReady;
using zel::test::kSoon;
using zel::test::RawConnection;
using zel::test::startBoard;
using zel::test::TestClient;
namespace refusal = zel::sim::refusal;
namespace zmtp = zel::test::zmtp;

constexpr std::uint16_t kPorts[] = {5556, 5575};  // requests, notifications

/// A client that may send whatever it likes.
class LooseClient {
 public:
  explicit LooseClient(zmq::context_t& context) : socket_(context, zmq::socket_type::dealer) {
    socket_.set(zmq::sockopt::linger, 0);
    socket_.set(zmq::sockopt::sndhwm, 0);
    socket_.connect("tcp://127.0.0.1:5556");
  }
  void send(const Frames& frames) { zel::test::sendFrames(socket_, frames); }
  /// The frames of the next answer; none when there was none in time.
  Frames receive() {
    zmq_pollitem_t item{socket_.handle(), 0, ZMQ_POLLIN, 0};
    return zmq_poll(&item, 1, kSoon.count()) <= 0 ? Frames() : zel::test::receiveFrames(socket_);
  }

 private:
  zmq::socket_t socket_;
};

std::string deep(std::size_t levels) { return std::string(levels, '[') + std::string(levels, ']'); }

struct Malformed {
  const char* what;
  Frames frames;
  std::vector<const char*> words;
};

const std::vector<Malformed>& malformedRequests() {
  static const std::vector<Malformed> kRequests = {
      {"no frame", {""}, {"two frames", "0"}},
      {"one frame", {"", "2"}, {"two frames", "1"}},
      {"three frames", {"", "2", "{}", "x"}, {"two frames", "3"}},
      {"a thousand frames", Frames(1000, ""), {"two frames", "many more"}},
      {"a text as id", {"", "abc", ""}, {"\"abc\"", "decimal"}},
      {"no id", {"", "0x10", ""}, {"0x10"}},
      {"a negative id", {"", "-1", ""}, {"-1"}},
      {"a huge id", {"", "4294967296", ""}, {"4294967296"}},
      {"an endless id", {"", std::string(10000, '9'), ""}, {"99999"}},
      {"an id with a blank", {"", " 2", "{}"}, {"\" 2\""}},
      {"an id with a NUL", {"", std::string("2\0", 2), "{}"}, {"\"2?\""}},
      {"an id that is no UTF-8", {"", "\xff\xfe", ""}, {"\"??\""}},
      {"no JSON", {"", "2", "{rtsp"}, {"{rtsp", "not one JSON document"}},
      {"two documents", {"", "2", "{}{}"}, {"not one JSON document"}},
      {"no UTF-8", {"", "2", "{\"\xff\":1}"}, {"not one JSON document"}},
      {"deep JSON", {"", "2", deep(100000)}, {"64 deep"}},
      {"doubled names", {"", "2", R"({"sap-enable":true,"sap-enable":false})"}, {"twice"}},
  };
  return kRequests;
}

class RunningBoard : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(board_.waitForOutput(kReady)); }
  void expectThatItServes() {
    TestClient client(context_, kSoon);
    EXPECT_EQ(client.send(0).code, 0);
  }

  ChildProcess board_ = startBoard({});
  zmq::context_t context_;
};

TEST_F(RunningBoard, RefusesMalformedRequestsWithAReason) {
  LooseClient client(context_);
  for (const Malformed& request : malformedRequests()) {
    client.send(request.frames);
    const Frames answer = client.receive();
    ASSERT_EQ(answer.size(), 2U) << request.what;  // the delimiter comes back
    const Json::Value reply = json(answer[1]);
    EXPECT_EQ(reply["status"], refusal::kMalformedRequest) << request.what;
    for (const char* word : request.words) EXPECT_THAT(reply["error"].asString(), HasSubstr(word)) << request.what;
    EXPECT_LT(answer[1].size(), 1000U) << request.what;
  }
  expectThatItServes();
}

TEST_F(RunningBoard, GivesTheWholeEnvelopeBack) {
  LooseClient client(context_);
  client.send({"one", "two", "", "3", ""});
  const Frames answer = client.receive();
  ASSERT_EQ(answer.size(), 4U);
  EXPECT_EQ((Frames{answer[0], answer[1], answer[2]}), (Frames{"one", "two", ""}));
  EXPECT_EQ(json(answer[3])["status"], 0);
}

TEST_F(RunningBoard, DropsARequestWithoutAnEnvelope) {
  LooseClient client(context_);
  client.send({"3", "{}"});
  client.send({"", "3", ""});
  EXPECT_EQ(json(client.receive().at(1))["status"], 0);  // the answer to the second
}

void sendOversizeFrame(std::uint16_t port, std::uint64_t size) {
  const RawConnection connection(port);
  if (!zmtp::shakeHands(connection.stream(), port == 5556 ? "DEALER" : "SUB")) return;
  if (!connection.stream().write(zmtp::longFrameHeader(0, size))) return;
  const std::string piece(65536, 'x');
  for (std::size_t sent = 0; sent < 2 * zel::kMaxFrameBytes && connection.stream().write(piece); sent += piece.size()) {
  }
}

TEST_F(RunningBoard, OutlivesPeersThatAreNoClients) {
  for (const std::uint16_t port : kPorts) {
    for (const std::string& bytes :
         {std::string("GET / HTTP/1.1\r\nHost: board\r\n\r\n"), std::string(100000, '\0'), std::string(100000, '\xff'),
          zmtp::greeting(), zmtp::greeting() + std::string(1000, '\x7f')}) {
      const RawConnection connection(port);
      connection.stream().write(bytes);
    }
    sendOversizeFrame(port, zel::kMaxFrameBytes + 1);
    sendOversizeFrame(port, std::uint64_t{1} << 62U);
    expectThatItServes();
  }
}

TEST_F(RunningBoard, KeepsItsMemoryUnderHostileRequests) {
  const auto attack = [this] {
    LooseClient client(context_);
    for (int round = 0; round < 20; ++round) {
      for (const Malformed& request : malformedRequests()) {
        client.send(request.frames);
        ASSERT_FALSE(client.receive().empty());
      }
    }
    client.send({"", "2", std::string(zel::kMaxFrameBytes, '[')});
    EXPECT_FALSE(client.receive().empty());
    for (const std::uint16_t port : kPorts) sendOversizeFrame(port, zel::kMaxFrameBytes + 1);
    // A client that sends and never fetches its answers.
    LooseClient deaf(context_);
    for (int count = 0; count < 2000; ++count) deaf.send({"", "0", ""});
    expectThatItServes();
  };
  attack();
  const long before = zel::test::residentKiB(board_.pid());
  for (int round = 0; round < 5; ++round) attack();
  const long after = zel::test::residentKiB(board_.pid());
  zel::test::expectFlatMemory(before, after, 8L * 1024);
}

}  // namespace
