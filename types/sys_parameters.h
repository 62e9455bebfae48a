#pragma once

#include <cstdint>
#include <list>
#include <string>

#include "../common/json_serializable.h"
#include "bitstream_type.h"
#include "board_model.h"
#include "nmos_parameters.h"
#include "sysmgr_eth_types.h"
#include "video_timing.h"

/// The board's persistent configuration, the "stored" parameters, as the daemon keeps it.
///
/// A block is a key at the top level of the document that holds an object. It is missing when it is absent, null, or an
/// empty object or array; its keys then count as missing.
class ZEL_EXPORT SysParameters : public IJsonSerializable {
 public:
  std::string rtspEthPort;                     ///< "rtsp"/"eth-port": interface name or "all"
  uint32_t rtspTcpPort = 8554;                 ///< "rtsp"/"tcp-port"
  std::string advertEthPort;                   ///< "advert"/"eth-port": interface name or "all"
  uint32_t advertTcpPort = 80;                 ///< "advert"/"tcp-port"
  std::string advertBoardNamePrefix;           ///< "advert"/"board-name-prefix"
  std::string cfgFilePath;                     ///< "cfg"/"cfg-file-path": directory of the configuration store
  bool cfgAutosaveEnable = true;               ///< "cfg"/"autosave-enable"
  std::string serialNumber;                    ///< "serial-number"
  uint32_t offsetFromMasterThreshold = 30000;  ///< "cfg"/"offset-from-master-threshold": of the PTP clock
  std::list<EthIpV4Cfg> ethIPv4Cfg;            ///< "ethipv4": sorted by interface name
  bool redundancyEnable = true;                ///< "redundancy"/"enable"
  bool walkaboutEnable = true;                 ///< "walkabout"/"enable"
  bool sapEnable = false;                      ///< "sap"/"enable"
  bool slpEnable = true;                       ///< "slp"/"enable"
  bool pauseStreamsPtpFail = false;            ///< "cfg"/"pause-audio-streams-ptp-fails"
  BoardModel boardModel;                       ///< carried in memory only
  bool identifyEnable = false;                 ///< "cfg"/"identify-enable"
  NmosParameters nmos;                         ///< "nmos"
  VideoTimingParameters videoTiming;           ///< "videoTimingParameters"
  uint32_t tdmChannelsPerLine = 32;            ///< "tdm"/"channels-per-line"
  std::string vtcImagePath =
      "/firmware/vtc_nios.bin";   ///< "vtc"/"image-path": firmware of the FPGA's timing controller
  BitstreamType bitstream;        ///< "bitstream": as configured
  std::string ptpPath;            ///< "ptp"/"ptp-path": directory of the PTP configuration
  uint32_t emberTcpPort = 9095;   ///< "ember"/"tcp-port"
  uint16_t primaryVlanId = 10;    ///< "vlan"/"primary-id"
  uint16_t secondaryVlanId = 20;  ///< "vlan"/"secondary-id"

  /// Writes the whole document; an empty interface list writes no "ethipv4". The PTP path, both Ethernet ports, the
  /// board-name prefix and the store path are written up to their first NUL.
  void Serialize(Json::Value& root) const override;

  /// Reads the whole document. A missing key resets its member to the factory value, which is that of a new record
  /// except for "all" (both Ethernet ports), "Velmar ORVEN" (board-name prefix), "/etc/aes67/" (store path) and
  /// "/etc/ptp/" (PTP path). These stay instead: the keys of "nmos" and "videoTimingParameters", the bitstream when its
  /// block is missing, the interface list when "ethipv4" is missing. A VLAN id keeps its low 16 bits.
  ///
  /// "ethipv4" is merged into the list: an entry of the same name is overwritten (every field, its VLAN tag too), a new
  /// one is added, the others stay, and the list is sorted. Logs at level 5 "We do have saved eth on the list:
  /// discarding the %d olds and getting the new %d".
  ///
  /// Every missing block but "nmos" becomes a null member of `root`.
  int Deserialize(Json::Value& root) override;

  /// Writes the settings that differ from the factory values (see `Deserialize`; the factory timing mode is low
  /// latency), the whole interface list and "version" 1. "videoTimingParameters" is always there, null when the mode is
  /// the factory's. The serial number and the numbers of the video timing are not part of the delta.
  void SerializeDelta(Json::Value& root);

  /// Logs the configuration for people, a line a setting, at level 3.
  /// @param model  the running board: its name and its bitstream are shown.
  void dumpParameter(const BoardModel& model) const;

  /// Replaces `out` by the factory interface configurations of a board model; those of `NIMBRA_AES67` are read from the
  /// host's interfaces as they are now.
  /// @return 0
  int fillEthIPv4DefaultCfg(std::list<EthIpV4Cfg>& out, const BoardModel& model) const;
  /// Replaces this record's interface configurations by the factory ones of a board model.
  /// @return 0
  int setEthIpv4DefaultConfig(const BoardModel& model);
  /// Whether this record's interface configurations are the factory ones of a board model, in any order. Never so for
  /// `NIMBRA_AES67`.
  bool isEthIPv4ConfigDefault(const BoardModel& model) const;
};
