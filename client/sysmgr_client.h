#pragma once

#include <json/value.h>

#include <chrono>
#include <cstdint>
#include <list>
#include <string>
#include <zmq.hpp>

#include "../common/error_report.h"
#include "../common/export.h"
#include "../types/sysmgr_eth_types.h"
#include "../types/sysmgr_types.h"
#include "../types/whitelist.h"
#include "sysmgr_jsonApi.h"

namespace zel {
struct CodeLocation;
template <class Value>
struct Request;
}  // namespace zel

/// The request client of the system manager daemon in the API's own types: setters, device actions, queries and the
/// multicast whitelist.
///
/// Each operation sends one request and returns 0 (a positive status of the daemon's counts as success) or the
/// negative code of `ClientJsonApi::sendMessage`. A failure is logged twice at level 2, "CHK(%s)::%d Error Code %d":
/// by the operation of `SysMgrJsonClient` and then by the one called here. `getLastErrorMessage` has the text.
///
/// Values are not validated here; the daemon does that. The rows of types/settings.h list the values that it accepts.
///
/// `init` must have been called. Threads: one caller at a time per client.
class ZEL_EXPORT SysMgrClient {
 public:
  /// Not connected yet.
  SysMgrClient();
  ~SysMgrClient();

  /// As `ClientJsonApi::init`; the context is that of `ZmqUtils` as a rule.
  int init(zmq::context_t& context);

  /// As `zel::setTimeout`: how long each of the next requests may take from its start to its answer; 5 s unless this is
  /// called. 0 and negative values mean 5 s again.
  /// @return false when a libzelCommonTypes of another maker is loaded that has no such operation: nothing has changed
  bool setTimeout(std::chrono::milliseconds timeout);

  /// As `ClientJsonApi::getLastErrorMessage`.
  int getLastErrorMessage(ErrorReport& report);

  /// @name Stored parameters
  /// Each sends one changed key of the stored parameters, as its row in types/settings.h says. The daemon stores the
  /// value and notifies its subscribers.
  /// @{

  /// The interface on which the RTSP server listens.
  /// @param name  an interface name such as "eth0"; sent up to its first NUL, as every text here that is passed by
  /// value
  int setRtspEthPort(std::string name);
  /// The TCP port of the RTSP server.
  int setRtspTcpPort(uint32_t port);
  /// The TCP port of the Ember+ provider.
  int setEmberTcpPort(uint32_t port);
  /// The interface on which the board advertises itself.
  int setAdvertEthPort(std::string name);
  /// The TCP port that is advertised.
  int setAdvertTcpPort(uint32_t port);
  /// The beginning of the name under which the board advertises itself.
  int setAdvertBoardPrefixName(std::string prefix);
  /// The directory in which the daemon keeps its configuration.
  int setCfgStoragePath(std::string path);
  /// Whether the daemon saves each change by itself.
  int setAutosaveSupport(bool enable);
  /// The offset from the PTP master above which the board counts as not synchronised.
  int setCfgOfsetFromMasterThreashold(uint32_t threshold);
  /// Whether the streams are sent twice, over two networks.
  int setRedundancySupport(bool enable);
  /// Whether streams are announced with SAP.
  int setSapSupport(bool enable);
  /// The channels on one TDM line.
  int setTdmChannelsPerLine(uint32_t count);
  /// The VLAN of the primary network. Sent as a signed number.
  int setVlanPrimaryID(uint16_t id);
  /// The VLAN of the secondary network. Sent as a signed number.
  int setVlanSecondaryID(uint16_t id);
  /// The image file of the video timing controller.
  /// @param path  sent whole, NUL characters included
  int setVtcImagePath(const std::string& path);
  /// Whether other devices find the board through Walkabout.
  int enableWalkabout(bool enable);
  /// Whether other devices find the board through SLP.
  int enableSlp(bool enable);
  /// Whether the streams pause while PTP fails.
  int setPauseStreamsPtpFail(bool enable);
  /// Whether the identification LEDs blink. Sent as a command of its own (19).
  int setIdentifyLeds(bool enable);

  /// Adds the configuration of an interface, or replaces the one of the same name.
  int addEthIPv4Cfg(EthIpV4Cfg& config);
  /// Removes the configuration of an interface.
  /// @param name  sent up to its first NUL
  int remEthIPv4Cfg(const std::string& name);
  int setNmosParameters(const NmosParameters& parameters);
  int setVideoTiming(VideoTimingParameters& timing);
  int setBitstream(const BitstreamType& bitstream);
  /// @}

  /// @name Device actions
  /// @{

  /// Resets the configuration to the factory's. A failure is logged once, by the JSON operation.
  int factoryReset();
  /// Asks for a restart of the board. A failure is logged once, by the JSON operation.
  int rebootDevice();
  /// Reports the state of a module of the board to the daemon.
  /// @param module  its name, sent whole
  int setModuleState(const std::string& module, bool error, bool warn);
  /// @}

  /// @name Queries
  /// Each hands its part of the answer to the record's `Deserialize`, or null where the answer has no such part: the
  /// record's own rules for missing keys apply. After a failed request the record is untouched. JsonCpp's exceptions
  /// (a value that does not convert) leave the call, and the client can be used as before.
  /// @{
  int getStoredParameters(SysParameters& parameters);
  int getDynamicParameters(SysParametersDynamic& parameters);
  int getSystemInfo(SystemBasicInfo& info);
  int getBoardModel(BoardModel& model);
  int getNetworkStackStatus(NetworkStackStatus& status);
  /// @}

  /// @name Multicast whitelist
  /// Addresses and masks are dotted texts. A text that is not an address is logged at level 2 and sent as "0.0.0.0".
  /// @{

  /// @param entries  the daemon's entries are appended to it; untouched after a failed request
  int getMcastWhitelist(std::list<WhiteListEntry>& entries);
  /// Logs "%s:: Adding Entry ip:%s mask:%s " at level 6 before anything is sent.
  int addMcastWhitelist(std::string ip, std::string mask, bool enable);
  /// The entry is sent with the default enable state, which is off.
  int removeMcastWhitelist(std::string ip, std::string mask);
  int enableMcastWhitelist(std::string ip, std::string mask, bool enable);
  /// @}

 private:
  using Query = int (SysMgrJsonClient::*)(Json::Value& reply);

  int send(const zel::CodeLocation& here, zel::Request<void> request);
  template <class Row>
  int set(const zel::CodeLocation& here, const Row& row, const typename Row::Type& value);
  template <class Value>
  int fetch(const zel::CodeLocation& here, Query query, const zel::Request<Value>& request, Value& value);

  SysMgrJsonClient json_;
};
