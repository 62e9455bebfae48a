#pragma once

#include <json/value.h>

#include "export.h"

/// The interface of every record: its JSON form, both ways.
///
/// The order of the virtual operations is part of the binary interface.
class ZEL_EXPORT IJsonSerializable {
 public:
  IJsonSerializable() = default;
  IJsonSerializable(const IJsonSerializable&) = default;
  IJsonSerializable(IJsonSerializable&&) = default;
  IJsonSerializable& operator=(const IJsonSerializable&) = default;
  IJsonSerializable& operator=(IJsonSerializable&&) = default;
  virtual ~IJsonSerializable();

  /// Writes the record's keys as members of the object `root`; other members are left alone, at every depth.
  virtual void Serialize(Json::Value& root) const = 0;

  /// Reads the record's keys from the object `root`.
  ///
  /// A missing key is never an error; each record says what it then does. A value of the wrong JSON type goes through
  /// JsonCpp's own conversion: where JsonCpp refuses it, its exception (`Json::LogicError`) leaves this call, and the
  /// members that were read before keep their new values. Looking for a missing block may add a null member of its
  /// name to `root`.
  ///
  /// @return 0, always: it carries no status.
  virtual int Deserialize(Json::Value& root) = 0;
};
