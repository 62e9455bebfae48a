#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "cli/daemon.h"
#include "types/sysmgr_types.h"

namespace zel::ctl {

/// What can be set on a board, as texts by their keys:
///
///   rtsp/tcp-port        8554                      a row of the table of settings; "unset" where there is no value
///   ethipv4/eth0         dhcp, or ADDRESS/PREFIX[,GATEWAY]
///   white-list/ADDRESS   /PREFIX on, or /PREFIX off
///
/// A configuration may state a part of it. A list is stated whole or not at all.
struct Configuration {
  using Texts = std::map<std::string, std::string>;

  std::string model;  ///< the text of the board model; empty: not stated
  Texts settings;
  std::optional<Texts> interfaces;
  std::optional<Texts> whitelist;
};

/// The text of a setting without a value.
inline constexpr const char* kUnset = "unset";

/// The configuration that the daemon keeps. @throws Failure
Configuration liveConfiguration(Daemon& daemon);
/// That of a board of the model as it leaves the factory. The whitelist is not stated: the daemon chooses it.
Configuration factoryConfiguration(const BoardModel& model);

/// The text of a file: a line "KEY = VALUE" each, in the order in which they can be set, under a head with the model.
std::string textOf(const Configuration& configuration);
/// Reads such a text. Empty lines and what is behind "#" are left out; the order does not matter.
/// @param name  of the file, for failures
/// @throws Failure, which names the line
Configuration parseConfiguration(const std::string& text, const std::string& name);

/// A value that differs between two configurations; nothing where a list does not have the element.
struct Difference {
  std::string key;
  std::optional<std::string> from;
  std::optional<std::string> to;
};
using Differences = std::vector<Difference>;

/// The values that differ, of those that both configurations state, in the order in which they can be set.
Differences differencesOf(const Configuration& from, const Configuration& to);

}  // namespace zel::ctl
