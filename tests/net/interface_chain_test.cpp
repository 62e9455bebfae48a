#include "net/internal/interface_chain.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <deque>

#include "tests/support/captured_log.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using zel::test::CapturedLog;
using zel::test::LogLine;

using Mac = std::array<unsigned char, 6>;
constexpr Mac kMac{0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
constexpr Mac kOtherMac{0xFF, 0x00, 0x0F, 0xF0, 0x10, 0x01};
constexpr Mac kNoMac{};

/// A chain as the kernel could give it, in the order in which it is built.
class TestChain {
 public:
  TestChain& link(const char* name, const Mac& mac, unsigned char macLength = 6) {
    auto* address = add<sockaddr_ll>(name, AF_PACKET);
    address->sll_halen = macLength;
    std::memcpy(address->sll_addr, mac.data(), mac.size());
    return *this;
  }
  TestChain& ip(const char* name, const char* dotted) {
    inet_pton(AF_INET, dotted, &add<sockaddr_in>(name, AF_INET)->sin_addr);
    return *this;
  }
  TestChain& ip6(const char* name) {
    add<sockaddr_in6>(name, AF_INET6);
    return *this;
  }
  TestChain& withoutAddress(const char* name) {
    add<sockaddr_in>(name, AF_UNSPEC);
    entries_.back().ifa_addr = nullptr;
    return *this;
  }
  const ifaddrs* first() const { return &entries_.front(); }

 private:
  template <class Address>
  Address* add(const char* name, sa_family_t family) {
    ifaddrs* const last = entries_.empty() ? nullptr : &entries_.back();
    sockaddr_storage& address = addresses_.emplace_back();
    address.ss_family = family;
    ifaddrs& entry = entries_.emplace_back();
    if (last != nullptr) last->ifa_next = &entry;
    entry.ifa_name = const_cast<char*>(name);
    entry.ifa_addr = reinterpret_cast<sockaddr*>(&address);
    return reinterpret_cast<Address*>(&address);
  }
  std::deque<ifaddrs> entries_;  // a deque keeps the places of its elements
  std::deque<sockaddr_storage> addresses_;
};

std::vector<std::string> namesAndMacs(const std::list<EthBasicInfo>& interfaces) {
  std::vector<std::string> texts;
  for (const EthBasicInfo& info : interfaces) texts.push_back(info.name + " " + info.mac);
  return texts;
}

EthBasicInfo named(const char* name, uint32_t ip = 0, bool ipPresent = false) {
  EthBasicInfo info;
  info.name = name;
  info.ip = ip;
  info.ipPresent = ipPresent;
  return info;
}

TEST(LinkLayerInterfaces, OfAnEmptyChainAreNone) { EXPECT_THAT(zel::linkLayerInterfaces(nullptr, true), IsEmpty()); }

TEST(LinkLayerInterfaces, StandInTheOrderOfTheChain) {
  TestChain chain;
  chain.link("eth1", kMac).link("eth0.10", kOtherMac).link("eth0", kMac);
  EXPECT_THAT(namesAndMacs(zel::linkLayerInterfaces(chain.first(), false)),
              ElementsAre("eth1 001a2b3c4d5e", "eth0.10 ff000ff01001", "eth0 001a2b3c4d5e"));
}

TEST(LinkLayerInterfaces, AreThoseWithALinkLayerAddressOnly) {
  TestChain chain;
  chain.withoutAddress("tun0").ip("eth0", "10.0.0.1").ip6("eth0").link("eth1", kMac).withoutAddress("tun1");
  EXPECT_THAT(namesAndMacs(zel::linkLayerInterfaces(chain.first(), true)), ElementsAre("eth1 001a2b3c4d5e"));
}

TEST(LinkLayerInterfaces, LeaveOutTheLoopbackByItsExactName) {
  TestChain chain;
  chain.link("lo", kNoMac).link("lo0", kMac).link("LO", kMac).link("l", kMac);
  EXPECT_THAT(namesAndMacs(zel::linkLayerInterfaces(chain.first(), false)),
              ElementsAre("lo0 001a2b3c4d5e", "LO 001a2b3c4d5e", "l 001a2b3c4d5e"));
}

TEST(LinkLayerInterfaces, HoldTheLoopbackOnRequest) {
  TestChain chain;
  chain.link("lo", kNoMac).link("eth0", kMac);
  EXPECT_THAT(namesAndMacs(zel::linkLayerInterfaces(chain.first(), true)),
              ElementsAre("lo 000000000000", "eth0 001a2b3c4d5e"));
}

TEST(LinkLayerInterfaces, AreNotJoinedByName) {
  TestChain chain;
  chain.link("eth0", kMac).link("eth0", kOtherMac);
  EXPECT_THAT(namesAndMacs(zel::linkLayerInterfaces(chain.first(), true)),
              ElementsAre("eth0 001a2b3c4d5e", "eth0 ff000ff01001"));
}

TEST(LinkLayerInterfaces, HaveSixMacBytesWhateverTheirLengthSays) {
  TestChain chain;
  chain.link("eth0", kMac, 0).link("eth1", kMac, 4).link("eth2", kMac, 8);
  EXPECT_THAT(namesAndMacs(zel::linkLayerInterfaces(chain.first(), true)),
              ElementsAre("eth0 001a2b3c4d5e", "eth1 001a2b3c4d5e", "eth2 001a2b3c4d5e"));
}

TEST(LinkLayerInterfaces, HaveNoAddressYet) {
  TestChain chain;
  chain.link("eth0", kMac).ip("eth0", "10.0.0.1");
  const std::list<EthBasicInfo> interfaces = zel::linkLayerInterfaces(chain.first(), true);
  ASSERT_EQ(interfaces.size(), 1U);
  EXPECT_EQ(interfaces.front().ip, 0U);
  EXPECT_FALSE(interfaces.front().ipPresent);
  EXPECT_EQ(interfaces.front().index, 0U);
  EXPECT_EQ(interfaces.front().label, "");
}

TEST(ReadLinkLayer, TakesTheFirstEntryOfTheName) {
  TestChain chain;
  chain.ip("eth0", "10.0.0.1").link("eth0.10", kOtherMac).link("eth0", kMac).link("eth0", kOtherMac);
  EthBasicInfo info = named("before", 7, true);
  EXPECT_TRUE(zel::readLinkLayer(chain.first(), "eth0", info));
  EXPECT_EQ(info.name, "eth0");
  EXPECT_EQ(info.mac, "001a2b3c4d5e");
  EXPECT_EQ(info.ip, 7U);
  EXPECT_TRUE(info.ipPresent);
}

TEST(ReadLinkLayer, KnowsTheLoopback) {
  TestChain chain;
  chain.link("lo", kNoMac);
  EthBasicInfo info;
  EXPECT_TRUE(zel::readLinkLayer(chain.first(), "lo", info));
  EXPECT_EQ(info.mac, "000000000000");
}

TEST(ReadLinkLayer, LeavesTheRecordWhenNoNameMatches) {
  TestChain chain;
  chain.link("eth0", kMac).withoutAddress("eth1").ip("eth2", "10.0.0.1").link("eth", kMac);
  for (const char* name : {"eth1", "eth2", "eth0.10", "et", ""}) {
    EthBasicInfo info = named("before");
    info.mac = "mac";
    EXPECT_FALSE(zel::readLinkLayer(chain.first(), name, info)) << name;
    EXPECT_EQ(info.name, "before");
    EXPECT_EQ(info.mac, "mac");
  }
}

TEST(ReadAddress, StoresHostOrder) {
  TestChain chain;
  chain.ip("eth0", "192.168.0.100");
  EthBasicInfo info = named("eth0");
  EXPECT_TRUE(zel::readAddress(chain.first(), info));
  EXPECT_EQ(info.ip, 0xC0A80064U);
  EXPECT_TRUE(info.ipPresent);
}

TEST(ReadAddress, TakesTheLastAddressOfTheInterface) {
  TestChain chain;
  chain.ip("eth0", "10.0.0.1").ip("eth1", "10.0.0.9").ip("eth0", "10.0.0.2").ip("eth0.10", "10.0.0.8");
  EthBasicInfo info = named("eth0");
  EXPECT_TRUE(zel::readAddress(chain.first(), info));
  EXPECT_EQ(info.ip, 0x0A000002U);
}

TEST(ReadAddress, CountsTheAddressZeroAsPresent) {
  TestChain chain;
  chain.ip("eth0", "0.0.0.0");
  EthBasicInfo info = named("eth0", 7, false);
  EXPECT_TRUE(zel::readAddress(chain.first(), info));
  EXPECT_EQ(info.ip, 0U);
  EXPECT_TRUE(info.ipPresent);
}

TEST(ReadAddress, ClearsTheRecordWithoutAnIpv4Address) {
  TestChain chain;
  chain.link("eth0", kMac).ip6("eth0").withoutAddress("eth0").ip("eth1", "10.0.0.1");
  EthBasicInfo info = named("eth0", 7, true);
  EXPECT_FALSE(zel::readAddress(chain.first(), info));
  EXPECT_EQ(info.ip, 0U);
  EXPECT_FALSE(info.ipPresent);
}

TEST(ReadAddress, ClearsTheRecordWhenTheChainIsEmpty) {
  EthBasicInfo info = named("eth0", 7, true);
  EXPECT_FALSE(zel::readAddress(nullptr, info));
  EXPECT_EQ(info.ip, 0U);
  EXPECT_FALSE(info.ipPresent);
}

TEST(AddressedInterfaces, AreTheListedOnesWithTheirAddresses) {
  TestChain chain;
  chain.link("lo", kNoMac).link("eth1", kMac).link("eth0", kOtherMac).withoutAddress("tun0").link("eth2", kMac);
  chain.ip("lo", "127.0.0.1").ip("eth0", "10.0.0.1").ip("tun0", "10.8.0.1").ip("eth1", "10.0.0.3");
  chain.ip("eth0", "10.0.0.2").ip6("eth2");
  const std::list<EthBasicInfo> interfaces = zel::addressedInterfaces(chain.first());

  const std::list<EthBasicInfo> listed = zel::linkLayerInterfaces(chain.first(), false);
  EXPECT_THAT(namesAndMacs(interfaces), testing::ContainerEq(namesAndMacs(listed)));
  for (const EthBasicInfo& info : interfaces) {
    EthBasicInfo alone = named(info.name.c_str());
    zel::readAddress(chain.first(), alone);
    EXPECT_EQ(info.ip, alone.ip) << info.name;
    EXPECT_EQ(info.ipPresent, alone.ipPresent) << info.name;
  }
  EXPECT_EQ(std::next(interfaces.begin())->ip, 0x0A000002U);
}

TEST(AddressedInterfaces, OfAnEmptyChainAreNone) { EXPECT_THAT(zel::addressedInterfaces(nullptr), IsEmpty()); }

// The kernel's IPv4 addresses always have a text, and it always is an address: other families stand in for those that
// have not.

TEST(TakeAddress, LogsATextThatIsNoIpv4AddressAndKeepsTheAddress) {
  const CapturedLog log;
  sockaddr_in6 loopback{};
  loopback.sin6_family = AF_INET6;
  loopback.sin6_addr = in6addr_loopback;
  EthBasicInfo info = named("eth0", 7, false);

  zel::takeAddress(reinterpret_cast<const sockaddr*>(&loopback), sizeof loopback, info);

  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "Error parsing IP [::1]: invalid IP address"}));
  EXPECT_EQ(info.ip, 7U);
  EXPECT_TRUE(info.ipPresent);
}

/// From here on the process writes its standard output where its standard error was, and its standard error nowhere.
void swapOutputs() {
  dup2(STDERR_FILENO, STDOUT_FILENO);
  dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
}

void takeAddressOf(sa_family_t family, socklen_t length) {
  swapOutputs();
  sockaddr_storage address{};
  address.ss_family = family;
  EthBasicInfo info;
  zel::takeAddress(reinterpret_cast<const sockaddr*>(&address), length, info);
}

TEST(TakeAddressDeathTest, EndsTheProcessWithStatus1WhenTheAddressHasNoText) {
  // What a death test looks at is standard error, which is the swapped standard output here.
  EXPECT_EXIT(takeAddressOf(AF_INET, 1), testing::ExitedWithCode(1),
              "^getnameinfo\\(\\) failed: ai_family not supported\n$");
  EXPECT_EXIT(takeAddressOf(AF_PACKET, sizeof(sockaddr_ll)), testing::ExitedWithCode(1),
              "^getnameinfo\\(\\) failed: ai_family not supported\n$");
}

}  // namespace
