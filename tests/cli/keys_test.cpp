#include "cli/keys.h"

#include <gmock/gmock.h>

#include <cctype>
#include <functional>
#include <ostream>
#include <set>

#include "cli/daemon.h"
#include "client/sysmgr_client.h"
#include "client/zmq_utils.h"
#include "tests/support/scripted_daemon.h"

namespace zel::ctl {
namespace {

using test::Request;
using test::ScriptedDaemon;
using testing::SizeIs;
using testing::StrEq;

/// A stored document with a value of its own in every place that a whole block is read from.
SysParameters stored() {
  SysParameters parameters;
  parameters.nmos.nodeName = "Node";
  parameters.nmos.slotId = 4;
  parameters.videoTiming.timingMode = VideoTimingParameters::TIMING_MODE_2059;
  parameters.videoTiming.maxWrRdPtrThresh = 9;
  parameters.bitstream.type = BitstreamType::BITSTREAM_SDI_TR04;
  return parameters;
}

/// A key as it is typed, and the setter that does the same in a program.
struct Row {
  const char* key;
  const char* value;
  std::function<int(SysMgrClient& client)> setter;
};

std::ostream& operator<<(std::ostream& out, const Row& row) { return out << row.key << ' ' << row.value; }

template <class Change>
std::function<int(SysMgrClient&)> nmos(const Change& change) {
  return [change](SysMgrClient& client) {
    NmosParameters parameters = stored().nmos;
    change(parameters);
    return client.setNmosParameters(parameters);
  };
}

template <class Change>
std::function<int(SysMgrClient&)> timing(const Change& change) {
  return [change](SysMgrClient& client) {
    VideoTimingParameters parameters = stored().videoTiming;
    change(parameters);
    return client.setVideoTiming(parameters);
  };
}

int addStatic(SysMgrClient& client) {
  EthIpV4Cfg config;
  config.eth = "eth1";
  config.ip = 0x0A000005;
  config.mask = 0xFF000000;
  config.gw = 0x0A000001;
  return client.addEthIPv4Cfg(config);
}

int setHdmi(SysMgrClient& client) {
  BitstreamType bitstream;
  bitstream.type = BitstreamType::BITSTREAM_HDMI_ST2110;
  return client.setBitstream(bitstream);
}

const std::vector<Row> kRows = {
    {"rtsp/eth-port", "eth1", [](SysMgrClient& client) { return client.setRtspEthPort("eth1"); }},
    {"rtsp/tcp-port", "4294967295", [](SysMgrClient& client) { return client.setRtspTcpPort(4294967295U); }},
    {"ember/tcp-port", "9000", [](SysMgrClient& client) { return client.setEmberTcpPort(9000); }},
    {"advert/eth-port", "all", [](SysMgrClient& client) { return client.setAdvertEthPort("all"); }},
    {"advert/tcp-port", "8080", [](SysMgrClient& client) { return client.setAdvertTcpPort(8080); }},
    {"advert/board-name-prefix", "\"Über\"",
     [](SysMgrClient& client) { return client.setAdvertBoardPrefixName("\"Über\""); }},
    {"cfg/cfg-file-path", "/etc/x/", [](SysMgrClient& client) { return client.setCfgStoragePath("/etc/x/"); }},
    {"cfg/autosave-enable", "off", [](SysMgrClient& client) { return client.setAutosaveSupport(false); }},
    {"cfg/offset-from-master-threshold", "0",
     [](SysMgrClient& client) { return client.setCfgOfsetFromMasterThreashold(0); }},
    {"cfg/pause-audio-streams-ptp-fails", "on",
     [](SysMgrClient& client) { return client.setPauseStreamsPtpFail(true); }},
    {"cfg/identify-enable", "on", [](SysMgrClient& client) { return client.setIdentifyLeds(true); }},
    {"redundancy/enable", "no", [](SysMgrClient& client) { return client.setRedundancySupport(false); }},
    {"walkabout/enable", "false", [](SysMgrClient& client) { return client.enableWalkabout(false); }},
    {"sap/enable", "yes", [](SysMgrClient& client) { return client.setSapSupport(true); }},
    {"slp/enable", "0", [](SysMgrClient& client) { return client.enableSlp(false); }},
    {"tdm/channels-per-line", "16", [](SysMgrClient& client) { return client.setTdmChannelsPerLine(16); }},
    {"vlan/primary-id", "65535", [](SysMgrClient& client) { return client.setVlanPrimaryID(65535); }},
    {"vlan/secondary-id", "0", [](SysMgrClient& client) { return client.setVlanSecondaryID(0); }},
    {"vtc/image-path", "/x.bin", [](SysMgrClient& client) { return client.setVtcImagePath("/x.bin"); }},
    {"bitstream/module", "HDMI-ST2110", setHdmi},
    {"videoTimingParameters/timing-mode", "frame_sync", timing([](VideoTimingParameters& parameters) {
       parameters.timingMode = VideoTimingParameters::TIMING_MODE_FRAME_SYNC;
     })},
    {"videoTimingParameters/initBufDelay", "0",
     timing([](VideoTimingParameters& parameters) { parameters.initBufDelay = 0; })},
    {"videoTimingParameters/minWrRdPtrThresh", "1",
     timing([](VideoTimingParameters& parameters) { parameters.minWrRdPtrThresh = 1; })},
    {"videoTimingParameters/maxWrRdPtrThresh", "2147483647",
     timing([](VideoTimingParameters& parameters) { parameters.maxWrRdPtrThresh = 2147483647; })},
    {"videoTimingParameters/rtpPktsPerFrame", "3",
     timing([](VideoTimingParameters& parameters) { parameters.rtpPktsPerFrame = 3; })},
    {"nmos/enable", "off", nmos([](NmosParameters& parameters) { parameters.enable = false; })},
    {"nmos/http-sdp-port", "1", nmos([](NmosParameters& parameters) { parameters.httpSdpPort = 1; })},
    {"nmos/node-port", "2", nmos([](NmosParameters& parameters) { parameters.nodePort = 2; })},
    {"nmos/query-port", "3", nmos([](NmosParameters& parameters) { parameters.queryPort = 3; })},
    {"nmos/registration-port", "4", nmos([](NmosParameters& parameters) { parameters.registrationPort = 4; })},
    {"nmos/slot-id", "5", nmos([](NmosParameters& parameters) { parameters.slotId = 5; })},
    {"nmos/shelf-id", "6", nmos([](NmosParameters& parameters) { parameters.shelfId = 6; })},
    {"nmos/node-name", "a", nmos([](NmosParameters& parameters) { parameters.nodeName = "a"; })},
    {"nmos/device-name", "b", nmos([](NmosParameters& parameters) { parameters.deviceName = "b"; })},
    {"nmos/advertisement-interface", "eth1",
     nmos([](NmosParameters& parameters) { parameters.advertisementInterface = "eth1"; })},
    {"ethipv4/add", "eth1,10.0.0.5/8,10.0.0.1", addStatic},
    {"ethipv4/remove", "eth1", [](SysMgrClient& client) { return client.remEthIPv4Cfg("eth1"); }},
};

/// Answers a query of the stored parameters, and takes everything else.
std::vector<test::Answer> answer(const Request& request) {
  if (request.id != "0") return {"{}"};
  Json::Value reply;
  stored().Serialize(reply["stored"]);
  return {reply};
}

class SettableKey : public testing::TestWithParam<Row> {};

TEST_P(SettableKey, SendsTheRequestOfItsSetter) {
  ScriptedDaemon peer;
  peer.onRequest(answer);
  SysMgrClient client;
  ASSERT_EQ(client.init(ZmqUtils::getInstance().getContext()), 0);
  ASSERT_EQ(GetParam().setter(client), 0);
  const Request wanted = peer.lastRequest();

  const Deadline deadline(5);
  Daemon daemon(deadline);
  setKeys(daemon, {GetParam().key, GetParam().value});

  EXPECT_THAT(peer.lastRequest().id, StrEq(wanted.id));
  EXPECT_THAT(peer.lastRequest().body, StrEq(wanted.body));
}

INSTANTIATE_TEST_SUITE_P(All, SettableKey, testing::ValuesIn(kRows), [](const auto& row) {
  std::string name = row.param.key;
  for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
  return name;
});

TEST(SettableKeys, AreAllCompared) {
  std::set<std::string> compared;
  for (const Row& row : kRows) compared.insert(row.key);
  std::set<std::string> settable;
  for (const SettingRow* const row : settableRows()) settable.insert(row->path);
  EXPECT_EQ(compared, settable);
}

TEST(SettableKeys, TravelTogetherInOneRequest) {
  ScriptedDaemon peer;
  peer.onRequest(answer);
  const Deadline deadline(5);
  Daemon daemon(deadline);

  setKeys(daemon, {"nmos/node-port", "2", "rtsp/tcp-port", "5004", "nmos/slot-id", "5"});

  ASSERT_THAT(peer.requests(), SizeIs(2));  // the stored parameters, and the change
  const Json::Value& body = peer.lastRequest().json;
  EXPECT_EQ(body["rtsp-tcp-port"].asInt(), 5004);
  EXPECT_EQ(body["nmos"]["node-port"].asInt(), 2);
  EXPECT_EQ(body["nmos"]["slot-id"].asInt(), 5);
  EXPECT_EQ(body["nmos"]["node-name"].asString(), "Node");
}

TEST(SettableKeys, AreReadBeforeAnythingIsSent) {
  ScriptedDaemon peer;
  const Deadline deadline(5);
  Daemon daemon(deadline);
  EXPECT_THROW(setKeys(daemon, {"nmos/node-port", "2", "sap/enable", "perhaps"}), Failure);
  EXPECT_EQ(peer.requestCount(), 0U);
}

}  // namespace
}  // namespace zel::ctl
