#include <type_traits>

#include "tests/client/typed_client_fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using zel::test::checkLinePattern;
using zel::test::ScriptedDaemon;
using zel::test::WithTypedClient;
using namespace std::string_literals;

static_assert(!std::is_polymorphic_v<SysMgrClient>);
static_assert(sizeof(SysMgrClient) == sizeof(SysMgrJsonClient), "the JSON client is its one member");

constexpr char kSet[] = "int SysMgrJsonClient::setSysMgrParameter(Json::Value&, Json::Value&)";
constexpr char kIdentify[] = "int SysMgrJsonClient::setIdentifyLeds(Json::Value&, Json::Value&)";
constexpr char kModule[] = "int SysMgrJsonClient::setModuleState(Json::Value&)";

struct Setter {
  const char* name;
  int (*call)(SysMgrClient&);
  const char* signature;
  std::string body;
  const char* id = "2";
  const char* jsonOperation = kSet;
};
void PrintTo(const Setter& setter, std::ostream* out) { *out << setter.name; }

EthIpV4Cfg staticConfig() {
  EthIpV4Cfg config;
  config.eth = "eth1";
  config.ip = 0x0A000001;
  config.gw = 0x0A0000FE;
  return config;
}

EthIpV4Cfg dhcpConfig() {
  EthIpV4Cfg config = staticConfig();
  config.mode.mode = EthMode::ETH_MODE_DHCP;
  return config;
}

NmosParameters nmosOfSlot3() {
  NmosParameters parameters;
  parameters.slotId = 3;
  parameters.nodeName = "Node";
  return parameters;
}

VideoTimingParameters lockedTiming() {
  VideoTimingParameters timing;
  timing.timingMode = VideoTimingParameters::TIMING_MODE_2059;
  timing.initBufDelay = 7;
  return timing;
}

BitstreamType hdmi() {
  BitstreamType bitstream;
  bitstream.type = BitstreamType::BITSTREAM_HDMI_ST2110;
  return bitstream;
}

#define CALL(...) [](SysMgrClient& client) { return client.__VA_ARGS__; }

const Setter kSetters[] = {
    {"RtspEthPort", CALL(setRtspEthPort("eth1")), "int SysMgrClient::setRtspEthPort(std::string)",
     R"({"rtsp-eth-port":"eth1"})"},
    {"RtspEthPortUpToNul", CALL(setRtspEthPort("eth1\0.10"s)), "int SysMgrClient::setRtspEthPort(std::string)",
     R"({"rtsp-eth-port":"eth1"})"},
    {"RtspEthPortEmpty", CALL(setRtspEthPort("")), "int SysMgrClient::setRtspEthPort(std::string)",
     R"({"rtsp-eth-port":""})"},
    {"RtspTcpPort", CALL(setRtspTcpPort(5004)), "int SysMgrClient::setRtspTcpPort(uint32_t)",
     R"({"rtsp-tcp-port":5004})"},
    {"RtspTcpPortLargest", CALL(setRtspTcpPort(0xFFFFFFFF)), "int SysMgrClient::setRtspTcpPort(uint32_t)",
     R"({"rtsp-tcp-port":4294967295})"},
    {"RtspTcpPortZero", CALL(setRtspTcpPort(0)), "int SysMgrClient::setRtspTcpPort(uint32_t)",
     R"({"rtsp-tcp-port":0})"},
    {"EmberTcpPort", CALL(setEmberTcpPort(9000)), "int SysMgrClient::setEmberTcpPort(uint32_t)",
     R"({"ember-tcp-port":9000})"},
    {"EmberTcpPortLargest", CALL(setEmberTcpPort(0xFFFFFFFF)), "int SysMgrClient::setEmberTcpPort(uint32_t)",
     R"({"ember-tcp-port":4294967295})"},
    {"AdvertEthPort", CALL(setAdvertEthPort("all")), "int SysMgrClient::setAdvertEthPort(std::string)",
     R"({"advert-eth-port":"all"})"},
    {"AdvertEthPortUpToNul", CALL(setAdvertEthPort("\0all"s)), "int SysMgrClient::setAdvertEthPort(std::string)",
     R"({"advert-eth-port":""})"},
    {"AdvertTcpPort", CALL(setAdvertTcpPort(80)), "int SysMgrClient::setAdvertTcpPort(uint32_t)",
     R"({"advert-tcp-port":80})"},
    {"AdvertTcpPortLargest", CALL(setAdvertTcpPort(0xFFFFFFFF)), "int SysMgrClient::setAdvertTcpPort(uint32_t)",
     R"({"advert-tcp-port":4294967295})"},
    {"AdvertBoardPrefixName", CALL(setAdvertBoardPrefixName("Hall \"B\"")),
     "int SysMgrClient::setAdvertBoardPrefixName(std::string)", R"({"board-name-prefix":"Hall \"B\""})"},
    {"AdvertBoardPrefixNameUpToNul", CALL(setAdvertBoardPrefixName("Hall\0B"s)),
     "int SysMgrClient::setAdvertBoardPrefixName(std::string)", R"({"board-name-prefix":"Hall"})"},
    {"CfgStoragePath", CALL(setCfgStoragePath("/etc/aes67/")), "int SysMgrClient::setCfgStoragePath(std::string)",
     R"({"cfg-file-path":"/etc/aes67/"})"},
    {"CfgStoragePathUpToNul", CALL(setCfgStoragePath("/etc\0/aes67/"s)),
     "int SysMgrClient::setCfgStoragePath(std::string)", R"({"cfg-file-path":"/etc"})"},
    {"AutosaveOn", CALL(setAutosaveSupport(true)), "int SysMgrClient::setAutosaveSupport(bool)",
     R"({"cfg-autosave-enable":true})"},
    {"AutosaveOff", CALL(setAutosaveSupport(false)), "int SysMgrClient::setAutosaveSupport(bool)",
     R"({"cfg-autosave-enable":false})"},
    {"OffsetThreshold", CALL(setCfgOfsetFromMasterThreashold(30000)),
     "int SysMgrClient::setCfgOfsetFromMasterThreashold(uint32_t)", R"({"offset-from-master-threshold":30000})"},
    {"OffsetThresholdLargest", CALL(setCfgOfsetFromMasterThreashold(0xFFFFFFFF)),
     "int SysMgrClient::setCfgOfsetFromMasterThreashold(uint32_t)", R"({"offset-from-master-threshold":4294967295})"},
    {"RedundancyOn", CALL(setRedundancySupport(true)), "int SysMgrClient::setRedundancySupport(bool)",
     R"({"redundancy-enable":true})"},
    {"RedundancyOff", CALL(setRedundancySupport(false)), "int SysMgrClient::setRedundancySupport(bool)",
     R"({"redundancy-enable":false})"},
    {"SapOn", CALL(setSapSupport(true)), "int SysMgrClient::setSapSupport(bool)", R"({"sap-enable":true})"},
    {"SapOff", CALL(setSapSupport(false)), "int SysMgrClient::setSapSupport(bool)", R"({"sap-enable":false})"},
    {"TdmChannels", CALL(setTdmChannelsPerLine(16)), "int SysMgrClient::setTdmChannelsPerLine(uint32_t)",
     R"({"tdm-ch-per-line":16})"},
    {"TdmChannelsMost", CALL(setTdmChannelsPerLine(0xFFFFFFFF)), "int SysMgrClient::setTdmChannelsPerLine(uint32_t)",
     R"({"tdm-ch-per-line":4294967295})"},
    {"VlanPrimary", CALL(setVlanPrimaryID(10)), "int SysMgrClient::setVlanPrimaryID(uint16_t)",
     R"({"primary-vlan-id":10})"},
    {"VlanPrimaryLargest", CALL(setVlanPrimaryID(65535)), "int SysMgrClient::setVlanPrimaryID(uint16_t)",
     R"({"primary-vlan-id":65535})"},
    {"VlanSecondary", CALL(setVlanSecondaryID(20)), "int SysMgrClient::setVlanSecondaryID(uint16_t)",
     R"({"secondary-vlan-id":20})"},
    {"VlanSecondaryLargest", CALL(setVlanSecondaryID(65535)), "int SysMgrClient::setVlanSecondaryID(uint16_t)",
     R"({"secondary-vlan-id":65535})"},
    {"VtcImagePath", CALL(setVtcImagePath("/firmware/vtc.bin")),
     "int SysMgrClient::setVtcImagePath(const std::string&)", R"({"vtc-image-path":"/firmware/vtc.bin"})"},
    {"VtcImagePathWhole", CALL(setVtcImagePath("a\0b"s)), "int SysMgrClient::setVtcImagePath(const std::string&)",
     R"({"vtc-image-path":"a\u0000b"})"},
    {"WalkaboutOn", CALL(enableWalkabout(true)), "int SysMgrClient::enableWalkabout(bool)",
     R"({"walkabout-enable":true})"},
    {"WalkaboutOff", CALL(enableWalkabout(false)), "int SysMgrClient::enableWalkabout(bool)",
     R"({"walkabout-enable":false})"},
    {"SlpOn", CALL(enableSlp(true)), "int SysMgrClient::enableSlp(bool)", R"({"slp-enable":true})"},
    {"SlpOff", CALL(enableSlp(false)), "int SysMgrClient::enableSlp(bool)", R"({"slp-enable":false})"},
    {"PauseOn", CALL(setPauseStreamsPtpFail(true)), "int SysMgrClient::setPauseStreamsPtpFail(bool)",
     R"({"pause-streams-if-ptp-fails":true})"},
    {"PauseOff", CALL(setPauseStreamsPtpFail(false)), "int SysMgrClient::setPauseStreamsPtpFail(bool)",
     R"({"pause-streams-if-ptp-fails":false})"},
    {"RemEthIPv4Cfg", CALL(remEthIPv4Cfg("eth0.10")), "int SysMgrClient::remEthIPv4Cfg(const std::string&)",
     R"({"rem-eth-cfg":"eth0.10"})"},
    {"RemEthIPv4CfgUpToNul", CALL(remEthIPv4Cfg("eth0\0.10"s)), "int SysMgrClient::remEthIPv4Cfg(const std::string&)",
     R"({"rem-eth-cfg":"eth0"})"},
    {"IdentifyLedsOn", CALL(setIdentifyLeds(true)), "int SysMgrClient::setIdentifyLeds(bool)",
     R"({"identify-enable":true})", "19", kIdentify},
    {"IdentifyLedsOff", CALL(setIdentifyLeds(false)), "int SysMgrClient::setIdentifyLeds(bool)",
     R"({"identify-enable":false})", "19", kIdentify},
    {"AddStaticEthIPv4Cfg",
     [](SysMgrClient& client) {
       EthIpV4Cfg config = staticConfig();
       return client.addEthIPv4Cfg(config);
     },
     "int SysMgrClient::addEthIPv4Cfg(EthIpV4Cfg&)",
     R"({"add-eth-cfg":{"eth":"eth1","mode":"static",)"
     R"("static":{"gw":"10.0.0.254","ip":"10.0.0.1","mask":"255.255.255.0"}}})"},
    {"AddDhcpEthIPv4Cfg",
     [](SysMgrClient& client) {
       EthIpV4Cfg config = dhcpConfig();
       return client.addEthIPv4Cfg(config);
     },
     "int SysMgrClient::addEthIPv4Cfg(EthIpV4Cfg&)", R"({"add-eth-cfg":{"eth":"eth1","mode":"DHCP"}})"},
    {"NmosParametersAtTheTop", CALL(setNmosParameters(nmosOfSlot3())),
     "int SysMgrClient::setNmosParameters(const NmosParameters&)",
     R"({"nmos":{"advertisement-interface":"eth0","device-name":"Velmar Board","enable":true,"http-sdp-port":8081,)"
     R"("node-description":"Velmar node","node-name":"Node","node-port":12345,"query-port":8235,)"
     R"("registration-port":8870,"shelf-id":0,"slot-id":3}})"},
    {"VideoTiming",
     [](SysMgrClient& client) {
       VideoTimingParameters timing = lockedTiming();
       return client.setVideoTiming(timing);
     },
     "int SysMgrClient::setVideoTiming(VideoTimingParameters&)",
     R"({"videoTimingParameters":{"initBufDelay":7,"timing-mode":"2059"}})"},
    {"Bitstream", CALL(setBitstream(hdmi())), "int SysMgrClient::setBitstream(const BitstreamType&)",
     R"({"bitstream-type":{"module":"HDMI-ST2110"}})"},
    {"ModuleStateError", CALL(setModuleState("ptp", true, false)),
     "int SysMgrClient::setModuleState(const std::string&, bool, bool)", R"({"ptp":{"error":true,"warn":false}})", "7",
     kModule},
    {"ModuleStateWarning", CALL(setModuleState("a\0b"s, false, true)),
     "int SysMgrClient::setModuleState(const std::string&, bool, bool)", R"({"a\u0000b":{"error":false,"warn":true}})",
     "7", kModule},
};

class TypedSetter : public WithTypedClient, public testing::TestWithParam<Setter> {};

TEST_P(TypedSetter, SendsItsRequest) {
  EXPECT_EQ(GetParam().call(client_), 0);
  expectRequest(GetParam().id, GetParam().body);
  EXPECT_THAT(log_.texts(Logger::LEVEL_ERROR), IsEmpty());
}

TEST_P(TypedSetter, PassesAFailureThroughAndLogsIt) {
  daemon_.answer(R"({"status": -5})");
  EXPECT_EQ(GetParam().call(client_), -5);
  expectFailures(GetParam().jsonOperation, GetParam().signature, -5);
  EXPECT_EQ(daemon_.requestCount(), 1U);
}

TEST_P(TypedSetter, TakesAPositiveStatusForSuccess) {
  daemon_.answer(R"({"status": 3})");
  EXPECT_EQ(GetParam().call(client_), 0);
  EXPECT_THAT(log_.texts(Logger::LEVEL_ERROR), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(All, TypedSetter, testing::ValuesIn(kSetters),
                         [](const auto& row) { return std::string(row.param.name); });

struct Action {
  const char* name;
  int (*call)(SysMgrClient&);
  const char* id;
  const char* jsonOperation;
};
void PrintTo(const Action& action, std::ostream* out) { *out << action.name; }

const Action kActions[] = {
    {"FactoryReset", CALL(factoryReset()), "6", "int SysMgrJsonClient::factoryReset(Json::Value&)"},
    {"RebootDevice", CALL(rebootDevice()), "8", "int SysMgrJsonClient::rebootDevice(Json::Value&)"},
};

class DeviceAction : public WithTypedClient, public testing::TestWithParam<Action> {};

TEST_P(DeviceAction, SendsItsCommandWithoutABody) {
  EXPECT_EQ(GetParam().call(client_), 0);
  expectRequest(GetParam().id, "");
  EXPECT_THAT(log_.texts(Logger::LEVEL_ERROR), IsEmpty());
}

TEST_P(DeviceAction, LeavesTheLogLineToTheJsonOperation) {
  daemon_.answer(R"({"status": -5})");
  EXPECT_EQ(GetParam().call(client_), -5);
  EXPECT_THAT(log_.texts(Logger::LEVEL_ERROR),
              ElementsAre(MatchesRegex(checkLinePattern(GetParam().jsonOperation, -5))));
}

TEST_P(DeviceAction, TakesAPositiveStatusForSuccess) {
  daemon_.answer(R"({"status": 3})");
  EXPECT_EQ(GetParam().call(client_), 0);
}

INSTANTIATE_TEST_SUITE_P(All, DeviceAction, testing::ValuesIn(kActions),
                         [](const auto& row) { return std::string(row.param.name); });

class TypedClient : public WithTypedClient, public testing::Test {};

TEST_F(TypedClient, DoesNotReadTheReplyOfASetter) {
  daemon_.answer(R"({"rtsp-tcp-port": "no number", "status": 0, "stored": []})");
  EXPECT_EQ(client_.setRtspTcpPort(5004), 0);
}

TEST_F(TypedClient, LeavesTheRecordOfASetterAsItIs) {
  EthIpV4Cfg config = dhcpConfig();
  daemon_.answer(R"({"status": -5})");
  EXPECT_EQ(client_.addEthIPv4Cfg(config), -5);
  EXPECT_EQ(config, dhcpConfig());
}

TEST_F(TypedClient, LogsARequestThatCannotBeWrittenInEachLayer) {
  EXPECT_EQ(client_.setVtcImagePath("\xFF is no UTF-8"), -105);
  expectFailures(kSet, "int SysMgrClient::setVtcImagePath(const std::string&)", -105);
  EXPECT_EQ(daemon_.requestCount(), 0U);
}

TEST_F(TypedClient, TellsTheLastFailure) {
  ErrorReport report;
  report.code = 1;
  report.text = "before";
  EXPECT_EQ(client_.getLastErrorMessage(report), 0);
  EXPECT_EQ(report.code, 0);
  EXPECT_EQ(report.text, "");

  daemon_.answer(R"({"status": -5, "error": "port is taken"})");
  EXPECT_EQ(client_.setRtspTcpPort(80), -5);
  EXPECT_EQ(client_.setRtspTcpPort(8554), 0);
  EXPECT_EQ(client_.getLastErrorMessage(report), 0);
  EXPECT_EQ(report.code, -5);
  EXPECT_THAT(report.text, testing::HasSubstr("port is taken"));
}

TEST(TypedClientLifecycle, FailsBeforeInit) {
  const zel::test::CapturedLog log;
  SysMgrClient client;
  EXPECT_EQ(client.setRtspTcpPort(80), -100);
  EXPECT_THAT(log.texts(Logger::LEVEL_ERROR),
              ElementsAre(MatchesRegex(checkLinePattern(kSet, -100)),
                          MatchesRegex(checkLinePattern("int SysMgrClient::setRtspTcpPort(uint32_t)", -100))));
}

TEST(TypedClientLifecycle, HandsTheResultOfInitOn) {
  zmq::context_t context;
  context.shutdown();
  SysMgrClient client;
  EXPECT_EQ(client.init(context), -101);
}

TEST(TypedClientLifecycle, WorksWithADaemonThatStartsLater) {
  zmq::context_t context;
  SysMgrClient client;
  EXPECT_EQ(client.init(context), 0);
  const ScriptedDaemon daemon;
  EXPECT_EQ(client.setRtspTcpPort(80), 0);
}

}  // namespace
