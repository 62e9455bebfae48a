#pragma once

#include <string>

namespace zel::ctl {

/// The text with every character escaped that `steersTerminal`, and every byte that is not UTF-8: each byte becomes
/// "\x1b". Unlike in a log line, a backslash stays as it is, since scripts read the text.
std::string visible(const std::string& text);

/// The same for a JSON text. Such a character becomes JSON's own escape "\u001b", so the value stays the same.
std::string visibleJson(const std::string& json);

}  // namespace zel::ctl
