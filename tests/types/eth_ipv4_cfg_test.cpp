#include "common/error_aux_msg.h"
#include "tests/support/captured_log.h"
#include "tests/support/json_of.h"
#include "types/sysmgr_eth_types.h"

namespace zel::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr uint32_t address(uint32_t a, uint32_t b, uint32_t c, uint32_t d) { return a << 24 | b << 16 | c << 8 | d; }

EthIpV4Cfg entry(const std::string& name, EthMode::eth_mode_t mode = EthMode::ETH_MODE_STATIC) {
  EthIpV4Cfg cfg;
  cfg.eth = name;
  cfg.mode.mode = mode;
  cfg.ip = address(192, 168, 0, 100);
  cfg.mask = address(255, 255, 0, 0);
  cfg.gw = address(192, 168, 0, 1);
  return cfg;
}

void expectAddresses(const EthIpV4Cfg& cfg, uint32_t ip, uint32_t mask, uint32_t gw) {
  EXPECT_EQ(cfg.ip, ip);
  EXPECT_EQ(cfg.mask, mask);
  EXPECT_EQ(cfg.gw, gw);
}
void expectSameAddresses(const EthIpV4Cfg& cfg, const EthIpV4Cfg& other) {
  expectAddresses(cfg, other.ip, other.mask, other.gw);
}

// JSON form

TEST(EthIpV4Cfg, ANewOneIsStaticWithoutAddress) {
  const EthIpV4Cfg cfg;
  EXPECT_EQ(cfg.eth, "");
  EXPECT_EQ(cfg.mode.mode, EthMode::ETH_MODE_STATIC);
  expectAddresses(cfg, 0, 0xFFFFFF00, 0);
  EXPECT_EQ(cfg.vlan.id, 0);
  EXPECT_EQ(cfg.vlan.priority, 0);
  EXPECT_EQ(cfg.vlan.tpid, 0x8100);
  EXPECT_EQ(written(cfg), json(R"({"eth":"","mode":"static","static":{"ip":"0.0.0.0","mask":"255.255.255.0",
                                  "gw":"0.0.0.0"}})"));
}

TEST(EthIpV4Cfg, WritesAddressesAsDottedText) {
  EXPECT_EQ(written(entry("eth0.10")), json(R"({"eth":"eth0.10","mode":"static","static":{"ip":"192.168.0.100",
                                               "mask":"255.255.0.0","gw":"192.168.0.1"}})"));
}

TEST(EthIpV4Cfg, WritesNoAddressesUnlessTheModeIsStatic) {
  EXPECT_EQ(written(entry("eth1", EthMode::ETH_MODE_DHCP)), json(R"({"eth":"eth1","mode":"DHCP"})"));
  EXPECT_EQ(written(entry("eth1", EthMode::eth_mode_t(7))), json(R"({"eth":"eth1","mode":"Undefined"})"));
}

TEST(EthIpV4Cfg, WritingKeepsOtherMembersOfItsBlock) {
  Json::Value document = json(R"({"static":{"dns":"1.1.1.1"}})");
  EthIpV4Cfg().Serialize(document);
  EXPECT_EQ(document["static"]["dns"], "1.1.1.1");
}

TEST(EthIpV4Cfg, ReadsAStaticInterface) {
  const auto cfg = readFrom<EthIpV4Cfg>(R"({"eth":"eth0","mode":"static","static":{"ip":"127.0.0.1",
                                           "mask":"255.0.0.0","gw":"10.20.30.40"}})");
  EXPECT_EQ(cfg.eth, "eth0");
  EXPECT_EQ(cfg.mode.mode, EthMode::ETH_MODE_STATIC);
  expectAddresses(cfg, 0x7F000001, 0xFF000000, address(10, 20, 30, 40));
}

TEST(EthIpV4Cfg, AMissingNameEmptiesTheName) {
  EXPECT_EQ(over(entry("eth0"), "{}").eth, "");
  EXPECT_EQ(over(entry("eth0"), R"({"eth":null})").eth, "");
}

TEST(EthIpV4Cfg, ReadsTheModeAsEthModeDoes) {
  EXPECT_EQ(over(entry("eth0"), R"({"mode":{"mode":"DHCP"}})").mode.mode, EthMode::ETH_MODE_DHCP);
  EXPECT_EQ(over(entry("eth0", EthMode::ETH_MODE_DHCP), R"({"mode":"dhcp"})").mode.mode, EthMode::ETH_MODE_DHCP);
  EXPECT_EQ(over(entry("eth0", EthMode::ETH_MODE_DHCP), R"({"mode":"static"})").mode.mode, EthMode::ETH_MODE_STATIC);
}

TEST(EthIpV4Cfg, InDhcpModeTheAddressesAreNotTouched) {
  const auto cfg = entry("eth1");
  expectSameAddresses(over(cfg, R"({"mode":"DHCP","static":{"ip":"1.2.3.4","mask":"255.0.0.0","gw":"4.3.2.1"}})"), cfg);
  const auto other = entry("eth1", EthMode::eth_mode_t(7));
  expectSameAddresses(over(other, R"({"static":{"ip":"1.2.3.4"}})"), other);
}

TEST(EthIpV4Cfg, ModeKeptStaticReadsTheAddresses) {
  EXPECT_EQ(over(entry("eth1"), R"({"mode":"x","static":{"ip":"1.2.3.4"}})").ip, address(1, 2, 3, 4));
}

TEST(EthIpV4Cfg, MissingEmptyAndBadAddressesStay) {
  const auto cfg = entry("eth0");
  const CapturedLog log;
  for (const char* const document :
       {R"({})", R"({"static":null})", R"({"static":{}})", R"({"static":[]})", R"({"static":{"other":1}})",
        R"({"static":{"ip":"","mask":"","gw":""}})", R"({"static":{"ip":null,"mask":null,"gw":null}})"}) {
    expectSameAddresses(over(cfg, document), cfg);
  }
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(EthIpV4Cfg, ABadAddressIsLoggedAndReadingGoesOn) {
  const CapturedLog log;
  const auto cfg = over(entry("eth0"), R"({"static":{"gw":"x","ip":"300.1.1.1","mask":"255.255.255.128"}})");
  expectAddresses(cfg, address(192, 168, 0, 100), 0xFFFFFF80, address(192, 168, 0, 1));
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "Error parsing IP [x]: invalid IP address"},
                                       LogLine{2, "Error parsing IP [300.1.1.1]: invalid IP address"}));
}

TEST(EthIpV4Cfg, ReadsGatewayThenAddressThenMask) {
  const CapturedLog log;
  over(entry("eth0"), R"({"static":{"mask":"m","ip":"i","gw":"g"}})");
  EXPECT_THAT(log.texts(2),
              ElementsAre("Error parsing IP [g]: invalid IP address", "Error parsing IP [i]: invalid IP address",
                          "Error parsing IP [m]: invalid IP address"));
}

TEST(EthIpV4Cfg, WhatIsReadBeforeARefusedValueIsKept) {
  auto cfg = entry("eth0", EthMode::ETH_MODE_DHCP);
  Json::Value document = json(R"({"eth":"eth9","mode":"static","static":{"gw":"1.1.1.1","ip":{},"mask":"255.0.0.0"}})");
  EXPECT_THROW(cfg.Deserialize(document), Json::LogicError);
  EXPECT_EQ(cfg.eth, "eth9");
  EXPECT_EQ(cfg.mode.mode, EthMode::ETH_MODE_STATIC);
  expectAddresses(cfg, address(192, 168, 0, 100), address(255, 255, 0, 0), address(1, 1, 1, 1));
}

TEST(EthIpV4Cfg, RefusesAStaticMemberThatIsNoObject) {
  for (const char* const text : {R"({"static":"x"})", R"({"static":1})", R"({"static":true})", R"({"static":[1]})"}) {
    EXPECT_THROW(readFrom<EthIpV4Cfg>(text), Json::LogicError) << text;
  }
}

TEST(EthIpV4Cfg, AddsWhatItLooksForAndMissesToTheDocument) {
  EXPECT_EQ(afterReading<EthIpV4Cfg>("{}"), json(R"({"mode":null,"static":null})"));
  EXPECT_EQ(afterReading<EthIpV4Cfg>("null"), json(R"({"mode":null,"static":null})"));
  EXPECT_EQ(afterReading<EthIpV4Cfg>(R"({"eth":"a","mode":"DHCP"})"), json(R"({"eth":"a","mode":"DHCP"})"));
  EXPECT_EQ(afterReading<EthIpV4Cfg>(R"({"mode":"static","static":{"x":1}})"),
            json(R"({"mode":"static","static":{"x":1}})"));
}

TEST(EthIpV4Cfg, TheVlanTagDoesNotTravel) {
  auto cfg = entry("eth0");
  cfg.vlan.id = 10;
  EXPECT_EQ(written(cfg), written(entry("eth0")));
  EXPECT_EQ(over(cfg, R"({"vlan":{"id":5},"id":6})").vlan.id, 10);
}

// Equality and order

TEST(EthIpV4Cfg, EqualInterfacesHaveTheSameNameModeAndAddresses) {
  const auto cfg = entry("eth1");
  const auto changed = [&cfg](auto change) {
    auto other = cfg;
    change(other);
    return other;
  };
  EXPECT_TRUE(cfg == entry("eth1"));
  EXPECT_FALSE(cfg != entry("eth1"));
  EXPECT_FALSE(cfg == changed([](auto& c) { c.eth = "eth2"; }));
  EXPECT_TRUE(cfg != changed([](auto& c) { c.eth = "eth2"; }));
  EXPECT_FALSE(cfg == changed([](auto& c) { c.mode.mode = EthMode::ETH_MODE_DHCP; }));
  EXPECT_FALSE(cfg == changed([](auto& c) { c.ip += 1; }));
  EXPECT_FALSE(cfg == changed([](auto& c) { c.mask += 1; }));
  EXPECT_FALSE(cfg == changed([](auto& c) { c.gw += 1; }));
  EXPECT_TRUE(cfg == changed([](auto& c) { c.vlan.id = 10; }));
}

TEST(EthIpV4Cfg, TheAddressesOfDhcpInterfacesDoNotCount) {
  auto a = entry("eth1", EthMode::ETH_MODE_DHCP);
  auto b = a;
  b.ip = b.mask = b.gw = 1;
  EXPECT_TRUE(a == b);
  a.mode.mode = b.mode.mode = EthMode::eth_mode_t(7);
  EXPECT_FALSE(a == b);
}

TEST(EthIpV4Cfg, OnlyTheNameOrders) {
  EXPECT_TRUE(entry("eth0") < entry("eth0.10"));
  EXPECT_TRUE(entry("eth0.10") < entry("eth1"));
  EXPECT_TRUE(entry("eth10") < entry("eth2"));
  EXPECT_TRUE(entry("E") < entry("e"));
  EXPECT_TRUE(entry("e") < entry("\xc3\xa9"));
  EXPECT_FALSE(entry("eth1") < entry("eth0"));
  auto higher = entry("eth1");
  higher.ip += 1;
  EXPECT_FALSE(entry("eth1") < higher);
  EXPECT_FALSE(higher < entry("eth1"));
}

// validate

struct Fault {
  const char* text;  ///< null: none
  uint32_t ip;
  uint32_t mask;
  uint32_t gw;
};

const Fault kFaults[] = {
    {nullptr, address(192, 168, 0, 100), 0xFFFFFF00, 0},
    {nullptr, address(192, 168, 0, 100), 0xFFFFFF00, address(192, 168, 0, 1)},
    {nullptr, address(1, 0, 0, 0), 1, address(1, 0, 0, 0)},
    {nullptr, address(127, 0, 0, 2), 0xFF000000, address(127, 0, 0, 1)},
    {nullptr, address(223, 255, 255, 255), 0xFF000000, address(223, 255, 255, 255)},
    {nullptr, address(240, 0, 0, 1), 0x00FF00FF, address(240, 0, 0, 0)},
    {"Interface IP cannot start with 0", 0, 0, 0},
    {"Interface IP cannot start with 0", address(0, 255, 255, 255), 0xFFFFFF00, 0},
    {"Interface IP cannot be set as the local host 127.0.0.1", address(127, 0, 0, 1), 0xFFFFFF00, 1},
    {"Interface IP cannot be multicast", address(224, 0, 0, 0), 0xFFFFFF00, 1},
    {"Interface IP cannot be multicast", address(239, 255, 255, 255), 0, 0},
    {"Interface gateway cannot start with 0", address(10, 0, 0, 1), 0, 1},
    {"Interface gateway cannot start with 0", address(10, 0, 0, 1), 0xFFFFFF00, address(0, 255, 255, 255)},
    {"Interface gateway cannot be multicast", address(10, 0, 0, 1), 0, address(224, 0, 0, 1)},
    {"Interface gateway cannot be multicast", address(10, 0, 0, 1), 0xFFFFFF00, address(239, 255, 255, 255)},
    {"Interface mask cannot be 0.0.0.0", address(10, 0, 0, 1), 0, 0},
    {"Interface mask cannot be 0.0.0.0", address(10, 0, 0, 1), 0, address(10, 0, 0, 2)},
};

TEST(EthIpV4Cfg, ValidateReportsTheFirstFault) {
  for (const Fault& fault : kFaults) {
    auto cfg = entry("eth0");
    cfg.ip = fault.ip;
    cfg.mask = fault.mask;
    cfg.gw = fault.gw;
    ErrorAuxMsg::getInstance()->clear();
    const CapturedLog log;
    if (!fault.text) {
      EXPECT_EQ(cfg.validate(), 0) << std::hex << fault.ip << ' ' << fault.gw;
      EXPECT_THAT(log.lines(), IsEmpty());
      EXPECT_THAT(ErrorAuxMsg::getInstance()->getMessages(), IsEmpty());
    } else {
      EXPECT_EQ(cfg.validate(), -27);
      EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, fault.text}));
      EXPECT_THAT(ErrorAuxMsg::getInstance()->getMessages(), ElementsAre(fault.text));
    }
  }
}

TEST(EthIpV4Cfg, ValidateChecksOnlyStaticInterfaces) {
  EXPECT_EQ(EthIpV4Cfg().validate(), -27);
  for (const int mode : {1, 7}) {
    EthIpV4Cfg cfg;
    cfg.mode.mode = EthMode::eth_mode_t(mode);
    cfg.mask = 0;
    const CapturedLog log;
    EXPECT_EQ(cfg.validate(), 0);
    EXPECT_THAT(log.lines(), IsEmpty());
  }
}

}  // namespace
}  // namespace zel::test
