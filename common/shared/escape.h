#pragma once

#include <string>

namespace zel {

/// The text with every character escaped that could steer a terminal or forge a line: control characters (those of
/// Unicode included), DEL, line separators and the controls of text direction, each byte as "\x0a"; the backslash as
/// "\\"; in a text that is not UTF-8, every byte above 0x7f as well.
std::string escaped(const std::string& text);

/// Whether a character could steer a terminal or forge a line: one that `escaped` does not leave as it is, apart from
/// the backslash.
bool steersTerminal(char32_t character);

}  // namespace zel
