#pragma once

#include <map>
#include <string>

namespace zel::ctl {

/// Runs a command in a shell and waits for its end. Its standard input is empty.
/// @param prefix     no inherited variable whose name begins so is in the command's environment
/// @param variables  added to the environment, with the prefix before their names; a value ends at its first NUL
/// @return why it failed, for people; empty: its exit status is 0
std::string runInShell(const std::string& command, const std::string& prefix,
                       const std::map<std::string, std::string>& variables);

}  // namespace zel::ctl
