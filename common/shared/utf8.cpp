#include "common/shared/utf8.h"

#include <cstdint>
#include <cstring>

namespace zel {

namespace {

/// How many characters of ASCII the text starts with, counted in eights except at its end.
std::size_t leadingAscii(std::string_view text) {
  constexpr std::uint64_t kHighBits = 0x8080808080808080;
  std::size_t length = 0;
  for (std::uint64_t eight = 0; length + sizeof eight <= text.size(); length += sizeof eight) {
    std::memcpy(&eight, text.data() + length, sizeof eight);
    if ((eight & kHighBits) != 0) return length;
  }
  while (length < text.size() && static_cast<unsigned char>(text[length]) < 0x80) ++length;
  return length;
}

}  // namespace

CodePoint firstCodePoint(std::string_view text) {
  constexpr CodePoint kBad{0, 0};
  constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};  // by length: a longer form than needed is refused

  const auto first = static_cast<unsigned char>(text.front());
  if (first < 0x80) return {first, 1};
  if (first < 0xc0 || first > 0xf7) return kBad;
  const std::size_t length = first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
  if (text.size() < length) return kBad;

  char32_t value = first & (0x7fU >> length);
  for (const char c : text.substr(1, length - 1)) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte & 0xc0) != 0x80) return kBad;
    value = value << 6 | (byte & 0x3fU);
  }
  const bool surrogate = value >= 0xd800 && value <= 0xdfff;
  if (value < kSmallest[length] || value > 0x10ffff || surrogate) return kBad;
  return {value, length};
}

bool isUtf8(std::string_view text) {
  for (;;) {
    text.remove_prefix(leadingAscii(text));
    if (text.empty()) return true;
    const std::size_t length = firstCodePoint(text).length;
    if (length == 0) return false;
    text.remove_prefix(length);
  }
}

std::string shortened(std::string text, std::size_t most) {
  if (text.size() <= most) return text;
  const auto isInside = [](char byte) { return (static_cast<unsigned char>(byte) & 0xc0U) == 0x80U; };
  while (most > 0 && isInside(text[most])) --most;
  return text.replace(most, std::string::npos, "...");
}

}  // namespace zel
