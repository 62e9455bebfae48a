#include <set>

#include "tests/support/setter_calls.h"

// The JSON types of the values, which a reader of the wire cannot tell apart: this program is linked with the typed
// client's own source and defines operations of its own in the place of the JSON client's.

namespace {

Json::Value sent;
Json::Value replyBefore;

int receive(const Json::Value& request, const Json::Value& reply) {
  sent = request;
  replyBefore = reply;
  return 0;
}

}  // namespace

int SysMgrJsonClient::setSysMgrParameter(Json::Value& request, Json::Value& reply) { return receive(request, reply); }
int SysMgrJsonClient::setIdentifyLeds(Json::Value& request, Json::Value& reply) { return receive(request, reply); }

namespace zel::test {
namespace {

class TypedSetterJson : public testing::TestWithParam<SetterCall> {};

TEST_P(TypedSetterJson, HasTheTypeOfItsValue) {
  SysMgrClient client;
  EXPECT_EQ(GetParam().call(client), 0);
  Json::Value expected;
  expected[GetParam().row->key] = GetParam().value;
  EXPECT_EQ(sent, expected);
  EXPECT_EQ(replyBefore, Json::Value());
}

INSTANTIATE_TEST_SUITE_P(All, TypedSetterJson, testing::ValuesIn(setterCalls()), nameOfSetter);

TEST(TypedSetters, SetEachRowThatHasAKeyOfItsOwn) {
  std::set<std::string> keys;
  settings::forEach([&](const SettingRow& row) {
    if (row.key != nullptr) keys.insert(row.key);
  });
  std::set<std::string> keysOfSetters;
  for (const SetterCall& setter : setterCalls()) keysOfSetters.insert(setter.row->key);
  EXPECT_EQ(keysOfSetters, keys);
}

}  // namespace
}  // namespace zel::test
