#pragma once

#include <json/value.h>

#include <optional>
#include <string>
#include <vector>

#include "../common/export.h"

namespace zel {

/// One difference between two versions of a JSON document.
struct Difference {
  /// The names of the members from the top of the document to the value, with "/" between them: "rtsp/tcp-port". An
  /// element of an array has the text of its member "eth", "name" or "ip" as its name: "eth-basics/eth0/ip".
  std::string path;
  std::optional<Json::Value> before;  ///< empty: the value was not there
  std::optional<Json::Value> now;     ///< empty: the value is not there any more
};

/// What turns one version of a document into another.
///
/// Values that are not objects or arrays differ as a whole. The elements of an array differ one by one where each has a
/// name of its own in both versions and the order of those that stay is the same, with new ones at the end; else the
/// array differs as a whole. So does an object of which a member has a name with "/".
///
/// To put each `now` in the place of its `before`, one after the other, turns the first version into the second.
/// Threads: any.
ZEL_EXPORT std::vector<Difference> differences(const Json::Value& before, const Json::Value& now);

}  // namespace zel
