#include "simulator/orders.h"

#include <gmock/gmock.h>

#include <fstream>
#include <iterator>
#include <ostream>
#include <string>
#include <utility>

#include "simulator/current.h"
#include "simulator/script.h"
#include "tests/simulator/json_text.h"

namespace zel::sim {
namespace {

using test::at;
using testing::HasSubstr;
using testing::IsEmpty;

Json::Value documentOf(const Board& board, const std::string& name) {
  if (name == "stored") return answerOf(board, SysMgrCommands::SYSMGR_GET_STORED_PARAMETERS)["stored"];
  if (name == "dynamic") return answerOf(board, SysMgrCommands::SYSMGR_GET_DYNAMIC_PARAMETERS)["dynamic"];
  if (name == "model") return answerOf(board, SysMgrCommands::SYSMGR_GET_BOARD_MODEL)["board-model"];
  if (name == "info") return answerOf(board, SysMgrCommands::SYSMGR_GET_SYSTEM_INFO)["systemInfo"];
  if (name == "network") {
    return answerOf(board, SysMgrCommands::SYSMGR_GET_NETWORK_STACK_STATUS)["network-stack-status"];
  }
  if (name == "gpio") return answerOf(board, SysMgrCommands::SYSMGR_GET_GPIO_CONFIGURATION)["gpio"];
  return board.keptState()["white-list"];
}

std::string carriedOut(Board& board, const std::string& line) {
  Order order;
  if (std::string why = Order::parse(line, order); !why.empty()) return why;
  return order.tryOn(board);
}

struct ChangeRow {
  const char* order;
  const char* document;
  int element;  ///< of a list at the path before; -1: there is no list
  const char* list;
  const char* path;  ///< in the element
  const char* value;
};
void PrintTo(const ChangeRow& row, std::ostream* out) { *out << row.order; }
class DocumentOrder : public testing::TestWithParam<ChangeRow> {};

TEST_P(DocumentOrder, ChangesOneValueAndNothingElse) {
  const ChangeRow& row = GetParam();
  Board board;
  ASSERT_THAT(carriedOut(board, R"(whitelist [{"ip": "239.1.0.0", "mask": "255.255.0.0", "enabled": false}])"),
              IsEmpty());
  Json::Value expected = documentOf(board, row.document);
  Json::Value* place = *row.list == '\0' ? &expected : &expected[row.list];
  if (row.element >= 0) place = &(*place)[static_cast<Json::ArrayIndex>(row.element)];
  const std::string path = row.path;
  const std::size_t slash = path.find('/');
  if (slash != std::string::npos) place = &(*place)[path.substr(0, slash)];
  (*place)[path.substr(slash == std::string::npos ? 0 : slash + 1)] = test::json(row.value);

  EXPECT_THAT(carriedOut(board, row.order), IsEmpty());
  EXPECT_EQ(test::text(documentOf(board, row.document)), test::text(expected));
}

INSTANTIATE_TEST_SUITE_P(
    Orders, DocumentOrder,
    testing::Values(
        ChangeRow{"stored rtsp/tcp-port 5004", "stored", -1, "", "rtsp/tcp-port", "5004"},
        ChangeRow{"  stored \t rtsp/tcp-port   5004 \r", "stored", -1, "", "rtsp/tcp-port", "5004"},
        ChangeRow{"stored nmos/node-name 5004", "stored", -1, "", "nmos/node-name", "\"5004\""},  // a text is wanted
        ChangeRow{"stored nmos/node-name two words", "stored", -1, "", "nmos/node-name", "\"two words\""},
        ChangeRow{R"(stored nmos/node-name "a \"b\"")", "stored", -1, "", "nmos/node-name", R"("a \"b\"")"},
        ChangeRow{"stored sap/enable true", "stored", -1, "", "sap/enable", "true"},
        ChangeRow{R"(stored {"rtsp": {"tcp-port": 5004}})", "stored", -1, "", "rtsp/tcp-port", "5004"},
        ChangeRow{"dynamic eth-basics/eth0/ip 10.0.0.9", "dynamic", 0, "eth-basics", "ip", "\"10.0.0.9\""},
        ChangeRow{"dynamic eth-basics/1/ip 10.0.0.9", "dynamic", 1, "eth-basics", "ip", "\"10.0.0.9\""},
        ChangeRow{"dynamic eth-basics/eth1/sfp-info/present false", "dynamic", 1, "eth-basics", "sfp-info/present",
                  "false"},
        ChangeRow{"dynamic temperature/fpga -3", "dynamic", -1, "", "temperature/fpga", "-3"},
        ChangeRow{"stored ethipv4/eth0/static/ip 192.168.0.7", "stored", 0, "ethipv4", "static/ip", "\"192.168.0.7\""},
        ChangeRow{"whitelist 239.1.0.0/enabled true", "whitelist", 0, "", "enabled", "true"},
        ChangeRow{"whitelist 0/enabled true", "whitelist", 0, "", "enabled", "true"},
        ChangeRow{R"(info "a new one" {"b": [1]})", "info", -1, "", "a new one", R"({"b": [1]})"},
        ChangeRow{"network state down", "network", -1, "", "state", "\"down\""},
        ChangeRow{"gpio gpio3/value true", "gpio", -1, "", "gpio3/value", "true"}));

TEST(Orders, RemoveAndAppendElementsOfLists) {
  Board board;
  const Json::ArrayIndex before = at(documentOf(board, "dynamic"), "eth-basics").size();
  EXPECT_THAT(carriedOut(board, "dynamic eth-basics/eth0 null"), IsEmpty());
  EXPECT_EQ(at(documentOf(board, "dynamic"), "eth-basics").size(), before - 1);
  const std::string number = std::to_string(before - 1);
  EXPECT_THAT(carriedOut(board, "dynamic eth-basics/" + number + R"( {"name": "eth9", "ip": "10.0.0.1"})"), IsEmpty());
  EXPECT_EQ(at(documentOf(board, "dynamic"), "eth-basics")[before - 1]["ip"].asString(), "10.0.0.1");

  EXPECT_THAT(carriedOut(board, "dynamic eth-basics/" + std::to_string(before) + "/name eth7"), IsEmpty());
  EXPECT_EQ(at(documentOf(board, "dynamic"), "eth-basics")[before]["name"].asString(), "eth7");

  EXPECT_THAT(carriedOut(board, R"(whitelist 0 {"ip": "239.1.0.0", "mask": "255.255.0.0"})"), IsEmpty());
  EXPECT_EQ(documentOf(board, "whitelist").size(), 1U);
  EXPECT_THAT(carriedOut(board, "whitelist 239.1.0.0 null"), IsEmpty());
  EXPECT_EQ(documentOf(board, "whitelist").size(), 0U);
}

TEST(Orders, ChangeTheModelWithAllThatDependsOnIt) {
  Board board;
  EXPECT_THAT(carriedOut(board, "model model ZIRC"), IsEmpty());
  EXPECT_EQ(documentOf(board, "model")["model"], "ZIRC");
  EXPECT_EQ(test::text(documentOf(board, "dynamic")), test::text(documentOf(Board(BoardModelType::ZIRC), "dynamic")));
}

TEST(Orders, ShowModulesInTheDynamicInformation) {
  Board board;
  EXPECT_THAT(carriedOut(board, R"(modules {"ptp": {"error": true}})"), IsEmpty());
  EXPECT_EQ(at(documentOf(board, "dynamic"), "errors")[0]["description"], "ptp reports an error");
  EXPECT_THAT(carriedOut(board, "modules ptp/error false"), IsEmpty());
  EXPECT_TRUE(at(documentOf(board, "dynamic"), "errors").empty());
}

TEST(Orders, SayWhatIsWrongAndChangeNothing) {
  const std::pair<std::string, const char*> kRows[] = {
      {"", "an order is missing"},
      {"   ", "an order is missing"},
      {"dance", "\"dance\" is not an order"},
      {"dan\x01\xff", "\"dan??\" is not an order"},
      {"stop now", "stop: \"now\" is too much"},
      {"stopp", "\"stopp\" is not an order"},
      {"faults", "\"faults\" is not an order"},
      {"stored", "stored: PATH is missing"},
      {"stored rtsp/tcp-port", "stored: VALUE is missing"},
      {"stored {\"rtsp\": ", "\"stored\" is \"{\\\"rtsp\\\":\", which is not an object."},
      {"stored rtsp/tcp-port 0", "\"rtsp/tcp-port\" is 0, which is out of range: 1 to 65535."},
      {"stored rtsp/tcp-port many", "\"rtsp/tcp-port\" is \"many\", which is not an integer."},
      {"stored rtsp/tcp-prot 5", "\"rtsp/tcp-prot\" is no"},
      {"stored rtps/tcp-port 5", "stored rtps/tcp-port: there is no \"rtps\"; there are: advert, "},
      {"stored rtsp/tcp-port/x 5", "there is no \"x\"; the value before it has nothing in it."},
      {"dynamic eth-basics/eth9/ip 10.0.0.1", "there is no \"eth9\"; there are: eth0, eth1"},
      {"dynamic eth-basics/77 {}", "there is no \"77\"; there are: eth0, eth1"},
      {"dynamic eth-basics/eth0/index x", "\"dynamic/eth-basics/index\" is \"x\", which is not an integer."},
      {"whitelist 224.0.0.0/enabled false", "there is no \"224.0.0.0\""},  // the system's own
      {R"(whitelist [{"ip": "10.0.0.1", "mask": "255.255.0.0"}])", "which is not multicast"},
      {"model model NONE", "\"board-model/model\" is \"NONE\""},
      {"gpio gpio9/value true", "there is no \"gpio9\"; there are: gpio0, "},
      {"info [5]", "\"systemInfo\" is [5], which is not an object."},
      {"info a " + std::string(63, '[') + std::string(63, ']'),
       "\"systemInfo\": the board cannot answer with this document: "},
      {"stored advert/board-name-prefix \xff", "the board cannot answer with this document: a text is not UTF-8."},
      {"whitelist 0 null", "whitelist 0: there is no element \"0\" to remove."},
      {"whitelist 1/ip 239.1.0.0", "whitelist 1/ip: there is no \"1\""},
      {"fault", "fault: do=FAULT is missing"},
      {"fault do=dance", "fault: do=dance: one of the faults is wanted"},
      {"publish", "publish: TOPIC is missing"},
      {"publish \"1000", "publish: a double quote is not closed"},
      {"publish-frames", "publish-frames: FRAME is missing"},
      {"publish-frames \\", "a backslash is not followed by"},
      {"publish-frames \\x1", "a backslash is not followed by"},
      {"publish-frames \\xgg", "a backslash is not followed by"},
      {std::string("stop\0", 5), "an order is one line of text"},
      {"stop\nstop", "an order is one line of text"},
  };
  for (const auto& [order, why] : kRows) {
    Board board;
    EXPECT_THAT(carriedOut(board, order), HasSubstr(why)) << order;
    const Board factory;
    for (const char* const document : {"stored", "dynamic", "model", "info", "whitelist", "gpio"}) {
      EXPECT_EQ(documentOf(board, document), documentOf(factory, document)) << order;
    }
  }
}

TEST(Orders, AreDocumentedAsTheirHelpSays) {
  std::ifstream file(ZEL_SOURCE_DIR "/docs/simulator.md");
  const std::string page{std::istreambuf_iterator<char>(file), {}};
  EXPECT_THAT(page, HasSubstr(Order::help()));
}

TEST(Script, NamesTheLineOfEachMistake) {
  const std::pair<const char*, const char*> kRows[] = {
      {"stop\n\n# a comment\nat 2 stop\n", "script, line 4: \"2\" is not a time such as 2s or 300ms"},
      {"at\n", "line 1: \"\" is not a time"},
      {"at -1s stop", "line 1: \"-1s\" is not a time"},
      {"at 25e4h stop", "line 1: \"25e4h\" is not a time"},
      {"at nans stop", "line 1: \"nans\" is not a time"},
      {"after 90000s stop", "line 1: \"90000s\" is not a time such as 2s or 300ms, of a day at most"},
      {"stop\r\nafter request two stop", "line 2: \"two\" is not the id of a command or any"},
      {"at 1s", "line 1: an order is missing"},
      {"at 1s dance", "line 1: \"dance\" is not an order"},
      {"at 2s stop\nafter 5s drop\nat 1s stop", "line 3: its time is before that of a line above"},
  };
  for (const auto& [text, why] : kRows) {
    Script script;
    EXPECT_THAT(Script::parse(text, script), HasSubstr(why)) << text;
  }
}

TEST(Script, IsTriedBeforeTheStartUpToTheFirstRequestThatItWaitsFor) {
  Script script;
  ASSERT_THAT(Script::parse("at 1.5s dynamic eth-basics/eth9/ip 10.0.0.1\n", script), IsEmpty());
  EXPECT_THAT(script.tryOn(Board()), HasSubstr("script, line 1: dynamic eth-basics/eth9/ip: there is no \"eth9\""));

  ASSERT_THAT(Script::parse("model model ZIRC\nafter 1ms stored rtsp/tcp-port 1\nafter request any stop\n"
                            "dynamic eth-basics/eth9/ip 10.0.0.1",
                            script),
              IsEmpty());
  EXPECT_THAT(script.tryOn(Board()), IsEmpty());
}

}  // namespace
}  // namespace zel::sim
