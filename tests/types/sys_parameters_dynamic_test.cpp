#include "types/sys_parameters_dynamic.h"

#include "tests/support/captured_log.h"
#include "tests/support/json_of.h"

namespace zel::test {
namespace {

using ::testing::IsEmpty;
using ::testing::SizeIs;

const char* const kNew = R"({"chipid-version":"","chipid-name":"","temperature":{"fpga":65535},"fan-speed":{"main":-1},
  "madi-lock":false})";

const char* const kFull = R"({"chipid-version":"1.2","chipid-name":"chip","temperature":{"fpga":41},
  "fan-speed":{"main":4200},"madi-lock":true,
  "eth-basics":[
    {"name":"eth1","ip":"10.0.0.1","mac":"0050c2000001","ip-present":true,"index":2,"label":"one",
     "sfp-info":{"present":true,"temperature":41.5,"rx_power":-3.5,"tx_power":-2.5,"wavelength":1310,
                 "part_number":"AB"}},
    {"name":"eth0","ip":"0.0.0.0","mac":"0050c2000000","ip-present":false,"index":1,"label":"",
     "sfp-info":{"present":false,"temperature":0.0,"rx_power":-1.0,"tx_power":-1.0,"wavelength":-1,
                 "part_number":"N/A"}}],
  "errors":[{"code":1,"description":"one"},{"code":-2,"description":""}]})";

/// The document with its numbers as the wire brings them: signed where they fit.
Json::Value onTheWire(const SysParametersDynamic& parameters) {
  std::string text;
  EXPECT_EQ(writeWireJson(written(parameters), text), "");
  return json(text);
}

TEST(SysParametersDynamic, ANewOneWritesNoLists) {
  EXPECT_EQ(written(SysParametersDynamic()), json(kNew));
  EXPECT_FALSE(written(SysParametersDynamic()).isMember("errors"));
}

TEST(SysParametersDynamic, ReadsAndWritesTheFullDocument) {
  const auto parameters = readFrom<SysParametersDynamic>(kFull);
  EXPECT_EQ(parameters.chipIdVersion, "1.2");
  EXPECT_EQ(parameters.chipIdName, "chip");
  EXPECT_EQ(parameters.temperature.fpga, 41);
  EXPECT_EQ(parameters.fanSpeed.main, 4200);
  EXPECT_TRUE(parameters.madiLock);
  ASSERT_THAT(parameters.ethBasics, SizeIs(2));
  EXPECT_EQ(parameters.ethBasics.front().name, "eth1");
  EXPECT_EQ(parameters.ethBasics.back().name, "eth0");
  ASSERT_THAT(parameters.errors, SizeIs(2));
  EXPECT_EQ(parameters.errors.front().code, 1);
  EXPECT_EQ(parameters.errors.back().code, -2);
  EXPECT_EQ(onTheWire(parameters), json(kFull));
}

TEST(SysParametersDynamic, AMissingKeyResetsItsMember) {
  const auto full = readFrom<SysParametersDynamic>(kFull);
  EXPECT_EQ(written(over(full, "{}")), json(kNew));
  EXPECT_EQ(written(over(full, "null")), json(kNew));
  EXPECT_EQ(written(over(full, R"({"temperature":{},"fan-speed":{},"eth-basics":[],"errors":[]})")), json(kNew));
  EXPECT_EQ(written(over(full, R"({"temperature":null,"fan-speed":null,"eth-basics":null,"errors":null})")),
            json(kNew));
}

TEST(SysParametersDynamic, ListsAreReplaced) {
  const auto parameters = over(readFrom<SysParametersDynamic>(kFull),
                               R"({"eth-basics":[{"name":"eth7"}],"errors":[{"code":7,"description":"seven"},{}]})");
  ASSERT_THAT(parameters.ethBasics, SizeIs(1));
  EXPECT_EQ(parameters.ethBasics.front().name, "eth7");
  ASSERT_THAT(parameters.errors, SizeIs(2));
  EXPECT_EQ(parameters.errors.front().code, 7);
  EXPECT_EQ(parameters.errors.front().description, "seven");
  EXPECT_EQ(parameters.errors.back().code, -1);
  EXPECT_EQ(parameters.errors.back().description, "");
}

TEST(SysParametersDynamic, WhatIsReadBeforeARefusedValueIsKept) {
  const std::vector<std::string> order = {"chipid-version", "chipid-name", "temperature", "fan-speed",
                                          "madi-lock",      "eth-basics",  "errors"};
  for (const std::string& refused : order) {
    Json::Value document = json(kFull);
    document[refused] = json(refused == "eth-basics" || refused == "errors" ? R"({"x":1})" : R"([1])");
    SysParametersDynamic parameters;
    EXPECT_THROW(parameters.Deserialize(document), Json::LogicError) << refused;
    const Json::Value now = onTheWire(parameters);
    bool before = true;
    for (const std::string& key : order) {
      if (key == refused) before = false;
      EXPECT_EQ(now[key], json(before ? kFull : kNew)[key]) << key << " when " << refused << " is refused";
    }
  }
}

TEST(SysParametersDynamic, AListBeingReadHoldsTheElementsBeforeARefusedOne) {
  auto parameters = readFrom<SysParametersDynamic>(kFull);
  Json::Value document = json(R"({"eth-basics":[{"name":"eth7"},{"name":{}},{"name":"eth9"}]})");
  EXPECT_THROW(parameters.Deserialize(document), Json::LogicError);
  ASSERT_THAT(parameters.ethBasics, SizeIs(1));
  EXPECT_EQ(parameters.ethBasics.front().name, "eth7");
  EXPECT_THAT(parameters.errors, SizeIs(2)) << "not reached";
}

TEST(SysParametersDynamic, AListThatIsATextOrANumberIsEmpty) {
  const auto full = readFrom<SysParametersDynamic>(kFull);
  const auto parameters = over(full, R"({"eth-basics":"x","errors":5})");
  EXPECT_THAT(parameters.ethBasics, IsEmpty());
  EXPECT_THAT(parameters.errors, IsEmpty());
}

TEST(SysParametersDynamic, ReadingLeavesTheDocumentAsItIs) {
  EXPECT_EQ(afterReading<SysParametersDynamic>("{}"), json("{}"));
  EXPECT_EQ(afterReading<SysParametersDynamic>(kFull), json(kFull));
}

TEST(SysParametersDynamic, WritingKeepsOtherMembersAtEveryDepth) {
  Json::Value document = json(R"({"temperature":{"x":1},"fan-speed":{"x":2},"errors":[{"x":3}]})");
  readFrom<SysParametersDynamic>(R"({"errors":[{"code":1}]})").Serialize(document);
  EXPECT_EQ(document["temperature"], json(R"({"x":1,"fpga":65535})"));
  EXPECT_EQ(document["fan-speed"], json(R"({"x":2,"main":-1})"));
  EXPECT_EQ(document["errors"][0], json(R"({"x":3,"code":1,"description":""})"));
}

TEST(SysParametersDynamic, LogsNothing) {
  const CapturedLog log;
  written(readFrom<SysParametersDynamic>(kFull));
  EXPECT_THAT(log.lines(), IsEmpty());
}

}  // namespace
}  // namespace zel::test
