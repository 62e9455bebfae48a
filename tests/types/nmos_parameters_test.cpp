#include "types/nmos_parameters.h"
#include "tests/support/json_of.h"

namespace zel::test {
namespace {

const char* const kNew = R"({"nmos":{"enable":true,"http-sdp-port":8081,"node-port":12345,"query-port":8235,
  "registration-port":8870,"slot-id":0,"shelf-id":0,"node-name":"Velmar Board","device-name":"Velmar Board",
  "advertisement-interface":"eth0","node-description":"Velmar node"}})";

const char* const kOther = R"({"nmos":{"enable":false,"http-sdp-port":1,"node-port":2,"query-port":3,
  "registration-port":-4,"slot-id":5,"shelf-id":6,"node-name":"node","device-name":"device",
  "advertisement-interface":"eth1","node-description":"Velmar node"}})";

/// What the delta of `kOther` holds.
Json::Value changedKeys() {
  Json::Value document = json(kOther);
  document["nmos"].removeMember("node-description");
  return document;
}

TEST(NmosParameters, WritesEveryKey) { EXPECT_EQ(written(NmosParameters()), json(kNew)); }

TEST(NmosParameters, ReadsEveryKeyIntoItsMember) {
  const auto nmos = readFrom<NmosParameters>(kOther);
  EXPECT_FALSE(nmos.enable);
  EXPECT_EQ(nmos.httpSdpPort, 1);
  EXPECT_EQ(nmos.nodePort, 2);
  EXPECT_EQ(nmos.queryPort, 3);
  EXPECT_EQ(nmos.registrationPort, -4);
  EXPECT_EQ(nmos.slotId, 5);
  EXPECT_EQ(nmos.shelfId, 6);
  EXPECT_EQ(nmos.nodeName, "node");
  EXPECT_EQ(nmos.deviceName, "device");
  EXPECT_EQ(nmos.advertisementInterface, "eth1");
  EXPECT_EQ(written(nmos), json(kOther));
}

TEST(NmosParameters, KeepsWhatIsMissing) {
  const auto nmos = readFrom<NmosParameters>(kOther);
  for (const char* const document : {"{}", R"({"nmos":null})", R"({"nmos":{}})", R"({"nmos":[]})",
                                     R"({"nmos":{"x":1}})", R"({"enable":true,"node-port":1})"}) {
    EXPECT_EQ(written(over(nmos, document)), json(kOther)) << document;
  }
}

TEST(NmosParameters, EachKeyChangesItsMemberOnly) {
  const auto nmos = readFrom<NmosParameters>(kOther);
  const Json::Value standard = json(kNew)["nmos"];
  for (const std::string& key : changedKeys()["nmos"].getMemberNames()) {
    Json::Value document;
    document["nmos"][key] = standard[key];
    Json::Value expected = json(kOther);
    expected["nmos"][key] = standard[key];
    EXPECT_EQ(written(over(nmos, document)), expected) << key;
  }
}

TEST(NmosParameters, ConvertsANullKeyThatIsThere) {
  const auto nmos = readFrom<NmosParameters>(R"({"nmos":{"enable":null,"node-port":null,"node-name":null}})");
  EXPECT_FALSE(nmos.enable);
  EXPECT_EQ(nmos.nodePort, 0);
  EXPECT_EQ(nmos.nodeName, "");
}

TEST(NmosParameters, NeverReadsTheDescription) {
  const auto nmos = readFrom<NmosParameters>(R"({"nmos":{"node-description":"x"}})");
  EXPECT_EQ(written(nmos), json(kNew));
  EXPECT_NO_THROW(readFrom<NmosParameters>(R"({"nmos":{"node-description":{}}})"));
}

TEST(NmosParameters, ReadsInOrder) {
  const char* const order[] = {
      "enable",      "http-sdp-port",           "node-port", "query-port", "registration-port", "node-name",
      "device-name", "advertisement-interface", "slot-id",   "shelf-id"};
  for (const char* const refused : order) {
    Json::Value document = json(kOther);
    document["nmos"][refused] = Json::Value(Json::objectValue);
    NmosParameters nmos;
    EXPECT_THROW(nmos.Deserialize(document), Json::LogicError);
    const Json::Value now = written(nmos)["nmos"];
    bool before = true;
    for (const char* const key : order) {
      if (std::string(key) == refused) before = false;
      EXPECT_EQ(now[key], json(before ? kOther : kNew)["nmos"][key]) << key << " when " << refused << " is refused";
    }
  }
}

TEST(NmosParameters, RefusesABlockThatIsNoObject) {
  for (const char* const text : {R"({"nmos":"x"})", R"({"nmos":1})", R"({"nmos":true})", R"({"nmos":[1]})", "[1]"}) {
    EXPECT_THROW(readFrom<NmosParameters>(text), Json::LogicError) << text;
  }
}

TEST(NmosParameters, ReadingLeavesTheDocumentAsItIs) { EXPECT_EQ(afterReading<NmosParameters>("{}"), json("{}")); }

TEST(NmosParameters, WritingKeepsOtherMembersOfItsBlock) {
  Json::Value document = json(R"({"nmos":{"other":1}})");
  NmosParameters().Serialize(document);
  EXPECT_EQ(document["nmos"]["other"], 1);
}

TEST(NmosParameters, TheDeltaOfANewOneIsNothing) {
  EXPECT_TRUE(delta(NmosParameters()).isNull());
  Json::Value document = json(R"({"a":1})");
  NmosParameters().SerializeDelta(document);
  EXPECT_EQ(document, json(R"({"a":1})"));
}

TEST(NmosParameters, TheDeltaHoldsWhatDiffers) {
  EXPECT_EQ(delta(readFrom<NmosParameters>(kOther)), changedKeys());
  for (const std::string& key : changedKeys()["nmos"].getMemberNames()) {
    Json::Value document;
    document["nmos"][key] = changedKeys()["nmos"][key];
    EXPECT_EQ(delta(over(NmosParameters(), document)), document) << key;
  }
}

}  // namespace
}  // namespace zel::test
