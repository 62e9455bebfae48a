#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "net/eth_ip_utils.h"
#include "tests/net/host.h"
#include "tests/support/private_network.h"
#include "types/sysmgr_types.h"

namespace {

using testing::ElementsAreArray;
using testing::IsEmpty;
using zel::test::configureNetwork;
using zel::test::TemporaryDirectory;

/// Every field of each configuration, as text.
std::vector<std::string> describe(const std::list<EthIpV4Cfg>& configs) {
  std::vector<std::string> texts;
  for (const EthIpV4Cfg& config : configs) {
    texts.push_back(config.eth + " " + EthMode::toText(config.mode.mode) + " " + IpAddress(config.ip).toString() + "/" +
                    IpAddress(config.mask).toString() + " by " + IpAddress(config.gw).toString() + " vlan " +
                    std::to_string(config.vlan.id) + "." + std::to_string(config.vlan.priority) + "." +
                    std::to_string(config.vlan.tpid));
  }
  return texts;
}

std::string fixedIp(const std::string& eth) {
  return eth + " static 192.168.0.100/255.255.255.0 by 0.0.0.0 vlan 0.0.33024";
}
std::string dhcp(const std::string& eth, int vlanId = 0) {
  return eth + " DHCP 0.0.0.0/255.255.255.0 by 0.0.0.0 vlan " + std::to_string(vlanId) + ".0.33024";
}

BoardModel modelOf(int value) {
  BoardModel model;
  model.setModel(static_cast<BoardModelType::board_models_t>(value));
  return model;
}
constexpr int kNimbra = 7;
constexpr int kVelda = 9;

struct Row {
  int model;
  std::vector<std::string> expected;
};
void PrintTo(const Row& row, std::ostream* out) { *out << row.model; }

const Row kRows[] = {
    {0, {fixedIp("eth0"), dhcp("eth1"), dhcp("eth2")}},
    {1, {fixedIp("eth0"), dhcp("eth1"), dhcp("eth2")}},
    {2, {fixedIp("eth0"), dhcp("eth1")}},
    {3, {dhcp("eth0"), fixedIp("eth1"), dhcp("eth2"), dhcp("eth3")}},
    {4, {fixedIp("eth0"), dhcp("eth0.10", 10), dhcp("eth0.20", 20)}},
    {5, {dhcp("eth0"), fixedIp("eth1"), dhcp("eth2")}},
    {6, {fixedIp("eth0"), dhcp("eth1")}},
    {8, {fixedIp("eth0"), dhcp("eth1"), dhcp("eth2")}},
    {9, {}},
    {10, {fixedIp("eth0"), dhcp("eth1"), dhcp("eth2")}},
    {11, {fixedIp("eth0"), dhcp("eth1"), dhcp("eth2")}},
    {12, {fixedIp("eth0"), dhcp("eth1"), dhcp("eth2")}},
    {13, {}},
    {14, {}},
    {-1, {}},
};

std::list<EthIpV4Cfg> defaultsOf(int model) {
  std::list<EthIpV4Cfg> defaults;
  EXPECT_EQ(SysParameters().fillEthIPv4DefaultCfg(defaults, modelOf(model)), 0);
  return defaults;
}

/// The defaults of a model, after a change.
template <class Change>
SysParameters changed(int model, Change change) {
  SysParameters parameters;
  parameters.setEthIpv4DefaultConfig(modelOf(model));
  change(parameters.ethIPv4Cfg);
  return parameters;
}

class FixedDefaults : public testing::TestWithParam<Row> {};

TEST_P(FixedDefaults, AreTheFactorySetInItsOrder) {
  EXPECT_THAT(describe(defaultsOf(GetParam().model)), ElementsAreArray(GetParam().expected));
}

TEST_P(FixedDefaults, ReplaceTheCallersList) {
  std::list<EthIpV4Cfg> configs(5);
  const SysParameters parameters;
  EXPECT_EQ(parameters.fillEthIPv4DefaultCfg(configs, modelOf(GetParam().model)), 0);
  EXPECT_THAT(describe(configs), ElementsAreArray(GetParam().expected));
  EXPECT_THAT(parameters.ethIPv4Cfg, IsEmpty());
}

TEST_P(FixedDefaults, ReplaceTheRecordsOwnInterfaces) {
  SysParameters parameters;
  parameters.ethIPv4Cfg.resize(5);
  EXPECT_EQ(parameters.setEthIpv4DefaultConfig(modelOf(GetParam().model)), 0);
  EXPECT_THAT(describe(parameters.ethIPv4Cfg), ElementsAreArray(GetParam().expected));
}

TEST_P(FixedDefaults, AreDefault) {
  SysParameters parameters;
  parameters.setEthIpv4DefaultConfig(modelOf(GetParam().model));
  EXPECT_TRUE(parameters.isEthIPv4ConfigDefault(modelOf(GetParam().model)));
}

TEST_P(FixedDefaults, AreDefaultInReverseOrder) {
  EXPECT_TRUE(changed(GetParam().model, [](auto& configs) {
                configs.reverse();
              }).isEthIPv4ConfigDefault(modelOf(GetParam().model)));
}

TEST_P(FixedDefaults, AreNotDefaultWithOneMore) {
  EXPECT_FALSE(changed(GetParam().model, [](auto& configs) {
                 configs.emplace_back();
               }).isEthIPv4ConfigDefault(modelOf(GetParam().model)));
}

TEST_P(FixedDefaults, AreNotDefaultWithOneLess) {
  if (GetParam().expected.empty()) return;
  EXPECT_FALSE(changed(GetParam().model, [](auto& configs) {
                 configs.pop_back();
               }).isEthIPv4ConfigDefault(modelOf(GetParam().model)));
}

TEST_P(FixedDefaults, DependOnTheModelTypeOnly) {
  BoardModel model;
  model.model = static_cast<BoardModelType::board_models_t>(GetParam().model);
  model.modelCopyA = model.modelCopyB = BoardModelType::KORVA;
  model.bitstream.type = BitstreamType::BITSTREAM_HDMI_ST2110;
  SysParameters parameters;
  parameters.boardModel.setModel(BoardModelType::BRAVIK_AOIP);
  std::list<EthIpV4Cfg> configs;
  parameters.fillEthIPv4DefaultCfg(configs, model);
  EXPECT_THAT(describe(configs), ElementsAreArray(GetParam().expected));
}

INSTANTIATE_TEST_SUITE_P(Models, FixedDefaults, testing::ValuesIn(kRows), [](const auto& row) {
  return row.param.model < 0 ? std::string("Negative") : std::to_string(row.param.model);
});

// On model 0: "eth0" static, "eth1" and "eth2" DHCP.

template <class Change>
bool isStillDefault(Change change) {
  return changed(0, change).isEthIPv4ConfigDefault(modelOf(0));
}

TEST(EthDefault, IgnoresTheAddressesOfDhcp) {
  EXPECT_TRUE(isStillDefault([](auto& configs) {
    configs.back().ip = 1;
    configs.back().mask = 2;
    configs.back().gw = 3;
  }));
}

TEST(EthDefault, ComparesTheAddressesOfAStaticInterface) {
  EXPECT_FALSE(isStillDefault([](auto& configs) { configs.front().ip = 1; }));
  EXPECT_FALSE(isStillDefault([](auto& configs) { configs.front().mask = 1; }));
  EXPECT_FALSE(isStillDefault([](auto& configs) { configs.front().gw = 1; }));
}

TEST(EthDefault, ComparesNamesAndModes) {
  EXPECT_FALSE(isStillDefault([](auto& configs) { configs.back().eth = "eth3"; }));
  EXPECT_FALSE(isStillDefault([](auto& configs) { configs.back().mode.mode = EthMode::ETH_MODE_STATIC; }));
  EXPECT_FALSE(isStillDefault([](auto& configs) { configs.front().mode.mode = EthMode::ETH_MODE_DHCP; }));
}

TEST(EthDefault, IgnoresTheVlanTag) {
  EXPECT_TRUE(isStillDefault([](auto& configs) { configs.front().vlan.id = 7; }));
}

TEST(EthDefault, NeedsEveryDefaultEntry) {
  EXPECT_FALSE(isStillDefault([](auto& configs) { configs.back() = *std::next(configs.begin()); }))
      << "\"eth1\" twice, no \"eth2\"";
}

TEST(EthDefault, IsTheEmptyListWhereAModelHasNoInterfaces) {
  EXPECT_TRUE(SysParameters().isEthIPv4ConfigDefault(modelOf(kVelda)));
  EXPECT_FALSE(SysParameters().isEthIPv4ConfigDefault(modelOf(0)));
}

TEST(EthDefault, IsAnotherOneForAnotherModel) {
  EXPECT_FALSE(changed(3, [](auto&) {}).isEthIPv4ConfigDefault(modelOf(5)));
  EXPECT_TRUE(changed(0, [](auto&) {}).isEthIPv4ConfigDefault(modelOf(8)));
}

/// Each test has a host of its own: a network with nothing in it but the loopback interface, and no leases.
class HostDefaults : public testing::Test {
 protected:
  void SetUp() override {
    const std::string why = zel::test::enterPrivateNetwork();
    if (!why.empty()) GTEST_SKIP() << "this system allows no network namespace (" << why << ")";
    dhcp_lease = leases_.path();
  }

  TemporaryDirectory leases_;
};

TEST_F(HostDefaults, AreTheInterfacesAsTheyAre) {
  configureNetwork(R"(
    link add eth1 type veth peer name eth0
    link add eth2 type bridge
    link add eth2.10 type bridge
    addr add 10.0.0.1/8 dev eth0
    addr add 10.1.0.1/24 dev eth1
    addr add 10.2.0.1/24 dev eth2
    addr add 10.3.0.1/24 dev eth2
  )");
  leases_.addFile("dhclient.eth1.leases");
  leases_.addFile("dhclient.eth2.10.leases");

  std::list<EthBasicInfo> kernels;
  EthIpUtils().get_eth_info(kernels, false);
  std::vector<std::string> expected;
  for (const EthBasicInfo& info : kernels) {
    if (info.name == "eth0") expected.push_back("eth0 static 10.0.0.1/255.255.255.0 by 0.0.0.0 vlan 0.0.33024");
    if (info.name == "eth1") expected.push_back("eth1 DHCP 10.1.0.1/255.255.255.0 by 0.0.0.0 vlan 0.0.33024");
    if (info.name == "eth2") expected.push_back("eth2 DHCP 10.3.0.1/255.255.255.0 by 0.0.0.0 vlan 0.0.33024");
    if (info.name == "eth2.10") expected.push_back(dhcp("eth2.10"));
  }
  EXPECT_EQ(expected.size(), 4U);
  EXPECT_THAT(describe(defaultsOf(kNimbra)), ElementsAreArray(expected));
}

TEST_F(HostDefaults, ReplaceTheCallersListAndFollowTheHost) {
  configureNetwork("link add eth0 type bridge");
  std::list<EthIpV4Cfg> configs(5);
  EXPECT_EQ(SysParameters().fillEthIPv4DefaultCfg(configs, modelOf(kNimbra)), 0);
  EXPECT_THAT(describe(configs), ElementsAreArray({"eth0 static 0.0.0.0/255.255.255.0 by 0.0.0.0 vlan 0.0.33024"}));
  leases_.addFile("eth0");
  EXPECT_EQ(SysParameters().fillEthIPv4DefaultCfg(configs, modelOf(kNimbra)), 0);
  EXPECT_THAT(describe(configs), ElementsAreArray({dhcp("eth0")}));
}

TEST_F(HostDefaults, AreNoneWhereThereIsOnlyTheLoopback) { EXPECT_THAT(defaultsOf(kNimbra), IsEmpty()); }

TEST_F(HostDefaults, AreNeverDefault) {
  SysParameters parameters;
  EXPECT_FALSE(parameters.isEthIPv4ConfigDefault(modelOf(kNimbra))) << "both empty";
  configureNetwork("link add eth0 type bridge");
  EXPECT_EQ(parameters.setEthIpv4DefaultConfig(modelOf(kNimbra)), 0);
  EXPECT_EQ(parameters.ethIPv4Cfg.size(), 1U);
  EXPECT_FALSE(parameters.isEthIPv4ConfigDefault(modelOf(kNimbra)));
}

TEST_F(HostDefaults, AreNotReadToSayThatTheyAreNeverDefault) {
  dhcp_lease = leases_.path() + "/missing";
  configureNetwork("link add eth0 type bridge");
  testing::internal::CaptureStdout();
  EXPECT_FALSE(SysParameters().isEthIPv4ConfigDefault(modelOf(kNimbra)));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

}  // namespace
