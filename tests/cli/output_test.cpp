#include "cli/output.h"

#include <gmock/gmock.h>

namespace zel::ctl {
namespace {

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

TEST(Cell, EscapesWhatCouldSteerATerminal) {
  EXPECT_EQ(cellOf("a\tb\x7f\xc2\x9b"
                   "1mÜ"),
            "a\\x09b\\x7f\\xc2\\x9b1mÜ");
}

TEST(Cell, ShowsADecimalNumberAsItCame) {
  EXPECT_EQ(cellOf(41.2F), "41.2");
  EXPECT_EQ(cellOf(36.6F), "36.6");
  EXPECT_EQ(cellOf(16777216.0), "16777216");
  EXPECT_EQ(cellOf(0.1), "0.1");
  EXPECT_EQ(cellOf(12345678.5), "12345678.5");
  EXPECT_EQ(cellOf(1234567890.5), "1234567890.5");
  EXPECT_EQ(cellOf(1e300), "1e+300");
  EXPECT_EQ(Output::asJson(41.2), "41.2");
}

TEST(Table, IsNotWidenedByOneLongCell) {
  Json::Value list;
  for (int i = 0; i < 1000; ++i) list[i]["name"] = i;
  list[0]["name"] = std::string(100000, 'x');
  CaptureStdout();
  Output output(false);
  output.table(list, {{"name", "NAME"}, {"other", "OTHER"}});
  output.flush();
  EXPECT_LT(GetCapturedStdout().size(), 200000U);
}

}  // namespace
}  // namespace zel::ctl
