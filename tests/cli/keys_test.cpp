#include "cli/keys.h"

#include <gmock/gmock.h>

#include <cctype>
#include <ostream>
#include <set>

#include "cli/daemon.h"
#include "client/zmq_utils.h"
#include "tests/support/scripted_daemon.h"
#include "tests/support/setter_calls.h"

namespace zel::ctl {
namespace {

using test::ScriptedDaemon;
using test::SetterCall;
using testing::SizeIs;
using testing::StrEq;

void set(const Words& words) {
  const Deadline deadline(5);
  Daemon daemon(deadline);
  send(daemon, parseAssignments(words));
}

// --- keys that a setter of the client sets by itself

/// The value of a setter's request as it is typed.
std::string typed(const SetterCall& setter) {
  if (setter.row == &settings::kAddInterface) return "eth0,dhcp";
  if (setter.value.isBool()) return setter.value.asBool() ? "on" : "off";
  return setter.value.asString();
}

std::vector<SetterCall> settersOfKeys() {
  std::vector<SetterCall> setters;
  for (const SetterCall& setter : test::setterCalls()) {
    if (setter.row->kind != SettingRow::Kind::kBlock) setters.push_back(setter);
  }
  return setters;
}

class KeyWithSetter : public testing::TestWithParam<SetterCall> {};

TEST_P(KeyWithSetter, SendsTheRequestOfItsSetter) {
  ScriptedDaemon peer;
  for (int i = 0; i < 3; ++i) peer.answer("{}");
  SysMgrClient client;
  ASSERT_EQ(client.init(ZmqUtils::getInstance().getContext()), 0);
  ASSERT_EQ(GetParam().call(client), 0);
  const test::Request wanted = peer.lastRequest();

  const std::string key = GetParam().row->path;
  set({key, typed(GetParam())});
  EXPECT_THAT(peer.lastRequest().id, StrEq(wanted.id));
  EXPECT_THAT(peer.lastRequest().body, StrEq(wanted.body));

  set({key + "=" + typed(GetParam())});
  EXPECT_THAT(peer.lastRequest().body, StrEq(wanted.body));
  EXPECT_EQ(peer.requestCount(), 3U);
}

INSTANTIATE_TEST_SUITE_P(All, KeyWithSetter, testing::ValuesIn(settersOfKeys()), test::nameOfSetter);

// --- keys inside a block

struct BlockKey {
  const char* key;
  const char* typed;
  const char* body;
};
void PrintTo(const BlockKey& key, std::ostream* out) { *out << key.key; }

class KeyOfABlock : public testing::TestWithParam<BlockKey> {};

TEST_P(KeyOfABlock, SendsNoOtherMemberOfItsBlock) {
  ScriptedDaemon peer;
  peer.answer("{}");
  set({GetParam().key, GetParam().typed});
  EXPECT_THAT(peer.lastRequest().id, StrEq("2"));
  EXPECT_THAT(peer.lastRequest().body, StrEq(GetParam().body));
  EXPECT_EQ(peer.requestCount(), 1U);
}

constexpr BlockKey kBlockKeys[] = {
    {"bitstream/module", "HDMI-ST2110", R"({"bitstream-type":{"module":"HDMI-ST2110"}})"},
    {"videoTimingParameters/timing-mode", "2059", R"({"videoTimingParameters":{"timing-mode":"2059"}})"},
    {"videoTimingParameters/initBufDelay", "0", R"({"videoTimingParameters":{"initBufDelay":0}})"},
    {"videoTimingParameters/minWrRdPtrThresh", "1", R"({"videoTimingParameters":{"minWrRdPtrThresh":1}})"},
    {"videoTimingParameters/maxWrRdPtrThresh", "2147483647",
     R"({"videoTimingParameters":{"maxWrRdPtrThresh":2147483647}})"},
    {"videoTimingParameters/rtpPktsPerFrame", "3", R"({"videoTimingParameters":{"rtpPktsPerFrame":3}})"},
    {"nmos/enable", "off", R"({"nmos":{"enable":false}})"},
    {"nmos/http-sdp-port", "1", R"({"nmos":{"http-sdp-port":1}})"},
    {"nmos/node-port", "2", R"({"nmos":{"node-port":2}})"},
    {"nmos/query-port", "3", R"({"nmos":{"query-port":3}})"},
    {"nmos/registration-port", "4", R"({"nmos":{"registration-port":4}})"},
    {"nmos/slot-id", "5", R"({"nmos":{"slot-id":5}})"},
    {"nmos/shelf-id", "6", R"({"nmos":{"shelf-id":6}})"},
    {"nmos/node-name", "a=b", R"({"nmos":{"node-name":"a=b"}})"},
    {"nmos/device-name", "\"Über\"", R"({"nmos":{"device-name":"\"Über\""}})"},
    {"nmos/advertisement-interface", "eth1", R"({"nmos":{"advertisement-interface":"eth1"}})"},
};

INSTANTIATE_TEST_SUITE_P(All, KeyOfABlock, testing::ValuesIn(kBlockKeys), [](const auto& row) {
  std::string name = row.param.key;
  for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
  return name;
});

// --- all of them

TEST(SettableKeys, AreAllTested) {
  std::multiset<std::string> tested;
  for (const SetterCall& setter : settersOfKeys()) tested.insert(setter.row->path);
  for (const BlockKey& key : kBlockKeys) tested.insert(key.key);
  std::multiset<std::string> settable;
  for (const SettingRow* const row : settableRows()) settable.insert(row->path);
  EXPECT_EQ(tested, settable);
}

TEST(SettableKeys, TravelTogetherInOneRequest) {
  ScriptedDaemon peer;
  peer.answer("{}");
  set({"nmos/node-port", "2", "rtsp/tcp-port=5004", "nmos/slot-id", "5"});
  ASSERT_THAT(peer.requests(), SizeIs(1));
  EXPECT_THAT(peer.lastRequest().body, StrEq(R"({"nmos":{"node-port":2,"slot-id":5},"rtsp-tcp-port":5004})"));
}

TEST(SettableKeys, AreReadBeforeAnythingIsSent) {
  ScriptedDaemon peer;
  EXPECT_THROW(set({"nmos/node-port", "2", "sap/enable", "perhaps"}), Failure);
  EXPECT_EQ(peer.requestCount(), 0U);
}

TEST(SettableKeys, AreGivenOnceEach) {
  for (const Words& words : {Words{"sap/enable", "on", "sap/enable", "on"}, Words{"sap/enable=on", "sap/enable=off"},
                             Words{"sap/enable=on", "nmos/slot-id", "1", "sap/enable", "off"}}) {
    try {
      parseAssignments(words);
      ADD_FAILURE() << words.back();
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.status(), Exit::kUsage);
      EXPECT_STREQ(failure.what(), "sap/enable is given twice");
      EXPECT_EQ(failure.key(), "sap/enable");
    }
  }
}

}  // namespace
}  // namespace zel::ctl
