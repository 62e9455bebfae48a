// The small helpers of common/shared/ that every room may use.

#include <gmock/gmock.h>
#include <json/value.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "common/shared/element_names.h"
#include "common/shared/format_text.h"
#include "common/shared/ipv4.h"
#include "common/shared/read_number.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;
using zel::isMulticast;
using zel::listed;
using zel::maskOfPrefix;
using zel::nameOfElement;
using zel::namesOfElements;
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

/// A list of objects with one member each.
Json::Value listOf(const std::vector<std::pair<const char*, Json::Value>>& members) {
  Json::Value list(Json::arrayValue);
  for (const auto& [name, value] : members) list.append(Json::Value(Json::objectValue))[name] = value;
  return list;
}

TEST(ElementNames, AreTheTextsOfTheNamingMembers) {
  EXPECT_THAT(namesOfElements(listOf({{"eth", "eth0"}, {"eth", "eth1"}})), ElementsAre("eth0", "eth1"));
  EXPECT_THAT(namesOfElements(listOf({{"name", "eth0"}, {"ip", "239.1.0.0"}})), ElementsAre("eth0", "239.1.0.0"));
  Json::Value element;
  for (const char* const member : {"ip", "name", "eth"}) {
    element[member] = member;
    EXPECT_EQ(nameOfElement(element), member) << "which comes before those behind it";
  }
  element["eth"] = 7;
  EXPECT_EQ(nameOfElement(element), "name");
}

TEST(ElementNames, AreNoneWhereOneIsMissingOrTwice) {
  EXPECT_THAT(namesOfElements(listOf({{"eth", "eth0"}, {"mode", "DHCP"}})), IsEmpty());
  EXPECT_THAT(namesOfElements(listOf({{"eth", "eth0"}, {"name", "eth0"}})), IsEmpty());
  EXPECT_THAT(namesOfElements(listOf({{"eth", ""}})), IsEmpty());
  Json::Value numbers;
  numbers.append(1);
  EXPECT_THAT(namesOfElements(numbers), IsEmpty());
  EXPECT_THAT(namesOfElements(Json::Value()), IsEmpty());
}
