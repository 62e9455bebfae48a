#include "tests/types/stored_rows.h"

namespace zel::test {
namespace {

const char* const kNothing = R"({"version":1,"videoTimingParameters":null})";

/// A record without anything that a delta names.
SysParameters factoryParameters() {
  auto parameters = readFrom<SysParameters>("{}");
  parameters.videoTiming.timingMode = VideoTimingParameters::TIMING_MODE_LOW_LATENCY;
  return parameters;
}

TEST(Delta, OfTheFactoryValuesIsNothing) {
  const Json::Value document = delta(factoryParameters());
  EXPECT_EQ(document, json(kNothing));
  EXPECT_EQ(document["version"].type(), Json::intValue);
}

TEST(Delta, OfANewRecordHoldsWhereItIsNotTheFactorys) {
  EXPECT_EQ(delta(SysParameters()), json(R"({"ptp":{"ptp-path":""},"rtsp":{"eth-port":""},
    "advert":{"eth-port":"","board-name-prefix":""},"cfg":{"cfg-file-path":""},
    "videoTimingParameters":{"timing-mode":"unset"},"version":1})"));
}

TEST(Delta, HoldsEachKeyThatDiffers) {
  for (const StoredRow& row : storedRows()) {
    Json::Value document;
    at(document, row.path) = row.sample;
    Json::Value expected = json(kNothing);
    if (row.inDelta) at(expected, row.path) = row.sample;
    EXPECT_EQ(delta(over(factoryParameters(), document)), expected) << row.path;
  }
}

TEST(Delta, ComparesTextsWholeAndHoldsThemWhole) {
  using namespace std::string_literals;
  for (const char* const path : {"ptp/ptp-path", "rtsp/eth-port", "advert/eth-port", "advert/board-name-prefix",
                                 "cfg/cfg-file-path", "vtc/image-path"}) {
    Json::Value factory = written(factoryParameters());
    Json::Value document;
    const std::string text = at(factory, path).asString() + "\0x"s;
    at(document, path) = text;
    Json::Value changes = delta(over(factoryParameters(), document));
    EXPECT_EQ(at(changes, path).asString(), text) << path;
  }
}

TEST(Delta, HoldsTheBitstreamUnlessItIsNone) {
  auto parameters = factoryParameters();
  const auto module = [&parameters](int type) {
    parameters.bitstream.type = BitstreamType::bitstream_t(type);
    return delta(parameters)["bitstream"]["module"];
  };
  EXPECT_EQ(module(0), "SDI-TR04");
  EXPECT_EQ(module(3), "SDI-BIDIR-ST2110");
  EXPECT_EQ(module(7), "NA");
  EXPECT_TRUE(module(4).isNull());
  parameters.bitstream.type = BitstreamType::BITSTREAM_NONE;
  EXPECT_FALSE(delta(parameters).isMember("bitstream"));
}

TEST(Delta, HoldsTheTimingModeUnlessItIsLowLatencyAndNeverItsNumbers) {
  auto parameters = factoryParameters();
  parameters.videoTiming.initBufDelay = parameters.videoTiming.minWrRdPtrThresh = 1;
  parameters.videoTiming.maxWrRdPtrThresh = parameters.videoTiming.rtpPktsPerFrame = 2;
  const auto timing = [&parameters](int mode) {
    parameters.videoTiming.timingMode = VideoTimingParameters::timing_mode_t(mode);
    return delta(parameters)["videoTimingParameters"];
  };
  EXPECT_EQ(timing(0), json(R"({"timing-mode":"unset"})"));
  EXPECT_EQ(timing(1), json(R"({"timing-mode":"frame_sync"})"));
  EXPECT_TRUE(timing(2).isNull());
  EXPECT_EQ(timing(3), json(R"({"timing-mode":"2059"})"));
  EXPECT_EQ(timing(9), json(R"({"timing-mode":"ERROR"})"));
}

TEST(Delta, HoldsTheNmosBlockOnlyWhenItDiffers) {
  auto parameters = factoryParameters();
  parameters.nmos.slotId = 3;
  Json::Value expected = json(kNothing);
  expected["nmos"]["slot-id"] = 3;
  EXPECT_EQ(delta(parameters), expected);
}

TEST(Delta, HoldsTheWholeInterfaceListInItsOrder) {
  auto parameters = factoryParameters();
  parameters.ethIPv4Cfg = fullParameters().ethIPv4Cfg;
  parameters.ethIPv4Cfg.reverse();
  Json::Value expected = json(kNothing);
  expected["ethipv4"] = written(parameters)["ethipv4"];
  EXPECT_EQ(delta(parameters), expected);
}

TEST(Delta, LeavesTheBoardModelAndTheSerialNumberOut) {
  auto parameters = factoryParameters();
  parameters.serialNumber = "SN-1";
  parameters.boardModel.model = BoardModelType::ZIRC;
  EXPECT_EQ(delta(parameters), json(kNothing));
}

TEST(Delta, LeavesOtherMembersOfTheDocument) {
  Json::Value document = json(R"({"x":1,"rtsp":{"x":2},"videoTimingParameters":{"x":3}})");
  factoryParameters().SerializeDelta(document);
  EXPECT_EQ(document, json(R"({"x":1,"rtsp":{"x":2},"videoTimingParameters":{"x":3},"version":1})"));
}

TEST(Delta, TheVersionIsNotPartOfTheFullDocument) { EXPECT_FALSE(written(fullParameters()).isMember("version")); }

/// Deep members of `changes` replace those of `document`; arrays as a whole.
void lay(const Json::Value& changes, Json::Value& document) {
  if (!changes.isObject() || !document.isObject()) {
    document = changes;
    return;
  }
  for (const std::string& name : changes.getMemberNames()) lay(changes[name], document[name]);
}

TEST(Delta, LaidOverTheFactoryDocumentGivesTheRecordBack) {
  const auto full = fullParameters();
  Json::Value document = written(factoryParameters());
  lay(delta(full), document);
  Json::Value expected = written(full);
  // What is not part of a delta:
  expected["serial-number"] = "";
  for (const char* const key : {"initBufDelay", "minWrRdPtrThresh", "maxWrRdPtrThresh", "rtpPktsPerFrame"}) {
    expected["videoTimingParameters"].removeMember(key);
  }
  EXPECT_EQ(written(over(SysParameters(), document)), expected);
}

}  // namespace
}  // namespace zel::test
