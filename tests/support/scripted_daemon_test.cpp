#include "tests/support/scripted_daemon.h"

#include <gmock/gmock.h>

#include "tests/support/frames.h"
#include "tests/support/wait_until.h"

using testing::ElementsAre;
using zel::test::Answer;
using zel::test::Frames;
using zel::test::kSoon;
using zel::test::PublisherFake;
using zel::test::Request;
using zel::test::ScriptedDaemon;

namespace {

/// A peer of the fakes that does what it is told, with nothing of the libraries in between.
class Peer {
 public:
  Peer(zmq::socket_type type, const char* endpoint) : socket_(context_, type) {
    socket_.set(zmq::sockopt::linger, 0);
    socket_.set(zmq::sockopt::rcvtimeo, static_cast<int>(kSoon.count()));
    socket_.connect(endpoint);
  }
  zmq::socket_t& socket() { return socket_; }
  void setTimeout(int milliseconds) { socket_.set(zmq::sockopt::rcvtimeo, milliseconds); }

  void send(const Frames& frames) { zel::test::sendFrames(socket_, frames); }
  /// @return no frame when none came in time
  Frames receive() { return zel::test::receiveFrames(socket_); }

 private:
  zmq::context_t context_;
  zmq::socket_t socket_;
};

/// Sends with a number, as a correlating request socket does, so that answers can be told apart.
class Requester : public Peer {
 public:
  Requester() : Peer(zmq::socket_type::dealer, ScriptedDaemon::kEndpoint) {}
  void request(const std::string& number, const std::string& id, const std::string& body) {
    send({number, "", id, body});
  }
};

}  // namespace

TEST(ScriptedDaemon, RecordsWhatItWasAsked) {
  ScriptedDaemon daemon;
  Requester requester;
  requester.request("n001", "2", "{\"a\": 1}");
  ASSERT_TRUE(daemon.waitForRequests(1));
  const Request request = daemon.lastRequest();
  EXPECT_EQ(request.id, "2");
  EXPECT_EQ(request.body, "{\"a\": 1}");
  EXPECT_EQ(request.json["a"], Json::Value(1));
  EXPECT_THAT(request.frames, ElementsAre("2", "{\"a\": 1}"));
}

TEST(ScriptedDaemon, KeepsTheFramesOfAnOddRequest) {
  ScriptedDaemon daemon;
  Requester requester;
  requester.send({"n001", "", "2"});
  requester.send({"n002", "", "3", "", "x"});
  ASSERT_TRUE(daemon.waitForRequests(2));
  EXPECT_THAT(daemon.requests()[0].frames, ElementsAre("2"));
  EXPECT_THAT(daemon.requests()[1].frames, ElementsAre("3", "", "x"));
  EXPECT_TRUE(daemon.requests()[1].json.isNull());
}

TEST(ScriptedDaemon, AnswersAnEmptyObjectWhenNothingIsScripted) {
  ScriptedDaemon daemon;
  Requester requester;
  requester.request("n001", "0", "");
  EXPECT_THAT(requester.receive(), ElementsAre("n001", "", "{}"));
}

TEST(ScriptedDaemon, TakesQueuedAnswersInTurnThenAsksTheHandler) {
  ScriptedDaemon daemon;
  Json::Value document;
  document["a"] = "b";
  daemon.answer(document);
  daemon.answer("raw");
  daemon.answer(Frames{"one", "two"});
  daemon.onRequest([](const Request& request) { return std::vector<Answer>{request.id + "!"}; });
  Requester requester;
  for (const char* id : {"1", "2", "3", "4"}) requester.request("n00" + std::string(id), id, "");
  EXPECT_THAT(requester.receive(), ElementsAre("n001", "", "{\"a\":\"b\"}"));
  EXPECT_THAT(requester.receive(), ElementsAre("n002", "", "raw"));
  EXPECT_THAT(requester.receive(), ElementsAre("n003", "", "one", "two"));
  EXPECT_THAT(requester.receive(), ElementsAre("n004", "", "4!"));
}

TEST(ScriptedDaemon, LeavesARequestUnansweredAndGoesOn) {
  ScriptedDaemon daemon;
  daemon.answerWith({});
  Requester requester;
  requester.request("n001", "0", "");
  requester.request("n002", "0", "");
  EXPECT_THAT(requester.receive(), ElementsAre("n002", "", "{}"));
}

TEST(ScriptedDaemon, AnswersLateTwiceAndOutOfOrder) {
  ScriptedDaemon daemon;
  daemon.answerWith({Answer("late").after(std::chrono::milliseconds(30))});
  daemon.answerWith({"twice", "twice"});
  Requester requester;
  requester.request("n001", "0", "");
  requester.request("n002", "0", "");
  EXPECT_THAT(requester.receive(), ElementsAre("n002", "", "twice"));
  EXPECT_THAT(requester.receive(), ElementsAre("n002", "", "twice"));
  EXPECT_THAT(requester.receive(), ElementsAre("n001", "", "late"));
}

TEST(ScriptedDaemon, BreaksTheEnvelope) {
  ScriptedDaemon daemon;
  daemon.answer(Answer("x").inside(Answer::Envelope::kWithoutDelimiter));
  daemon.answer(Answer("x").inside(Answer::Envelope::kOfAnotherRequest));
  Requester requester;
  requester.request("n001", "0", "");
  requester.request("n002", "0", "");
  EXPECT_THAT(requester.receive(), ElementsAre("n001", "x"));
  EXPECT_THAT(requester.receive(), ElementsAre("n003", "", "x"));
}

TEST(ScriptedDaemon, FreesThePortAtItsEnd) {
  for (int round = 0; round < 3; ++round) {
    ScriptedDaemon daemon;
    Requester requester;
    requester.request("n001", "0", "");
    EXPECT_THAT(requester.receive(), ElementsAre("n001", "", "{}"));
  }
  const ScriptedDaemon daemon;
  EXPECT_THROW(ScriptedDaemon(), zmq::error_t);
}

TEST(PublisherFake, SeesSubscriptionsComeAndGo) {
  PublisherFake publisher;
  Peer subscriber(zmq::socket_type::sub, PublisherFake::kEndpoint);
  EXPECT_EQ(publisher.subscriptions("1000"), 0u);
  subscriber.socket().set(zmq::sockopt::subscribe, "1000");
  EXPECT_TRUE(publisher.waitForSubscription("1000"));
  EXPECT_EQ(publisher.subscriptions("1001"), 0u);
  subscriber.socket().set(zmq::sockopt::unsubscribe, "1000");
  EXPECT_TRUE(publisher.waitForUnsubscription("1000"));
}

TEST(PublisherFake, PublishesTopicAndPayloadOrAnyFrames) {
  PublisherFake publisher;
  Peer subscriber(zmq::socket_type::sub, PublisherFake::kEndpoint);
  subscriber.socket().set(zmq::sockopt::subscribe, "1000");
  ASSERT_TRUE(publisher.waitForSubscription("1000"));
  publisher.publish("1001", "{}");
  publisher.publish("1000", "{}");
  publisher.publish({"1000", "a", "b"});
  EXPECT_THAT(subscriber.receive(), ElementsAre("1000", "{}"));
  EXPECT_THAT(subscriber.receive(), ElementsAre("1000", "a", "b"));
}
