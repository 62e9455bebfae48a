#include <dirent.h>
#include <gmock/gmock.h>
#include <malloc.h>
#include <net/if.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include "net/eth_ip_utils.h"
#include "tests/net/host.h"
#include "tests/support/few_descriptors.h"
#include "tests/support/private_network.h"
#include "tests/support/stopwatch.h"
#include "tests/support/wait_until.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using zel::test::configureNetwork;
using zel::test::FewDescriptors;
using zel::test::TemporaryDirectory;

/// Each test has a network of its own with nothing in it but the loopback interface.
class RealInterfaces : public testing::Test {
 protected:
  void SetUp() override {
    const std::string why = zel::test::enterPrivateNetwork();
    if (!why.empty()) GTEST_SKIP() << "this system allows no network namespace (" << why << ")";
  }

  std::vector<std::string> listed(bool includeLoopback) {
    std::list<EthBasicInfo> interfaces;
    EXPECT_EQ(utils_.get_eth_info(interfaces, includeLoopback), 0);
    std::vector<std::string> texts;
    for (const EthBasicInfo& info : interfaces) texts.push_back(info.name + " " + info.mac);
    return texts;
  }

  /// The record of an interface after `get_ip_address`, whose result has to agree with the flag.
  EthBasicInfo addressed(const std::string& name) {
    EthBasicInfo info;
    info.name = name;
    info.ip = 7;
    EXPECT_EQ(utils_.get_ip_address(info), info.ipPresent);
    return info;
  }

  EthIpUtils utils_;
};

TEST_F(RealInterfaces, AreListedWithoutTheLoopback) {
  configureNetwork("link add eth0 address 00:1A:2B:3C:4D:5E type bridge");
  EXPECT_THAT(listed(false), ElementsAre("eth0 001a2b3c4d5e"));
}

TEST_F(RealInterfaces, AreListedWithTheLoopback) {
  configureNetwork("link add eth0 address 00:1A:2B:3C:4D:5E type bridge");
  EXPECT_THAT(listed(true), ElementsAre("lo 000000000000", "eth0 001a2b3c4d5e"));
}

TEST_F(RealInterfaces, AreListedInTheKernelsOrder) {
  configureNetwork(R"(
    link add eth2 type bridge
    link add eth0 type veth peer name eth1
    link add eth0.20 type bridge
    link add eth0.10 type bridge
  )");
  std::vector<std::string> expected;
  struct if_nameindex* const names = if_nameindex();
  for (const auto* name = names; name->if_index != 0; ++name) expected.emplace_back(name->if_name);
  if_freenameindex(names);

  std::list<EthBasicInfo> interfaces;
  utils_.get_eth_info(interfaces, true);
  std::vector<std::string> found;
  for (const EthBasicInfo& info : interfaces) found.push_back(info.name);
  EXPECT_EQ(expected.size(), 6U);
  EXPECT_THAT(found, ElementsAreArray(expected));
}

TEST_F(RealInterfaces, AreListedWithNameAndMacOnly) {
  configureNetwork(R"(
    link add eth0 address 00:1A:2B:3C:4D:5E type bridge
    addr add 10.0.0.1/24 dev eth0
  )");
  std::list<EthBasicInfo> interfaces;
  utils_.get_eth_info(interfaces, false);
  EthBasicInfo expected;
  expected.name = "eth0";
  expected.mac = "001a2b3c4d5e";
  Json::Value expectedJson;
  expected.Serialize(expectedJson);
  ASSERT_EQ(interfaces.size(), 1U);
  Json::Value json;
  interfaces.front().Serialize(json);
  EXPECT_EQ(json, expectedJson);
}

TEST_F(RealInterfaces, AreListedOnceWhateverTheirAddresses) {
  configureNetwork(R"(
    link add eth0 address 00:1A:2B:3C:4D:5E up type bridge
    addr add 10.0.0.1/24 dev eth0
    addr add 10.0.1.1/24 dev eth0
    addr add fd00::1/64 dev eth0
  )");
  EXPECT_THAT(listed(false), ElementsAre("eth0 001a2b3c4d5e"));
}

TEST_F(RealInterfaces, ReplaceTheCallersListAtEachCall) {
  configureNetwork(R"(
    link add eth0 type bridge
    link add eth1 type bridge
  )");
  std::list<EthBasicInfo> interfaces(5);
  utils_.get_eth_info(interfaces, false);
  EXPECT_EQ(interfaces.size(), 2U);
  utils_.get_eth_info(interfaces, false);
  EXPECT_EQ(interfaces.size(), 2U);
  configureNetwork("link del eth0");
  utils_.get_eth_info(interfaces, false);
  ASSERT_EQ(interfaces.size(), 1U);
  EXPECT_EQ(interfaces.front().name, "eth1");
}

TEST_F(RealInterfaces, AreFoundByName) {
  configureNetwork(R"(
    link add eth0.10 address 00:1a:2b:3c:4d:10 type bridge
    link add eth0 address 00:1a:2b:3c:4d:00 type bridge
  )");
  EthBasicInfo info;
  EXPECT_TRUE(utils_.get_eth_info(info, "eth0"));
  EXPECT_EQ(info.name + " " + info.mac, "eth0 001a2b3c4d00");
  EXPECT_TRUE(utils_.get_eth_info(info, "eth0.10"));
  EXPECT_EQ(info.name + " " + info.mac, "eth0.10 001a2b3c4d10");
  EXPECT_TRUE(utils_.get_eth_info(info, "lo"));
  EXPECT_EQ(info.name + " " + info.mac, "lo 000000000000");
}

TEST_F(RealInterfaces, ThatAreMissingLeaveTheRecord) {
  EthBasicInfo info;
  info.name = "before";
  info.mac = "mac";
  EXPECT_FALSE(utils_.get_eth_info(info, "eth0"));
  EXPECT_EQ(info.name + " " + info.mac, "before mac");
}

TEST_F(RealInterfaces, WithoutAnAddressHaveNone) {
  configureNetwork(R"(
    link add eth0 up type bridge
    addr add fd00::1/64 dev eth0
  )");
  for (const char* name : {"eth0", "eth1", ""}) {
    const EthBasicInfo info = addressed(name);
    EXPECT_EQ(info.ip, 0U) << name;
    EXPECT_FALSE(info.ipPresent) << name;
  }
}

TEST_F(RealInterfaces, WithOneAddressHaveIt) {
  configureNetwork(R"(
    link add eth0 type veth peer name eth1
    addr add 192.168.0.100/24 dev eth0
    addr add 10.1.2.3/8 dev eth1
  )");
  EXPECT_EQ(addressed("eth0").ip, 0xC0A80064U);
  EXPECT_EQ(addressed("eth1").ip, 0x0A010203U);
  EXPECT_EQ(addressed("lo").ip, 0x7F000001U);
  EXPECT_TRUE(addressed("eth0").ipPresent);
}

TEST_F(RealInterfaces, WithTwoAddressesHaveTheLast) {
  configureNetwork(R"(
    link add eth0 type bridge
    link add eth1 type bridge
    addr add 10.0.0.1/24 dev eth0
    addr add 10.0.0.2/24 dev eth0
    addr add 10.0.1.9/24 dev eth1
    addr add 10.0.2.1/24 dev eth1
  )");
  EXPECT_EQ(addressed("eth0").ip, 0x0A000002U) << "a secondary address of the same network";
  EXPECT_EQ(addressed("eth1").ip, 0x0A000201U) << "an address of another network";
}

TEST_F(RealInterfaces, AreToldApartByTheirWholeName) {
  configureNetwork(R"(
    link add eth0 type bridge
    link add eth0.10 type bridge
    addr add 10.0.10.1/24 dev eth0.10
    link add eth2 type bridge
    addr add 10.0.2.1/24 dev eth2 label eth2:1
  )");
  EXPECT_FALSE(addressed("eth0").ipPresent);
  EXPECT_EQ(addressed("eth0.10").ip, 0x0A000A01U);
  EXPECT_FALSE(addressed("eth2").ipPresent) << "the kernel gives the address under its label";
  EXPECT_EQ(addressed("eth2:1").ip, 0x0A000201U);
}

TEST_F(RealInterfaces, LoseTheirAddressInTheRecordWhenTheyLoseIt) {
  configureNetwork(R"(
    link add eth0 type bridge
    addr add 10.0.0.1/24 dev eth0
  )");
  EthBasicInfo info;
  info.name = "eth0";
  EXPECT_TRUE(utils_.get_ip_address(info));
  EXPECT_EQ(info.ip, 0x0A000001U);
  configureNetwork("addr flush dev eth0");
  EXPECT_FALSE(utils_.get_ip_address(info));
  EXPECT_EQ(info.ip, 0U);
  EXPECT_FALSE(info.ipPresent);
}

TEST_F(RealInterfaces, WithoutALinkLayerAreNotListedButHaveAnAddress) {
  if (access("/dev/net/tun", R_OK | W_OK) != 0) GTEST_SKIP() << "this system has no tun devices for this user";
  configureNetwork(R"(
    tuntap add dev tun0 mode tun
    tuntap add dev tap0 mode tap
    link set tap0 address 00:1a:2b:3c:4d:5e
    addr add 10.8.0.1/24 dev tun0
  )");
  EXPECT_THAT(listed(false), ElementsAre("tap0 001a2b3c4d5e"));
  EthBasicInfo info;
  EXPECT_FALSE(utils_.get_eth_info(info, "tun0"));
  EXPECT_EQ(addressed("tun0").ip, 0x0A080001U);
}

TEST_F(RealInterfaces, AreAllListedWhenThereAreAThousand) {
  // Pairs, because the kernel takes many seconds to clear a thousand bridges away, and blocks other network calls
  // meanwhile.
  std::string commands;
  std::set<std::string> expected;
  for (int i = 0; i < 1000; ++i) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "name eth%d address 02:00:00:00:%02x:%02x", i, i / 256, i % 256);
    commands += (i % 2 == 0 ? "link add " : " type veth peer ") + std::string(text.data()) + (i % 2 == 0 ? "" : "\n");
    std::snprintf(text.data(), text.size(), "eth%d 02000000%02x%02x", i, i / 256, i % 256);
    expected.insert(text.data());
  }
  commands += "addr add 10.0.0.1/24 dev eth0\naddr add 10.0.3.250/24 dev eth999\n";
  configureNetwork(commands);

  const std::vector<std::string> found = listed(false);
  EXPECT_EQ(found.size(), expected.size());
  EXPECT_EQ(std::set<std::string>(found.begin(), found.end()), expected);
  EXPECT_EQ(addressed("eth0").ip, 0x0A000001U);
  EXPECT_EQ(addressed("eth999").ip, 0x0A0003FAU);
}

TEST_F(RealInterfaces, AreNoneWhenTheHostCannotTell) {
  if (zel::test::kSanitized) GTEST_SKIP() << "a sanitizer's own checks open a pipe";
  std::list<EthBasicInfo> interfaces(5);
  EXPECT_EQ(utils_.get_eth_info(interfaces, true), 0);
  EXPECT_EQ(interfaces.size(), 1U);
  EthBasicInfo loopback;
  loopback.name = "lo";
  EXPECT_TRUE(utils_.get_ip_address(loopback));
  EthBasicInfo untouched;
  untouched.name = "before";
  {
    const FewDescriptors none(0);  // so the host cannot tell its interfaces
    EXPECT_EQ(utils_.get_eth_info(interfaces, true), 0);
    EXPECT_FALSE(utils_.get_ip_address(loopback));
    EXPECT_FALSE(utils_.get_eth_info(untouched, "lo"));
  }
  EXPECT_THAT(interfaces, IsEmpty());
  EXPECT_EQ(loopback.ip, 0U);
  EXPECT_FALSE(loopback.ipPresent);
  EXPECT_EQ(untouched.name, "before");
}

std::ptrdiff_t openDescriptors() {
  const std::filesystem::directory_iterator descriptors("/proc/self/fd");
  return std::distance(begin(descriptors), end(descriptors));
}

TEST_F(RealInterfaces, CostNoDescriptorsAndNoMemoryOverTenThousandCalls) {
  configureNetwork(R"(
    link add eth0 type veth peer name eth1
    addr add 10.0.0.1/24 dev eth0
  )");
  const TemporaryDirectory leases;
  leases.addFile("eth1");
  leases.addFile(".eth0");
  const TemporaryDirectory missing;
  dhcp_lease = leases.path();

  const auto callAll = [&leases](int times) {
    EthIpUtils utils;
    for (int i = 0; i < times; ++i) {
      std::list<EthBasicInfo> interfaces;
      utils.get_eth_info(interfaces, true);
      EthBasicInfo info;
      utils.get_eth_info(info, "eth0");
      utils.get_eth_info(info, "missing");
      utils.get_ip_address(info);
      utils.set_ip_mode(info);
      std::vector<std::string> files;
      utils.getDhcpLeaseFilenames(files, leases.path());
      utils.getDhcpLeaseFilenames(files, leases.path() + "/missing");
    }
  };
  callAll(10);  // whatever is set up once
  const std::ptrdiff_t descriptors = openDescriptors();
  const std::size_t heap = mallinfo2().uordblks;  // 0 under a sanitizer, which looks for leaks itself
  callAll(10000 / zel::test::kSlowdown);
  EXPECT_EQ(openDescriptors(), descriptors);
  EXPECT_EQ(mallinfo2().uordblks, heap);
}

}  // namespace
