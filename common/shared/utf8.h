#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// By hand rather than by simdjson, which is destroyed when the process ends, while other threads still log and send.

namespace zel {

struct CodePoint {
  char32_t value;
  std::size_t length;  ///< in bytes; 0: the text does not begin with UTF-8
};

/// The code point at the start of the text, which is not empty.
CodePoint firstCodePoint(std::string_view text);

/// Whether the whole text is UTF-8, as RFC 3629 has it.
bool isUtf8(std::string_view text);

/// A UTF-8 text for people: one that is longer than so many bytes is cut between two characters, and "..." follows.
std::string shortened(std::string text, std::size_t most);

}  // namespace zel
