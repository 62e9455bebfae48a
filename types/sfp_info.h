#pragma once

#include <string>

#include "../common/json_serializable.h"

/// The state of the SFP optical module of one network interface.
class ZEL_EXPORT SfpInfo : public IJsonSerializable {
 public:
  bool present = false;            ///< "present"
  float temperature = 0.0F;        ///< "temperature": as the module reports it
  float rxPower = -1.0F;           ///< "rx_power": as the module reports it; -1: unknown
  float txPower = -1.0F;           ///< "tx_power": as the module reports it; -1: unknown
  int wavelength = -1;             ///< "wavelength": as the module reports it; -1: unknown
  std::string partNumber = "N/A";  ///< "part_number"

  /// Writes all six keys, the floats as JSON reals.
  void Serialize(Json::Value& root) const override;
  /// A missing key resets its member: the powers and the wavelength to 0, not to the -1 of a new record, the others
  /// to what a new record has.
  int Deserialize(Json::Value& root) override;
};
