#pragma once

#include <json/value.h>

#include "export.h"

/// One request to the daemon: a command id and an optional JSON body.
class ZEL_EXPORT IpcMsg {
 public:
  /// A request without a body: `getBody` is null.
  explicit IpcMsg(unsigned int id);
  /// The body is copied. A null body is no body.
  IpcMsg(unsigned int id, const Json::Value& body);
  ~IpcMsg();
  IpcMsg(const IpcMsg&) = default;
  IpcMsg& operator=(const IpcMsg&) = default;

  unsigned int getId() const { return id_; }
  const Json::Value& getBody() const { return body_; }

 private:
  unsigned int id_;
  Json::Value body_;
};
