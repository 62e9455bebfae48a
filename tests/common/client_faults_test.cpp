// What a request gets when the daemon, or what stands in its place, does not do its part: the right code in time, a
// report that says what to do, and a client that works again with the next call.

#include <gmock/gmock.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <memory>
#include <optional>
#include <random>
#include <utility>

#include "common/client_json_api.h"
#include "tests/common/test_client.h"
#include "tests/support/daemon_process.h"
#include "tests/support/interrupted_calls.h"
#include "tests/support/raw_peer.h"

using std::chrono::milliseconds;
using testing::AllOf;
using testing::EndsWith;
using testing::StartsWith;
using zel::test::Answer;
using zel::test::expectAtOnce;
using zel::test::expectFailure;
using zel::test::expectTimedOut;
using zel::test::interruptedCalls;
using zel::test::kAllRawBehaviours;
using zel::test::kSlowdown;
using zel::test::Outcome;
using zel::test::RawBehaviour;
using zel::test::RawPeer;
using zel::test::Request;
using zel::test::ScriptedDaemon;
using zel::test::TestClient;

namespace {

const std::string kWithin = " within " + std::to_string(TestClient::kTimeout.count()) + " ms";
const std::string kNotSent =
    "\" was not sent: no daemon took it at tcp://127.0.0.1:5556" + kWithin + ". Is the system manager running?";
const std::string kNoAnswer = "\" was sent to tcp://127.0.0.1:5556, but no answer came" + kWithin +
                              ". The daemon may have acted on it: read the state back before you repeat it.";

/// Expects the whole report, whatever the number of the command.
void expectReport(TestClient& client, const std::string& end) {
  EXPECT_THAT(client.lastError().text, AllOf(StartsWith("\"command "), EndsWith(end)));
}

void expectNotSent(TestClient& client, const Outcome& outcome) {
  expectFailure(client, outcome, -102, kNotSent);
  expectReport(client, kNotSent);
  expectTimedOut(client, outcome);
}

void expectNoAnswer(TestClient& client, const Outcome& outcome) {
  expectFailure(client, outcome, -103, kNoAnswer);
  expectReport(client, kNoAnswer);
  expectTimedOut(client, outcome);
}

class RequestFault : public testing::Test {
 protected:
  void expectWorking() { EXPECT_EQ(client_.ask(19).code, 0) << client_.lastError().text; }

  zmq::context_t context_;
  TestClient client_{context_};
};

class AnswerFault : public RequestFault {
 protected:
  ScriptedDaemon daemon_;
};

/// The memory that the process holds, in KiB.
long heldMemory() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    long size = 0;
    if (word == "VmRSS:" && status >> size) return size;
  }
  return 0;
}

/// Whether a connection to the daemon's port is open.
bool connected() {
  constexpr const char* kEstablished = " 0100007F:15B4 01 ";  // the daemon's address, and the state
  std::ifstream connections("/proc/self/net/tcp");
  for (std::string line; std::getline(connections, line);) {
    if (line.find(kEstablished) != std::string::npos) return true;
  }
  return false;
}

}  // namespace

TEST_F(RequestFault, NoDaemon) {
  expectNotSent(client_, client_.send(3));
  expectNotSent(client_, client_.send(3));
  const ScriptedDaemon daemon;
  expectWorking();
}

TEST_F(RequestFault, ARequestThatWasNotSentNeverReachesADaemonThatStartsLater) {
  for (int round = 0; round < 2; ++round) expectNotSent(client_, client_.send(8));
  const ScriptedDaemon daemon;
  expectWorking();
  for (const Request& request : daemon.requests()) EXPECT_EQ(request.id, "19");
}

TEST_F(RequestFault, ADaemonThatStartsDuringTheWaitAnswers) {
  TestClient patient(context_, zel::test::kSoon);
  std::unique_ptr<ScriptedDaemon> daemon;
  std::thread later([&] {
    std::this_thread::sleep_for(milliseconds(30));
    daemon = std::make_unique<ScriptedDaemon>();
  });
  const Outcome outcome = patient.send(3);
  later.join();
  EXPECT_EQ(outcome.code, 0);
  EXPECT_LT(outcome.took.own, milliseconds(300 * kSlowdown));
}

namespace {

testing::Matcher<int> codesOf(RawBehaviour behaviour) {
  switch (behaviour) {
    // A peer that shakes hands gets the request.
    case RawBehaviour::kHugeFrameLength:
    case RawBehaviour::kOverSizeFrame:
    case RawBehaviour::kEndlessFrames: return testing::Eq(-103);
    // What never spoke ZeroMQ's protocol is taken for an old version of it, and gets the request too, unless the
    // connection is found broken before.
    case RawBehaviour::kRandomBytes:
    case RawBehaviour::kHttpAnswer: return testing::AnyOf(-102, -103);
    default: return testing::Eq(-102);
  }
}

}  // namespace

class PeerFault : public RequestFault, public testing::WithParamInterface<RawBehaviour> {};
INSTANTIATE_TEST_SUITE_P(Kinds, PeerFault, testing::ValuesIn(kAllRawBehaviours), testing::PrintToStringParamName());

TEST_P(PeerFault, IsNoDaemon) {
  const long before = heldMemory();
  {
    const RawPeer peer(GetParam());
    for (int round = 0; round < 2; ++round) {
      const Outcome outcome = client_.send(3);
      EXPECT_THAT(outcome.code, codesOf(GetParam()));
      outcome.code == -103 ? expectNoAnswer(client_, outcome) : expectNotSent(client_, outcome);
    }
  }
  const long grown = heldMemory() - before;
  // The endless message cannot be stopped before the time-out: ZeroMQ limits the size of a frame, not of a message.
  if (kSlowdown == 1 && GetParam() != RawBehaviour::kEndlessFrames) {
    EXPECT_LE(grown, 9 * 1024);
  }
  const ScriptedDaemon daemon;
  expectWorking();
  RecordProperty("grownKiB", static_cast<int>(grown));
}

TEST_F(RequestFault, APeerThatBrokeTheProtocolBeforeTheFirstRequestDoesNotCostIt) {
  std::optional<RawPeer> peer(std::in_place, RawBehaviour::kWrongSocketType);
  TestClient client(context_);
  ASSERT_TRUE(zel::test::waitUntil([&peer] { return peer->accepted() > 0 && !connected(); }));
  peer.reset();
  const ScriptedDaemon daemon;
  const Outcome outcome = client.send(19);
  EXPECT_EQ(outcome.code, 0) << client.lastError().text;
  EXPECT_LT(outcome.took.own, milliseconds(150 * kSlowdown)) << "ZeroMQ never connects again after that";
}

TEST_F(RequestFault, WhatComesBetweenTwoRequestsTakesLittleMemory) {
  if (kSlowdown > 1) GTEST_SKIP() << "the memory says nothing";
  const zel::test::ChildProcess daemon = zel::test::startDaemon([](const Request&) {
    std::vector<Answer> answers(100, Answer(std::string(std::size_t{1024} * 1024, ' ')));  // the largest that there are
    answers.front() = Answer("{}");
    return answers;
  });
  TestClient patient(context_, zel::test::kSoon);
  const long before = heldMemory();
  EXPECT_EQ(patient.send(19).code, 0);
  long most = heldMemory();
  const auto grows = [&most] {
    std::this_thread::sleep_for(milliseconds(100));
    const long held = heldMemory();
    return held > std::exchange(most, std::max(most, held));
  };
  while (grows()) continue;
  EXPECT_LE(most - before, 9 * 1024);
}

TEST_F(AnswerFault, NoAnswer) {
  daemon_.answerWith({});
  expectNoAnswer(client_, client_.send(3));
  expectWorking();
}

TEST_F(AnswerFault, ALateAnswerIsNotTakenForTheNextOne) {
  daemon_.answerWith({Answer("{\"late\":1}").after(client_.timeout() + milliseconds(20))});
  expectNoAnswer(client_, client_.send(3));
  daemon_.answerWith({Answer("{\"right\":1}").after(milliseconds(60))});
  const Outcome outcome = client_.send(4);
  EXPECT_EQ(outcome.code, 0);
  EXPECT_TRUE(outcome.reply.isMember("right"));
}

TEST_F(AnswerFault, ADoubledAnswerIsNotTakenForTheNextOne) {
  daemon_.answerWith({"{\"first\":1}", "{\"first\":2}"});
  EXPECT_EQ(client_.send(3).reply["first"], Json::Value(1));
  daemon_.answerWith({Answer("{\"second\":1}").after(milliseconds(20))});
  EXPECT_EQ(client_.send(4).reply["second"], Json::Value(1));
}

TEST_F(AnswerFault, TheAnswerToAnotherRequestIsDropped) {
  const Answer wrong = Answer("{\"wrong\":1}").inside(Answer::Envelope::kOfAnotherRequest);
  daemon_.answerWith({wrong});
  expectNoAnswer(client_, client_.send(3));
  daemon_.answerWith({wrong, "{\"right\":1}"});
  EXPECT_EQ(client_.send(3).reply["right"], Json::Value(1));
}

TEST_F(AnswerFault, AFloodOfAnswersToOtherRequestsDoesNotLengthenTheWait) {
  daemon_.answerWith(std::vector<Answer>(50'000, Answer("{\"wrong\":1}").inside(Answer::Envelope::kOfAnotherRequest)));
  expectNoAnswer(client_, client_.send(3));
  zel::test::waitUntil([this] { return client_.send(19).code == 0; });  // the daemon floods on for a while
  expectWorking();
}

TEST_F(AnswerFault, NoAnswerIsEverTakenForAnothers) {
  // Each answer comes twice, and later than the client waits in every second case: so answers come out of order.
  const auto generator = std::make_shared<std::mt19937>(1);
  daemon_.onRequest([generator](const Request& request) {
    const auto delay = [&generator] { return milliseconds((*generator)() % 12); };
    return std::vector<Answer>{Answer(request.body).after(delay()), Answer(request.body).after(delay())};
  });
  TestClient client(context_, milliseconds(6 * kSlowdown));
  constexpr int kRequests = 400;
  int answered = 0;
  for (int number = 0; number < kRequests; ++number) {
    Json::Value body;
    body["number"] = number;
    const Outcome outcome = client.send(2, body);
    if (outcome.code == 0) {
      ++answered;
      ASSERT_EQ(outcome.reply["number"], Json::Value(number));
    } else {
      ASSERT_THAT(outcome.code, testing::AnyOf(-102, -103));
    }
  }
  EXPECT_GT(answered, kRequests / 10) << "too few to say anything";
  if (kSlowdown == 1) {
    EXPECT_LT(answered, kRequests) << "no answer was late";
  }
}

TEST_F(AnswerFault, AnAnswerWithoutItsDelimiterIsNone) {
  daemon_.answer(Answer("{}").inside(Answer::Envelope::kWithoutDelimiter));
  expectNoAnswer(client_, client_.send(3));
  expectWorking();
}

TEST_F(AnswerFault, AnAnswerOfMoreThanOneFrameCannotBeUsed) {
  using Frames = std::vector<std::string>;
  for (const Frames& frames : {Frames{"{}", ""}, Frames{"{}", "{}"}, Frames{"", "{}"}, Frames(1000, "{}")}) {
    daemon_.answer(frames);
    const Outcome outcome = client_.send(3);
    expectFailure(client_, outcome, -104,
                  "\"command 3\" was answered, but the answer cannot be used: it has more than one frame.");
    expectAtOnce(outcome);
    expectWorking();
  }
}

TEST_F(AnswerFault, AnAnswerThatIsNoJsonObjectCannotBeUsed) {
  const std::string rows[] = {"",
                              " ",
                              "ok",
                              "{",
                              "{}{}",
                              "{} x",
                              "[]",
                              "[{}]",
                              "null",
                              "0",
                              "\"{}\"",
                              "{\"a\":-}",
                              "{\"a\":1,}",
                              "{\"a\":1,\"a\":2}",
                              "{\"a\":\"\xff\"}",
                              "{/**/}",
                              "{\"a\":NaN}",
                              std::string("{}\0", 3),
                              std::string("{\"a\":1}\0zz", 10),
                              std::string("{\"a\":\"\0\"}", 9),
                              "{\"a\":" + std::string(64, '[') + std::string(64, ']') + "}",
                              "{\"a\":" + std::string(10'000, '[') + std::string(10'000, ']') + "}",
                              std::string(10'000, '{')};
  for (const std::string& text : rows) {
    daemon_.answer(text);
    const Outcome outcome = client_.send(3);
    expectFailure(client_, outcome, -104, "\"command 3\" was answered, but the answer cannot be used: ");
    expectAtOnce(outcome);
    expectWorking();
  }
}

TEST_F(AnswerFault, AnAnswerOverTheSizeLimitCountsAsNone) {
  const std::string most = "{\"a\":\"" + std::string(1024 * 1024 - 8, 'x') + "\"}";
  daemon_.answer(most);
  TestClient patient(context_, zel::test::kSoon);
  EXPECT_EQ(patient.ask(3).code, 0);
  daemon_.answer(most + " ");
  expectNoAnswer(client_, client_.send(3));
  expectWorking();
}

namespace {

/// Interrupts the process every two milliseconds.
class Interruptions {
 public:
  Interruptions() {
    struct sigaction action {};
    action.sa_handler = [](int) { ++count_; };
    sigaction(SIGALRM, &action, &before_);
    const itimerval often{{0, 2000}, {0, 2000}};
    setitimer(ITIMER_REAL, &often, nullptr);
  }
  ~Interruptions() {
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &before_, nullptr);
  }
  Interruptions(const Interruptions&) = delete;
  Interruptions& operator=(const Interruptions&) = delete;
  static int count() { return count_; }

 private:
  static inline volatile std::sig_atomic_t count_ = 0;
  struct sigaction before_ {};
};

}  // namespace

TEST_F(AnswerFault, SignalsDoNotEndTheWaitForAnAnswer) {
  const Interruptions interruptions;
  daemon_.answerWith({Answer("{\"right\":1}").after(milliseconds(150))});
  EXPECT_EQ(client_.send(3).reply["right"], Json::Value(1));
  EXPECT_GT(Interruptions::count(), 10);
}

TEST_F(AnswerFault, SignalsDoNotLengthenTheWaitForAnAnswer) {
  const Interruptions interruptions;
  daemon_.answerWith({});
  expectNoAnswer(client_, client_.send(3));
  EXPECT_GT(Interruptions::count(), 10);
}

TEST_F(RequestFault, SignalsDoNotChangeTheWaitForADaemon) {
  const Interruptions interruptions;
  expectNotSent(client_, client_.send(3));
  EXPECT_GT(Interruptions::count(), 10);
}

TEST_F(AnswerFault, SignalsDoNotKeepTheClientFromConnecting) {
  interruptedCalls.connect = 3;
  TestClient client(context_);
  EXPECT_EQ(interruptedCalls.connect, 0);
  EXPECT_EQ(client.ask(3).code, 0);
}
