#include "types/sys_parameters.h"

#include "tests/support/captured_log.h"
#include "tests/types/stored_rows.h"

namespace zel::test {
namespace {

using ::testing::IsEmpty;
using ::testing::SizeIs;

std::string blockOf(const StoredRow& row) { return row.path.substr(0, row.path.find('/')); }
bool isAtTop(const StoredRow& row) { return row.path.find('/') == std::string::npos; }

/// A record in which every member has a value that reading an empty document changes.
SysParameters samples() { return fullParameters(); }

// The rows

TEST(SysParameters, ANewOneWritesItsDefaults) {
  Json::Value document = written(SysParameters());
  for (const StoredRow& row : storedRows()) EXPECT_EQ(at(document, row.path), row.whenNew) << row.path;
}

TEST(SysParameters, ReadsAndWritesEveryKey) {
  for (const StoredRow& row : storedRows()) {
    Json::Value document;
    at(document, row.path) = row.sample;
    const auto parameters = over(SysParameters(), document);
    EXPECT_TRUE(row.isSample(parameters)) << row.path;
    Json::Value out = written(parameters);
    EXPECT_EQ(at(out, row.path), row.sample) << row.path;
  }
}

TEST(SysParameters, EachKeyChangesItsMemberOnly) {
  const Json::Value factory = written(readFrom<SysParameters>("{}"));
  for (const StoredRow& row : storedRows()) {
    Json::Value document;
    at(document, row.path) = row.sample;
    Json::Value expected = factory;
    at(expected, row.path) = row.sample;
    EXPECT_EQ(written(over(SysParameters(), document)), expected) << row.path;
  }
}

TEST(SysParameters, AMissingBlockResetsItsMembers) {
  const auto full = samples();
  for (const StoredRow& row : storedRows()) {
    EXPECT_TRUE(row.isSample(full)) << row.path;
    for (const char* const missing : {"absent", "null", "{}", "[]"}) {
      Json::Value document(Json::objectValue);
      if (std::string(missing) != "absent" && !isAtTop(row)) document[blockOf(row)] = json(missing);
      Json::Value out = written(over(full, document));
      EXPECT_EQ(at(out, row.path), row.whenMissing) << row.path << ' ' << missing;
    }
  }
}

TEST(SysParameters, AMissingKeyResetsItsMember) {
  const auto full = samples();
  for (const StoredRow& row : storedRows()) {
    Json::Value document;
    at(document, isAtTop(row) ? "other" : blockOf(row) + "/other") = 1;
    Json::Value out = written(over(full, document));
    EXPECT_EQ(at(out, row.path), row.whenMissing) << row.path;
  }
}

TEST(SysParameters, ANullKeyIsNotMissing) {
  const auto full = samples();
  for (const StoredRow& row : storedRows()) {
    Json::Value document;
    at(document, row.path) = Json::Value();
    Json::Value expected;
    switch (row.sample.type()) {
      case Json::stringValue: expected = ""; break;
      case Json::booleanValue: expected = false; break;
      case Json::intValue: expected = 0; break;
      default: expected = 0U; break;
    }
    Json::Value out = written(over(full, document));
    EXPECT_EQ(at(out, row.path), expected) << row.path;
  }
}

TEST(SysParameters, RefusesValuesThatDoNotConvert) {
  for (const StoredRow& row : storedRows()) {
    Json::Value document;
    at(document, row.path) = Json::Value(Json::objectValue);
    SysParameters parameters;
    EXPECT_THROW(parameters.Deserialize(document), Json::LogicError) << row.path;
  }
}

TEST(SysParameters, RefusesNumbersOutOfRange) {
  for (const StoredRow& row : storedRows()) {
    if (!row.sample.isNumeric()) continue;
    for (const char* const number : {"-1", "4294967296", "1e300"}) {
      Json::Value document;
      at(document, row.path) = json(number);
      SysParameters parameters;
      EXPECT_THROW(parameters.Deserialize(document), Json::LogicError) << row.path << ' ' << number;
    }
  }
}

TEST(SysParameters, RefusesBlocksThatAreNoObjects) {
  for (const StoredRow& row : storedRows()) {
    if (isAtTop(row)) continue;
    for (const char* const block : {R"("x")", "1", "true", "[1]", "0", "1.5"}) {
      Json::Value document;
      document[blockOf(row)] = json(block);
      SysParameters parameters;
      EXPECT_THROW(parameters.Deserialize(document), Json::LogicError) << row.path << ' ' << block;
    }
  }
}

TEST(SysParameters, RefusesADocumentThatIsNoObject) {
  for (const char* const text : {"[]", "[1]", "1", R"("x")", "true"}) {
    EXPECT_THROW(readFrom<SysParameters>(text), Json::LogicError) << text;
  }
  EXPECT_EQ(written(readFrom<SysParameters>("null")), written(readFrom<SysParameters>("{}")));
}

// The whole document

const char* const kFactory = R"({"advert":{"board-name-prefix":"Velmar ORVEN","eth-port":"all","tcp-port":80},
  "bitstream":{"module":"NA"},
  "cfg":{"autosave-enable":true,"cfg-file-path":"/etc/aes67/","identify-enable":false,
         "offset-from-master-threshold":30000,"pause-audio-streams-ptp-fails":false},
  "ember":{"tcp-port":9095},
  "nmos":{"advertisement-interface":"eth0","device-name":"Velmar Board","enable":true,"http-sdp-port":8081,
          "node-description":"Velmar node","node-name":"Velmar Board","node-port":12345,"query-port":8235,
          "registration-port":8870,"shelf-id":0,"slot-id":0},
  "ptp":{"ptp-path":"/etc/ptp/"},
  "redundancy":{"enable":true},
  "rtsp":{"eth-port":"all","tcp-port":8554},
  "sap":{"enable":false},
  "serial-number":"",
  "slp":{"enable":true},
  "tdm":{"channels-per-line":32},
  "videoTimingParameters":{"timing-mode":"unset"},
  "vlan":{"primary-id":10,"secondary-id":20},
  "vtc":{"image-path":"/firmware/vtc_nios.bin"},
  "walkabout":{"enable":true}})";

/// The document with its numbers as the wire brings them: signed where they fit.
template <class Record>
Json::Value onTheWire(const Record& record) {
  std::string text;
  EXPECT_EQ(writeWireJson(written(record), text), "");
  return json(text);
}

TEST(SysParameters, WritesThisDocumentAndNothingElse) {
  EXPECT_EQ(onTheWire(readFrom<SysParameters>("{}")), json(kFactory));
}

TEST(SysParameters, WritesTheFullDocument) {
  EXPECT_EQ(onTheWire(fullParameters()),
            json(R"({"advert":{"board-name-prefix":"Studio","eth-port":"eth1","tcp-port":81},
  "bitstream":{"module":"SDI-BIDIR-ST2110"},
  "cfg":{"autosave-enable":false,"cfg-file-path":"/c/","identify-enable":true,"offset-from-master-threshold":1,
         "pause-audio-streams-ptp-fails":true},
  "ember":{"tcp-port":9096},
  "ethipv4":[{"eth":"eth0","mode":"static","static":{"gw":"192.168.0.1","ip":"192.168.0.100","mask":"255.255.255.0"}},
             {"eth":"eth0.10","mode":"DHCP"}],
  "nmos":{"advertisement-interface":"eth1","device-name":"Device","enable":false,"http-sdp-port":8081,
          "node-description":"Velmar node","node-name":"Node","node-port":12345,"query-port":8235,
          "registration-port":8870,"shelf-id":2,"slot-id":5},
  "ptp":{"ptp-path":"/p/"},
  "redundancy":{"enable":false},
  "rtsp":{"eth-port":"eth0","tcp-port":4000000000},
  "sap":{"enable":true},
  "serial-number":"SN-1",
  "slp":{"enable":false},
  "tdm":{"channels-per-line":8},
  "videoTimingParameters":{"initBufDelay":0,"maxWrRdPtrThresh":2,"minWrRdPtrThresh":1,"rtpPktsPerFrame":3,
                           "timing-mode":"2059"},
  "vlan":{"primary-id":65535,"secondary-id":21},
  "vtc":{"image-path":"/v"},
  "walkabout":{"enable":false}})"));
}

TEST(SysParameters, ANewOneReadsBackWhatItWrote) {
  const SysParameters parameters;
  EXPECT_EQ(written(over(SysParameters(), written(parameters))), written(parameters));
}

TEST(SysParameters, WritingKeepsOtherMembersAtEveryDepth) {
  Json::Value document = json(R"({"x":1,"rtsp":{"x":2},"nmos":{"x":3},"videoTimingParameters":{"x":4},
                                  "ethipv4":[{"x":5,"static":{"x":6}},{"x":7},{"x":8}],"bitstream":{"x":9}})");
  fullParameters().Serialize(document);
  EXPECT_EQ(document["x"], 1);
  EXPECT_EQ(document["rtsp"]["x"], 2);
  EXPECT_EQ(document["nmos"]["x"], 3);
  EXPECT_EQ(document["videoTimingParameters"]["x"], 4);
  EXPECT_EQ(document["ethipv4"][0]["x"], 5);
  EXPECT_EQ(document["ethipv4"][0]["static"]["x"], 6);
  EXPECT_EQ(document["ethipv4"][1]["x"], 7);
  EXPECT_EQ(document["ethipv4"][2], json(R"({"x":8})"));
  EXPECT_EQ(document["bitstream"]["x"], 9);
}

TEST(SysParameters, TheBoardModelDoesNotTravel) {
  SysParameters parameters;
  parameters.boardModel.model = BoardModelType::ZIRC;
  parameters.boardModel.modelLabel = "label";
  EXPECT_EQ(written(parameters), written(SysParameters()));
  const auto read = over(parameters, R"({"model":"KORVA","module":"SDI-TR04"})");
  EXPECT_EQ(read.boardModel.model, BoardModelType::ZIRC);
  EXPECT_EQ(read.boardModel.modelLabel, "label");
  EXPECT_EQ(read.boardModel.bitstream.type, BitstreamType::BITSTREAM_NONE);
}

TEST(SysParameters, SomeTextsAreWrittenUpToTheirFirstNul) {
  using namespace std::string_literals;
  SysParameters parameters;
  const auto text = "a\0b"s;
  parameters.ptpPath = parameters.rtspEthPort = parameters.advertEthPort = parameters.advertBoardNamePrefix =
      parameters.cfgFilePath = text;
  parameters.vtcImagePath = parameters.serialNumber = parameters.nmos.nodeName = text;
  Json::Value document = written(parameters);
  for (const char* const path :
       {"ptp/ptp-path", "rtsp/eth-port", "advert/eth-port", "advert/board-name-prefix", "cfg/cfg-file-path"}) {
    EXPECT_EQ(at(document, path).asString(), "a") << path;
  }
  for (const char* const path : {"vtc/image-path", "serial-number", "nmos/node-name"}) {
    EXPECT_EQ(at(document, path).asString(), text) << path;
  }
}

TEST(SysParameters, TextsAreReadWhole) {
  using namespace std::string_literals;
  const auto parameters = readFrom<SysParameters>(
      R"({"rtsp":{"eth-port":"a\u0000b"},"serial-number":"c\u0000d","ethipv4":[{"eth":"e\u0000f"}]})");
  EXPECT_EQ(parameters.rtspEthPort, "a\0b"s);
  EXPECT_EQ(parameters.serialNumber, "c\0d"s);
  EXPECT_EQ(parameters.ethIPv4Cfg.front().eth, "e\0f"s);
}

TEST(SysParameters, AVlanIdKeepsItsLowBits) {
  const auto parameters = readFrom<SysParameters>(R"({"vlan":{"primary-id":70000,"secondary-id":4294967295}})");
  EXPECT_EQ(parameters.primaryVlanId, 4464);
  EXPECT_EQ(parameters.secondaryVlanId, 65535);
}

// What stays

TEST(SysParameters, AnEmptyDocumentKeepsTheRest) {
  const auto parameters = over(fullParameters(), "{}");
  EXPECT_EQ(parameters.bitstream.type, BitstreamType::BITSTREAM_SDI_BIDIR_ST2110);
  EXPECT_THAT(parameters.ethIPv4Cfg, SizeIs(2));
  EXPECT_EQ(written(parameters)["nmos"], written(fullParameters())["nmos"]);
  EXPECT_EQ(written(parameters)["videoTimingParameters"], written(fullParameters())["videoTimingParameters"]);
}

TEST(SysParameters, AMissingBitstreamBlockKeepsTheBitstream) {
  for (const char* const text : {R"({})", R"({"bitstream":null})", R"({"bitstream":{}})", R"({"bitstream":[]})"}) {
    EXPECT_EQ(over(fullParameters(), text).bitstream.type, BitstreamType::BITSTREAM_SDI_BIDIR_ST2110) << text;
  }
}

TEST(SysParameters, ABitstreamBlockWithoutAKnownModuleSelectsNone) {
  for (const char* const text : {R"({"bitstream":{"x":1}})", R"({"bitstream":{"module":"NA"}})",
                                 R"({"bitstream":{"module":""}})", R"({"bitstream":{"module":null}})"}) {
    EXPECT_EQ(over(fullParameters(), text).bitstream.type, BitstreamType::BITSTREAM_NONE) << text;
  }
  EXPECT_EQ(written(readFrom<SysParameters>(R"({"bitstream":{"module":"sdi-tr04"}})"))["bitstream"]["module"],
            "SDI-TR04");
}

TEST(SysParameters, AMissingVideoTimingBlockKeepsTheTiming) {
  const Json::Value timing = written(fullParameters())["videoTimingParameters"];
  for (const char* const text :
       {R"({})", R"({"videoTimingParameters":null})", R"({"videoTimingParameters":{}})",
        R"({"videoTimingParameters":[]})", R"({"videoTimingParameters":{"timing-mode":"unset"}})"}) {
    EXPECT_EQ(written(over(fullParameters(), text))["videoTimingParameters"], timing) << text;
  }
}

TEST(SysParameters, ReadsTheVideoTiming) {
  const auto timing =
      readFrom<SysParameters>(R"({"videoTimingParameters":{"timing-mode":"","initBufDelay":5}})").videoTiming;
  EXPECT_EQ(timing.timingMode, VideoTimingParameters::TIMING_MODE_LOW_LATENCY);
  EXPECT_EQ(timing.initBufDelay, 5);
}

TEST(SysParameters, ReadsTheNmosBlock) {
  EXPECT_EQ(readFrom<SysParameters>(R"({"nmos":{"node-port":9000}})").nmos.nodePort, 9000);
}

TEST(SysParameters, BlocksThatKeepRefuseWhatIsNoObject) {
  for (const char* const block : {"bitstream", "videoTimingParameters", "nmos"}) {
    for (const char* const value : {R"("x")", "1", "true", "[1]"}) {
      Json::Value document;
      document[block] = json(value);
      SysParameters parameters;
      EXPECT_THROW(parameters.Deserialize(document), Json::LogicError) << block << ' ' << value;
    }
  }
}

// The order of reading

TEST(SysParameters, WhatIsReadBeforeARefusedValueIsKept) {
  const std::vector<std::string> order = {"ptp/ptp-path",
                                          "rtsp/eth-port",
                                          "rtsp/tcp-port",
                                          "advert/eth-port",
                                          "advert/tcp-port",
                                          "advert/board-name-prefix",
                                          "cfg/cfg-file-path",
                                          "cfg/offset-from-master-threshold",
                                          "cfg/pause-audio-streams-ptp-fails",
                                          "cfg/autosave-enable",
                                          "cfg/identify-enable",
                                          "bitstream/module",
                                          "redundancy/enable",
                                          "walkabout/enable",
                                          "sap/enable",
                                          "slp/enable",
                                          "vlan/primary-id",
                                          "vlan/secondary-id",
                                          "ethipv4",
                                          "tdm/channels-per-line",
                                          "vtc/image-path",
                                          "serial-number",
                                          "nmos/slot-id",
                                          "videoTimingParameters/timing-mode",
                                          "videoTimingParameters/initBufDelay",
                                          "videoTimingParameters/minWrRdPtrThresh",
                                          "videoTimingParameters/maxWrRdPtrThresh",
                                          "videoTimingParameters/rtpPktsPerFrame",
                                          "ember/tcp-port"};
  const SysParameters before = readFrom<SysParameters>("{}");
  const SysParameters full = fullParameters();
  for (const std::string& refused : order) {
    Json::Value document = written(full);
    at(document, refused) = json(refused == "ethipv4" ? "[7]" : "{}");

    SysParameters parameters = before;
    EXPECT_THROW(parameters.Deserialize(document), Json::LogicError) << refused;
    Json::Value now = written(parameters);
    Json::Value then = written(before);
    Json::Value wanted = written(full);
    bool isBefore = true;
    for (const std::string& path : order) {
      if (path == refused) isBefore = false;
      EXPECT_EQ(at(now, path), at(isBefore ? wanted : then, path)) << path << " when " << refused << " is refused";
    }
  }
}

// The caller's document

TEST(SysParameters, MissingBlocksBecomeNullMembers) {
  EXPECT_EQ(afterReading<SysParameters>("{}"),
            json(R"({"advert":null,"bitstream":null,"cfg":null,"ember":null,"ethipv4":null,"ptp":null,"redundancy":null,
                     "rtsp":null,"sap":null,"slp":null,"tdm":null,"videoTimingParameters":null,"vlan":null,"vtc":null,
                     "walkabout":null})"));
}

TEST(SysParameters, BlocksThatAreThereStayAsTheyAre) {
  Json::Value document = written(fullParameters());
  document["rtsp"].removeMember("tcp-port");
  document["slp"] = Json::Value(Json::arrayValue);
  const Json::Value copy = document;
  SysParameters parameters;
  parameters.Deserialize(document);
  EXPECT_EQ(document, copy);
}

TEST(SysParameters, ReadingLogsNothingOfItsOwn) {
  const CapturedLog log;
  readFrom<SysParameters>("{}");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(SysParameters, ACopyHasAListOfItsOwn) {
  auto parameters = fullParameters();
  const auto copy = parameters;
  parameters.ethIPv4Cfg.clear();
  EXPECT_THAT(copy.ethIPv4Cfg, SizeIs(2));
}

}  // namespace
}  // namespace zel::test
