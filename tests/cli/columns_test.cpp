#include "cli/columns.h"

#include <gmock/gmock.h>

namespace zel::ctl {
namespace {

TEST(Columns, AreThoseOfATerminal) {
  EXPECT_EQ(columnsOf("plain"), 5U);
  EXPECT_EQ(columnsOf("Übung"), 5U);
  EXPECT_EQ(columnsOf("e\u0301"), 1U);  // a combining accent
  EXPECT_EQ(columnsOf("日本"), 4U);
  EXPECT_EQ(columnsOf("\xff"), 1U);
  EXPECT_EQ(columnsOf(""), 0U);
}

TEST(Wrapping, BreaksBetweenPartsBeforeItBreaksBetweenWords) {
  EXPECT_EQ(wrapped("name  two words  three more words", 20, 4), "name  two words\n    three more words");
  EXPECT_EQ(wrapped("  key    a meaning that is too long for it", 24, 9),
            "  key    a meaning that\n         is too long for\n         it");
}

TEST(Wrapping, LeavesWhatFits) {
  EXPECT_EQ(wrapped("as it is", 8, 0), "as it is");
  EXPECT_EQ(wrapped("as it is, on no terminal", 0, 0), "as it is, on no terminal");
  EXPECT_EQ(wrapped("a word-that-is-longer-than-the-line stays", 12, 2),
            "a\n  word-that-is-longer-than-the-line\n  stays");
}

TEST(Wrapping, CountsColumnsAndNotBytes) {
  EXPECT_EQ(wrapped("日本 日本 日本", 10, 0), "日本 日本\n日本");
  EXPECT_EQ(wrapped("ÄÖÜ ÄÖÜ", 7, 0), "ÄÖÜ ÄÖÜ");
}

TEST(Wrapping, BeginsTheNextPieceNotBeyondTheMiddle) {
  EXPECT_EQ(wrapped("a-long-name-first  some words behind it", 30, 19), "a-long-name-first\n    some words behind it");
}

}  // namespace
}  // namespace zel::ctl
