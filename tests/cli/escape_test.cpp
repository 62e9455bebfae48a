#include "cli/escape.h"

#include <gmock/gmock.h>

#include <cstdint>

namespace zel::ctl {
namespace {

/// The character in UTF-8.
std::string utf8(char32_t code) {
  const auto tail = [code](unsigned int shift) { return static_cast<char>(0x80U | ((code >> shift) & 0x3FU)); };
  if (code < 0x80) return {static_cast<char>(code)};
  if (code < 0x800) return {static_cast<char>(0xC0U | (code >> 6U)), tail(0)};
  if (code < 0x10000) return {static_cast<char>(0xE0U | (code >> 12U)), tail(6), tail(0)};
  return {static_cast<char>(0xF0U | (code >> 18U)), tail(12), tail(6), tail(0)};
}

TEST(Visible, EscapesEveryCharacterThatSteersOrTurnsTextAndNoOther) {
  const auto isSafe = [](char32_t code) {
    if (code < 0x20 || (code >= 0x7F && code <= 0x9F)) return false;
    const std::u32string marks =
        U"\u061C\u200E\u200F\u2028\u2029\u202A\u202B\u202C\u202D\u202E\u2066\u2067\u2068\u2069";
    return marks.find(code) == std::u32string::npos;
  };
  for (char32_t code = 0; code <= 0x10FFFF; ++code) {
    if (code == 0xD800) code = 0xE000;  // surrogates are not characters
    const std::string text = utf8(code);
    ASSERT_EQ(visible(text) == text, isSafe(code)) << std::hex << static_cast<uint32_t>(code);
    ASSERT_EQ(visibleJson(text) == text, isSafe(code)) << std::hex << static_cast<uint32_t>(code);
  }
}

TEST(Visible, EscapesBytesThatAreNotUtf8) {
  EXPECT_EQ(visible("\x9b\xff\xc3"), "\\x9b\\xff\\xc3");
  EXPECT_EQ(visible("\xc0\x9b"), "\\xc0\\x9b");                    // longer than needed
  EXPECT_EQ(visible("\xed\xa0\x80"), "\\xed\\xa0\\x80");           // a surrogate
  EXPECT_EQ(visible("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");  // beyond Unicode
  EXPECT_EQ(visible("\xe2\x80"), "\\xe2\\x80");                    // cut off
  EXPECT_EQ(visibleJson("\x9b"), "\\ufffd");
  EXPECT_EQ(visible("\xef\xbf\xbd"), "\xef\xbf\xbd");
}

}  // namespace
}  // namespace zel::ctl
