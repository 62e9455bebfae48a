#include "client/sysmgr_client.h"

#include <utility>

#include "client/commands.h"
#include "common/shared/failed_check.h"
#include "common/shared/json_form.h"
#include "types/settings.h"

namespace settings = zel::settings;
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

int SysMgrClient::send(const zel::CodeLocation& here, Command command, Json::Value request) {
  Json::Value reply;
  return checked(here, (json_.*command)(request, reply));
}

int SysMgrClient::sendMember(const zel::CodeLocation& here, Command command, const char* key, Json::Value value) {
  Json::Value request;
  request[literal(key)] = std::move(value);
  return send(here, command, std::move(request));
}

template <class Row>
int SysMgrClient::set(const zel::CodeLocation& here, const Row& row, const typename Row::Type& value) {
  const bool identify = row.route == zel::SettingRow::Route::kIdentify;
  const Command command = identify ? &SysMgrJsonClient::setIdentifyLeds : &SysMgrJsonClient::setSysMgrParameter;
  return sendMember(here, command, row.key, row.toJson(value));
}

int SysMgrClient::fetch(const zel::CodeLocation& here, Query query, const char* member, IJsonSerializable& record) {
  Json::Value reply;
  const int result = checked(here, (json_.*query)(reply));
  if (result < 0) return result;
  record.Deserialize(reply[literal(member)]);
  return 0;
}

// Setters: the rows of the table of settings have the keys and the JSON types.

int SysMgrClient::setRtspEthPort(std::string name) { return set(ZEL_HERE, settings::kRtspEthPort, untilNul(name)); }

int SysMgrClient::setRtspTcpPort(uint32_t port) { return set(ZEL_HERE, settings::kRtspTcpPort, port); }

int SysMgrClient::setEmberTcpPort(uint32_t port) { return set(ZEL_HERE, settings::kEmberTcpPort, port); }

int SysMgrClient::setAdvertEthPort(std::string name) { return set(ZEL_HERE, settings::kAdvertEthPort, untilNul(name)); }

int SysMgrClient::setAdvertTcpPort(uint32_t port) { return set(ZEL_HERE, settings::kAdvertTcpPort, port); }

int SysMgrClient::setAdvertBoardPrefixName(std::string prefix) {
  return set(ZEL_HERE, settings::kAdvertBoardNamePrefix, untilNul(prefix));
}

int SysMgrClient::setCfgStoragePath(std::string path) { return set(ZEL_HERE, settings::kCfgFilePath, untilNul(path)); }

int SysMgrClient::setAutosaveSupport(bool enable) { return set(ZEL_HERE, settings::kCfgAutosaveEnable, enable); }

int SysMgrClient::setCfgOfsetFromMasterThreashold(uint32_t threshold) {
  return set(ZEL_HERE, settings::kOffsetFromMasterThreshold, threshold);
}

int SysMgrClient::setRedundancySupport(bool enable) { return set(ZEL_HERE, settings::kRedundancyEnable, enable); }

int SysMgrClient::setSapSupport(bool enable) { return set(ZEL_HERE, settings::kSapEnable, enable); }

int SysMgrClient::setTdmChannelsPerLine(uint32_t count) { return set(ZEL_HERE, settings::kTdmChannelsPerLine, count); }

int SysMgrClient::setVlanPrimaryID(uint16_t id) { return set(ZEL_HERE, settings::kPrimaryVlanId, id); }

int SysMgrClient::setVlanSecondaryID(uint16_t id) { return set(ZEL_HERE, settings::kSecondaryVlanId, id); }

int SysMgrClient::setVtcImagePath(const std::string& path) { return set(ZEL_HERE, settings::kVtcImagePath, path); }

int SysMgrClient::enableWalkabout(bool enable) { return set(ZEL_HERE, settings::kWalkaboutEnable, enable); }

int SysMgrClient::enableSlp(bool enable) { return set(ZEL_HERE, settings::kSlpEnable, enable); }

int SysMgrClient::setPauseStreamsPtpFail(bool enable) { return set(ZEL_HERE, settings::kPauseStreamsPtpFail, enable); }

int SysMgrClient::setIdentifyLeds(bool enable) { return set(ZEL_HERE, settings::kIdentifyEnable, enable); }

int SysMgrClient::addEthIPv4Cfg(EthIpV4Cfg& config) { return set(ZEL_HERE, settings::kAddInterface, config); }

int SysMgrClient::remEthIPv4Cfg(const std::string& name) {
  return set(ZEL_HERE, settings::kRemoveInterface, untilNul(name));
}

int SysMgrClient::setNmosParameters(const NmosParameters& parameters) {
  Json::Value request;
  parameters.Serialize(request);  // writes its own key at the top level
  return send(ZEL_HERE, &SysMgrJsonClient::setSysMgrParameter, std::move(request));
}

int SysMgrClient::setVideoTiming(VideoTimingParameters& timing) {
  return set(ZEL_HERE, settings::kVideoTiming, timing);
}

int SysMgrClient::setBitstream(const BitstreamType& bitstream) {
  return set(ZEL_HERE, settings::kBitstream, bitstream);
}

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

  zel::appendRecords(reply[literal(payload<SysMgrCommands::SYSMGR_GET_MCAST_WHITELIST>)], entries);
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
  return send(here, command, std::move(request));
}

// NOLINTEND(performance-unnecessary-value-param)
