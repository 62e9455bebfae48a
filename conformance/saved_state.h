#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "conformance/session.h"

namespace zel::conformance {

/// The stored parameters and the whitelist as they were before the checks.
class SavedState {
 public:
  /// Asks the daemon for both.
  explicit SavedState(Session& session);

  /// Whether both are known, so that they can be put back.
  bool isComplete() const { return stored_.isObject() && whitelist_.isArray(); }

  /// Sets what differs back to what it was.
  /// @return what still differs: "rtsp/tcp-port is 5004 instead of 8554"
  std::vector<std::string> putBack(Session& session) const;

 private:
  void putBackSettings(Session& session, const Json::Value& now) const;
  void putBackInterfaces(Session& session, const Json::Value& now) const;
  void putBackWhitelist(Session& session) const;
  std::vector<std::string> differences(Session& session) const;

  Json::Value stored_;
  Json::Value whitelist_;
};

}  // namespace zel::conformance
