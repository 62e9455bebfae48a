#include <limits>
#include <type_traits>

#include "tests/support/captured_log.h"
#include "tests/support/json_of.h"
#include "types/sysmgr_types.h"

namespace zel::test {
namespace {

using ::testing::FloatEq;

TEST(Records, ArePlainValues) {
  const auto check = [](auto record) {
    using Record = decltype(record);
    static_assert(std::is_base_of_v<IJsonSerializable, Record>);
    static_assert(std::is_copy_constructible_v<Record> && std::is_copy_assignable_v<Record>);
    static_assert(std::has_virtual_destructor_v<Record>);
  };
  check(Vlan());
  check(EthMode());
  check(EthIpV4Cfg());
  check(FanSpeed());
  check(SystemTemperature());
  check(SystemError());
  check(BitstreamType());
  check(VideoTimingParameters());
  check(SfpInfo());
  check(BoardModel());
  check(NmosParameters());
  check(SysParameters());
  check(SysParametersDynamic());
  check(SystemBasicInfo());
  check(NetworkStackStatus());
  check(WhiteListEntry());
  check(WhiteListDb());
}

TEST(Enumerations, Have32Bits) {
  static_assert(sizeof(EthMode::eth_mode_t) == 4 && sizeof(BitstreamType::bitstream_t) == 4);
  static_assert(sizeof(VideoTimingParameters::timing_mode_t) == 4 && sizeof(BoardModelType::board_models_t) == 4);
  static_assert(sizeof(WhiteListEntry::whitelist_entry_t) == 4 && sizeof(VideoFormat::video_format_t) == 4);
}

// Vlan

TEST(Vlan, WritesSignedNumbers) {
  Vlan vlan;
  EXPECT_EQ(written(vlan), json(R"({"id":0,"priority":0,"tpid":33024})"));
  vlan.id = 65535;
  vlan.priority = 255;
  vlan.tpid = 0x88A8;
  EXPECT_EQ(written(vlan), json(R"({"id":65535,"priority":255,"tpid":34984})"));
}

TEST(Vlan, ReadsItsKeys) {
  const auto vlan = readFrom<Vlan>(R"({"id":1,"priority":2,"tpid":3})");
  EXPECT_EQ(vlan.id, 1);
  EXPECT_EQ(vlan.priority, 2);
  EXPECT_EQ(vlan.tpid, 3);
}

TEST(Vlan, ResetsWhatIsMissing) {
  const auto vlan = over(readFrom<Vlan>(R"({"id":1,"priority":2,"tpid":3})"), "{}");
  EXPECT_EQ(vlan.id, 0);
  EXPECT_EQ(vlan.priority, 0);
  EXPECT_EQ(vlan.tpid, 0x8100);
}

TEST(Vlan, KeepsTheLowBitsOfANumber) {
  const auto vlan = readFrom<Vlan>(R"({"id":70000,"priority":257,"tpid":-1})");
  EXPECT_EQ(vlan.id, 4464);
  EXPECT_EQ(vlan.priority, 1);
  EXPECT_EQ(vlan.tpid, 65535);
}

TEST(Vlan, RefusesWhatIsNoInt) {
  EXPECT_THROW(readFrom<Vlan>(R"({"id":2147483648})"), Json::LogicError);
  EXPECT_THROW(readFrom<Vlan>(R"({"id":"1"})"), Json::LogicError);
}

// EthMode

TEST(EthMode, NamesItsValues) {
  EXPECT_STREQ(EthMode::toText(EthMode::eth_mode_t(0)), "static");
  EXPECT_STREQ(EthMode::toText(EthMode::eth_mode_t(1)), "DHCP");
  EXPECT_STREQ(EthMode::toText(EthMode::eth_mode_t(2)), "Undefined");
  EXPECT_STREQ(EthMode::toText(EthMode::eth_mode_t(-1)), "Undefined");
  EXPECT_EQ(EthMode::fromText("static"), EthMode::ETH_MODE_STATIC);
  EXPECT_EQ(EthMode::fromText("DHCP"), EthMode::ETH_MODE_DHCP);
  EXPECT_EQ(EthMode::fromText("dhcp"), std::nullopt);
  EXPECT_EQ(EthMode::fromText(""), std::nullopt);
  EXPECT_EQ(EthMode::fromText("Undefined"), std::nullopt);
}

EthMode modeOf(int value) {
  EthMode mode;
  mode.mode = EthMode::eth_mode_t(value);
  return mode;
}

TEST(UnknownText, IsLoggedWithTheTextThatIsReadInstead) {
  const std::pair<const char*, const char*> rows[] = {
      {R"({"ethipv4": [{"eth": "eth0", "mode": "dhcp"}]})", "The text 'dhcp' is not known, it is read as 'static'"},
      {R"({"ethipv4": [{"eth": "eth0", "mode": {"mode": "auto"}}]})",
       "The text 'auto' is not known, it is read as 'static'"},
      {R"({"bitstream": {"module": "TR-05"}})", "The text 'TR-05' is not known, it is read as 'NA'"},
      {R"({"videoTimingParameters": {"timing-mode": "2058"}})", "The text '2058' is not known, it is read as 'unset'"},
  };
  for (const auto& [document, line] : rows) {
    CapturedLog log;
    readFrom<SysParameters>(document);
    EXPECT_THAT(log.texts(Logger::LEVEL_PROGRESS), testing::ElementsAre(line));
  }
  CapturedLog log;
  readFrom<BoardModel>(R"({"model": "ORVEN_9", "module": "NA"})");
  readFrom<SysParameters>(R"({"bitstream": {"module": "NA"}, "videoTimingParameters": {"timing-mode": "unset"}})");
  readFrom<SysParameters>(R"({"videoTimingParameters": {"timing-mode": ""}, "bitstream": {"module": null}})");
  EXPECT_THAT(log.texts(Logger::LEVEL_PROGRESS),
              testing::ElementsAre("The text 'ORVEN_9' is not known, it is read as 'Undefined'"));
}

TEST(EthMode, WritesItsText) {
  EXPECT_EQ(written(EthMode()), json(R"({"mode":"static"})"));
  EXPECT_EQ(written(modeOf(1)), json(R"({"mode":"DHCP"})"));
  EXPECT_EQ(written(modeOf(7)), json(R"({"mode":"Undefined"})"));
}

TEST(EthMode, ReadsATextOrAnObjectWithAText) {
  EXPECT_EQ(over(modeOf(7), R"({"mode":"DHCP"})").mode, 1);
  EXPECT_EQ(over(modeOf(7), R"({"mode":"static"})").mode, 0);
  EXPECT_EQ(over(modeOf(7), R"({"mode":{"mode":"DHCP"}})").mode, 1);
  EXPECT_EQ(over(modeOf(7), R"({"mode":{"mode":"static"}})").mode, 0);
}

TEST(EthMode, KeepsTheModeOnAnythingElse) {
  for (const char* const document :
       {R"({})", R"({"mode":""})", R"({"mode":null})", R"({"mode":"dhcp"})", R"({"mode":"STATIC"})", R"({"mode":{}})",
        R"({"mode":{"mode":"x"}})", R"({"mode":{"mode":null}})", R"({"mode":{"mode":1}})",
        R"({"mode":{"other":"DHCP"}})", R"({"mode":1})", R"({"mode":0})", R"({"mode":true})", R"({"mode":["DHCP"]})",
        R"({"mode":1.5})", R"({"mode":"DHCP\u0000"})", R"({"Mode":"DHCP"})"}) {
    EXPECT_EQ(over(modeOf(7), document).mode, 7) << document;
  }
}

TEST(EthMode, RefusesANestedModeThatIsNoText) {
  EXPECT_THROW(readFrom<EthMode>(R"({"mode":{"mode":{}}})"), Json::LogicError);
}

TEST(EthMode, AddsAMissingModeToTheDocument) {
  EXPECT_EQ(afterReading<EthMode>("{}"), json(R"({"mode":null})"));
  EXPECT_EQ(afterReading<EthMode>(R"({"mode":{}})"), json(R"({"mode":{}})"));
}

// FanSpeed, SystemTemperature, SystemError

TEST(FanSpeed, WritesAndReads) {
  EXPECT_EQ(written(FanSpeed()), json(R"({"main":-1})"));
  const auto speed = readFrom<FanSpeed>(R"({"main":4200})");
  EXPECT_EQ(speed.main, 4200);
  EXPECT_EQ(written(speed), json(R"({"main":4200})"));
  EXPECT_EQ(over(speed, "{}").main, -1);
  EXPECT_EQ(over(speed, R"({"main":null})").main, 0);
}

TEST(SystemTemperature, WritesAndReads) {
  EXPECT_EQ(written(SystemTemperature()), json(R"({"fpga":65535})"));
  const auto temperature = readFrom<SystemTemperature>(R"({"fpga":-7})");
  EXPECT_EQ(temperature.fpga, -7);
  EXPECT_EQ(written(temperature), json(R"({"fpga":-7})"));
  EXPECT_EQ(over(temperature, "{}").fpga, 65535);
}

TEST(SystemError, WritesAndReads) {
  EXPECT_EQ(written(SystemError()), json(R"({"code":-1,"description":""})"));
  const auto error = readFrom<SystemError>(R"({"code":12,"description":"too hot"})");
  EXPECT_EQ(error.code, 12);
  EXPECT_EQ(error.description, "too hot");
  EXPECT_EQ(written(error), json(R"({"code":12,"description":"too hot"})"));
  const auto reset = over(error, "{}");
  EXPECT_EQ(reset.code, -1);
  EXPECT_EQ(reset.description, "");
}

// BitstreamType

struct BitstreamRow {
  int value;
  const char* text;
  const char* lowerCase;
};
constexpr BitstreamRow kBitstreams[] = {{0, "SDI-TR04", "sdi-tr04"},
                                        {1, "SDI-ST2110", "sdi-st2110"},
                                        {2, "HDMI-ST2110", "hdmi-st2110"},
                                        {3, "SDI-BIDIR-ST2110", "sdi-bidir-st2110"}};

TEST(BitstreamType, NamesItsValues) {
  for (const auto& [value, text, lowerCase] : kBitstreams) {
    EXPECT_STREQ(BitstreamType::toText(BitstreamType::bitstream_t(value)), text);
    EXPECT_EQ(BitstreamType::fromText(text), BitstreamType::bitstream_t(value));
    EXPECT_EQ(BitstreamType::fromText(lowerCase), BitstreamType::bitstream_t(value));
  }
  for (const int value : {4, 5, -1}) EXPECT_STREQ(BitstreamType::toText(BitstreamType::bitstream_t(value)), "NA");
  for (const char* const text : {"", "NA", "Sdi-Tr04", "sdi-ST2110", "SDI"}) {
    EXPECT_EQ(BitstreamType::fromText(text), std::nullopt) << text;
  }
}

TEST(BitstreamType, WritesAndReads) {
  EXPECT_EQ(written(BitstreamType()), json(R"({"module":"NA"})"));
  for (const auto& [value, text, lowerCase] : kBitstreams) {
    for (const char* const accepted : {text, lowerCase}) {
      Json::Value document;
      document["module"] = accepted;
      const auto bitstream = over(BitstreamType(), document);
      EXPECT_EQ(bitstream.type, value) << accepted;
      EXPECT_EQ(written(bitstream)["module"], text);
    }
  }
}

TEST(BitstreamType, SelectsNoneForAnyOtherText) {
  const auto tr04 = readFrom<BitstreamType>(R"({"module":"SDI-TR04"})");
  for (const char* const document : {R"({})", R"({"module":""})", R"({"module":null})", R"({"module":"Sdi-Tr04"})",
                                     R"({"module":"NA"})", R"({"module":0})"}) {
    EXPECT_EQ(over(tr04, document).type, BitstreamType::BITSTREAM_NONE) << document;
    EXPECT_EQ(written(over(tr04, document)), json(R"({"module":"NA"})"));
  }
}

TEST(BitstreamType, KeepsTheBitstreamWhenTheValueIsRefused) {
  auto tr04 = readFrom<BitstreamType>(R"({"module":"SDI-TR04"})");
  Json::Value document = json(R"({"module":{}})");
  EXPECT_THROW(tr04.Deserialize(document), Json::LogicError);
  EXPECT_EQ(tr04.type, BitstreamType::BITSTREAM_SDI_TR04);
}

// VideoTimingParameters

using Timing = VideoTimingParameters;

TEST(VideoTiming, NamesItsModes) {
  const char* const texts[] = {"unset", "frame_sync", "low_latency", "2059"};
  for (int mode = 0; mode < 4; ++mode) EXPECT_STREQ(Timing::toText(Timing::timing_mode_t(mode)), texts[mode]);
  for (const int mode : {4, 9, -1}) EXPECT_STREQ(Timing::toText(Timing::timing_mode_t(mode)), "ERROR");
  EXPECT_EQ(Timing::fromText("frame_sync"), Timing::TIMING_MODE_FRAME_SYNC);
  EXPECT_EQ(Timing::fromText("low_latency"), Timing::TIMING_MODE_LOW_LATENCY);
  EXPECT_EQ(Timing::fromText(""), Timing::TIMING_MODE_LOW_LATENCY);
  EXPECT_EQ(Timing::fromText("2059"), Timing::TIMING_MODE_2059);
  for (const char* const text : {"unset", "FRAME_SYNC", "LOW_LATENCY", "ERROR", "x"}) {
    EXPECT_EQ(Timing::fromText(text), std::nullopt) << text;
  }
}

TEST(VideoTiming, WritesOnlyTheModeWhenNothingIsSet) {
  EXPECT_EQ(written(Timing()), json(R"({"timing-mode":"unset"})"));
}

TEST(VideoTiming, WritesNumbersThatAreSetAsSigned) {
  Timing timing;
  timing.timingMode = Timing::TIMING_MODE_2059;
  timing.initBufDelay = 0;
  timing.minWrRdPtrThresh = -2;
  timing.maxWrRdPtrThresh = 3;
  timing.rtpPktsPerFrame = std::numeric_limits<int>::max();
  EXPECT_EQ(written(timing), json(R"({"timing-mode":"2059","initBufDelay":0,"minWrRdPtrThresh":-2,"maxWrRdPtrThresh":3,
                                     "rtpPktsPerFrame":2147483647})"));
  timing.timingMode = Timing::timing_mode_t(9);
  EXPECT_EQ(written(timing)["timing-mode"], "ERROR");
}

TEST(VideoTiming, LeavesAKeyThatItDoesNotWriteAlone) {
  Json::Value document = json(R"({"initBufDelay":77,"other":1})");
  Timing().Serialize(document);
  EXPECT_EQ(document, json(R"({"initBufDelay":77,"other":1,"timing-mode":"unset"})"));
}

TEST(VideoTiming, ReadsItsKeysAndKeepsWhatIsMissing) {
  const auto all = readFrom<Timing>(R"({"timing-mode":"frame_sync","initBufDelay":1,"minWrRdPtrThresh":2,
                                       "maxWrRdPtrThresh":3,"rtpPktsPerFrame":4})");
  const auto expectAll = [](const Timing& timing) {
    EXPECT_EQ(timing.timingMode, Timing::TIMING_MODE_FRAME_SYNC);
    EXPECT_EQ(timing.initBufDelay, 1);
    EXPECT_EQ(timing.minWrRdPtrThresh, 2);
    EXPECT_EQ(timing.maxWrRdPtrThresh, 3);
    EXPECT_EQ(timing.rtpPktsPerFrame, 4);
  };
  expectAll(all);
  expectAll(over(all, "{}"));
  EXPECT_EQ(over(all, R"({"initBufDelay":-1})").initBufDelay, -1);
  EXPECT_EQ(over(all, R"({"minWrRdPtrThresh":null})").minWrRdPtrThresh, 0);
}

TEST(VideoTiming, ReadsAnEmptyOrNullModeAsLowLatency) {
  EXPECT_EQ(readFrom<Timing>(R"({"timing-mode":""})").timingMode, Timing::TIMING_MODE_LOW_LATENCY);
  EXPECT_EQ(readFrom<Timing>(R"({"timing-mode":null})").timingMode, Timing::TIMING_MODE_LOW_LATENCY);
}

TEST(VideoTiming, KeepsTheModeOnAnyOtherText) {
  Timing timing;
  timing.timingMode = Timing::TIMING_MODE_2059;
  for (const char* const document : {R"({"timing-mode":"unset"})", R"({"timing-mode":"FRAME_SYNC"})",
                                     R"({"timing-mode":"ERROR"})", R"({"timing-mode":1})"}) {
    EXPECT_EQ(over(timing, document).timingMode, Timing::TIMING_MODE_2059) << document;
  }
  EXPECT_EQ(readFrom<Timing>(R"({"timing-mode":2059})").timingMode, Timing::TIMING_MODE_2059)
      << "JsonCpp converts the number to a text";
}

// SfpInfo

TEST(SfpInfo, WritesRealsABooleanAnIntegerAndAText) {
  const Json::Value document = written(SfpInfo());
  EXPECT_EQ(document, json(R"({"present":false,"temperature":0.0,"rx_power":-1.0,"tx_power":-1.0,"wavelength":-1,
                              "part_number":"N/A"})"));
  EXPECT_EQ(document["temperature"].type(), Json::realValue);
  EXPECT_EQ(document["rx_power"].type(), Json::realValue);
  EXPECT_EQ(document["tx_power"].type(), Json::realValue);
}

TEST(SfpInfo, ReadsItsKeys) {
  const auto sfp = readFrom<SfpInfo>(R"({"present":true,"temperature":41.5,"rx_power":-3.25,"tx_power":2,
                                        "wavelength":1310,"part_number":"AB-1"})");
  EXPECT_TRUE(sfp.present);
  EXPECT_THAT(sfp.temperature, FloatEq(41.5F));
  EXPECT_THAT(sfp.rxPower, FloatEq(-3.25F));
  EXPECT_THAT(sfp.txPower, FloatEq(2.0F));
  EXPECT_EQ(sfp.wavelength, 1310);
  EXPECT_EQ(sfp.partNumber, "AB-1");
  EXPECT_EQ(written(sfp), json(R"({"present":true,"temperature":41.5,"rx_power":-3.25,"tx_power":2.0,"wavelength":1310,
                                  "part_number":"AB-1"})"));
}

TEST(SfpInfo, ReadsMissingPowersAndWavelengthAsZeroAndResetsTheRest) {
  const auto full = readFrom<SfpInfo>(R"({"present":true,"temperature":1.5,"rx_power":2.5,"tx_power":3.5,"wavelength":4,
                                         "part_number":"AB-1"})");
  for (const SfpInfo& sfp : {over(full, "{}"), readFrom<SfpInfo>("{}")}) {
    EXPECT_FALSE(sfp.present);
    EXPECT_THAT(sfp.temperature, FloatEq(0.0F));
    EXPECT_THAT(sfp.rxPower, FloatEq(0.0F));
    EXPECT_THAT(sfp.txPower, FloatEq(0.0F));
    EXPECT_EQ(sfp.wavelength, 0);
    EXPECT_EQ(sfp.partNumber, "N/A");
  }
}

TEST(SfpInfo, ReadsNullAsZeroFalseAndEmpty) {
  const auto sfp = readFrom<SfpInfo>(R"({"present":null,"wavelength":null,"part_number":null})");
  EXPECT_FALSE(sfp.present);
  EXPECT_EQ(sfp.wavelength, 0);
  EXPECT_EQ(sfp.partNumber, "");
}

// Every record leaves the members that it does not know.

template <class Record>
void expectLeavesOthersAlone(const Record& record) {
  Json::Value document = json(R"({"other":{"deep":[1]}})");
  record.Serialize(document);
  EXPECT_EQ(document["other"], json(R"({"deep":[1]})"));
  EXPECT_EQ(document.size(), written(record).size() + 1);
}

TEST(SmallRecords, LeaveOtherMembersAlone) {
  expectLeavesOthersAlone(Vlan());
  expectLeavesOthersAlone(EthMode());
  expectLeavesOthersAlone(FanSpeed());
  expectLeavesOthersAlone(SystemTemperature());
  expectLeavesOthersAlone(SystemError());
  expectLeavesOthersAlone(BitstreamType());
  expectLeavesOthersAlone(VideoTimingParameters());
  expectLeavesOthersAlone(SfpInfo());
  expectLeavesOthersAlone(BoardModel());
  expectLeavesOthersAlone(EthIpV4Cfg());
  expectLeavesOthersAlone(NmosParameters());
  expectLeavesOthersAlone(SysParametersDynamic());
  expectLeavesOthersAlone(SysParameters());
  expectLeavesOthersAlone(WhiteListEntry());
}

}  // namespace
}  // namespace zel::test
