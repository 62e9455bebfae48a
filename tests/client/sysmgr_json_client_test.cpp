#include "client/sysmgr_jsonApi.h"

#include <gmock/gmock.h>

#include <functional>
#include <thread>

#include "client/commands.h"
#include "tests/support/captured_log.h"
#include "tests/support/scripted_daemon.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using zel::test::CapturedLog;
using zel::test::checkLinePattern;
using zel::test::ScriptedDaemon;

namespace {

using Client = SysMgrJsonClient;
using OneValue = int (Client::*)(Json::Value&);
using TwoValues = int (Client::*)(Json::Value&, Json::Value&);

/// An operation: what it takes, and what it sends.
struct Operation {
  const char* name;
  unsigned int id;
  OneValue query = nullptr;     ///< no body; fills its argument
  TwoValues command = nullptr;  ///< sends its first argument; fills its second
  OneValue exchange = nullptr;  ///< sends its argument, and fills it
};

const Operation kOperations[] = {
    {"getStoredParameters", 0, &Client::getStoredParameters},
    {"getDynamicParameters", 1, &Client::getDynamicParameters},
    {"setSysMgrParameter", 2, nullptr, &Client::setSysMgrParameter},
    {"getBoardModel", 3, &Client::getBoardModel},
    {"getNetworkStackStatus", 4, &Client::getNetworkStackStatus},
    {"getSystemInfo", 5, &Client::getSystemInfo},
    {"factoryReset", 6, &Client::factoryReset},
    {"setModuleState", 7, nullptr, nullptr, &Client::setModuleState},
    {"rebootDevice", 8, &Client::rebootDevice},
    {"getInternalDebugInfo", 12, &Client::getInternalDebugInfo},
    {"addMcastWhitelist", 13, nullptr, &Client::addMcastWhitelist},
    {"removeMcastWhitelist", 14, nullptr, &Client::removeMcastWhitelist},
    {"enableMcastWhitelist", 15, nullptr, &Client::enableMcastWhitelist},
    {"getMcastWhitelist", 16, &Client::getMcastWhitelist},
    {"setGpioConfiguration", 17, nullptr, &Client::setGpioConfiguration},
    {"getGpioConfiguration", 18, nullptr, &Client::getGpioConfiguration},
    {"setIdentifyLeds", 19, nullptr, &Client::setIdentifyLeds},
};

void PrintTo(const Operation& operation, std::ostream* out) { *out << operation.name; }

std::string signatureOf(const Operation& operation) {
  const std::string arguments = operation.command != nullptr ? "Json::Value&, Json::Value&" : "Json::Value&";
  return "int SysMgrJsonClient::" + std::string(operation.name) + "(" + arguments + ")";
}

class EachOperation : public testing::TestWithParam<Operation> {
 protected:
  void SetUp() override { ASSERT_EQ(client_.init(context_), 0); }

  /// Calls the operation with a request of its own where it takes one.
  int call() {
    const Operation& operation = GetParam();
    if (operation.query != nullptr) return (client_.*operation.query)(reply_);
    if (operation.command != nullptr) return (client_.*operation.command)(request_, reply_);
    reply_ = request_;
    return (client_.*operation.exchange)(reply_);
  }

  static Json::Value valueOf(const char* key) {
    Json::Value value;
    value[key]["number"] = 1u;
    return value;
  }

  ScriptedDaemon daemon_;
  zmq::context_t context_;
  SysMgrJsonClient client_;
  Json::Value request_ = valueOf("request");
  Json::Value reply_ = "before";
};
INSTANTIATE_TEST_SUITE_P(Commands, EachOperation, testing::ValuesIn(kOperations),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace

TEST_P(EachOperation, SendsItsCommandAndFillsTheReply) {
  const CapturedLog log;
  daemon_.answer(R"({"status":0,"payload":[1]})");
  EXPECT_EQ(call(), 0);

  const std::string body = GetParam().query != nullptr ? "" : "{\"request\":{\"number\":1}}";
  EXPECT_THAT(daemon_.lastRequest().frames, ElementsAre(std::to_string(GetParam().id), body));
  EXPECT_THAT(reply_.getMemberNames(), ElementsAre("payload", "status"));
  EXPECT_EQ(request_, valueOf("request")) << "the request is the caller's";
  EXPECT_EQ(daemon_.requestCount(), 1u);
  EXPECT_THAT(log.texts(Logger::LEVEL_ERROR), IsEmpty());
}

TEST_P(EachOperation, CountsAPositiveStatusAsSuccess) {
  const CapturedLog log;
  daemon_.answer(R"({"status":3})");
  EXPECT_EQ(call(), 0);
  EXPECT_EQ(reply_["status"], Json::Value(3));
  EXPECT_THAT(log.texts(Logger::LEVEL_ERROR), IsEmpty());
}

TEST_P(EachOperation, PassesAFailureThroughAndLogsItOnce) {
  const CapturedLog log;
  daemon_.answer(R"({"status":-5,"error":"refused"})");
  EXPECT_EQ(call(), -5);
  EXPECT_THAT(log.texts(Logger::LEVEL_ERROR), ElementsAre(MatchesRegex(checkLinePattern(signatureOf(GetParam()), -5))));

  ErrorReport report;
  EXPECT_EQ(client_.getLastErrorMessage(report), 0);
  EXPECT_EQ(report.code, -5);
  EXPECT_EQ(report.text, "refused");
}

TEST_P(EachOperation, LogsTheClientsOwnFailuresOnceToo) {
  SysMgrJsonClient unconnected;
  const CapturedLog log;
  Json::Value reply = "before";
  const Operation& operation = GetParam();
  const int code = operation.command != nullptr ? (unconnected.*operation.command)(request_, reply)
                   : operation.query != nullptr ? (unconnected.*operation.query)(reply)
                                                : (unconnected.*operation.exchange)(reply);
  EXPECT_EQ(code, -100);
  EXPECT_EQ(reply, Json::Value("before"));
  EXPECT_THAT(log.texts(Logger::LEVEL_ERROR),
              ElementsAre(MatchesRegex(checkLinePattern(signatureOf(operation), -100))));
}

TEST_P(EachOperation, NamesItsCommandInTheErrorReport) {
  daemon_.answer("no JSON");
  EXPECT_EQ(call(), -104);
  std::string name;
  EXPECT_EQ(client_.getCommandDescription(GetParam().id, name), 0);
  ErrorReport report;
  client_.getLastErrorMessage(report);
  EXPECT_THAT(report.text, testing::StartsWith("\"" + name + "\" was answered"));
}

namespace {

struct CommandName {
  unsigned int id;
  const char* name;
};
constexpr CommandName kNames[] = {
    {0, "GET Stored parameters"},
    {1, "GET Dynamic Parameters"},
    {2, "SET stored parameters"},
    {3, "GET Board Model"},
    {4, "GET network stack status"},
    {5, "GET system info"},
    {6, "Resets the configuration files to factory default"},
    {7, "SET module state"},
    {8, "SET request a device reboot"},
    {12, "GET debug info"},
    {13, "ADD Multicast Whitelist configuration"},
    {14, "REM Multicast Whitelist configuration"},
    {15, "Enable Multicast Whitelist configuration"},
    {16, "GET Multicast Whitelist configuration"},
    {17, "SET gpio configuration"},
    {18, "GET gpio configuration"},
    {19, "SET Identify LEDs"},
};

std::string described(unsigned int id, std::string text) {
  SysMgrJsonClient client;
  EXPECT_EQ(client.getCommandDescription(id, text), 0) << id;
  return text;
}

}  // namespace

TEST(CommandDescription, ReplacesTheTextByTheNameOfACommand) {
  for (const CommandName& row : kNames) {
    EXPECT_EQ(described(row.id, "before"), row.name);
    EXPECT_EQ(described(row.id, ""), row.name);
  }
}

TEST(CommandDescription, AppendsToTheTextForAnIdAboveTheHighest) {
  for (const unsigned int id : {20u, 21u, 1000u, 2147483647u}) {
    EXPECT_EQ(described(id, "before "), "before not recognized") << id;
    EXPECT_EQ(described(id, ""), "not recognized") << id;
  }
}

TEST(CommandDescription, LeavesTheTextForAnIdThatIsNoCommand) {
  // From 2^31 on an id is a negative number to the table.
  for (const unsigned int id : {9u, 10u, 11u, 2147483648u, 2147483649u, 4294967295u}) {
    EXPECT_EQ(described(id, "before"), "before") << id;
    EXPECT_EQ(described(id, ""), "") << id;
  }
}

TEST(CommandDescription, IsTheSameThroughTheCommandTable) {
  std::string name = "before";
  EXPECT_EQ(SysMgrCommands::getCommandNameStr(SysMgrCommands::SYSMGR_SET_IDENTIFY_LEDS, name), 0);
  EXPECT_EQ(name, "SET Identify LEDs");
}

TEST(CommandDescription, MayBeAskedForFirstOnManyThreads) {
  std::vector<std::string> names(8);
  std::vector<std::thread> threads;
  for (std::string& name : names) {
    threads.emplace_back([&name] { SysMgrCommands::getCommandNameStr(SysMgrCommands::SYSMGR_GET_BOARD_MODEL, name); });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(names, testing::Each("GET Board Model"));
}

TEST(CommandTable, HasARowForEachOperationInAscendingOrderOfTheIds) {
  std::vector<unsigned int> ids;
  for (const Operation& operation : kOperations) ids.push_back(operation.id);
  std::vector<unsigned int> rows;
  for (const zel::CommandRow& row : zel::kCommands) rows.push_back(static_cast<unsigned int>(row.id));
  EXPECT_EQ(rows, ids);
  EXPECT_EQ(zel::findCommand(static_cast<SysMgrCommands::sysmgr_msg_t>(9)), nullptr);
}

TEST(CommandTable, NamesTheMemberThatAnswersAQuery) {
  std::vector<std::pair<int, std::string>> payloads;
  for (const zel::CommandRow& row : zel::kCommands) {
    if (row.payload != nullptr) payloads.emplace_back(row.id, row.payload);
  }
  const std::vector<std::pair<int, std::string>> expected = {{0, "stored"},      {1, "dynamic"},
                                                             {3, "board-model"}, {4, "network-stack-status"},
                                                             {5, "systemInfo"},  {16, "white-list"}};
  EXPECT_EQ(payloads, expected);
}

TEST(SysMgrJsonClient, ConnectsToTheDaemonsPortOnTheLoopback) {
  SysMgrJsonClient client;
  std::string first = client.getIpcConnectAddress();
  const std::string second = client.getIpcConnectAddress();
  EXPECT_EQ(first, "tcp://127.0.0.1:5556");
  EXPECT_EQ(second, first);
  first.clear();
  EXPECT_EQ(second, "tcp://127.0.0.1:5556") << "each call gives a text of its own";
}

TEST(SysMgrJsonClient, WaitsAsLongAsItsBase) {
  SysMgrJsonClient client;
  EXPECT_EQ(client.getClientTimeout(), 5000);
}

TEST(SysMgrJsonClient, LetsWhatASinkThrowsPass) {
  SysMgrJsonClient client;
  Json::Value reply;
  Logger::getInstance()->setSink([](Logger::logDebugLevel_t, const std::string&) { throw 7; });
  EXPECT_THROW(client.getBoardModel(reply), int);
  Logger::getInstance()->setSink(nullptr);
}
