#include "client/sysmgr_client.h"

#include "client/requests.h"
#include "common/shared/failed_check.h"
#include "types/settings.h"

namespace requests = zel::requests;
namespace settings = zel::settings;
using zel::checked;

namespace {

/// The JSON operation of a command that changes something.
auto operationOf(SysMgrCommands::sysmgr_msg_t command) {
  using Operation = int (SysMgrJsonClient::*)(Json::Value & request, Json::Value & reply);
  switch (command) {
    case SysMgrCommands::SYSMGR_SET_IDENTIFY_LEDS: return Operation{&SysMgrJsonClient::setIdentifyLeds};
    case SysMgrCommands::SYSMGR_ADD_MCAST_WHITELIST: return Operation{&SysMgrJsonClient::addMcastWhitelist};
    case SysMgrCommands::SYSMGR_REMOVE_MCAST_WHITELIST: return Operation{&SysMgrJsonClient::removeMcastWhitelist};
    case SysMgrCommands::SYSMGR_ENABLE_MCAST_WHITELIST: return Operation{&SysMgrJsonClient::enableMcastWhitelist};
    default: return Operation{&SysMgrJsonClient::setSysMgrParameter};
  }
}

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

bool SysMgrClient::setTimeout(std::chrono::milliseconds timeout) {
  if (zel::setTimeout == nullptr) return false;
  zel::setTimeout(json_, timeout);
  return true;
}

int SysMgrClient::getLastErrorMessage(ErrorReport& report) { return json_.getLastErrorMessage(report); }

int SysMgrClient::send(const zel::CodeLocation& here, zel::Request<void> request) {
  Json::Value reply;
  return checked(here, (json_.*operationOf(request.command))(request.body, reply));
}

template <class Row>
int SysMgrClient::set(const zel::CodeLocation& here, const Row& row, const typename Row::Type& value) {
  return send(here, requests::set(row, value));
}

template <class Value>
int SysMgrClient::fetch(const zel::CodeLocation& here, Query query, const zel::Request<Value>& request, Value& value) {
  Json::Value reply;
  const int result = checked(here, (json_.*query)(reply));
  if (result >= 0) request.read(reply, value);
  return result;
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

int SysMgrClient::addEthIPv4Cfg(EthIpV4Cfg& config) { return send(ZEL_HERE, requests::addInterface(config)); }

int SysMgrClient::remEthIPv4Cfg(const std::string& name) {
  return send(ZEL_HERE, requests::removeInterface(untilNul(name)));
}

int SysMgrClient::setNmosParameters(const NmosParameters& parameters) {
  return set(ZEL_HERE, settings::kNmos, parameters);
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
  zel::Request<void> request = requests::setModuleState(module, error, warn);
  return checked(ZEL_HERE, json_.setModuleState(request.body));
}

// Queries

int SysMgrClient::getStoredParameters(SysParameters& parameters) {
  return fetch(ZEL_HERE, &SysMgrJsonClient::getStoredParameters, requests::storedParameters(), parameters);
}

int SysMgrClient::getDynamicParameters(SysParametersDynamic& parameters) {
  return fetch(ZEL_HERE, &SysMgrJsonClient::getDynamicParameters, requests::dynamicParameters(), parameters);
}

int SysMgrClient::getSystemInfo(SystemBasicInfo& info) {
  return fetch(ZEL_HERE, &SysMgrJsonClient::getSystemInfo, requests::systemInfo(), info);
}

int SysMgrClient::getBoardModel(BoardModel& model) {
  return fetch(ZEL_HERE, &SysMgrJsonClient::getBoardModel, requests::boardModel(), model);
}

int SysMgrClient::getNetworkStackStatus(NetworkStackStatus& status) {
  return fetch(ZEL_HERE, &SysMgrJsonClient::getNetworkStackStatus, requests::networkStackStatus(), status);
}

// Multicast whitelist

int SysMgrClient::getMcastWhitelist(std::list<WhiteListEntry>& entries) {
  return fetch(ZEL_HERE, &SysMgrJsonClient::getMcastWhitelist, requests::mcastWhitelist(), entries);
}

int SysMgrClient::addMcastWhitelist(std::string ip, std::string mask, bool enable) {
  Logger::log(Logger::LEVEL_PROGRESS, "%s:: Adding Entry ip:%s mask:%s ",
              zel::plainSignature(ZEL_HERE.signature).c_str(), ip.c_str(), mask.c_str());
  WhiteListEntry entry = whiteListEntry(ip, mask);
  entry.enable(enable);
  return send(ZEL_HERE, requests::addMcastWhitelist(entry));
}

int SysMgrClient::removeMcastWhitelist(std::string ip, std::string mask) {
  return send(ZEL_HERE, requests::removeMcastWhitelist(whiteListEntry(ip, mask)));
}

int SysMgrClient::enableMcastWhitelist(std::string ip, std::string mask, bool enable) {
  WhiteListEntry entry = whiteListEntry(ip, mask);
  entry.enable(enable);
  return send(ZEL_HERE, requests::enableMcastWhitelist(entry));
}

// NOLINTEND(performance-unnecessary-value-param)
