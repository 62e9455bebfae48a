#include <gmock/gmock.h>

#include <string>

#include "client/sysmgr_client.h"

// The JSON types of the numbers, which a reader of the wire cannot tell: this program is linked with the typed client's
// own source and puts an operation of its own in the place of the JSON client's.

namespace {

Json::Value sent;
Json::Value replyBefore;

}  // namespace

int SysMgrJsonClient::setSysMgrParameter(Json::Value& request, Json::Value& reply) {
  sent = request;
  replyBefore = reply;
  return 0;
}

namespace {

struct Row {
  const char* key;
  int (*call)(SysMgrClient&);
  Json::Value expected;
};
void PrintTo(const Row& row, std::ostream* out) { *out << row.key; }

#define CALL(...) [](SysMgrClient& client) { return client.__VA_ARGS__; }

const Row kRows[] = {
    {"rtsp-tcp-port", CALL(setRtspTcpPort(5004)), Json::Value(5004U)},
    {"ember-tcp-port", CALL(setEmberTcpPort(9000)), Json::Value(9000U)},
    {"advert-tcp-port", CALL(setAdvertTcpPort(80)), Json::Value(80U)},
    {"offset-from-master-threshold", CALL(setCfgOfsetFromMasterThreashold(1)), Json::Value(1U)},
    {"tdm-ch-per-line", CALL(setTdmChannelsPerLine(16)), Json::Value(16U)},
    {"primary-vlan-id", CALL(setVlanPrimaryID(65535)), Json::Value(65535)},
    {"secondary-vlan-id", CALL(setVlanSecondaryID(20)), Json::Value(20)},
    {"sap-enable", CALL(setSapSupport(true)), Json::Value(true)},
    {"rtsp-eth-port", CALL(setRtspEthPort("1")), Json::Value("1")},
};

class TypedSetterJson : public testing::TestWithParam<Row> {};

TEST_P(TypedSetterJson, HasTheTypeOfItsValue) {
  SysMgrClient client;
  EXPECT_EQ(GetParam().call(client), 0);
  Json::Value expected;
  expected[GetParam().key] = GetParam().expected;
  EXPECT_EQ(sent, expected);
  EXPECT_EQ(replyBefore, Json::Value());
}

INSTANTIATE_TEST_SUITE_P(All, TypedSetterJson, testing::ValuesIn(kRows));

}  // namespace
