#include "client/sysmgr_client.h"

#include <utility>

#include "client/commands.h"
#include "common/failed_check.h"

using zel::checked;

namespace {

/// JsonCpp keeps a pointer to such a key instead of a copy; ours are all literals.
Json::StaticString literal(const char* key) { return Json::StaticString(key); }

/// The member of a query's answer that its record is read from.
template <SysMgrCommands::sysmgr_msg_t id>
constexpr const char* payload = zel::findCommand(id)->payload;

/// The text up to its first NUL.
const char* untilNul(const std::string& text) { return text.c_str(); }

WhiteListEntry whiteListEntry(const std::string& ip, const std::string& mask) {
  WhiteListEntry entry;
  entry.setIp(ip);
  entry.setMask(mask);
  return entry;
}

}  // namespace

// NOLINTBEGIN(performance-unnecessary-value-param): some operations take texts by value, and their log lines say so.

SysMgrClient::SysMgrClient() = default;
SysMgrClient::~SysMgrClient() = default;

int SysMgrClient::init(zmq::context_t& context) { return json_.init(context); }

int SysMgrClient::getLastErrorMessage(ErrorReport& report) { return json_.getLastErrorMessage(report); }

int SysMgrClient::send(const zel::CodeLocation& here, Command command, Json::Value& request) {
  Json::Value reply;
  return checked(here, (json_.*command)(request, reply));
}

int SysMgrClient::set(const zel::CodeLocation& here, const char* key, Json::Value value) {
  Json::Value request;
  request[literal(key)] = std::move(value);
  return send(here, &SysMgrJsonClient::setSysMgrParameter, request);
}

int SysMgrClient::set(const zel::CodeLocation& here, const char* key, const IJsonSerializable& record) {
  Json::Value value;
  record.Serialize(value);
  return set(here, key, std::move(value));
}

int SysMgrClient::fetch(const zel::CodeLocation& here, Query query, const char* member, IJsonSerializable& record) {
  Json::Value reply;
  const int result = checked(here, (json_.*query)(reply));
  if (result < 0) return result;
  record.Deserialize(reply[literal(member)]);
  return 0;
}

// Setters: numbers keep the JSON type that their parameter has.

int SysMgrClient::setRtspEthPort(std::string name) { return set(ZEL_HERE, "rtsp-eth-port", untilNul(name)); }

int SysMgrClient::setRtspTcpPort(uint32_t port) { return set(ZEL_HERE, "rtsp-tcp-port", port); }

int SysMgrClient::setEmberTcpPort(uint32_t port) { return set(ZEL_HERE, "ember-tcp-port", port); }

int SysMgrClient::setAdvertEthPort(std::string name) { return set(ZEL_HERE, "advert-eth-port", untilNul(name)); }

int SysMgrClient::setAdvertTcpPort(uint32_t port) { return set(ZEL_HERE, "advert-tcp-port", port); }

int SysMgrClient::setAdvertBoardPrefixName(std::string prefix) {
  return set(ZEL_HERE, "board-name-prefix", untilNul(prefix));
}

int SysMgrClient::setCfgStoragePath(std::string path) { return set(ZEL_HERE, "cfg-file-path", untilNul(path)); }

int SysMgrClient::setAutosaveSupport(bool enable) { return set(ZEL_HERE, "cfg-autosave-enable", enable); }

int SysMgrClient::setCfgOfsetFromMasterThreashold(uint32_t threshold) {
  return set(ZEL_HERE, "offset-from-master-threshold", threshold);
}

int SysMgrClient::setRedundancySupport(bool enable) { return set(ZEL_HERE, "redundancy-enable", enable); }

int SysMgrClient::setSapSupport(bool enable) { return set(ZEL_HERE, "sap-enable", enable); }

int SysMgrClient::setTdmChannelsPerLine(uint32_t count) { return set(ZEL_HERE, "tdm-ch-per-line", count); }

int SysMgrClient::setVlanPrimaryID(uint16_t id) { return set(ZEL_HERE, "primary-vlan-id", Json::Int{id}); }

int SysMgrClient::setVlanSecondaryID(uint16_t id) { return set(ZEL_HERE, "secondary-vlan-id", Json::Int{id}); }

int SysMgrClient::setVtcImagePath(const std::string& path) { return set(ZEL_HERE, "vtc-image-path", path); }

int SysMgrClient::enableWalkabout(bool enable) { return set(ZEL_HERE, "walkabout-enable", enable); }

int SysMgrClient::enableSlp(bool enable) { return set(ZEL_HERE, "slp-enable", enable); }

int SysMgrClient::setPauseStreamsPtpFail(bool enable) { return set(ZEL_HERE, "pause-streams-if-ptp-fails", enable); }

int SysMgrClient::setIdentifyLeds(bool enable) {
  Json::Value request;
  request["identify-enable"] = enable;
  return send(ZEL_HERE, &SysMgrJsonClient::setIdentifyLeds, request);
}

int SysMgrClient::addEthIPv4Cfg(EthIpV4Cfg& config) { return set(ZEL_HERE, "add-eth-cfg", config); }

int SysMgrClient::remEthIPv4Cfg(const std::string& name) { return set(ZEL_HERE, "rem-eth-cfg", untilNul(name)); }

int SysMgrClient::setNmosParameters(const NmosParameters& parameters) {
  Json::Value request;
  parameters.Serialize(request);  // writes its own key at the top level
  return send(ZEL_HERE, &SysMgrJsonClient::setSysMgrParameter, request);
}

int SysMgrClient::setVideoTiming(VideoTimingParameters& timing) {
  return set(ZEL_HERE, "videoTimingParameters", timing);
}

int SysMgrClient::setBitstream(const BitstreamType& bitstream) { return set(ZEL_HERE, "bitstream-type", bitstream); }

// Device actions

int SysMgrClient::factoryReset() {
  Json::Value reply;
  return json_.factoryReset(reply);
}

int SysMgrClient::rebootDevice() {
  Json::Value reply;
  return json_.rebootDevice(reply);
}

int SysMgrClient::setModuleState(const std::string& module, bool error, bool warn) {
  Json::Value request;
  Json::Value& state = request[module];
  state["error"] = error;
  state["warn"] = warn;
  return checked(ZEL_HERE, json_.setModuleState(request));
}

// Queries

int SysMgrClient::getStoredParameters(SysParameters& parameters) {
  return fetch(ZEL_HERE, &SysMgrJsonClient::getStoredParameters, payload<SysMgrCommands::SYSMGR_GET_STORED_PARAMETERS>,
               parameters);
}

int SysMgrClient::getDynamicParameters(SysParametersDynamic& parameters) {
  return fetch(ZEL_HERE, &SysMgrJsonClient::getDynamicParameters,
               payload<SysMgrCommands::SYSMGR_GET_DYNAMIC_PARAMETERS>, parameters);
}

int SysMgrClient::getSystemInfo(SystemBasicInfo& info) {
  return fetch(ZEL_HERE, &SysMgrJsonClient::getSystemInfo, payload<SysMgrCommands::SYSMGR_GET_SYSTEM_INFO>, info);
}

int SysMgrClient::getBoardModel(BoardModel& model) {
  return fetch(ZEL_HERE, &SysMgrJsonClient::getBoardModel, payload<SysMgrCommands::SYSMGR_GET_BOARD_MODEL>, model);
}

int SysMgrClient::getNetworkStackStatus(NetworkStackStatus& status) {
  return fetch(ZEL_HERE, &SysMgrJsonClient::getNetworkStackStatus,
               payload<SysMgrCommands::SYSMGR_GET_NETWORK_STACK_STATUS>, status);
}

// Multicast whitelist

int SysMgrClient::getMcastWhitelist(std::list<WhiteListEntry>& entries) {
  Json::Value reply;
  const int result = checked(ZEL_HERE, json_.getMcastWhitelist(reply));
  if (result < 0) return result;

  Json::Value& listed = reply[zel::kWhitelistMember];
  for (Json::ArrayIndex i = 0; i < listed.size(); ++i) {
    WhiteListEntry entry;
    entry.Deserialize(listed[i]);
    entries.push_back(entry);
  }
  return 0;
}

int SysMgrClient::addMcastWhitelist(std::string ip, std::string mask, bool enable) {
  Logger::log(Logger::LEVEL_PROGRESS, "%s:: Adding Entry ip:%s mask:%s ",
              zel::plainSignature(ZEL_HERE.signature).c_str(), ip.c_str(), mask.c_str());
  WhiteListEntry entry = whiteListEntry(ip, mask);
  entry.enable(enable);
  return changeWhitelist(ZEL_HERE, &SysMgrJsonClient::addMcastWhitelist, entry);
}

int SysMgrClient::removeMcastWhitelist(std::string ip, std::string mask) {
  return changeWhitelist(ZEL_HERE, &SysMgrJsonClient::removeMcastWhitelist, whiteListEntry(ip, mask));
}

int SysMgrClient::enableMcastWhitelist(std::string ip, std::string mask, bool enable) {
  WhiteListEntry entry = whiteListEntry(ip, mask);
  entry.enable(enable);
  return changeWhitelist(ZEL_HERE, &SysMgrJsonClient::enableMcastWhitelist, entry);
}

int SysMgrClient::changeWhitelist(const zel::CodeLocation& here, Command command, const WhiteListEntry& entry) {
  Json::Value request;
  entry.Serialize(request[zel::kWhitelistMember][0]);
  return send(here, command, request);
}

// NOLINTEND(performance-unnecessary-value-param)
