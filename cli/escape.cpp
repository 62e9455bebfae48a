#include "cli/escape.h"

#include <cstddef>

namespace zel::ctl {

namespace {

constexpr char32_t kNotUtf8 = 0xFFFD;  ///< stands for a byte that is not part of a UTF-8 character

struct Character {
  char32_t code;
  std::size_t bytes;
};

/// The character that begins at `at`.
Character characterAt(const std::string& text, std::size_t at) {
  const auto byte = [&text](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
  constexpr char32_t kShortest[] = {0, 0, 0x80, 0x800, 0x10000};  // by the number of bytes
  const unsigned int lead = byte(at);
  if (lead < 0x80) return {lead, 1};
  if (lead < 0xC2 || lead > 0xF4) return {kNotUtf8, 1};
  const std::size_t bytes = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  char32_t code = lead & (0xFFU >> (bytes + 1));
  for (std::size_t i = 1; i < bytes; ++i) {
    if ((byte(at + i) & 0xC0U) != 0x80U) return {kNotUtf8, 1};
    code = (code << 6U) | (byte(at + i) & 0x3FU);
  }
  const bool isSurrogate = code >= 0xD800 && code < 0xE000;
  if (code < kShortest[bytes] || isSurrogate || code > 0x10FFFF) return {kNotUtf8, 1};
  return {code, bytes};
}

bool isUnsafe(char32_t code) {
  if (code < 0x20 || (code >= 0x7F && code < 0xA0)) return true;        // control characters
  if (code == 0x061C || code == 0x200E || code == 0x200F) return true;  // marks of direction
  if (code >= 0x2028 && code <= 0x202E) return true;  // line separators; embeddings and overrides of direction
  return code >= 0x2066 && code <= 0x2069;            // isolates
}

/// The text with what `escape(code, bytes)` returns in place of every unsafe character.
template <class Escape>
std::string replaced(const std::string& text, const Escape& escape) {
  std::string safe;
  safe.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    const auto [code, bytes] = characterAt(text, i);
    const bool isByteAlone = code == kNotUtf8 && bytes == 1;
    if (isByteAlone || isUnsafe(code)) {
      safe += escape(code, text.substr(i, bytes));
    } else {
      safe.append(text, i, bytes);
    }
    i += bytes;
  }
  return safe;
}

/// So many hexadecimal digits of a number.
std::string hex(unsigned int number, unsigned int digits) {
  std::string text;
  for (; digits > 0; --digits) text += "0123456789abcdef"[(number >> (4 * (digits - 1))) & 0xFU];
  return text;
}

}  // namespace

std::string visible(const std::string& text) {
  return replaced(text, [](char32_t, const std::string& character) {
    std::string escaped;
    for (const char byte : character) escaped += "\\x" + hex(static_cast<unsigned char>(byte), 2);
    return escaped;
  });
}

std::string visibleJson(const std::string& json) {
  return replaced(json, [](char32_t code, const std::string&) { return "\\u" + hex(code, 4); });
}

}  // namespace zel::ctl
