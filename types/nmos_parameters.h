#pragma once

#include <string>

#include "../common/json_serializable.h"

/// The settings of the board's NMOS node. They stand under the key "nmos" of the stored parameters, so every operation
/// takes the whole document, not the object under that key.
class ZEL_EXPORT NmosParameters : public IJsonSerializable {
 public:
  bool enable = true;                           ///< "enable": whether the node runs
  int httpSdpPort = 8081;                       ///< "http-sdp-port"
  int nodePort = 12345;                         ///< "node-port": Node API
  int queryPort = 8235;                         ///< "query-port": Query API
  int registrationPort = 8870;                  ///< "registration-port": Registration API
  int slotId = 0;                               ///< "slot-id": the board's slot in its shelf
  int shelfId = 0;                              ///< "shelf-id"
  std::string nodeName = "Velmar Board";        ///< "node-name"
  std::string deviceName = "Velmar Board";      ///< "device-name"
  std::string advertisementInterface = "eth0";  ///< "advertisement-interface": interface name

  /// Writes every key and "node-description", a fixed text that is never read back.
  void Serialize(Json::Value& root) const override;
  /// Missing keys leave their member; so does a missing "nmos" (absent, null or empty) for all of them.
  int Deserialize(Json::Value& root) override;
  /// Writes the keys whose member differs from that of a new record; no "nmos" at all when none does.
  void SerializeDelta(Json::Value& root) const;
  /// Logs the settings for people, a line a setting, at level 3.
  void dumpParameter() const;
};
