#pragma once

#include <cstdint>
#include <string>

#include "../types/sfp_info.h"
#include "json_serializable.h"

/// The basic state of one network interface.
class ZEL_EXPORT EthBasicInfo : public IJsonSerializable {
 public:
  std::string name;        ///< "name": interface name, "eth0" or "eth0.10"
  uint32_t ip = 0;         ///< "ip", dotted text: IPv4 address, host order; 0: none
  std::string mac;         ///< "mac": link-layer address, 12 lower-case hexadecimal digits
  bool ipPresent = false;  ///< "ip-present": whether the interface has an IPv4 address
  uint32_t index = 0;      ///< "index": the daemon's number of the interface
  std::string label;       ///< "label"
  SfpInfo sfp;             ///< "sfp-info"

  void Serialize(Json::Value& root) const override;
  /// A missing key resets its member to that of a new record, "sfp-info" to what `SfpInfo::Deserialize` makes of an
  /// empty object. An address text that is empty leaves the address, and so does one that is no address, with "Error
  /// parsing IP [%s]: invalid IP address" logged at level 2.
  int Deserialize(Json::Value& root) override;
};
