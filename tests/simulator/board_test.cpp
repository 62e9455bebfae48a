#include "simulator/board.h"

#include <gmock/gmock.h>

#include <set>

#include "client/sysmgr_jsonApi.h"
#include "simulator/factory.h"
#include "tests/simulator/json_text.h"
#include "types/settings.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Kind = zel::SettingRow::Kind;
using zel::sim::Board;
using zel::sim::Notification;
using zel::sim::Outcome;
using zel::test::at;
using zel::test::json;
using zel::test::text;
namespace refusal = zel::sim::refusal;

constexpr unsigned int kSet = SysMgrCommands::SYSMGR_SET_PARAMETER;

Json::Value storedOf(Board& board) {
  return board.handle(SysMgrCommands::SYSMGR_GET_STORED_PARAMETERS, Json::Value()).reply["stored"];
}
Json::Value dynamicOf(Board& board) {
  return board.handle(SysMgrCommands::SYSMGR_GET_DYNAMIC_PARAMETERS, Json::Value()).reply["dynamic"];
}
Json::Value whitelistOf(Board& board) {
  return board.handle(SysMgrCommands::SYSMGR_GET_MCAST_WHITELIST, Json::Value()).reply["white-list"];
}
/// Everything that a client can ask for.
Json::Value stateOf(Board& board) {
  Json::Value state;
  for (const unsigned int id : {0U, 1U, 3U, 4U, 5U, 16U, 18U}) state.append(board.handle(id, Json::Value()).reply);
  state.append(board.handle(12, Json::Value()).reply["debug-info"]["module-state"]);
  return state;
}
std::vector<int> topicsOf(const Outcome& outcome) {
  std::vector<int> topics;
  for (const Notification& notification : outcome.notifications) topics.push_back(notification.topic);
  return topics;
}

// --- accepted changes

struct Change {
  const char* body;
  const char* path;
  const char* stored;  ///< what stands there afterwards
};
void PrintTo(const Change& change, std::ostream* out) { *out << change.body; }

class AcceptedChange : public testing::TestWithParam<Change> {};

TEST_P(AcceptedChange, StandsAtItsPlaceAndIsPublishedWhole) {
  Board board;
  const Json::Value before = storedOf(board);
  ASSERT_NE(text(at(before, GetParam().path)), text(json(GetParam().stored))) << "the row changes nothing";

  const Outcome outcome = board.handle(kSet, json(GetParam().body));

  EXPECT_EQ(outcome.reply["status"], 0) << outcome.reply;
  EXPECT_TRUE(outcome.keptStateChanged);
  const Json::Value after = storedOf(board);
  EXPECT_EQ(text(at(after, GetParam().path)), text(json(GetParam().stored)));
  ASSERT_THAT(topicsOf(outcome), ElementsAre(1000));
  EXPECT_EQ(outcome.notifications[0].payload, after);
}

TEST_P(AcceptedChange, LeavesEveryOtherBlockAlone) {
  Board board;
  const Json::Value before = storedOf(board);
  board.handle(kSet, json(GetParam().body));
  const Json::Value after = storedOf(board);
  const std::string block = std::string(GetParam().path).substr(0, std::string(GetParam().path).find('/'));
  for (const std::string& name : before.getMemberNames()) {
    if (name == block) continue;
    EXPECT_EQ(after[name], before[name]) << name;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Board, AcceptedChange,
    testing::Values(
        Change{R"({"rtsp-eth-port": "eth1"})", "rtsp/eth-port", R"("eth1")"},
        Change{R"({"rtsp-tcp-port": 1})", "rtsp/tcp-port", "1"},
        Change{R"({"rtsp-tcp-port": 65535})", "rtsp/tcp-port", "65535"},
        Change{R"({"ember-tcp-port": 9000})", "ember/tcp-port", "9000"},
        Change{R"({"advert-eth-port": "eth2"})", "advert/eth-port", R"("eth2")"},
        Change{R"({"advert-tcp-port": 8080})", "advert/tcp-port", "8080"},
        Change{R"({"board-name-prefix": "Studio ä"})", "advert/board-name-prefix", R"("Studio ä")"},
        Change{R"({"board-name-prefix": ""})", "advert/board-name-prefix", R"("")"},
        Change{R"({"cfg-file-path": "/data/"})", "cfg/cfg-file-path", R"("/data/")"},
        Change{R"({"cfg-autosave-enable": false})", "cfg/autosave-enable", "false"},
        Change{R"({"offset-from-master-threshold": 4294967295})", "cfg/offset-from-master-threshold", "4294967295"},
        Change{R"({"pause-streams-if-ptp-fails": true})", "cfg/pause-audio-streams-ptp-fails", "true"},
        Change{R"({"redundancy-enable": false})", "redundancy/enable", "false"},
        Change{R"({"walkabout-enable": false})", "walkabout/enable", "false"},
        Change{R"({"sap-enable": true})", "sap/enable", "true"},
        Change{R"({"slp-enable": false})", "slp/enable", "false"},
        Change{R"({"primary-vlan-id": 0})", "vlan/primary-id", "0"},
        Change{R"({"secondary-vlan-id": 4094})", "vlan/secondary-id", "4094"},
        Change{R"({"tdm-ch-per-line": 16})", "tdm/channels-per-line", "16"},
        Change{R"({"vtc-image-path": "/x.bin"})", "vtc/image-path", R"("/x.bin")"},
        Change{R"({"nmos": {"node-port": 9000}})", "nmos/node-port", "9000"},
        Change{R"({"nmos": {"enable": false, "slot-id": 3}})", "nmos/slot-id", "3"},
        Change{R"({"videoTimingParameters": {"timing-mode": "2059"}})", "videoTimingParameters/timing-mode",
               R"("2059")"},
        Change{R"({"videoTimingParameters": {"initBufDelay": 0}})", "videoTimingParameters/initBufDelay", "0"},
        Change{R"({"bitstream-type": {"module": "sdi-tr04"}})", "bitstream/module", R"("SDI-TR04")"},
        Change{R"({"add-eth-cfg": {"eth": "eth0", "mode": "DHCP"}, "rem-eth-cfg": "eth1"})", "ethipv4",
               R"([{"eth": "eth0", "mode": "DHCP"}, {"eth": "eth2", "mode": "DHCP"}])"}));

/// The records write these texts and never read them: a block that is sent back whole is accepted, a change is not.
TEST(Board, RefusesAChangeThatItCannotTakeOver) {
  Board board;
  const Json::Value nmos = storedOf(board)["nmos"];
  for (const char* const body :
       {R"({"nmos": {"node-description": "mine"}})", R"({"videoTimingParameters": {"timing-mode": "unset"}})"}) {
    board.handle(2, json(R"({"videoTimingParameters": {"timing-mode": "2059"}})"));
    EXPECT_EQ(board.handle(2, json(body)).reply["status"], -7) << body;
  }
  Json::Value back;
  back["nmos"] = nmos;
  EXPECT_EQ(board.handle(2, back).reply["status"], 0);
}

// --- the table of settings

std::string letters(std::int64_t length) { return std::string(static_cast<std::size_t>(length), 'x'); }

/// The first and the last value that the daemon accepts.
std::vector<Json::Value> acceptedBy(const zel::SettingRow& row) {
  switch (row.kind) {
    case Kind::kSwitch: return {true, false};
    case Kind::kNumber: return {Json::Value(Json::Int64{row.values.least}), Json::Value(Json::Int64{row.values.most})};
    case Kind::kText: return {letters(row.values.least), letters(row.values.most)};
    case Kind::kChoice: return {row.choices().front(), row.choices().back()};
    default: return {Json::Value(Json::objectValue)};
  }
}

std::vector<Json::Value> refusedBy(const zel::SettingRow& row) {
  switch (row.kind) {
    case Kind::kSwitch: return {0, "true", Json::Value()};
    case Kind::kNumber: return {Json::Int64{row.values.least - 1}, Json::Int64{row.values.most + 1}, "1", 1.0};
    case Kind::kText: return {letters(row.values.most + 1), 1, true, Json::Value()};
    case Kind::kChoice: return {"no such text", 1, Json::Value()};
    default: return {1, "text", Json::Value(Json::arrayValue), Json::Value()};
  }
}

/// The body of a request that sets one value.
Json::Value requestOf(const zel::SettingRow& row, const Json::Value& value) {
  Json::Value body;
  if (row.route != zel::SettingRow::Route::kBlock) {
    body[row.key] = value;
  } else {
    const std::string path = row.path;
    body[row.key][path.substr(path.find('/') + 1)] = value;
  }
  return body;
}

bool isSetByARequest(const zel::SettingRow& row) {
  using Route = zel::SettingRow::Route;
  return row.route == Route::kKey || row.route == Route::kBlock || row.route == Route::kIdentify;
}

TEST(Board, JudgesEachSettingByItsRow) {
  int rows = 0;
  zel::settings::forEach([&rows](const zel::SettingRow& row) {
    if (!isSetByARequest(row)) return;
    ++rows;
    Board board;
    const unsigned int command = row.route == zel::SettingRow::Route::kIdentify ? 19 : kSet;
    for (const Json::Value& value : acceptedBy(row)) {
      EXPECT_EQ(board.handle(command, requestOf(row, value)).reply["status"], 0) << row.path << value;
      if (value.isObject()) continue;  // a block without members leaves everything as it is
      EXPECT_EQ(text(at(storedOf(board), row.path)), text(value)) << row.path;
    }
    const Json::Value before = storedOf(board);
    for (const Json::Value& value : refusedBy(row)) {
      EXPECT_FALSE(board.handle(command, requestOf(row, value)).accepted()) << row.path << value;
      EXPECT_EQ(storedOf(board), before) << row.path;
    }
  });
  EXPECT_GT(rows, 35);
}

TEST(Board, AddsAnInterfaceInTheOrderOfTheNames) {
  Board board;
  board.handle(kSet, json(R"({"add-eth-cfg": {"eth": "eth0.10", "mode": {"mode": "DHCP"}}})"));
  std::vector<std::string> names;
  const Json::Value stored = storedOf(board);
  for (const Json::Value& element : stored["ethipv4"]) names.push_back(element["eth"].asString());
  EXPECT_THAT(names, ElementsAre("eth0", "eth0.10", "eth1", "eth2"));
}

TEST(Board, TakesTheLastInterfaceAway) {
  Board board;
  for (const char* name : {"eth0", "eth1", "eth2"}) {
    Json::Value body;
    body["rem-eth-cfg"] = name;
    EXPECT_TRUE(board.handle(kSet, body).accepted()) << name;
  }
  EXPECT_FALSE(storedOf(board).isMember("ethipv4"));
}

// --- refused requests

struct Refused {
  unsigned int id;
  const char* body;
  int status;
  std::vector<const char*> words;  ///< what the error text names
};
void PrintTo(const Refused& row, std::ostream* out) { *out << row.id << " " << row.body; }

class RefusedRequest : public testing::TestWithParam<Refused> {};

TEST_P(RefusedRequest, ChangesAndPublishesNothing) {
  Board board;
  board.handle(13, json(R"({"white-list": [{"ip": "239.1.0.0", "mask": "255.255.0.0", "enabled": true}]})"));
  const Json::Value before = stateOf(board);

  const Outcome outcome = board.handle(GetParam().id, json(GetParam().body));

  EXPECT_EQ(outcome.reply["status"], GetParam().status) << outcome.reply;
  EXPECT_FALSE(outcome.accepted());
  for (const char* word : GetParam().words) EXPECT_THAT(outcome.reply["error"].asString(), HasSubstr(word));
  EXPECT_THAT(outcome.notifications, testing::IsEmpty());
  EXPECT_FALSE(outcome.keptStateChanged);
  EXPECT_EQ(stateOf(board), before);
}

INSTANTIATE_TEST_SUITE_P(
    Board, RefusedRequest,
    testing::Values(
        // command 2
        Refused{2, R"({"rtsp-tcp-port": 0})", refusal::kOutOfRange, {"rtsp-tcp-port", "0", "1 to 65535"}},
        Refused{2, R"({"rtsp-tcp-port": 70000})", refusal::kOutOfRange, {"rtsp-tcp-port", "70000"}},
        Refused{2, R"({"ember-tcp-port": -1})", refusal::kOutOfRange, {"ember-tcp-port", "-1"}},
        Refused{2, R"({"advert-tcp-port": 18446744073709551615})", refusal::kOutOfRange, {"18446744073709551615"}},
        Refused{2, R"({"offset-from-master-threshold": 4294967296})", refusal::kOutOfRange, {"4294967296"}},
        Refused{2, R"({"primary-vlan-id": 4095})", refusal::kOutOfRange, {"primary-vlan-id", "4095", "0 to 4094"}},
        Refused{2, R"({"secondary-vlan-id": 65535})", refusal::kOutOfRange, {"secondary-vlan-id", "65535"}},
        Refused{2, R"({"tdm-ch-per-line": 0})", refusal::kOutOfRange, {"tdm-ch-per-line"}},
        Refused{2, R"({"rtsp-tcp-port": "5004"})", refusal::kWrongType, {"rtsp-tcp-port", "\"5004\"", "integer"}},
        Refused{2, R"({"rtsp-tcp-port": 5004.0})", refusal::kWrongType, {"rtsp-tcp-port", "5004.0"}},
        Refused{2, R"({"rtsp-tcp-port": null})", refusal::kWrongType, {"rtsp-tcp-port", "null"}},
        Refused{2, R"({"rtsp-tcp-port": true})", refusal::kWrongType, {"rtsp-tcp-port", "true"}},
        Refused{2, R"({"sap-enable": 1})", refusal::kWrongType, {"sap-enable", "1", "boolean"}},
        Refused{2, R"({"vtc-image-path": ["a"]})", refusal::kWrongType, {"vtc-image-path", "[\"a\"]"}},
        Refused{2, R"({"vtc-image-path": "a\u0000b"})", refusal::kOutOfRange, {"vtc-image-path", "NUL"}},
        Refused{2, R"({"no-such-key": {"a": 1}})", refusal::kUnknownKey, {"no-such-key", "{\"a\":1}"}},
        Refused{2, R"({"rtsp/tcp-port": 5004})", refusal::kUnknownKey, {"rtsp/tcp-port"}},
        Refused{2, R"({"serial-number": "x"})", refusal::kUnknownKey, {"serial-number"}},
        Refused{2, R"({"sap-enable": true, "slp-enable": false, "zzz": 1})", refusal::kUnknownKey, {"zzz"}},
        Refused{2, R"({"sap-enable": true, "rtsp-tcp-port": 0})", refusal::kOutOfRange, {"rtsp-tcp-port"}},
        Refused{2, R"([1])", refusal::kMalformedRequest, {"[1]", "object"}},
        Refused{2, "null", refusal::kMalformedRequest, {"null", "object"}},
        Refused{2, R"({"nmos": {"node-port": 0}})", refusal::kOutOfRange, {"nmos/node-port", "0"}},
        Refused{2, R"({"nmos": {"node-prot": 1}})", refusal::kUnknownKey, {"nmos/node-prot", "1"}},
        Refused{2, R"({"nmos": {"slot-id": 1, "node-name": 5}})", refusal::kWrongType, {"nmos/node-name", "5"}},
        Refused{2, R"({"nmos": 1})", refusal::kWrongType, {"nmos", "1", "object"}},
        Refused{2,
                R"({"videoTimingParameters": {"timing-mode": "Frame_Sync"}})",
                refusal::kOutOfRange,
                {"timing-mode", "Frame_Sync"}},
        Refused{2, R"({"videoTimingParameters": {"initBufDelay": -1}})", refusal::kOutOfRange, {"initBufDelay", "-1"}},
        Refused{2, R"({"bitstream-type": {"module": "Sdi-tr04"}})", refusal::kOutOfRange, {"module", "Sdi-tr04"}},
        Refused{2, R"({"bitstream-type": "SDI-TR04"})", refusal::kWrongType, {"bitstream-type", "object"}},
        Refused{2, R"({"rem-eth-cfg": "eth9"})", refusal::kInterfaceNotFound, {"rem-eth-cfg", "eth9"}},
        Refused{2, R"({"add-eth-cfg": {"mode": "DHCP"}})", refusal::kOutOfRange, {"add-eth-cfg", "eth"}},
        Refused{2, R"({"add-eth-cfg": {"eth": "a name too long"}})", refusal::kInvalidAddress, {"add-eth-cfg"}},
        Refused{2, R"({"add-eth-cfg": {"eth": "a name too long!"}})", refusal::kOutOfRange, {"add-eth-cfg/eth"}},
        Refused{2, R"({"add-eth-cfg": {"eth": "eth1", "mode": "dhcp"}})", refusal::kOutOfRange, {"mode", "dhcp"}},
        Refused{2,
                R"({"add-eth-cfg": {"eth": "eth1", "static": {"ip": "300.1.1.1"}}})",
                refusal::kInvalidAddress,
                {"add-eth-cfg/static/ip", "300.1.1.1"}},
        // the others
        Refused{9, "null", refusal::kUnknownCommand, {"9"}},
        Refused{4294967295U, "null", refusal::kUnknownCommand, {"4294967295"}},
        Refused{7, R"({"audio": {"error": 1}})", refusal::kWrongType, {"audio/error", "1"}},
        Refused{7, R"({"audio": {"broken": true}})", refusal::kUnknownKey, {"audio/broken", "true"}},
        Refused{7, R"({"audio": {"error": true}, "video": 1})", refusal::kWrongType, {"video", "1"}},
        Refused{7, R"("audio")", refusal::kMalformedRequest, {"audio"}},
        Refused{17, R"({"gpio1": {"output": true}, "gpio99": {}})", refusal::kUnknownKey, {"gpio99"}},
        Refused{17, R"({"gpio1": {"value": "on"}})", refusal::kWrongType, {"gpio1/value", "on"}},
        Refused{18, R"({"gpio99": null})", refusal::kNotFound, {"gpio99"}},
        Refused{18, R"([1])", refusal::kMalformedRequest, {"[1]"}},
        Refused{19, R"({"identify-enable": "yes"})", refusal::kWrongType, {"identify-enable", "yes"}},
        Refused{19, "{}", refusal::kWrongType, {"identify-enable", "null"}},
        Refused{19, R"({"identify-enable": true, "x": 1})", refusal::kUnknownKey, {"x"}},
        // the whitelist: one entry of a client's is there, 239.1.0.0/16
        Refused{13, "{}", refusal::kWrongType, {"white-list", "null", "array"}},
        Refused{13, R"({"white-list": []})", refusal::kOutOfRange, {"white-list", "[]"}},
        Refused{13, R"({"white-list": [1]})", refusal::kWrongType, {"white-list", "1"}},
        Refused{13, R"({"white-list": [{"ip": "239.2.0.0"}]})", refusal::kInvalidAddress, {"mask", "0.0.0.0"}},
        Refused{13,
                R"({"white-list": [{"ip": "239.2.0.0", "mask": "255.0.255.0"}]})",
                refusal::kInvalidAddress,
                {"mask", "255.0.255.0"}},
        Refused{13,
                R"({"white-list": [{"ip": "10.0.0.1", "mask": "255.0.0.0"}]})",
                refusal::kInvalidAddress,
                {"ip", "10.0.0.1", "multicast"}},
        Refused{13, R"({"white-list": [{"ip": "1.2.3", "mask": "255.0.0.0"}]})", refusal::kInvalidAddress, {"1.2.3"}},
        Refused{13,
                R"({"white-list": [{"ip": "239.2.0.0", "mask": "255.255.0.0"}, {"ip": "x"}]})",
                refusal::kInvalidAddress,
                {"x"}},
        Refused{13,
                R"({"white-list": [{"ip": "224.0.1.129", "mask": "255.255.255.0"}]})",
                refusal::kFixedEntry,
                {"224.0.1.129"}},
        Refused{14,
                R"({"white-list": [{"ip": "224.0.1.129", "mask": "255.255.255.255"}]})",
                refusal::kFixedEntry,
                {"224.0.1.129/255.255.255.255"}},
        Refused{15,
                R"({"white-list": [{"ip": "239.255.255.255", "mask": "255.255.255.255", "enabled": false}]})",
                refusal::kFixedEntry,
                {"239.255.255.255"}},
        Refused{14,
                R"({"white-list": [{"ip": "239.1.0.0", "mask": "255.255.255.0"}]})",
                refusal::kNotFound,
                {"239.1.0.0/255.255.255.0"}},
        Refused{15, R"({"white-list": [{"ip": "239.9.0.0", "mask": "255.0.0.0"}]})", refusal::kNotFound, {"239.9"}},
        Refused{14, R"({"white": 1})", refusal::kUnknownKey, {"white"}}));

TEST(Board, CarriesTheReasonOfTheValidationInTheAnswer) {
  struct Row {
    const char* addresses;
    const char* reason;
  };
  for (const Row& row : {Row{R"("ip": "0.1.1.1")", "Interface IP cannot start with 0"},
                         Row{R"("ip": "127.0.0.1")", "Interface IP cannot be set as the local host 127.0.0.1"},
                         Row{R"("ip": "239.1.1.1")", "Interface IP cannot be multicast"},
                         Row{R"("ip": "10.0.0.1", "gw": "0.0.0.1")", "Interface gateway cannot start with 0"},
                         Row{R"("ip": "10.0.0.1", "gw": "224.0.0.1")", "Interface gateway cannot be multicast"},
                         Row{R"("ip": "10.0.0.1", "mask": "0.0.0.0")", "Interface mask cannot be 0.0.0.0"}}) {
    Board board;
    const std::string body =
        std::string(R"({"add-eth-cfg": {"eth": "eth1", "mode": "static", "static": {)") + row.addresses + "}}}";
    const Outcome outcome = board.handle(kSet, json(body));
    EXPECT_EQ(outcome.reply["status"], zel::status::kInvalidAddress);
    EXPECT_THAT(outcome.reply["error"].asString(), HasSubstr("add-eth-cfg"));
    ASSERT_EQ(outcome.reply["aux-errors"].size(), 1U) << row.reason;
    EXPECT_EQ(outcome.reply["aux-errors"][0], row.reason);
  }
}

TEST(Board, HasNoReasonsOfAnEarlierRefusalInALaterAnswer) {
  Board board;
  board.handle(kSet, json(R"({"add-eth-cfg": {"eth": "eth1"}})"));
  EXPECT_FALSE(board.handle(kSet, json(R"({"rtsp-tcp-port": 0})")).reply.isMember("aux-errors"));
}

TEST(Board, CutsALongValueInTheErrorText) {
  Board board;
  Json::Value body;
  body["board-name-prefix"] = std::string(300, 'x');
  const std::string error = board.handle(kSet, body).reply["error"].asString();
  EXPECT_THAT(error, HasSubstr("board-name-prefix"));
  EXPECT_THAT(error, HasSubstr("300 bytes"));
  EXPECT_LT(error.size(), 300U);
}

TEST(Board, TakesOnlySoManyInterfacesModulesAndEntries) {
  Board board;
  for (int number = 0; number < 64; ++number) {
    Json::Value body;
    body["module" + std::to_string(number)]["error"] = false;
    ASSERT_TRUE(board.handle(7, body).accepted());
  }
  EXPECT_EQ(board.handle(7, json(R"({"one-more": {}})")).reply["status"], refusal::kTooMany);
  EXPECT_TRUE(board.handle(7, json(R"({"module0": {"error": true}})")).accepted());

  Json::Value entries;
  for (int number = 0; number < 1022; ++number) {
    Json::Value entry;
    entry["ip"] = "232." + std::to_string(number / 256) + "." + std::to_string(number % 256) + ".0";
    entry["mask"] = "255.255.255.0";
    entries["white-list"].append(entry);
  }
  EXPECT_EQ(board.handle(13, entries).reply["status"], refusal::kTooMany);  // three fixed ones are there
  Json::Value dropped;
  entries["white-list"].removeIndex(0, &dropped);
  EXPECT_TRUE(board.handle(13, entries).accepted());
}

// --- the other commands

TEST(Board, AnswersEveryQueryUnderItsMember) {
  Board board(BoardModelType::KORVA);
  const std::pair<unsigned int, const char*> kMembers[] = {
      {0, "stored"},     {1, "dynamic"},     {3, "board-model"}, {4, "network-stack-status"},
      {5, "systemInfo"}, {12, "debug-info"}, {16, "white-list"}, {18, "gpio"}};
  for (const auto& [id, member] : kMembers) {
    const Outcome outcome = board.handle(id, Json::Value());
    EXPECT_EQ(outcome.reply["status"], 0) << id;
    EXPECT_TRUE(outcome.reply.isMember(member)) << member;
    EXPECT_FALSE(outcome.reply[member].empty()) << member;
    EXPECT_THAT(topicsOf(outcome), testing::IsEmpty());
    EXPECT_FALSE(outcome.keptStateChanged);
  }
  EXPECT_EQ(board.handle(3, Json::Value()).reply["board-model"], json(R"({"model": "KORVA", "module": "SDI-ST2110"})"));
}

TEST(Board, IdentifiesItself) {
  Board board;
  const Outcome outcome = board.handle(19, json(R"({"identify-enable": true})"));
  EXPECT_THAT(topicsOf(outcome), ElementsAre(1000));
  EXPECT_EQ(at(storedOf(board), "cfg/identify-enable"), true);
}

TEST(Board, ShowsWhatModulesReportAmongTheErrors) {
  Board board;
  const Outcome outcome = board.handle(7, json(R"({"audio": {"error": true, "warn": true}, "ptp": {"warn": true}})"));
  ASSERT_THAT(topicsOf(outcome), ElementsAre(1001));
  EXPECT_EQ(outcome.notifications[0].payload, dynamicOf(board));
  EXPECT_EQ(dynamicOf(board)["errors"], json(R"([{"code": 1, "description": "audio reports an error"},
                                                 {"code": 2, "description": "audio reports a warning"},
                                                 {"code": 2, "description": "ptp reports a warning"}])"));
  EXPECT_FALSE(outcome.keptStateChanged);

  board.handle(7, json(R"({"audio": {"error": false, "warn": false}, "ptp": {"warn": false}})"));
  EXPECT_FALSE(dynamicOf(board).isMember("errors"));
}

TEST(Board, SetsAndShowsGpioLines) {
  Board board;
  EXPECT_TRUE(board.handle(17, json(R"({"gpio3": {"output": true, "value": true}})")).accepted());
  EXPECT_EQ(board.handle(18, json(R"({"gpio3": null})")).reply["gpio"],
            json(R"({"gpio3": {"output": true, "value": true}})"));
  EXPECT_EQ(board.handle(18, Json::Value()).reply["gpio"].size(), 8U);
}

TEST(Board, AnnouncesAReboot) {
  Board board;
  const Json::Value before = stateOf(board);
  const Outcome outcome = board.handle(8, Json::Value());
  EXPECT_EQ(outcome.reply["status"], 0);
  EXPECT_THAT(topicsOf(outcome), ElementsAre(1002));
  EXPECT_EQ(stateOf(board), before);
}

TEST(Board, KeepsItsWhitelist) {
  Board board;
  const Json::Value factory = whitelistOf(board);
  const Json::Value added = json(R"({"white-list": [{"ip": "239.1.0.0", "mask": "255.255.0.0", "enabled": true}]})");

  const Outcome outcome = board.handle(13, added);
  ASSERT_THAT(topicsOf(outcome), ElementsAre(1004));
  EXPECT_TRUE(outcome.keptStateChanged);
  EXPECT_EQ(outcome.notifications[0].payload["white-list"], whitelistOf(board));
  EXPECT_EQ(whitelistOf(board)[1], added["white-list"][0]);  // in the order of the addresses
  EXPECT_EQ(whitelistOf(board).size(), factory.size() + 1);

  const Json::Value disabled =
      json(R"({"white-list": [{"ip": "239.1.0.0", "mask": "255.255.0.0", "enabled": false}]})");
  EXPECT_THAT(topicsOf(board.handle(15, disabled)), ElementsAre(1004));
  EXPECT_EQ(whitelistOf(board)[1], disabled["white-list"][0]);

  const Json::Value wider = json(R"({"white-list": [{"ip": "239.1.0.0", "mask": "255.0.0.0", "enabled": true}]})");
  EXPECT_TRUE(board.handle(13, wider).accepted());  // one entry an address
  EXPECT_EQ(whitelistOf(board)[1], wider["white-list"][0]);

  EXPECT_THAT(topicsOf(board.handle(14, wider)), ElementsAre(1004));
  EXPECT_EQ(whitelistOf(board), factory);
}

TEST(Board, GoesBackToTheFactoryState) {
  Board board(BoardModelType::ZIRC);
  const Json::Value factory = stateOf(board);
  for (const char* body :
       {R"({"rtsp-tcp-port": 5004, "rem-eth-cfg": "eth0"})", R"({"add-eth-cfg": {"eth": "eth7", "mode": "DHCP"}})",
        R"({"nmos": {"slot-id": 4}, "videoTimingParameters": {"timing-mode": "2059", "initBufDelay": 3}})"}) {
    ASSERT_TRUE(board.handle(kSet, json(body)).accepted()) << body;
  }
  board.handle(17, json(R"({"gpio0": {"value": true}})"));
  board.handle(19, json(R"({"identify-enable": true})"));
  board.handle(13, json(R"({"white-list": [{"ip": "239.1.0.0", "mask": "255.255.0.0"}]})"));
  ASSERT_NE(stateOf(board), factory);

  const Outcome outcome = board.handle(6, Json::Value());

  EXPECT_EQ(stateOf(board), factory);
  ASSERT_THAT(topicsOf(outcome), ElementsAre(1000, 1004));
  EXPECT_EQ(outcome.notifications[0].payload, storedOf(board));
  EXPECT_EQ(outcome.notifications[1].payload["white-list"], whitelistOf(board));
}

TEST(Board, PublishesTheWhitelistOfAFactoryResetOnlyIfItChanges) {
  Board board;
  EXPECT_THAT(topicsOf(board.handle(6, Json::Value())), ElementsAre(1000));
}

// --- models

class EveryModel : public testing::TestWithParam<std::string> {};

TEST_P(EveryModel, IsAPlausibleBoard) {
  const auto model = zel::sim::modelFromText(GetParam());
  ASSERT_TRUE(model);
  Board board(*model);
  EXPECT_EQ(board.handle(3, Json::Value()).reply["board-model"]["model"], GetParam());

  const Json::Value dynamic = dynamicOf(board);
  EXPECT_GE(dynamic["temperature"]["fpga"].asInt(), 20);
  EXPECT_LE(dynamic["temperature"]["fpga"].asInt(), 90);
  EXPECT_GT(dynamic["fan-speed"]["main"].asInt(), 0);
  EXPECT_NE(dynamic["chipid-name"], "");
  std::set<std::string> macs;
  for (const Json::Value& interface : dynamic["eth-basics"]) {
    EXPECT_THAT(interface["mac"].asString(), testing::MatchesRegex("[0-9a-f]{12}"));
    macs.insert(interface["mac"].asString());
  }
  EXPECT_FALSE(macs.empty());
  EXPECT_EQ(macs.size(), dynamic["eth-basics"].size());
  EXPECT_NE(storedOf(board)["serial-number"], "");
  EXPECT_EQ(board.handle(5, Json::Value()).reply["systemInfo"]["serial-number"], storedOf(board)["serial-number"]);
}

TEST_P(EveryModel, StartsWithTheModelsInterfaces) {
  const auto model = zel::sim::modelFromText(GetParam());
  ASSERT_TRUE(model);
  Board board(*model);
  SysParameters stored;
  Json::Value document = storedOf(board);
  stored.Deserialize(document);
  if (*model == BoardModelType::NIMBRA_AES67) return;  // read from the host: never reported as the default
  EXPECT_TRUE(stored.isEthIPv4ConfigDefault(board.model()));
}

TEST_P(EveryModel, DiffersFromItsFactoryStateInNothing) {
  const auto model = zel::sim::modelFromText(GetParam());
  ASSERT_TRUE(model);
  Board board(*model);
  SysParameters stored;
  stored.videoTiming.timingMode = VideoTimingParameters::TIMING_MODE_UNSET;
  Json::Value document = storedOf(board);
  stored.Deserialize(document);
  Json::Value delta;
  stored.SerializeDelta(delta);
  delta.removeMember("ethipv4");
  EXPECT_EQ(delta, json(R"({"version": 1, "videoTimingParameters": null})"));
}

TEST_P(EveryModel, IsRestoredFromItsKeptState) {
  const auto model = zel::sim::modelFromText(GetParam());
  ASSERT_TRUE(model);
  Board board(*model);
  // As a port of the host may be that has no address: no client could set it.
  const auto applied = board.applyState(json(R"({"stored": {"ethipv4": [{"eth": "eth1", "mode": "static"}]}})"));
  ASSERT_FALSE(applied) << applied.text;
  for (const Json::Value& kept : {Board(*model).keptState(), board.keptState()}) {
    Board other(*model);
    const auto why = other.restore(kept);
    EXPECT_FALSE(why) << why.text;
    EXPECT_EQ(other.keptState(), kept);
  }
}

INSTANTIATE_TEST_SUITE_P(Board, EveryModel, testing::ValuesIn(zel::sim::modelTexts()),
                         [](const auto& row) { return row.param; });

TEST(Board, KnowsFourteenModelsTheAliasAndNoOther) {
  EXPECT_EQ(zel::sim::modelTexts().size(), 14U);
  EXPECT_EQ(zel::sim::modelFromText("TAVRO"), BoardModelType::KORVA);
  EXPECT_EQ(zel::sim::modelFromText("BOARD_MODEL_UNDEFINED"), BoardModelType::BOARD_MODEL_UNDEFINED);
  EXPECT_FALSE(zel::sim::modelFromText("korva"));
  EXPECT_FALSE(zel::sim::modelFromText(""));
}

// --- time

TEST(Board, MovesPlausiblyWhenTimePasses) {
  Board board(BoardModelType::KORVA);
  const Json::Value start = dynamicOf(board);
  std::set<int> temperatures;
  std::set<int> fanSpeeds;
  bool linkLost = false;
  for (int step = 0; step < 500; ++step) {
    const auto notifications = board.moveOn();
    ASSERT_EQ(notifications.size(), 1U);
    ASSERT_EQ(notifications[0].topic, SysmgrPublisher::SYSMGR_DYNAMIC_INFO_UPDATE);
    const Json::Value& dynamic = notifications[0].payload;
    ASSERT_EQ(dynamic, dynamicOf(board));
    ASSERT_NEAR(dynamic["temperature"]["fpga"].asInt(), start["temperature"]["fpga"].asInt(), 8);
    ASSERT_GT(dynamic["fan-speed"]["main"].asInt(), 0);
    temperatures.insert(dynamic["temperature"]["fpga"].asInt());
    fanSpeeds.insert(dynamic["fan-speed"]["main"].asInt());
    for (const Json::Value& interface : dynamic["eth-basics"]) linkLost |= !interface["ip-present"].asBool();
    ASSERT_EQ(dynamic["eth-basics"].size(), start["eth-basics"].size());
  }
  EXPECT_GT(temperatures.size(), 5U);
  EXPECT_GT(fanSpeeds.size(), 50U);
  EXPECT_TRUE(linkLost);
}

// --- state documents

TEST(Board, TakesOverAPieceOfAStateDocument) {
  Board board;
  const auto why = board.applyState(json(R"({
      "board-model": {"model": "ZIRC"},
      "stored": {"rtsp": {"tcp-port": 5004}, "serial-number": "S1", "ethipv4": [{"eth": "eth5", "mode": "DHCP"}],
                 "nmos": {"slot-id": 2}, "cfg": {"identify-enable": true}, "ptp": {"ptp-path": "/p"}},
      "dynamic": {"temperature": {"fpga": 80}, "errors": [{"code": 7, "description": "hot"}]},
      "systemInfo": {"anything": [1]},
      "network-stack-status": {"state": "down"},
      "gpio": {"gpio1": {"output": true}},
      "white-list": [{"ip": "239.1.0.0", "mask": "255.255.0.0", "enabled": true}]})"));
  ASSERT_FALSE(why) << why.text;

  EXPECT_EQ(board.handle(3, Json::Value()).reply["board-model"], json(R"({"model": "ZIRC", "module": "HDMI-ST2110"})"));
  const Json::Value stored = storedOf(board);
  EXPECT_EQ(at(stored, "rtsp/tcp-port"), 5004U);
  EXPECT_EQ(at(stored, "rtsp/eth-port"), "all");
  EXPECT_EQ(at(stored, "serial-number"), "S1");
  EXPECT_EQ(at(stored, "nmos/slot-id"), 2);
  EXPECT_EQ(at(stored, "cfg/identify-enable"), true);
  EXPECT_EQ(at(stored, "ptp/ptp-path"), "/p");
  EXPECT_EQ(stored["ethipv4"], json(R"([{"eth": "eth5", "mode": "DHCP"}])"));
  EXPECT_EQ(at(dynamicOf(board), "temperature/fpga"), 80);
  EXPECT_EQ(dynamicOf(board)["errors"][0]["code"], 7);
  EXPECT_EQ(dynamicOf(board)["chipid-name"], "ZEL-V5");
  EXPECT_EQ(board.handle(5, Json::Value()).reply["systemInfo"], json(R"({"anything": [1]})"));
  EXPECT_EQ(board.handle(4, Json::Value()).reply["network-stack-status"], json(R"({"state": "down"})"));
  EXPECT_EQ(at(board.handle(18, Json::Value()).reply, "gpio/gpio1/output"), true);
  EXPECT_EQ(whitelistOf(board).size(), 4U);
}

TEST(Board, NamesWhatIsWrongWithAStateDocumentAndTakesNothing) {
  const std::pair<const char*, const char*> kRows[] = {
      {R"([])", "state"},
      {R"({"sotred": {}})", "sotred"},
      {R"({"stored": {"rtsp": {"tcp-port": 0}}})", "rtsp/tcp-port"},
      {R"({"stored": {"rtsp": {"tcp-prot": 1}}})", "rtsp/tcp-prot"},
      {R"({"stored": {"rtsp": 1}})", "rtsp"},
      {R"({"stored": {"nothing": {}}})", "nothing"},
      {R"({"stored": {"sap": {"enable": true}, "vlan": {"primary-id": 5000}}})", "vlan/primary-id"},
      {R"({"stored": {"ethipv4": [{"eth": "eth1", "static": {"ip": "1.2.3"}}]}})", "ethipv4/static/ip"},
      {R"({"stored": {"ethipv4": {}}})", "ethipv4"},
      {R"({"stored": []})", "stored"},
      {R"({"dynamic": {"temperature": {"fpga": "hot"}}})", "dynamic/temperature/fpga"},
      {R"({"dynamic": {"eth-basics": [{"name": "eth0", "speed": 1}]}})", "dynamic/eth-basics/speed"},
      {R"({"dynamic": {"errors": {}}})", "dynamic/errors"},
      {R"({"board-model": {"model": "KORWA"}})", "KORWA"},
      {R"({"systemInfo": 1})", "systemInfo"},
      {R"({"gpio": 1})", "gpio"},
      {R"({"module-state": [1]})", "module-state"},
      {R"({"white-list": [{"ip": "224.0.1.129", "mask": "255.255.255.255"}]})", "224.0.1.129"},
      {R"({"dynamic": {"eth-basics": [{"name": "eth0", "ip": "10.0.0"}]}})", "10.0.0"},
      // paths where the names of members belong
      {R"({"stored": {"rtsp/tcp-port": 5004}})", R"("stored/rtsp/tcp-port" is a path)"},
      {R"({"stored": {"rtsp/tcp-port": 5004}})", R"({"rtsp":{"tcp-port":5004}})"},
      {R"({"stored": {"nmos/": {"slot-id": 1}}})", "nmos/"},
      {R"({"stored": {"vlan": {"/primary-id": 1}}})", R"("vlan//primary-id" is a path)"},
      {R"({"stored/rtsp/tcp-port": 5004})", R"({"stored":{"rtsp":{"tcp-port":5004}}})"},
      {R"({"dynamic": {"temperature/fpga": 80}})", R"({"temperature":{"fpga":80}})"},
      {R"({"gpio": {"gpio1/value": true}})", R"({"gpio1":{"value":true}})"},
      {R"({"stored": {"ethipv4/remove": "eth1"}})", "ethipv4/remove"},
  };
  for (const auto& [document, word] : kRows) {
    Board board;
    const Json::Value before = stateOf(board);
    const auto why = board.applyState(json(document));
    EXPECT_TRUE(why) << document;
    EXPECT_THAT(why.text, HasSubstr(word)) << document;
    EXPECT_EQ(stateOf(board), before) << document;
  }
}

TEST(Board, IsRestoredFromItsKeptState) {
  Board board(BoardModelType::KORVA);
  for (const char* body :
       {R"({"rtsp-tcp-port": 5004, "videoTimingParameters": {"initBufDelay": 3}})", R"({"rem-eth-cfg": "eth0"})",
        R"({"rem-eth-cfg": "eth1"})", R"({"rem-eth-cfg": "eth2"})", R"({"rem-eth-cfg": "eth3"})"}) {
    ASSERT_TRUE(board.handle(kSet, json(body)).accepted()) << body;
  }
  board.handle(13, json(R"({"white-list": [{"ip": "239.1.0.0", "mask": "255.255.0.0"}]})"));

  Board other(BoardModelType::KORVA);
  other.handle(kSet, json(R"({"videoTimingParameters": {"maxWrRdPtrThresh": 9}})"));
  const auto why = other.restore(board.keptState());
  ASSERT_FALSE(why) << why.text;
  EXPECT_EQ(storedOf(other), storedOf(board));
  EXPECT_EQ(whitelistOf(other), whitelistOf(board));
}

}  // namespace
