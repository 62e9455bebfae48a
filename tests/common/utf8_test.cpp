#include "common/shared/utf8.h"

#include <gmock/gmock.h>
#include <simdjson.h>

#include <string>
#include <utility>

using zel::firstCodePoint;
using zel::isUtf8;
using zel::shortened;

TEST(Utf8, KnowsTheFirstAndTheLastOfEveryLength) {
  const std::pair<const char*, char32_t> rows[] = {
      {"\x01", 0x1},
      {"\x7f", 0x7f},
      {"\xc2\x80", 0x80},
      {"\xdf\xbf", 0x7ff},
      {"\xe0\xa0\x80", 0x800},
      {"\xed\x9f\xbf", 0xd7ff},
      {"\xee\x80\x80", 0xe000},
      {"\xef\xbf\xbf", 0xffff},
      {"\xf0\x90\x80\x80", 0x10000},
      {"\xf4\x8f\xbf\xbf", 0x10ffff},
  };
  for (const auto& [text, value] : rows) {
    const std::string more = std::string(text) + "\x80";
    EXPECT_EQ(firstCodePoint(more).value, value);
    EXPECT_EQ(firstCodePoint(more).length, std::string(text).size());
  }
}

// simdjson is the judge: every text of up to four bytes, at every place of a longer one, with a byte of every kind.
TEST(Utf8, AgreesWithSimdjson) {
  constexpr char kBytes[] =
      "\x00\x7f\x80\x8f\x90\x9f\xa0\xbf\xc0\xc1\xc2\xdf\xe0\xe1\xec\xed\xee\xef\xf0\xf1\xf3\xf4\xf5\xf7\xf8\xff";
  const std::string bytes(kBytes, sizeof kBytes - 1);
  for (const char a : bytes) {
    for (const char b : bytes) {
      for (const char c : bytes) {
        for (const char d : bytes) {
          const std::string four = {a, b, c, d};
          ASSERT_EQ(isUtf8(four), simdjson::validate_utf8(four)) << testing::PrintToString(four);
        }
      }
    }
  }
  for (std::size_t before = 0; before < 20; ++before) {
    for (const char* const text :
         {"\xc3\xbc", "\xe2\x82\xac", "\xf0\x9f\x98\x80", "\xc3", "\xe2\x82", "\xff", "\xed\xa0\x80"}) {
      for (const std::size_t after : {0U, 1U, 7U, 8U, 9U}) {
        const std::string longer = std::string(before, 'a') + text + std::string(after, 'z');
        ASSERT_EQ(isUtf8(longer), simdjson::validate_utf8(longer)) << testing::PrintToString(longer);
      }
    }
  }
}

TEST(Utf8, TakesAnEmptyText) { EXPECT_TRUE(isUtf8("")); }

TEST(Utf8, IsShortenedBetweenCharacters) {
  EXPECT_EQ(shortened("", 3), "");
  EXPECT_EQ(shortened("abc", 3), "abc");
  EXPECT_EQ(shortened("abcd", 3), "abc...");
  EXPECT_EQ(shortened("a\xc3\xa9\xc3\xa9", 4), "a\xc3\xa9...");
  EXPECT_EQ(shortened("a\xc3\xa9\xc3\xa9", 3), "a\xc3\xa9...");
  EXPECT_EQ(shortened("\xf0\x90\x80\x80", 3), "...");
}
