#include "common/shared/escape.h"

#include <string_view>

#include "common/shared/utf8.h"

namespace zel {

namespace {

bool isControl(char32_t c) { return c < 0x20 || (c >= 0x7f && c < 0xa0); }

/// Whether the character ends a line or turns the direction in which a terminal shows text.
bool movesText(char32_t c) {
  return c == 0x061c || c == 0x200e || c == 0x200f || (c >= 0x2028 && c <= 0x202e) || (c >= 0x2066 && c <= 0x2069);
}

void appendHex(std::string_view bytes, std::string& text) {
  constexpr char kDigits[] = "0123456789abcdef";
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    text += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 0xf]};
  }
}

}  // namespace

bool steersTerminal(char32_t character) { return isControl(character) || movesText(character); }

std::string escaped(const std::string& text) {
  const bool utf8 = isUtf8(text);
  std::string safe;
  safe.reserve(text.size());
  for (std::string_view rest = text; !rest.empty();) {
    const CodePoint c = utf8 ? firstCodePoint(rest) : CodePoint{static_cast<unsigned char>(rest.front()), 1};
    const std::string_view bytes = rest.substr(0, c.length);
    if (c.value == '\\') {
      safe += "\\\\";
    } else if (steersTerminal(c.value) || (!utf8 && c.value > 0x7f)) {
      appendHex(bytes, safe);
    } else {
      safe += bytes;
    }
    rest.remove_prefix(c.length);
  }
  return safe;
}

}  // namespace zel
