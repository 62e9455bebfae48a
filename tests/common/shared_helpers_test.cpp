// The small helpers of common/shared/ that every room may use.

#include <gmock/gmock.h>

#include <cstdint>
#include <string>
#include <vector>

#include "common/shared/format_text.h"
#include "common/shared/ipv4.h"
#include "common/shared/read_number.h"

using testing::Optional;
using zel::isMulticast;
using zel::listed;
using zel::maskOfPrefix;
using zel::readNumber;

TEST(Listed, PutsACommaBetweenTheTexts) {
  EXPECT_EQ(listed({}), "");
  EXPECT_EQ(listed({"one"}), "one");
  EXPECT_EQ(listed({"one", "", "three"}), "one, , three");
}

TEST(ReadNumber, ReadsAWholeText) {
  EXPECT_THAT(readNumber<std::uint16_t>("0"), Optional(0));
  EXPECT_THAT(readNumber<std::uint16_t>("65535"), Optional(65535));
  EXPECT_THAT(readNumber<int>("-27"), Optional(-27));
  EXPECT_THAT(readNumber<int>("007"), Optional(7));
  EXPECT_THAT(readNumber<double>("0.25"), Optional(0.25));
}

TEST(ReadNumber, RefusesEverythingElse) {
  for (const char* const text : {"", " ", "-", "+1", " 1", "1 ", "1x", "x", "0x10", "1.5", "65536", "-1"}) {
    EXPECT_EQ(readNumber<std::uint16_t>(text), std::nullopt) << text;
  }
  EXPECT_EQ(readNumber<int>(std::string("1\0", 2)), std::nullopt);
}

TEST(Ipv4, KnowsMulticastAddresses) {
  for (const std::uint32_t address : {0xE0000000U, 0xE8010203U, 0xEFFFFFFFU}) EXPECT_TRUE(isMulticast(address));
  for (const std::uint32_t address : {0U, 0x7F000001U, 0xDFFFFFFFU, 0xF0000000U, 0xFFFFFFFFU}) {
    EXPECT_FALSE(isMulticast(address));
  }
}

TEST(Ipv4, KnowsTheMaskOfAPrefix) {
  EXPECT_EQ(maskOfPrefix(0), 0U);
  EXPECT_EQ(maskOfPrefix(1), 0x80000000U);
  EXPECT_EQ(maskOfPrefix(24), 0xFFFFFF00U);
  EXPECT_EQ(maskOfPrefix(32), 0xFFFFFFFFU);
}
