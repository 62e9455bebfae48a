#include "cli/escape.h"

#include <string_view>

#include "common/shared/escape.h"
#include "common/shared/utf8.h"

namespace zel::ctl {

namespace {

constexpr char32_t kNotUtf8 = 0xFFFD;  ///< stands for a byte that is not part of a UTF-8 character

/// The text with what `escape(code, bytes)` returns in place of every character that steers a terminal, and of every
/// byte that is not UTF-8.
template <class Escape>
std::string replaced(const std::string& text, const Escape& escape) {
  std::string safe;
  safe.reserve(text.size());
  for (std::string_view rest = text; !rest.empty();) {
    const CodePoint read = firstCodePoint(rest);
    const bool isUtf8 = read.length > 0;
    const std::string_view bytes = rest.substr(0, isUtf8 ? read.length : 1);
    if (!isUtf8 || steersTerminal(read.value)) {
      safe += escape(isUtf8 ? read.value : kNotUtf8, bytes);
    } else {
      safe += bytes;
    }
    rest.remove_prefix(bytes.size());
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
  return replaced(text, [](char32_t, std::string_view character) {
    std::string escaped;
    for (const char byte : character) escaped += "\\x" + hex(static_cast<unsigned char>(byte), 2);
    return escaped;
  });
}

std::string visibleJson(const std::string& json) {
  return replaced(json, [](char32_t code, std::string_view) { return "\\u" + hex(code, 4); });
}

}  // namespace zel::ctl
