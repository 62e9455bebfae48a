#include "common/eth_basic_info.h"

#include "tests/support/captured_log.h"
#include "tests/support/json_of.h"

namespace zel::test {
namespace {

using ::testing::ElementsAre;
using ::testing::FloatEq;

const char* const kFull = R"({"name":"eth0.10","ip":"192.168.0.100","mac":"0050c2aabbcc","ip-present":true,
  "index":4000000000,"label":"front","sfp-info":{"present":true,"temperature":41.5,"rx_power":-3.5,"tx_power":-2.5,
  "wavelength":1310,"part_number":"AB"}})";

TEST(EthBasicInfo, ANewOneWritesItsDefaults) {
  const Json::Value document = written(EthBasicInfo());
  Json::Value expected = json(R"({"name":"","ip":"0.0.0.0","mac":"","ip-present":false,"label":"",
    "sfp-info":{"present":false,"temperature":0.0,"rx_power":-1.0,"tx_power":-1.0,"wavelength":-1,
                "part_number":"N/A"}})");
  expected["index"] = 0U;
  EXPECT_EQ(document, expected);
}

TEST(EthBasicInfo, ReadsAndWritesItsKeys) {
  const auto info = readFrom<EthBasicInfo>(kFull);
  EXPECT_EQ(info.name, "eth0.10");
  EXPECT_EQ(info.ip, 0xC0A80064);
  EXPECT_EQ(info.mac, "0050c2aabbcc");
  EXPECT_TRUE(info.ipPresent);
  EXPECT_EQ(info.index, 4000000000U);
  EXPECT_EQ(info.label, "front");
  EXPECT_TRUE(info.sfp.present);
  EXPECT_EQ(info.sfp.wavelength, 1310);
  Json::Value expected = json(kFull);
  expected["index"] = 4000000000U;
  EXPECT_EQ(written(info), expected);
}

TEST(EthBasicInfo, AMissingKeyResetsItsMember) {
  for (const char* const text : {"{}", "null"}) {
    const auto info = over(readFrom<EthBasicInfo>(kFull), text);
    EXPECT_EQ(info.name, "");
    EXPECT_EQ(info.ip, 0U);
    EXPECT_EQ(info.mac, "");
    EXPECT_FALSE(info.ipPresent);
    EXPECT_EQ(info.index, 0U);
    EXPECT_EQ(info.label, "");
    EXPECT_FALSE(info.sfp.present);
    EXPECT_THAT(info.sfp.temperature, FloatEq(0.0F));
    EXPECT_THAT(info.sfp.rxPower, FloatEq(0.0F));
    EXPECT_THAT(info.sfp.txPower, FloatEq(0.0F));
    EXPECT_EQ(info.sfp.wavelength, 0);
    EXPECT_EQ(info.sfp.partNumber, "N/A");
  }
}

TEST(EthBasicInfo, AnAddressThatIsEmptyOrBadStays) {
  const auto full = readFrom<EthBasicInfo>(kFull);
  const CapturedLog log;
  EXPECT_EQ(over(full, R"({"ip":""})").ip, full.ip);
  EXPECT_EQ(over(full, R"({"ip":"1.2.3"})").ip, full.ip);
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "Error parsing IP [1.2.3]: invalid IP address"}));
}

TEST(EthBasicInfo, RefusesWhatDoesNotConvert) {
  for (const char* const text : {R"({"name":{}})", R"({"ip":[]})", R"({"index":-1})", R"({"ip-present":"x"})",
                                 R"({"sfp-info":"x"})", R"({"sfp-info":[]})", "[]"}) {
    EXPECT_THROW(readFrom<EthBasicInfo>(text), Json::LogicError) << text;
  }
}

TEST(EthBasicInfo, ReadingLeavesTheDocumentAsItIs) { EXPECT_EQ(afterReading<EthBasicInfo>("{}"), json("{}")); }

TEST(EthBasicInfo, WritingKeepsOtherMembersAtEveryDepth) {
  Json::Value document = json(R"({"x":1,"sfp-info":{"y":2}})");
  EthBasicInfo().Serialize(document);
  EXPECT_EQ(document["x"], 1);
  EXPECT_EQ(document["sfp-info"]["y"], 2);
}

}  // namespace
}  // namespace zel::test
