#include "common/client_json_api.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cmath>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "tests/common/test_client.h"
#include "tests/support/captured_log.h"

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using zel::test::Answer;
using zel::test::CapturedLog;
using zel::test::expectAtOnce;
using zel::test::expectFailure;
using zel::test::Outcome;
using zel::test::ScriptedDaemon;
using zel::test::TestClient;

namespace {

class ClientJsonApiTest : public testing::Test {
 protected:
  ScriptedDaemon daemon_;
  zmq::context_t context_;
  TestClient client_{context_, zel::test::kSoon};
};

Json::Value object(const char* key, const Json::Value& value) {
  Json::Value result;
  result[key] = value;
  return result;
}

Json::Value nested(unsigned int depth) {
  Json::Value value;
  for (unsigned int i = 0; i < depth; ++i) {
    Json::Value around;
    if (i % 2 == 0) {
      around["a"] = value;
    } else {
      around.append(value);
    }
    value = around;
  }
  return value;
}

}  // namespace

TEST(ClientJsonApi, WaitsFiveSecondsUnlessADerivedClassSaysOtherwise) {
  TestClient client;
  EXPECT_EQ(client.ClientJsonApi::getClientTimeout(), 5000);
}

TEST(ClientJsonApi, NamesACommandByItsNumber) {
  TestClient client;
  std::string name = "before";
  EXPECT_EQ(client.ClientJsonApi::getCommandDescription(7, name), 0);
  EXPECT_EQ(name, "command 7");
}

TEST(ClientJsonApi, ReportsNoFailureAtFirst) {
  TestClient client;
  ErrorReport report{-1, "x"};
  EXPECT_EQ(client.getLastErrorMessage(report), 0);
  EXPECT_EQ(report.code, 0);
  EXPECT_EQ(report.text, "");
}

TEST_F(ClientJsonApiTest, SendsTheNumberAndTheBodyInTwoFrames) {
  EXPECT_EQ(client_.send(2, object("rtsp-tcp-port", 5004u)).code, 0);
  EXPECT_THAT(daemon_.lastRequest().frames, ElementsAre("2", "{\"rtsp-tcp-port\":5004}"));
}

TEST_F(ClientJsonApiTest, SendsAnEmptyFrameWithoutABody) {
  IpcMsg message(4294967295u);
  Json::Value reply;
  EXPECT_EQ(client_.sendMessage(message, reply), 0);
  EXPECT_EQ(client_.send(0, Json::Value()).code, 0);
  EXPECT_THAT(daemon_.requests()[0].frames, ElementsAre("4294967295", ""));
  EXPECT_THAT(daemon_.requests()[1].frames, ElementsAre("0", ""));
}

TEST_F(ClientJsonApiTest, SendsCompactUtf8) {
  Json::Value body;
  body["name"] = "Gr\u00fc\u00dfe \u20ac";
  body["list"].append(1);
  body["list"].append(true);
  body["nothing"] = Json::Value();
  EXPECT_EQ(client_.ask(2, body).code, 0);
  EXPECT_EQ(daemon_.lastRequest().body, "{\"list\":[1,true],\"name\":\"Gr\u00fc\u00dfe \u20ac\",\"nothing\":null}");
}

TEST_F(ClientJsonApiTest, SendsABodyOfAnyType) {
  const std::pair<Json::Value, const char*> rows[] = {{Json::Value(Json::objectValue), "{}"},
                                                      {Json::Value(Json::arrayValue), "[]"},
                                                      {Json::Value("text"), "\"text\""},
                                                      {Json::Value(false), "false"},
                                                      {Json::Value(0), "0"}};
  for (const auto& [body, text] : rows) {
    EXPECT_EQ(client_.ask(2, body).code, 0);
    EXPECT_EQ(daemon_.lastRequest().body, text);
  }
}

TEST_F(ClientJsonApiTest, GivesTheWholeAnswer) {
  daemon_.answer(R"({"status":0,"error":"none","payload":{"a":[1,-1,1.5]}})");
  const Outcome outcome = client_.send(0);
  EXPECT_EQ(outcome.code, 0);
  EXPECT_THAT(outcome.reply.getMemberNames(), ElementsAre("error", "payload", "status"));
  EXPECT_EQ(outcome.reply["payload"]["a"][1], Json::Value(-1));
}

TEST_F(ClientJsonApiTest, ReplacesWhatTheReplyHeld) {
  daemon_.answer(R"({"new":1})");
  IpcMsg message(0);
  Json::Value reply = object("old", 1);
  EXPECT_EQ(client_.sendMessage(message, reply), 0);
  EXPECT_THAT(reply.getMemberNames(), ElementsAre("new"));
}

TEST_F(ClientJsonApiTest, NeverReadsAValueThatACallerHandedInBefore) {
  std::string name = "a name that JsonCpp points to and does not copy";
  const std::string wireName = name;
  IpcMsg message(3);
  Json::Value first;
  first[Json::StaticString(name.c_str())] = 1;
  ASSERT_EQ(client_.sendMessage(message, first), 0);

  daemon_.answer(object(wireName.c_str(), 2));
  Json::Value second;
  ASSERT_EQ(client_.sendMessage(message, second), 0);
  name.assign(name.size(), 'x');
  EXPECT_EQ(second.getMemberNames(), std::vector<std::string>{wireName});
}

TEST_F(ClientJsonApiTest, ReturnsTheStatus) {
  const std::pair<const char*, int> rows[] = {{"{}", 0},
                                              {R"({"status":0})", 0},
                                              {R"({"status":3})", 3},
                                              {R"({"status":2147483647})", 2147483647},
                                              {R"({"status":-5})", -5},
                                              {R"({"status":-103})", -103},
                                              {R"({"status":-2147483648})", std::numeric_limits<int>::min()}};
  for (const auto& [text, status] : rows) {
    daemon_.answer(text);
    const Outcome outcome = client_.send(0);
    EXPECT_EQ(outcome.code, status) << text;
    EXPECT_TRUE(outcome.reply.isObject()) << text;
  }
}

TEST_F(ClientJsonApiTest, TakesNoStatusButAnInteger) {
  for (const char* status : {"null", "\"0\"", "true", "{}", "[]", "1.5", "2147483648", "-2147483649"}) {
    daemon_.answer("{\"status\":" + std::string(status) + "}");
    const Outcome outcome = client_.send(0);
    expectFailure(client_, outcome, -104, "its status is not an integer");
    expectAtOnce(outcome);
  }
  EXPECT_EQ(client_.ask(0).code, 0);
}

TEST_F(ClientJsonApiTest, ReportsARefusalInTheDaemonsWords) {
  const std::pair<const char*, const char*> rows[] = {
      {R"({"status":-5,"error":"no such key"})", "no such key"},
      {R"({"status":-5,"error":"bad","aux-errors":["a: 1","b: 2"]})", "bad (a: 1; b: 2)"},
      {R"({"status":-5,"error":"bad","aux-errors":[]})", "bad"},
      {R"({"status":-5,"error":"bad","aux-errors":["a",7,null,"b"]})", "bad (a; b)"},
      {R"({"status":-5,"error":"bad","aux-errors":"a"})", "bad"},
      {R"({"status":-5})", "\"command 2\" was refused by the daemon with the status -5."},
      {R"({"status":-5,"error":""})", "\"command 2\" was refused by the daemon with the status -5."},
      {R"({"status":-5,"error":"","aux-errors":["a"]})",
       "\"command 2\" was refused by the daemon with the status -5. (a)"},
      {R"({"status":-5,"error":7})", "\"command 2\" was refused by the daemon with the status -5."},
  };
  for (const auto& [text, report] : rows) {
    daemon_.answer(text);
    EXPECT_EQ(client_.send(2).code, -5);
    EXPECT_EQ(client_.lastError().code, -5) << text;
    EXPECT_EQ(client_.lastError().text, report) << text;
  }
}

TEST_F(ClientJsonApiTest, GivesTheReplyOfARefusalUntouched) {
  daemon_.answer(R"({"status":-5})");
  EXPECT_THAT(client_.send(2).reply.getMemberNames(), ElementsAre("status"));
}

TEST_F(ClientJsonApiTest, KeepsTheAuxiliaryMessagesOfARefusalWithoutAnErrorText) {
  daemon_.answer(R"({"status":-27,"aux-errors":["primary: bad gateway"]})");
  EXPECT_EQ(client_.send(2).code, -27);
  EXPECT_EQ(client_.lastError().text,
            "\"command 2\" was refused by the daemon with the status -27. (primary: bad gateway)");
}

TEST_F(ClientJsonApiTest, KeepsTheLastFailureAfterASuccess) {
  daemon_.answer(R"({"status":-5,"error":"first"})");
  daemon_.answer(R"({"status":4,"error":"a remark"})");
  EXPECT_EQ(client_.send(2).code, -5);
  EXPECT_EQ(client_.send(2).code, 4);
  EXPECT_EQ(client_.ask(2).code, 0);
  EXPECT_EQ(client_.lastError().code, -5);
  EXPECT_EQ(client_.lastError().text, "first");
}

TEST_F(ClientJsonApiTest, LogsNoErrorItself) {
  const CapturedLog log;
  daemon_.answer(R"({"status":-5,"error":"bad"})");
  daemon_.answer("no JSON");
  EXPECT_EQ(client_.send(2).code, -5);
  EXPECT_EQ(client_.send(2).code, -104);
  EXPECT_THAT(log.texts(Logger::LEVEL_ERROR), IsEmpty());
}

TEST_F(ClientJsonApiTest, SendsNothingThatCannotBeWritten) {
  const std::pair<Json::Value, const char*> rows[] = {
      {object("a", std::nan("")), "not finite"},
      {object("a", std::numeric_limits<double>::infinity()), "not finite"},
      {object("a", -std::numeric_limits<double>::infinity()), "not finite"},
      {object("a", "\xff"), "not UTF-8"},
      {object("\xc0\xaf", 1), "not UTF-8"},
      {nested(65), "nested more than 64 deep"},
      {object("a", std::string(std::size_t{1024} * 1024, 'x')), "longer than 1048576 bytes"},
  };
  for (const auto& [body, why] : rows) {
    const Outcome outcome = client_.send(2, body);
    expectFailure(client_, outcome, -105, "\"command 2\" was not sent: its body cannot be written as JSON text: ");
    EXPECT_THAT(client_.lastError().text, EndsWith(std::string(why) + "."));
    expectAtOnce(outcome);
  }
  EXPECT_EQ(client_.ask(3).code, 0);
  EXPECT_EQ(daemon_.requestCount(), 1u) << "something that is no request left";
  EXPECT_EQ(daemon_.lastRequest().id, "3");
}

TEST_F(ClientJsonApiTest, SendsAndTakesWhatIsJustWithinTheLimits) {
  daemon_.onRequest([](const zel::test::Request& request) { return std::vector<Answer>{request.body}; });
  const std::string most(std::size_t{1024} * 1024 - std::string("{\"a\":\"\"}").size(), 'x');
  const Outcome outcome = client_.send(2, object("a", most));
  EXPECT_EQ(outcome.code, 0);
  EXPECT_TRUE(outcome.reply["a"] == Json::Value(most));
  EXPECT_EQ(client_.send(2, nested(63)).code, 0) << client_.lastError().text;
}

TEST(ClientJsonApi, IsNotUsableBeforeInit) {
  const ScriptedDaemon daemon;
  TestClient client;
  const Outcome outcome = client.send(3);
  expectFailure(client, outcome, -100, "\"command 3\" was not sent: the client is not connected. Call init first.");
  expectAtOnce(outcome);
  EXPECT_EQ(daemon.requestCount(), 0u);
}

TEST(ClientJsonApi, CannotConnectToAnAddressThatIsNone) {
  zmq::context_t context;
  TestClient client;
  const std::pair<const char*, int> rows[] = {{"", EINVAL},
                                              {"127.0.0.1:5556", EINVAL},
                                              {"tcp://127.0.0.1:port", EINVAL},
                                              {"nothing://127.0.0.1:5556", EPROTONOSUPPORT}};
  for (const auto& [address, why] : rows) {
    client.address = address;
    EXPECT_EQ(client.init(context), -101) << address;
    EXPECT_EQ(client.lastError().code, -101);
    EXPECT_EQ(client.lastError().text,
              "The client cannot open a connection to " + std::string(address) + ": " + zmq_strerror(why) + ".");
    EXPECT_EQ(client.send(0).code, -100) << address;
  }
  const ScriptedDaemon daemon;
  client.address = ScriptedDaemon::kEndpoint;
  EXPECT_EQ(client.init(context), 0);
  EXPECT_EQ(client.ask(0).code, 0);
}

TEST(ClientJsonApi, FindsADaemonThatIsNotThereYetAtInit) {
  zmq::context_t context;
  TestClient client(context);
  const ScriptedDaemon daemon;
  EXPECT_EQ(client.ask(0).code, 0);
}

TEST_F(ClientJsonApiTest, MayBeInitializedAgainAlsoWithAnotherContext) {
  EXPECT_EQ(client_.ask(0).code, 0);
  EXPECT_EQ(client_.init(context_), 0);
  EXPECT_EQ(client_.ask(0).code, 0);
  {
    zmq::context_t other;
    EXPECT_EQ(client_.init(other), 0);
    EXPECT_EQ(client_.ask(0).code, 0);
    EXPECT_EQ(client_.init(context_), 0);
    // The other context can end here only because its socket was closed.
  }
  EXPECT_EQ(client_.ask(0).code, 0);
}

TEST_F(ClientJsonApiTest, KeepsItsConnectionWhileCallsSucceed) {
  const auto numberOf = [this] { return daemon_.lastRequest().peer; };
  EXPECT_EQ(client_.ask(0).code, 0);
  const std::string first = numberOf();
  daemon_.answer(R"({"status":-5})");
  EXPECT_EQ(client_.send(0).code, -5);
  EXPECT_EQ(client_.send(0, object("a", std::nan(""))).code, -105);
  EXPECT_EQ(client_.ask(0).code, 0);
  EXPECT_EQ(numberOf(), first);
  daemon_.answer("no JSON");
  EXPECT_EQ(client_.send(0).code, -104);
  EXPECT_EQ(client_.ask(0).code, 0);
  EXPECT_NE(numberOf(), first) << "a connection that failed is to be replaced";
}

TEST(ClientJsonApi, CountsATimeoutThatIsNoneAsTheDefault) {
  const ScriptedDaemon daemon;
  zmq::context_t context;
  for (const int timeout : {0, -1, std::numeric_limits<int>::min()}) {
    TestClient client(context, std::chrono::milliseconds(timeout));
    EXPECT_EQ(client.send(0).code, 0) << timeout;
  }
}

TEST(ClientJsonApi, TakesTheLongestTimeout) {
  const ScriptedDaemon daemon;
  zmq::context_t context;
  TestClient client(context, std::chrono::milliseconds(std::numeric_limits<int>::max()));
  EXPECT_EQ(client.send(0).code, 0);
}

TEST(ClientJsonApi, NamesTheCommandInItsErrorsAsTheDerivedClassDoes) {
  class Naming : public TestClient {
   public:
    int getCommandDescription(unsigned int id, std::string& description) override {
      if (id == 1) description = "GET Something";
      return 0;
    }
  };
  Naming client;
  EXPECT_EQ(client.send(1).code, -100);
  EXPECT_THAT(client.lastError().text, HasSubstr("\"GET Something\" was not sent"));
  EXPECT_EQ(client.send(9).code, -100);
  EXPECT_THAT(client.lastError().text, HasSubstr("\"command 9\" was not sent"));
}
