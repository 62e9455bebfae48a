#include "common/ip_address.h"

#include <gmock/gmock.h>

#include <utility>

#include "tests/support/captured_log.h"

using testing::ElementsAre;
using testing::IsEmpty;
using zel::test::CapturedLog;
using zel::test::LogLine;

TEST(IpAddress, IsZeroAtFirst) {
  EXPECT_EQ(IpAddress().getAddress(), 0u);
  EXPECT_EQ(IpAddress().toString(), "0.0.0.0");
}

TEST(IpAddress, HoldsTheFirstOctetInTheMostSignificantByte) {
  const std::pair<uint32_t, const char*> rows[] = {{0x00000000u, "0.0.0.0"},     {0x7F000001u, "127.0.0.1"},
                                                   {0xC0A80102u, "192.168.1.2"}, {0xEF000001u, "239.0.0.1"},
                                                   {0x01020304u, "1.2.3.4"},     {0xFFFFFFFFu, "255.255.255.255"}};
  const CapturedLog log;
  for (const auto& [number, text] : rows) {
    EXPECT_EQ(IpAddress(number).toString(), text);
    IpAddress read(0x05050505u);
    EXPECT_EQ(read.setAddress(std::string(text)), 0);
    EXPECT_EQ(read.getAddress(), number) << text;
    IpAddress set;
    set.setAddress(number);
    EXPECT_EQ(set, IpAddress(number));
  }
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(IpAddress, KeepsItsValueForAnEmptyText) {
  const CapturedLog log;
  IpAddress address(0x01020304u);
  EXPECT_EQ(address.setAddress(""), 0);
  EXPECT_EQ(address.getAddress(), 0x01020304u);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(IpAddress, RefusesWhatIsNoAddressKeepsItsValueAndSaysSo) {
  for (const char* text :
       {" ",          "1",         "1.2",      "1.2.3",          "1.2.3.",   ".1.2.3.4",   "1.2.3.4.",
        "1.2.3.4.5",  "1.2.3.256", "1.2.3.4 ", " 1.2.3.4",       "01.2.3.4", "1.2.3.04",   "1.2.3.0x4",
        "0x01020304", "16909060",  "1..2.3",   "1.2.3.-4",       "1.2.3.+4", "1.2.3.4/24", "1.2.3.4\n",
        "a.b.c.d",    "localhost", "::1",      "::ffff:1.2.3.4", "1,2,3,4",  "1.2.3.1234"}) {
    const CapturedLog log;
    IpAddress address(0x05060708u);
    EXPECT_EQ(address.setAddress(text), -27) << text;
    EXPECT_EQ(address.getAddress(), 0x05060708u) << text;
    EXPECT_THAT(log.lines(),
                ElementsAre(LogLine{2, "Error parsing IP [" + std::string(text) + "]: invalid IP address"}));
  }
}

TEST(IpAddress, ComparesByItsNumber) {
  const IpAddress low(0x01000000u);
  const IpAddress high(0xFF000000u);
  EXPECT_TRUE(low == IpAddress(0x01000000u));
  EXPECT_FALSE(low == high);
  EXPECT_TRUE(low != high);
  EXPECT_FALSE(low != low);
  EXPECT_TRUE(low < high);
  EXPECT_FALSE(high < low);
  EXPECT_FALSE(low < low);
}
