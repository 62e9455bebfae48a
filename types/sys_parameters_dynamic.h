#pragma once

#include <list>
#include <string>

#include "../common/eth_basic_info.h"
#include "../common/json_serializable.h"

/// The speed of the fans, as the daemon reports it.
class ZEL_EXPORT FanSpeed : public IJsonSerializable {
 public:
  int main = -1;  ///< "main"; -1: unknown

  void Serialize(Json::Value& root) const override;
  /// A missing key resets its member.
  int Deserialize(Json::Value& root) override;
};

/// The temperatures, as the daemon reports them.
class ZEL_EXPORT SystemTemperature : public IJsonSerializable {
 public:
  int fpga = 65535;  ///< "fpga": as the daemon reports it; 65535: unknown

  void Serialize(Json::Value& root) const override;
  /// A missing key resets its member.
  int Deserialize(Json::Value& root) override;
};

/// One entry of the daemon's list of active errors.
class ZEL_EXPORT SystemError : public IJsonSerializable {
 public:
  int code = -1;            ///< "code"
  std::string description;  ///< "description"

  void Serialize(Json::Value& root) const override;
  /// A missing key resets its member.
  int Deserialize(Json::Value& root) override;
};

/// The board's run-time status, the "dynamic" parameters, as the daemon reports it. It is never stored.
class ZEL_EXPORT SysParametersDynamic : public IJsonSerializable {
 public:
  std::string chipIdVersion;          ///< "chipid-version": version of the FPGA
  std::string chipIdName;             ///< "chipid-name"
  std::list<EthBasicInfo> ethBasics;  ///< "eth-basics"
  SystemTemperature temperature;      ///< "temperature"
  bool madiLock = false;              ///< "madi-lock"
  FanSpeed fanSpeed;                  ///< "fan-speed"
  std::list<SystemError> errors;      ///< "errors"

  /// An empty list writes no key.
  void Serialize(Json::Value& root) const override;
  /// Replaces every member: a missing key resets its member to that of a new record and empties its list.
  int Deserialize(Json::Value& root) override;
};
