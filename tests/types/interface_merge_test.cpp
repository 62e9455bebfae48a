#include <ctime>
#include <random>
#include <sstream>

#include "tests/support/captured_log.h"
#include "tests/support/json_of.h"
#include "types/sys_parameters.h"

namespace zel::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

EthIpV4Cfg entry(const std::string& name, uint32_t ip) {
  EthIpV4Cfg cfg;
  cfg.eth = name;
  cfg.ip = ip;
  return cfg;
}

Json::Value arrayOf(const std::list<EthIpV4Cfg>& entries) {
  Json::Value document;
  document["ethipv4"] = Json::Value(Json::arrayValue);
  for (const EthIpV4Cfg& cfg : entries) document["ethipv4"].append(written(cfg));
  return document;
}

/// Everything that an entry holds, so that two lists can be compared.
std::string show(const std::list<EthIpV4Cfg>& entries) {
  std::ostringstream text;
  for (const EthIpV4Cfg& cfg : entries) {
    text << cfg.eth << ' ' << cfg.mode.mode << ' ' << cfg.ip << ' ' << cfg.mask << ' ' << cfg.gw << ' ' << cfg.vlan.id
         << ' ' << int(cfg.vlan.priority) << ' ' << cfg.vlan.tpid << '\n';
  }
  return text.str();
}

SysParameters holding(std::list<EthIpV4Cfg> entries) {
  SysParameters parameters;
  parameters.ethIPv4Cfg = std::move(entries);
  return parameters;
}

TEST(InterfaceMerge, UpdatesAddsAndKeeps) {
  const CapturedLog log;
  const auto merged =
      over(holding({entry("eth0", 1), entry("eth1", 2)}), arrayOf({entry("eth2", 4), entry("eth1", 3)}));
  EXPECT_EQ(show(merged.ethIPv4Cfg), show({entry("eth0", 1), entry("eth1", 3), entry("eth2", 4)}));
  EXPECT_THAT(log.lines(),
              ElementsAre(LogLine{5, "We do have saved eth on the list: discarding the 2 olds and getting the new 2"}));
}

TEST(InterfaceMerge, LogsBothCountsIntoAnEmptyList) {
  const CapturedLog log;
  const auto merged = over(holding({}), arrayOf({entry("eth1", 1), entry("eth0", 2), entry("eth9", 3)}));
  EXPECT_EQ(show(merged.ethIPv4Cfg), show({entry("eth0", 2), entry("eth1", 1), entry("eth9", 3)}));
  EXPECT_THAT(log.texts(5),
              ElementsAre("We do have saved eth on the list: discarding the 0 olds and getting the new 3"));
}

TEST(InterfaceMerge, AMissingArrayLeavesTheListUnsortedAndSilent) {
  const std::list<EthIpV4Cfg> unsorted = {entry("b", 1), entry("a", 2)};
  const CapturedLog log;
  for (const char* const text : {R"({})", R"({"ethipv4":null})", R"({"ethipv4":[]})", R"({"ethipv4":{}})"}) {
    EXPECT_EQ(show(over(holding(unsorted), text).ethIPv4Cfg), show(unsorted)) << text;
  }
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(InterfaceMerge, ATextOrANumberHasNoElementsAndStillSorts) {
  for (const char* const text : {R"({"ethipv4":"x"})", R"({"ethipv4":5})", R"({"ethipv4":true})"}) {
    const CapturedLog log;
    EXPECT_EQ(show(over(holding({entry("b", 1), entry("a", 2)}), text).ethIPv4Cfg),
              show({entry("a", 2), entry("b", 1)}));
    EXPECT_THAT(log.texts(5),
                ElementsAre("We do have saved eth on the list: discarding the 2 olds and getting the new 0"));
  }
}

TEST(InterfaceMerge, OverwritesTheWholeEntryItsVlanTagToo) {
  auto old = entry("eth0", 1);
  old.gw = 7;
  old.vlan.id = 10;
  Json::Value document = json(R"({"ethipv4":[{"eth":"eth0","mode":"DHCP"}]})");
  EthIpV4Cfg expected;
  expected.eth = "eth0";
  expected.mode.mode = EthMode::ETH_MODE_DHCP;
  EXPECT_EQ(show(over(holding({old}), document).ethIPv4Cfg), show({expected}));
}

TEST(InterfaceMerge, KeepsTheVlanTagOfAnEntryThatIsNotNamed) {
  auto old = entry("eth0", 1);
  old.vlan.id = 10;
  EXPECT_EQ(show(over(holding({old}), arrayOf({entry("eth1", 1)})).ethIPv4Cfg), show({old, entry("eth1", 1)}));
}

TEST(InterfaceMerge, OfSeveralEntriesWithOneNameTheFirstIsOverwritten) {
  EXPECT_EQ(show(over(holding({entry("eth0", 1), entry("eth0", 2)}), arrayOf({entry("eth0", 3)})).ethIPv4Cfg),
            show({entry("eth0", 3), entry("eth0", 2)}));
}

TEST(InterfaceMerge, OfSeveralElementsWithOneNameTheLastStays) {
  EXPECT_EQ(show(over(holding({}), arrayOf({entry("eth0", 1), entry("eth1", 2), entry("eth0", 3)})).ethIPv4Cfg),
            show({entry("eth0", 3), entry("eth1", 2)}));
}

TEST(InterfaceMerge, NamesAreComparedByteForByte) {
  using namespace std::string_literals;
  const auto merged =
      over(holding({entry("eth0", 1)}), arrayOf({entry("ETH0", 2), entry("eth0\0x"s, 3), entry("", 4)}));
  EXPECT_EQ(show(merged.ethIPv4Cfg), show({entry("", 4), entry("ETH0", 2), entry("eth0", 1), entry("eth0\0x"s, 3)}));
}

TEST(InterfaceMerge, LongNamesSurviveBeingOverwrittenTwice) {
  const std::string name(100, 'x');
  const auto merged = over(holding({entry(name, 1)}), arrayOf({entry(name, 2), entry(name, 3), entry("a", 4)}));
  EXPECT_EQ(show(merged.ethIPv4Cfg), show({entry("a", 4), entry(name, 3)}));
}

TEST(InterfaceMerge, WhatIsMergedBeforeARefusedElementStays) {
  auto parameters = holding({entry("z", 1)});
  Json::Value document = arrayOf({entry("z", 2), entry("a", 3), entry("b", 4)});
  document["ethipv4"][2]["eth"] = Json::Value(Json::objectValue);
  EXPECT_THROW(parameters.Deserialize(document), Json::LogicError);
  EXPECT_EQ(show(parameters.ethIPv4Cfg), show({entry("z", 2), entry("a", 3)})) << "not sorted yet";
}

TEST(InterfaceMerge, TakesAGapInTheArrayForAnEmptyEntry) {
  // No document has gaps; a program that fills the array by index can leave some.
  Json::Value document;
  document["ethipv4"][1] = written(entry("b", 2));
  document["ethipv4"][3] = written(entry("a", 1));
  const auto merged = over(holding({entry("c", 3)}), document);
  EXPECT_EQ(show(merged.ethIPv4Cfg), show({entry("", 0), entry("a", 1), entry("b", 2), entry("c", 3)}));
}

TEST(InterfaceMerge, RefusesAnObjectWithMembers) {
  EXPECT_THROW(readFrom<SysParameters>(R"({"ethipv4":{"a":1}})"), Json::LogicError);
}

TEST(InterfaceMerge, AnEmptyListWritesNoKeyAndAFullOneAnArray) {
  EXPECT_FALSE(written(SysParameters()).isMember("ethipv4"));
  EXPECT_EQ(written(holding({entry("b", 1), entry("a", 2)}))["ethipv4"],
            arrayOf({entry("b", 1), entry("a", 2)})["ethipv4"]);
}

/// What the merge means: for each element a search from the front.
std::list<EthIpV4Cfg> plainMerge(std::list<EthIpV4Cfg> list, Json::Value array) {
  for (Json::Value& element : array) {
    EthIpV4Cfg cfg;
    cfg.Deserialize(element);
    auto found = list.begin();
    while (found != list.end() && found->eth != cfg.eth) ++found;
    if (found != list.end()) {
      *found = cfg;
    } else {
      list.push_back(cfg);
    }
  }
  list.sort();
  return list;
}

TEST(InterfaceMerge, EqualsThePlainSearchOnAThousandRandomLists) {
  std::mt19937 random(20240607);
  const auto below = [&random](uint32_t limit) { return static_cast<uint32_t>(random() % limit); };
  const auto randomList = [&below] {
    std::list<EthIpV4Cfg> list;
    for (uint32_t i = below(8); i > 0; --i) {
      EthIpV4Cfg cfg = entry("eth" + std::to_string(below(6)), below(1000) + 1);
      cfg.mode.mode = EthMode::eth_mode_t(below(3));
      cfg.vlan.id = static_cast<uint16_t>(below(100));
      list.push_back(cfg);
    }
    return list;
  };
  for (int i = 0; i < 1000; ++i) {
    const auto list = randomList();
    const Json::Value document = arrayOf(randomList());
    // An array without elements is missing: then the list is not even sorted.
    const auto expected = document["ethipv4"].empty() ? list : plainMerge(list, document["ethipv4"]);
    ASSERT_EQ(show(over(holding(list), document).ethIPv4Cfg), show(expected)) << i;
  }
}

TEST(InterfaceMerge, LongListsMergeQuickly) {
  // Each of the elements is searched for: with a plain search this takes minutes, not seconds.
  constexpr unsigned int kCount = 100000;
  Json::Value document;
  Json::Value& array = document["ethipv4"] = Json::Value(Json::arrayValue);
  std::list<EthIpV4Cfg> list;
  for (unsigned int i = 0; i < kCount; ++i) {
    array.append(Json::Value())["eth"] = "eth" + std::to_string(i);
    list.push_back(entry("eth" + std::to_string(kCount - 1 - i), 1));
  }
  auto parameters = holding(std::move(list));
  const std::clock_t start = std::clock();  // the processor's time: other programs do not count
  parameters.Deserialize(document);
  EXPECT_LT((std::clock() - start) / CLOCKS_PER_SEC, 30);
  EXPECT_EQ(parameters.ethIPv4Cfg.size(), kCount);
}

}  // namespace
}  // namespace zel::test
