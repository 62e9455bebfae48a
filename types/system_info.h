#pragma once

#include <json/value.h>

#include "../common/json_serializable.h"

/// The basic information of the system, whose fields the daemon defines.
class ZEL_EXPORT SystemBasicInfo : public IJsonSerializable {
 public:
  Json::Value fields;  ///< the daemon's object, whole

  /// Writes each member of `fields`; writes nothing when `fields` is not an object.
  void Serialize(Json::Value& root) const override;
  /// Keeps a copy of `root` as it is.
  int Deserialize(Json::Value& root) override;
};

/// The state of the network stack, whose fields the daemon defines.
class ZEL_EXPORT NetworkStackStatus : public IJsonSerializable {
 public:
  Json::Value fields;  ///< the daemon's object, whole

  /// Writes each member of `fields`; writes nothing when `fields` is not an object.
  void Serialize(Json::Value& root) const override;
  /// Keeps a copy of `root` as it is.
  int Deserialize(Json::Value& root) override;
};
