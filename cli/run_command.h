#pragma once

#include <map>
#include <string>

namespace zel::ctl {

/// Runs a command in a shell and waits for its end. Its standard input is empty.
/// @param variables  added to the environment; a value ends at its first NUL
/// @return why it failed, for people; empty: its exit status is 0
std::string runInShell(const std::string& command, const std::map<std::string, std::string>& variables);

}  // namespace zel::ctl
