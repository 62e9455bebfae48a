#pragma once

#include <gmock/gmock.h>
#include <json/value.h>
#include <json/writer.h>  // prints values in failures

#include <functional>
#include <initializer_list>
#include <ostream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "client/sysmgr_client.h"
#include "types/settings.h"

namespace zel::test {

/// A call of a setter of `SysMgrClient`.
struct SetterCall {
  const char* name;
  const SettingRow* row;  ///< what it sets
  std::function<int(SysMgrClient&)> call;
  Json::Value value;  ///< in the request, its JSON type included
};
inline void PrintTo(const SetterCall& setter, std::ostream* out) { *out << setter.name; }

template <class Row, class Parameter>
SetterCall setterCall(const char* name, const Row& row, int (SysMgrClient::*setter)(Parameter),
                      const typename Row::Type& value, const Json::Value& inRequest) {
  using Argument = std::remove_cv_t<std::remove_reference_t<Parameter>>;
  const auto call = [setter, value](SysMgrClient& client) {
    Argument argument(value);
    return (client.*setter)(static_cast<Parameter>(argument));
  };
  return {name, &row, call, inRequest};
}

inline Json::Value objectOf(std::initializer_list<std::pair<const char*, Json::Value>> members) {
  Json::Value object;
  for (const auto& [name, value] : members) object[name] = value;
  return object;
}

/// Each setter once. The daemon accepts the values, and none of them is that of the factory of the simulated board.
inline const std::vector<SetterCall>& setterCalls() {
  namespace rows = settings;
  using C = SysMgrClient;
  using V = Json::Value;
  EthIpV4Cfg dhcp;
  dhcp.eth = "eth0";
  dhcp.mode.mode = EthMode::ETH_MODE_DHCP;
  NmosParameters nmos;
  nmos.nodePort = 9000;
  nmos.deviceName = "Camera 1";
  VideoTimingParameters timing;
  timing.timingMode = VideoTimingParameters::TIMING_MODE_2059;
  timing.minWrRdPtrThresh = 4;
  BitstreamType bitstream;
  bitstream.type = BitstreamType::BITSTREAM_SDI_BIDIR_ST2110;
  static const std::vector<SetterCall> calls = {
      setterCall("setRtspEthPort", rows::kRtspEthPort, &C::setRtspEthPort, "eth1", V("eth1")),
      setterCall("setRtspTcpPort", rows::kRtspTcpPort, &C::setRtspTcpPort, 5004, V(5004U)),
      setterCall("setEmberTcpPort", rows::kEmberTcpPort, &C::setEmberTcpPort, 9001, V(9001U)),
      setterCall("setAdvertEthPort", rows::kAdvertEthPort, &C::setAdvertEthPort, "eth2", V("eth2")),
      setterCall("setAdvertTcpPort", rows::kAdvertTcpPort, &C::setAdvertTcpPort, 8080, V(8080U)),
      setterCall("setAdvertBoardPrefixName", rows::kAdvertBoardNamePrefix, &C::setAdvertBoardPrefixName, "Studio",
                 V("Studio")),
      setterCall("setCfgStoragePath", rows::kCfgFilePath, &C::setCfgStoragePath, "/data/", V("/data/")),
      setterCall("setAutosaveSupport", rows::kCfgAutosaveEnable, &C::setAutosaveSupport, false, V(false)),
      setterCall("setCfgOfsetFromMasterThreashold", rows::kOffsetFromMasterThreshold,
                 &C::setCfgOfsetFromMasterThreashold, 4294967295U, V(4294967295U)),
      setterCall("setPauseStreamsPtpFail", rows::kPauseStreamsPtpFail, &C::setPauseStreamsPtpFail, true, V(true)),
      setterCall("setIdentifyLeds", rows::kIdentifyEnable, &C::setIdentifyLeds, true, V(true)),
      setterCall("setRedundancySupport", rows::kRedundancyEnable, &C::setRedundancySupport, false, V(false)),
      setterCall("enableWalkabout", rows::kWalkaboutEnable, &C::enableWalkabout, false, V(false)),
      setterCall("setSapSupport", rows::kSapEnable, &C::setSapSupport, true, V(true)),
      setterCall("enableSlp", rows::kSlpEnable, &C::enableSlp, false, V(false)),
      setterCall("setTdmChannelsPerLine", rows::kTdmChannelsPerLine, &C::setTdmChannelsPerLine, 16, V(16U)),
      setterCall("setVlanPrimaryID", rows::kPrimaryVlanId, &C::setVlanPrimaryID, 4094, V(4094)),
      setterCall("setVlanSecondaryID", rows::kSecondaryVlanId, &C::setVlanSecondaryID, 0, V(0)),
      setterCall("setVtcImagePath", rows::kVtcImagePath, &C::setVtcImagePath, "/x.bin", V("/x.bin")),
      setterCall("addEthIPv4Cfg", rows::kAddInterface, &C::addEthIPv4Cfg, dhcp,
                 objectOf({{"eth", "eth0"}, {"mode", "DHCP"}})),
      setterCall("remEthIPv4Cfg", rows::kRemoveInterface, &C::remEthIPv4Cfg, "eth1", V("eth1")),
      setterCall("setNmosParameters", rows::kNmos, &C::setNmosParameters, nmos,
                 objectOf({{"advertisement-interface", "eth0"},
                           {"device-name", "Camera 1"},
                           {"enable", true},
                           {"http-sdp-port", 8081},
                           {"node-description", "Velmar node"},
                           {"node-name", "Velmar Board"},
                           {"node-port", 9000},
                           {"query-port", 8235},
                           {"registration-port", 8870},
                           {"shelf-id", 0},
                           {"slot-id", 0}})),
      setterCall("setVideoTiming", rows::kVideoTiming, &C::setVideoTiming, timing,
                 objectOf({{"minWrRdPtrThresh", 4}, {"timing-mode", "2059"}})),
      setterCall("setBitstream", rows::kBitstream, &C::setBitstream, bitstream,
                 objectOf({{"module", "SDI-BIDIR-ST2110"}})),
  };
  return calls;
}

/// Names a test of `setterCalls` after its setter.
inline std::string nameOfSetter(const testing::TestParamInfo<SetterCall>& setter) { return setter.param.name; }

}  // namespace zel::test
