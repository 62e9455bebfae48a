#include "common/escape.h"

#include <simdjson.h>

#include <algorithm>

namespace zel {

namespace {

// simdjson chooses its code for this processor on its first use, and destroys it at exit. The first use is here, while
// the library is loaded: so it outlives the static objects of the application, which may log and send to their end.
[[maybe_unused]] const bool kSimdjsonIsReady = simdjson::validate_utf8("", 0);

}  // namespace

std::string escaped(const std::string& text) {
  // Plain ASCII does without simdjson, which is gone at the very end of the process while other threads may still log.
  const bool ascii = std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
  const bool utf8 = ascii || simdjson::validate_utf8(text.data(), text.size());
  std::string safe;
  safe.reserve(text.size());

  const auto hex = [&safe](unsigned char byte) {
    constexpr char kDigits[] = "0123456789abcdef";
    safe += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 0xf]};
  };
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const unsigned char next = i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : '\0';
    const bool secondControlSet = utf8 && byte == 0xc2 && next < 0xa0;  // U+0080 to U+009F
    if (byte == '\\') {
      safe += "\\\\";
    } else if (secondControlSet) {
      hex(byte);
      hex(next);
      ++i;
    } else if (byte < 0x20 || byte == 0x7f || (byte > 0x7f && !utf8)) {
      hex(byte);
    } else {
      safe += text[i];
    }
  }
  return safe;
}

}  // namespace zel
