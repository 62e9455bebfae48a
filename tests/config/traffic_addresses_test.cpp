#include <gmock/gmock.h>

#include "common/status.h"
#include "config/system_default_cfg.h"
#include "tests/support/captured_log.h"
#include "tests/support/fake_board.h"

// The board model has a label and values that no answer of the daemon carries: the tests set them in the cache itself.
// An explicit instantiation may name what is private.
BoardModel& boardModelOf(SystemDefaultCfg& cache);
template <BoardModel SystemDefaultCfg::*member>
struct BoardModelOf {
  friend BoardModel& boardModelOf(SystemDefaultCfg& cache) { return cache.*member; }
};
template struct BoardModelOf<&SystemDefaultCfg::boardModel_>;

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using zel::test::CapturedLog;
using zel::test::checkLinePattern;
using zel::test::FakeBoard;
using zel::test::LogLine;

SystemDefaultCfg& cache() { return SystemDefaultCfg::getInstance(); }

/// A cache of a board with the interfaces that any model uses. The address of each tells which one it is.
class Interfaces : public testing::Test {
 protected:
  Interfaces() {
    board.set(FakeBoard::kDynamic, R"({"eth-basics": [
        {"name": "eth0", "ip": "10.0.0.0", "mac": "000000000000", "index": 2, "label": "L0"},
        {"name": "eth3", "ip": "10.0.0.3"},
        {"name": "eth2", "ip": "10.0.0.2"},
        {"name": "eth1", "ip": "10.0.0.1"},
        {"name": "eth1", "ip": "10.9.9.9"},
        {"name": "eth0.20", "ip": "10.0.20.0"},
        {"name": "eth0.10", "ip": "10.0.10.0"},
        {"name": "enp2s0f0", "ip": "10.2.0.0"},
        {"name": "label0", "ip": "10.3.0.0"}]})");
    redundancy(false);
  }
  void redundancy(bool on) {
    board.set(FakeBoard::kStored, on ? R"({"redundancy": {"enable": true}})" : R"({"redundancy": {"enable": false}})");
    EXPECT_EQ(cache().init(), 0);
  }
  /// The traffic addresses, which do not depend on what the vector held.
  static std::vector<std::string> traffic(int expected = 0) {
    std::vector<IpAddress> addresses(5, IpAddress(7));
    EXPECT_EQ(cache().getTrafficInterfacesIPv4Address(addresses), expected);
    std::vector<std::string> texts;
    texts.reserve(addresses.size());
    for (const IpAddress& address : addresses) texts.push_back(address.toString());
    return texts;
  }

  FakeBoard board;
};

using Addresses = std::vector<std::string>;
const Addresses kEth12{"10.0.0.1", "10.0.0.2"};
const Addresses kEth23{"10.0.0.2", "10.0.0.3"};

struct Expected {
  int model;
  bool dualLink;
  bool singlePort;
  Addresses withRedundancy;
  Addresses withoutRedundancy;
};
const Expected kExpected[] = {
    {0, true, false, kEth12, kEth12},
    {1, true, false, kEth12, kEth12},
    {2, false, false, {"10.0.0.1"}, {"10.0.0.1"}},
    {3, true, false, kEth23, kEth23},
    {4, false, true, {"10.0.10.0", "10.0.20.0"}, {"10.0.0.0"}},
    {5, true, false, kEth12, kEth12},
    {6, true, false, kEth12, kEth12},
    {7, false, false, {"10.2.0.0"}, {"10.2.0.0"}},
    {8, true, false, kEth12, kEth12},
    {9, true, false, kEth12, kEth12},
    {10, true, false, kEth12, kEth12},
    {11, true, false, kEth12, kEth12},
    {12, true, false, kEth12, kEth12},
    {13, false, false, {}, {}},
    {14, false, false, {}, {}},
    {-1, false, false, {}, {}},
};

TEST_F(Interfaces, OfEachModelCarryTheTraffic) {
  for (const bool redundant : {true, false}) {
    redundancy(redundant);
    for (const Expected& expected : kExpected) {
      SCOPED_TRACE("model " + std::to_string(expected.model) + (redundant ? " with" : " without") + " redundancy");
      boardModelOf(cache()).model = BoardModelType::board_models_t(expected.model);
      const Addresses& addresses = redundant ? expected.withRedundancy : expected.withoutRedundancy;
      CapturedLog log;
      EXPECT_EQ(traffic(addresses.empty() ? -16 : 0), addresses);
      if (addresses.empty()) {
        EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "getTrafficInterfacesIPv4Address:: Interface not found"}));
      } else {
        EXPECT_THAT(log.lines(), IsEmpty());
      }
      EXPECT_EQ(cache().isRedundancyDualLinkEnable(), redundant && expected.dualLink);
      EXPECT_EQ(cache().isRedundancySinglePortEnable(), redundant && expected.singlePort);
    }
  }
}

TEST_F(Interfaces, AreChosenByTheModelThatTheDaemonReports) {
  board.set(FakeBoard::kBoardModel, R"({"model": "KORVA"})");
  EXPECT_EQ(cache().init(), 0);
  EXPECT_EQ(traffic(), kEth23);
  SysParameters stored;
  stored.boardModel.model = BoardModelType::ORVEN_TESSA;
  cache().notifyStoredParametersUpdate(stored);
  EXPECT_EQ(traffic(), kEth23) << "the configured model is another thing";
  EXPECT_TRUE(cache().isRedundancyDualLinkEnable());
}

TEST_F(Interfaces, OfNimbraAreNamedByItsLabel) {
  boardModelOf(cache()).model = BoardModelType::NIMBRA_AES67;
  boardModelOf(cache()).modelLabel = "label0";
  EXPECT_EQ(traffic(), Addresses{"10.3.0.0"});
  boardModelOf(cache()).modelLabel = "label1";
  EXPECT_EQ(traffic(-16), Addresses{}) << "the label counts, though there is no such interface";
  boardModelOf(cache()).modelLabel = "";
  EXPECT_EQ(traffic(), Addresses{"10.2.0.0"});
  boardModelOf(cache()).model = BoardModelType::ORVEN_AES67;
  boardModelOf(cache()).modelLabel = "label0";
  EXPECT_EQ(traffic(), kEth12) << "on other models the label names nothing";
}

TEST_F(Interfaces, ThatAreMissingAreLeftOut) {
  boardModelOf(cache()).model = BoardModelType::ORVEN_AES67;
  const std::size_t asked = board.asked().size();
  SysParametersDynamic dynamic;
  dynamic.ethBasics.emplace_back();
  dynamic.ethBasics.back().name = "eth2";
  dynamic.ethBasics.back().ip = 0x0A000002;
  cache().notifyDynamicInfoUpdate(dynamic);
  CapturedLog log;
  EXPECT_EQ(traffic(), Addresses{"10.0.0.2"});
  EXPECT_THAT(log.lines(), IsEmpty()) << "a missing primary is not logged";
  boardModelOf(cache()).model = BoardModelType::ORVEN_AVB;
  EXPECT_EQ(traffic(-16), Addresses{});
  EXPECT_EQ(board.asked().size(), asked) << "and nothing is fetched";
}

TEST_F(Interfaces, AreFetchedUnlessTheCacheFollows) {
  EthBasicInfo info;
  std::list<EthBasicInfo> list;
  std::size_t asked = board.asked().size();
  EXPECT_EQ(cache().getEthDynamicBasicInfo("eth1", info), 0);
  EXPECT_EQ(board.asked().size(), asked + 1);
  EXPECT_EQ(board.asked().back(), FakeBoard::kDynamic);
  EXPECT_EQ(cache().getEthDynamicBasicInfo(list), 0);
  EXPECT_EQ(board.asked().size(), asked + 2);
  EXPECT_EQ(board.asked().back(), FakeBoard::kDynamic);

  board.set(FakeBoard::kDynamic, R"({"eth-basics": [{"name": "new"}]})");
  EXPECT_EQ(cache().getEthDynamicBasicInfo("new", info), 0) << "what was fetched is what counts";
  EXPECT_EQ(cache().getEthDynamicBasicInfo(list), 0);
  EXPECT_EQ(list.size(), 1u);

  PollFds fds;
  ASSERT_EQ(cache().initSubscribers(fds), 0);
  board.set(FakeBoard::kDynamic, "{}");
  asked = board.asked().size();
  EXPECT_EQ(cache().getEthDynamicBasicInfo("new", info), 0);
  EXPECT_EQ(cache().getEthDynamicBasicInfo(list), 0);
  EXPECT_EQ(list.size(), 1u);
  EXPECT_EQ(board.asked().size(), asked);
}

TEST_F(Interfaces, AreFoundByTheirExactName) {
  EthBasicInfo info;
  EXPECT_EQ(cache().getEthDynamicBasicInfo("eth0", info), 0);
  EXPECT_EQ(info.name, "eth0");
  EXPECT_EQ(info.ip, 0x0A000000u);
  EXPECT_EQ(info.mac, "000000000000");
  EXPECT_EQ(info.index, 2u);
  EXPECT_EQ(info.label, "L0");
  EXPECT_EQ(cache().getEthDynamicBasicInfo("eth1", info), 0);
  EXPECT_EQ(info.ip, 0x0A000001u) << "the first of the name";

  for (const char* const name : {"", "eth", "eth00", "ETH0", "eth0 "}) {
    EthBasicInfo untouched;
    untouched.name = "untouched";
    CapturedLog log;
    EXPECT_EQ(cache().getEthDynamicBasicInfo(name, untouched), -16);
    EXPECT_EQ(untouched.name, "untouched");
    EXPECT_THAT(log.lines(),
                ElementsAre(LogLine{2, std::string("getEthDynamicBasicInfo - interface ") + name + " not found"}));
  }
}

TEST_F(Interfaces, ReplaceWhatTheListHeld) {
  std::list<EthBasicInfo> list(20);
  EXPECT_EQ(cache().getEthDynamicBasicInfo(list), 0);
  ASSERT_EQ(list.size(), 9u);
  EXPECT_EQ(list.front().name, "eth0");
  EXPECT_EQ(list.back().name, "label0");
}

TEST_F(Interfaces, StayWhenTheyCannotBeFetched) {
  board.refuse(FakeBoard::kDynamic, -31);
  const std::string json = checkLinePattern("int SysMgrJsonClient::getDynamicParameters(Json::Value&)", -31);
  const std::string typed = checkLinePattern("int SysMgrClient::getDynamicParameters(SysParametersDynamic&)", -31);
  {
    CapturedLog log;
    EthBasicInfo info;
    info.name = "untouched";
    EXPECT_EQ(cache().getEthDynamicBasicInfo("eth1", info), -31);
    EXPECT_EQ(info.name, "untouched");
    EXPECT_THAT(log.texts(2),
                ElementsAre(MatchesRegex(json), MatchesRegex(typed),
                            MatchesRegex(checkLinePattern(
                                "int SystemDefaultCfg::getEthDynamicBasicInfo(std::string, EthBasicInfo&)", -31))));
  }
  {
    CapturedLog log;
    std::list<EthBasicInfo> list(3);
    EXPECT_EQ(cache().getEthDynamicBasicInfo(list), -31);
    EXPECT_EQ(list.size(), 3u);
    EXPECT_THAT(log.texts(2),
                ElementsAre(MatchesRegex(json), MatchesRegex(typed),
                            MatchesRegex(checkLinePattern(
                                "int SystemDefaultCfg::getEthDynamicBasicInfo(std::list<EthBasicInfo>&)", -31))));
  }
  EXPECT_TRUE(cache().isLocalBoardIpAddr(IpAddress(0x0A000001)));
}

TEST_F(Interfaces, TellWhetherAnAddressIsLocal) {
  const std::size_t asked = board.asked().size();
  EXPECT_TRUE(cache().isLocalBoardIpAddr(IpAddress(0x0A000000)));
  EXPECT_TRUE(cache().isLocalBoardIpAddr(IpAddress(0x0A030000)));
  EXPECT_FALSE(cache().isLocalBoardIpAddr(IpAddress(0x0000000A))) << "host order";
  EXPECT_FALSE(cache().isLocalBoardIpAddr(IpAddress()));
  SysParametersDynamic none;
  cache().notifyDynamicInfoUpdate(none);
  EXPECT_FALSE(cache().isLocalBoardIpAddr(IpAddress(0x0A000000)));
  EXPECT_EQ(board.asked().size(), asked);
}

TEST_F(Interfaces, IncludeTheOneOfTheRtspServer) {
  const std::pair<const char*, uint32_t> cases[] = {{"eth2", 0x0A000002}, {"eth1", 0x0A000001}, {"all", 0}, {"eth", 0}};
  for (const auto& [name, expected] : cases) {
    SysParameters stored;
    stored.rtspEthPort = name;
    cache().notifyStoredParametersUpdate(stored);
    const std::size_t asked = board.asked().size();
    CapturedLog log;
    IpAddress address(7);
    EXPECT_EQ(cache().getRtspIPv4Address(address), 0);
    EXPECT_EQ(address.getAddress(), expected) << name;
    EXPECT_EQ(board.asked().size(), asked);
    EXPECT_THAT(log.lines(), IsEmpty());
  }
}

}  // namespace
