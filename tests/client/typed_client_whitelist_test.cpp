#include "tests/client/typed_client_fixture.h"

#include <atomic>

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::SizeIs;
using zel::test::LogLine;
using zel::test::WithTypedClient;

struct Change {
  const char* name;
  int (*call)(SysMgrClient&, const std::string& ip, const std::string& mask);
  const char* id;
  const char* enabled;  ///< what the entry says
  const char* signature;
  const char* jsonOperation;
};
void PrintTo(const Change& change, std::ostream* out) { *out << change.name; }

#define CALL(...) \
  [](SysMgrClient& client, const std::string& ip, const std::string& mask) { return client.__VA_ARGS__; }

constexpr char kAdd[] = "int SysMgrClient::addMcastWhitelist(std::string, std::string, bool)";
constexpr char kRemove[] = "int SysMgrClient::removeMcastWhitelist(std::string, std::string)";
constexpr char kEnable[] = "int SysMgrClient::enableMcastWhitelist(std::string, std::string, bool)";
constexpr char kJsonAdd[] = "int SysMgrJsonClient::addMcastWhitelist(Json::Value&, Json::Value&)";
constexpr char kJsonRemove[] = "int SysMgrJsonClient::removeMcastWhitelist(Json::Value&, Json::Value&)";
constexpr char kJsonEnable[] = "int SysMgrJsonClient::enableMcastWhitelist(Json::Value&, Json::Value&)";

const Change kChanges[] = {
    {"AddEnabled", CALL(addMcastWhitelist(ip, mask, true)), "13", "true", kAdd, kJsonAdd},
    {"AddDisabled", CALL(addMcastWhitelist(ip, mask, false)), "13", "false", kAdd, kJsonAdd},
    {"Remove", CALL(removeMcastWhitelist(ip, mask)), "14", "false", kRemove, kJsonRemove},
    {"Enable", CALL(enableMcastWhitelist(ip, mask, true)), "15", "true", kEnable, kJsonEnable},
    {"Disable", CALL(enableMcastWhitelist(ip, mask, false)), "15", "false", kEnable, kJsonEnable},
};

class WhitelistChange : public WithTypedClient, public testing::TestWithParam<Change> {
 protected:
  void expectEntry(const std::string& ip, const std::string& mask) const {
    expectRequest(GetParam().id, R"({"white-list":[{"enabled":)" + std::string(GetParam().enabled) + R"(,"ip":")" + ip +
                                     R"(","mask":")" + mask + R"("}]})");
  }
};

TEST_P(WhitelistChange, SendsOneEntryInAnArray) {
  EXPECT_EQ(GetParam().call(client_, "239.1.2.0", "255.255.255.0"), 0);
  expectEntry("239.1.2.0", "255.255.255.0");
  EXPECT_THAT(log_.texts(Logger::LEVEL_ERROR), IsEmpty());
}

TEST_P(WhitelistChange, PassesAFailureThroughAndLogsIt) {
  daemon_.answer(R"({"status": -5})");
  EXPECT_EQ(GetParam().call(client_, "239.1.2.0", "255.255.255.0"), -5);
  expectFailures(GetParam().jsonOperation, GetParam().signature, -5);
}

TEST_P(WhitelistChange, TakesAPositiveStatusForSuccess) {
  daemon_.answer(R"({"status": 3})");
  EXPECT_EQ(GetParam().call(client_, "239.1.2.0", "255.255.255.0"), 0);
  EXPECT_THAT(log_.texts(Logger::LEVEL_ERROR), IsEmpty());
}

TEST_P(WhitelistChange, SendsZeroForTextsThatAreNoAddresses) {
  EXPECT_EQ(GetParam().call(client_, "1.2.3", "none"), 0);
  expectEntry("0.0.0.0", "0.0.0.0");
  EXPECT_THAT(log_.texts(Logger::LEVEL_ERROR), ElementsAre("Error parsing IP [1.2.3]: invalid IP address",
                                                           "Error parsing IP [none]: invalid IP address"));
}

TEST_P(WhitelistChange, SendsZeroForEmptyTextsSilently) {
  EXPECT_EQ(GetParam().call(client_, "", ""), 0);
  expectEntry("0.0.0.0", "0.0.0.0");
  EXPECT_THAT(log_.texts(Logger::LEVEL_ERROR), IsEmpty());
}

TEST_P(WhitelistChange, MakesOneEmptyEntry) {
  EXPECT_EQ(GetParam().call(client_, "239.1.2.0", "255.255.255.0"), 0);
  EXPECT_THAT(log_.texts(Logger::LEVEL_TRACE), ElementsAre("Adding Empty Whitelist Entry"));
}

INSTANTIATE_TEST_SUITE_P(All, WhitelistChange, testing::ValuesIn(kChanges),
                         [](const auto& row) { return std::string(row.param.name); });

const LogLine kAddingLine{6, std::string(kAdd) + ":: Adding Entry ip:239.1.2.0 mask:255.255.255.0 "};

class Whitelist : public WithTypedClient, public testing::Test {};

TEST_F(Whitelist, TellsAnAdditionBeforeAnythingElse) {
  std::atomic<std::size_t> linesWhenSent{0};
  daemon_.onRequest([&](const auto&) -> std::vector<zel::test::Answer> {
    linesWhenSent = log_.texts(Logger::LEVEL_PROGRESS).size();
    return {R"({"status": -5})"};
  });
  EXPECT_EQ(client_.addMcastWhitelist("239.1.2.0", "255.255.255.0", true), -5);
  ASSERT_GE(log_.lines().size(), 1U);
  EXPECT_EQ(log_.lines().front(), kAddingLine);
  EXPECT_EQ(linesWhenSent, 1U);
}

TEST_F(Whitelist, TellsAnAdditionWithTheTextsAsTheyAre) {
  EXPECT_EQ(client_.addMcastWhitelist("1.2.3", "", true), 0);
  EXPECT_THAT(log_.texts(Logger::LEVEL_PROGRESS), ElementsAre(std::string(kAdd) + ":: Adding Entry ip:1.2.3 mask: "));
}

TEST_F(Whitelist, TellsAdditionsOnly) {
  client_.removeMcastWhitelist("239.1.2.0", "255.255.255.0");
  client_.enableMcastWhitelist("239.1.2.0", "255.255.255.0", true);
  EXPECT_THAT(log_.texts(Logger::LEVEL_PROGRESS), IsEmpty());
}

auto isEntry(unsigned int ip, unsigned int mask, bool enabled) {
  return AllOf(Field(&WhiteListEntry::ip, ip), Field(&WhiteListEntry::mask, mask),
               Field(&WhiteListEntry::enabled, enabled), Field(&WhiteListEntry::index, -1));
}

constexpr char kThree[] = R"({"white-list": [
  {"ip": "239.1.1.1", "mask": "255.255.255.255", "enabled": true},
  {"ip": "232.0.0.0", "mask": "255.0.0.0"},
  {"ip": "239.1.1.1", "mask": "255.255.0.0", "enabled": false}]})";

TEST_F(Whitelist, IsAskedForWithoutABody) {
  std::list<WhiteListEntry> entries;
  EXPECT_EQ(client_.getMcastWhitelist(entries), 0);
  expectRequest("16", "");
}

TEST_F(Whitelist, KeepsTheDaemonsOrderAndItsDoubles) {
  daemon_.answer(kThree);
  std::list<WhiteListEntry> entries;
  EXPECT_EQ(client_.getMcastWhitelist(entries), 0);
  EXPECT_THAT(entries, ElementsAre(isEntry(0xEF010101, 0xFFFFFFFF, true), isEntry(0xE8000000, 0xFF000000, false),
                                   isEntry(0xEF010101, 0xFFFF0000, false)));
  EXPECT_THAT(log_.texts(Logger::LEVEL_ERROR), IsEmpty());
}

TEST_F(Whitelist, IsAppendedToTheCallersList) {
  daemon_.answer(kThree);
  std::list<WhiteListEntry> entries(2);
  entries.front().ip = 1;
  entries.back().ip = 2;
  EXPECT_EQ(client_.getMcastWhitelist(entries), 0);
  EXPECT_THAT(entries, ElementsAre(isEntry(1, 0, false), isEntry(2, 0, false), isEntry(0xEF010101, 0xFFFFFFFF, true),
                                   isEntry(0xE8000000, 0xFF000000, false), isEntry(0xEF010101, 0xFFFF0000, false)));
}

TEST_F(Whitelist, AddsNothingWhenItIsEmptyOrAbsent) {
  std::list<WhiteListEntry> entries(2);
  for (const char* answer : {R"({"white-list": []})", R"({"white-list": null})", "{}", R"({"status": 3})"}) {
    daemon_.answer(answer);
    EXPECT_EQ(client_.getMcastWhitelist(entries), 0) << answer;
    EXPECT_THAT(entries, SizeIs(2)) << answer;
  }
}

TEST_F(Whitelist, LeavesTheListOnFailureAndLogsIt) {
  daemon_.answer(R"({"status": -5, "white-list": [{"ip": "239.1.1.1"}]})");
  std::list<WhiteListEntry> entries(2);
  EXPECT_EQ(client_.getMcastWhitelist(entries), -5);
  EXPECT_THAT(entries, SizeIs(2));
  expectFailures("int SysMgrJsonClient::getMcastWhitelist(Json::Value&)",
                 "int SysMgrClient::getMcastWhitelist(std::list<WhiteListEntry>&)", -5);
}

TEST_F(Whitelist, KeepsTheAddressZeroForABadText) {
  daemon_.answer(R"({"white-list": [{"ip": "1.2.3", "mask": "255.0.0.0", "enabled": true}]})");
  std::list<WhiteListEntry> entries;
  EXPECT_EQ(client_.getMcastWhitelist(entries), 0);
  EXPECT_THAT(entries, ElementsAre(isEntry(0, 0xFF000000, true)));
  EXPECT_THAT(log_.texts(Logger::LEVEL_ERROR), ElementsAre("Error parsing IP [1.2.3]: invalid IP address"));
}

TEST_F(Whitelist, LetsJsonCppsExceptionsOutWithTheEntriesBeforeAndWorksOn) {
  daemon_.answer(R"({"white-list": [{"ip": "239.1.1.1"}, 5, {"ip": "239.1.1.2"}]})");
  std::list<WhiteListEntry> entries;
  EXPECT_THROW(client_.getMcastWhitelist(entries), Json::LogicError);
  EXPECT_THAT(entries, ElementsAre(isEntry(0xEF010101, 0, false)));

  daemon_.answer(R"({"white-list": {"key": "no array"}})");
  EXPECT_THROW(client_.getMcastWhitelist(entries), Json::LogicError);
  EXPECT_THAT(entries, SizeIs(1));

  daemon_.answer(kThree);
  EXPECT_EQ(client_.getMcastWhitelist(entries), 0);
  EXPECT_THAT(entries, SizeIs(4));
}

}  // namespace
