#pragma once

#include <string>

namespace zel::ctl {

/// The text with every character escaped that could steer a terminal or change the direction of its text: control
/// characters, line separators, marks and overrides of direction, and bytes that are not UTF-8. Each byte of such a
/// character becomes "\x1b".
std::string visible(const std::string& text);

/// The same for a JSON text. Such a character becomes JSON's own escape "\u001b", so the value stays the same.
std::string visibleJson(const std::string& json);

}  // namespace zel::ctl
