#include "cli/values.h"

#include <gmock/gmock.h>

#include <functional>

namespace zel::ctl {
namespace {

using testing::StrEq;

/// What a failure says; empty when there is none.
std::string failureOf(const std::function<void()>& parse) {
  try {
    parse();
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), Exit::kUsage);
    return failure.what();
  }
  return "";
}

TEST(Number, LiesBetweenItsBounds) {
  EXPECT_EQ(parseNumber("0", 0, 9), 0);
  EXPECT_EQ(parseNumber("9", 0, 9), 9);
  EXPECT_EQ(parseNumber("-3", -3, 9), -3);
  for (const char* text : {"10", "-1", "", "x", "1x", " 1", "+1", "1.0", "0x1", "99999999999999999999"}) {
    EXPECT_THAT(failureOf([&] { parseNumber(text, 0, 9); }),
                StrEq(std::string("'") + text + "' is not a number from 0 to 9"));
  }
}

TEST(Seconds, AreAPositiveTimeOfAtMostElevenDays) {
  EXPECT_EQ(parseSeconds("5"), 5.0);
  EXPECT_EQ(parseSeconds("0.001"), 0.001);
  EXPECT_EQ(parseSeconds("1000000"), 1000000.0);
  for (const char* text : {"0", "0.0009", "1000001", "-1", "", "soon", "inf", "nan", "5s"}) {
    EXPECT_THAT(failureOf([&] { parseSeconds(text); }),
                StrEq(std::string("'") + text + "' is not a number of seconds from 0.001 to 1000000"));
  }
}

TEST(Switch, IsOnOrOffInSeveralWords) {
  for (const char* text : {"on", "true", "yes", "1"}) EXPECT_TRUE(parseSwitch(text)) << text;
  for (const char* text : {"off", "false", "no", "0"}) EXPECT_FALSE(parseSwitch(text)) << text;
  EXPECT_THAT(failureOf([] { parseSwitch("ON"); }), StrEq("'ON' is neither on nor off"));
}

TEST(NetworkValue, IsAnAddressWithAPrefixOrAMask) {
  EXPECT_EQ(parseNetwork("10.0.0.5/8").address, IpAddress(0x0A000005));
  EXPECT_EQ(parseNetwork("10.0.0.5/8").mask, IpAddress(0xFF000000));
  EXPECT_EQ(parseNetwork("10.0.0.5/0").mask, IpAddress(0));
  EXPECT_EQ(parseNetwork("10.0.0.5/32").mask, IpAddress(0xFFFFFFFF));
  EXPECT_EQ(parseNetwork("10.0.0.5", "255.255.0.0").mask, IpAddress(0xFFFF0000));
  EXPECT_THAT(failureOf([] { parseNetwork("10.0.0.5"); }), StrEq("the mask of 10.0.0.5 is missing"));
  EXPECT_THAT(failureOf([] { parseNetwork("10.0.0.5/8", "255.0.0.0"); }),
              StrEq("the mask is given twice: as /PREFIX and by itself"));
  EXPECT_THAT(failureOf([] { parseNetwork("10.0.0.5/33"); }), StrEq("'33' is not a number from 0 to 32"));
  EXPECT_THAT(failureOf([] { parseNetwork("10.0.0/8"); }), StrEq("'10.0.0' is not an IPv4 address"));
  EXPECT_THAT(failureOf([] { parseNetwork("/8"); }), StrEq("'' is not an IPv4 address"));
}

TEST(Interface, IsOneWord) {
  const EthIpV4Cfg dhcp = parseInterface("eth0.10,dhcp");
  EXPECT_EQ(dhcp.eth, "eth0.10");
  EXPECT_EQ(dhcp.mode.mode, EthMode::ETH_MODE_DHCP);
  const EthIpV4Cfg fixed = parseInterface("eth1,10.0.0.5/8,10.0.0.1");
  EXPECT_EQ(fixed.mode.mode, EthMode::ETH_MODE_STATIC);
  EXPECT_EQ(fixed.ip, 0x0A000005U);
  EXPECT_EQ(fixed.mask, 0xFF000000U);
  EXPECT_EQ(fixed.gw, 0x0A000001U);
  EXPECT_EQ(parseInterface("eth1,10.0.0.5/8").gw, 0U);
  for (const char* text :
       {"", "eth1", ",dhcp", "eth1,", "eth1,dhcp,10.0.0.1", "eth1,10.0.0.5", "eth1,10.0.0.5/8,10.0.0.1,"}) {
    EXPECT_THAT(failureOf([&] { parseInterface(text); }),
                StrEq(std::string("'") + text + "' is not an interface configuration"));
  }
}

TEST(Value, IsNamedInItsFailure) {
  EXPECT_THAT(failureOf([] { valueFor("--count", [] { return parseNumber("x", 1, 2); }); }),
              StrEq("--count: 'x' is not a number from 1 to 2"));
}

}  // namespace
}  // namespace zel::ctl
