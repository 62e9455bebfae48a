#pragma once

#include <json/value.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cli/suggest.h"

namespace zel::ctl {

// A path names a place in a document: "rtsp/tcp-port". An element of a list goes by its name where all elements have
// one ("ethipv4/eth1/mode"), and by its number from 0 on otherwise.

using Leaf = std::pair<std::string, Json::Value>;

/// The document's values, with their paths, in the document's order; an empty list or object counts as a value.
std::vector<Leaf> leavesOf(const Json::Value& document);

/// The paths of everything in the document.
Words pathsOf(const Json::Value& document);

/// The value at a path, which may begin with a slash; the empty path is the document itself.
std::optional<Json::Value> valueAt(const Json::Value& document, const std::string& path);

/// One value that is not what it was.
struct Change {
  std::string path;
  std::optional<Json::Value> before;  ///< none: it was not there
  std::optional<Json::Value> after;   ///< none: it is gone
};
std::vector<Change> changesBetween(const Json::Value& before, const Json::Value& after);

}  // namespace zel::ctl
