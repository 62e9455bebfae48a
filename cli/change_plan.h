#pragma once

#include <string>
#include <vector>

#include "cli/configuration.h"
#include "cli/daemon.h"
#include "cli/words.h"
#include "types/whitelist.h"

namespace zel::ctl {

/// One request of a change.
struct Step {
  std::string what;  ///< "the stored parameters"
  Operation operation;
  Json::Value request;
};

/// The name of a list's element in a key: "eth1" in "ethipv4/eth1". Empty: the key is not of this list.
std::string elementOf(const std::string& list, const std::string& key);
/// A range of the whitelist, from its address and its text in a configuration. @throws Failure
WhiteListEntry entryOf(const std::string& address, const std::string& text);

/// The requests that bring a board from one configuration to another. The values that no request can set, those that
/// lose their value, are left out.
std::vector<Step> stepsOf(const Differences& differences);

/// The keys of the differences that no request can set. @see kUnset
Words unsettable(const Differences& differences);

/// Sends the steps in their order. The daemon makes each whole or not at all.
/// @throws Failure of the first step that fails; it says which ones are done and which are not
void carryOut(Daemon& daemon, const std::vector<Step>& steps);

}  // namespace zel::ctl
