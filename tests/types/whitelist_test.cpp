#include "types/whitelist.h"

#include "tests/support/captured_log.h"
#include "tests/support/json_of.h"

namespace zel::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr unsigned int kIp = 0xEF010101;    // 239.1.1.1
constexpr unsigned int kMask = 0xFFFFFF00;  // 255.255.255.0

WhiteListEntry::whitelist_entry_t kind(int value) { return WhiteListEntry::whitelist_entry_t(value); }

WhiteListEntry filled() {
  WhiteListEntry entry(kIp, kMask, 4, kind(2));
  entry.enable(true);
  return entry;
}

TEST(WhiteListEntry, AnEmptyOneLogsItself) {
  const CapturedLog log;
  const WhiteListEntry entry;
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{7, "Adding Empty Whitelist Entry"}));
  EXPECT_EQ(entry.ip, 0U);
  EXPECT_EQ(entry.mask, 0U);
  EXPECT_FALSE(entry.enabled);
  EXPECT_EQ(entry.type, 9);
  EXPECT_EQ(entry.index, -1);
}

TEST(WhiteListEntry, AFilledOneLogsItsNumbersWithTheLetterL) {
  const CapturedLog log;
  const WhiteListEntry entry(kIp, kMask, 4, kind(2));
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{
                               7, "Adding Filled Whitelist Entry: ip 4009820417l, mask 4294967040l, index 4, type 2"}));
  EXPECT_EQ(entry.ip, kIp);
  EXPECT_EQ(entry.mask, kMask);
  EXPECT_FALSE(entry.enabled);
  EXPECT_EQ(entry.type, 2);
  EXPECT_EQ(entry.index, 4);
}

TEST(WhiteListEntry, ACopyIsNotLogged) {
  const WhiteListEntry entry;
  const CapturedLog log;
  const WhiteListEntry copy = entry;
  EXPECT_EQ(copy.index, -1);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(WhiteListEntry, TellsItsFields) {
  const auto entry = filled();
  EXPECT_EQ(entry.getIp(), kIp);
  EXPECT_EQ(entry.getMask(), kMask);
  EXPECT_EQ(entry.getIpStr(), "239.1.1.1");
  EXPECT_EQ(entry.getMaskStr(), "255.255.255.0");
  EXPECT_EQ(entry.getType(), 2);
  EXPECT_EQ(entry.getIndex(), 4);
  EXPECT_TRUE(entry.is_enabled());
  IpAddress ip;
  IpAddress mask;
  EXPECT_EQ(entry.getIp(ip), 0);
  EXPECT_EQ(entry.getMask(mask), 0);
  EXPECT_EQ(ip.getAddress(), kIp);
  EXPECT_EQ(mask.getAddress(), kMask);
}

TEST(WhiteListEntry, IsEnabledAndDisabled) {
  WhiteListEntry entry;
  EXPECT_EQ(entry.enable(true), 0);
  EXPECT_TRUE(entry.is_enabled());
  EXPECT_EQ(entry.enable(false), 0);
  EXPECT_FALSE(entry.is_enabled());
}

TEST(WhiteListEntry, SettersReturnOneWhateverTheyGet) {
  WhiteListEntry entry;
  const CapturedLog log;
  EXPECT_EQ(entry.setIp("232.0.0.0"), 1);
  EXPECT_EQ(entry.setMask("255.0.0.0"), 1);
  EXPECT_EQ(entry.ip, 0xE8000000);
  EXPECT_EQ(entry.mask, 0xFF000000);
  EXPECT_EQ(entry.setIp(""), 1);
  EXPECT_EQ(entry.setMask(""), 1);
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_EQ(entry.setIp("1.2.3"), 1);
  EXPECT_EQ(entry.setMask("x"), 1);
  EXPECT_EQ(entry.ip, 0xE8000000);
  EXPECT_EQ(entry.mask, 0xFF000000);
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "Error parsing IP [1.2.3]: invalid IP address"},
                                       LogLine{2, "Error parsing IP [x]: invalid IP address"}));
  EXPECT_EQ(entry.setIp(kIp), 1);
  EXPECT_EQ(entry.setMask(kMask), 1);
  EXPECT_EQ(entry.ip, kIp);
  EXPECT_EQ(entry.mask, kMask);
}

TEST(WhiteListEntry, WritesAddressesAndFlagOnly) {
  EXPECT_EQ(written(WhiteListEntry()), json(R"({"ip":"0.0.0.0","mask":"0.0.0.0","enabled":false})"));
  EXPECT_EQ(written(filled()), json(R"({"ip":"239.1.1.1","mask":"255.255.255.0","enabled":true})"));
}

TEST(WhiteListEntry, ReadsItsKeys) {
  const auto entry = readFrom<WhiteListEntry>(R"({"ip":"232.0.0.0","mask":"255.0.0.0","enabled":true,"type":1,
                                                 "index":3})");
  EXPECT_EQ(entry.ip, 0xE8000000);
  EXPECT_EQ(entry.mask, 0xFF000000);
  EXPECT_TRUE(entry.enabled);
  EXPECT_EQ(entry.type, 9);
  EXPECT_EQ(entry.index, -1);
}

TEST(WhiteListEntry, KeepsMissingAndEmptyAddressesAndDisables) {
  const CapturedLog log;
  for (const char* const document : {"{}", R"({"ip":"","mask":""})", R"({"ip":null,"mask":null,"enabled":null})"}) {
    const auto entry = over(filled(), document);
    EXPECT_EQ(entry.ip, kIp);
    EXPECT_EQ(entry.mask, kMask);
    EXPECT_FALSE(entry.enabled) << document;
    EXPECT_EQ(entry.type, 2);
    EXPECT_EQ(entry.index, 4);
  }
  EXPECT_THAT(log.texts(2), IsEmpty());
}

TEST(WhiteListEntry, BadAddressesAreLoggedAndStay) {
  auto entry = filled();
  const CapturedLog log;
  entry = over(entry, R"({"ip":"1.2.3","mask":"m","enabled":true})");
  EXPECT_EQ(entry.ip, kIp);
  EXPECT_EQ(entry.mask, kMask);
  EXPECT_TRUE(entry.enabled);
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "Error parsing IP [1.2.3]: invalid IP address"},
                                       LogLine{2, "Error parsing IP [m]: invalid IP address"}));
}

TEST(WhiteListEntry, ReadingLeavesTheDocumentAsItIs) { EXPECT_EQ(afterReading<WhiteListEntry>("{}"), json("{}")); }

// WhiteListDb

TEST(WhiteListDb, KindsBelowThreeAreFixed) {
  for (const int value : {0, 1, 2}) EXPECT_TRUE(WhiteListDb().isEntryFixed(kind(value)));
  for (const int value : {3, 9, -1, 1000}) EXPECT_FALSE(WhiteListDb().isEntryFixed(kind(value)));
}

TEST(WhiteListDb, WritesEntriesInAscendingOrder) {
  const auto db = readFrom<WhiteListDb>(R"([{"ip":"239.1.1.1"},{"ip":"232.0.0.0"},{"ip":"1.0.0.0"}])");
  const Json::Value document = written(db);
  ASSERT_TRUE(document.isArray());
  ASSERT_EQ(document.size(), 3U);
  EXPECT_EQ(document[0]["ip"], "1.0.0.0");
  EXPECT_EQ(document[1]["ip"], "232.0.0.0");
  EXPECT_EQ(document[2]["ip"], "239.1.1.1");
}

TEST(WhiteListDb, WritesTheEntriesThatAreNotFixed) {
  WhiteListDb db;
  int ip = 0;
  for (const int value : {0, 9, 1, 3, 2}) {
    const auto address = unsigned(++ip);
    db.entries.emplace(address, WhiteListEntry(address, 0, value, kind(value)));
  }
  Json::Value variable;
  db.SerializeVariable(variable);
  ASSERT_EQ(variable.size(), 2U);
  EXPECT_EQ(variable[0]["ip"], "0.0.0.2");
  EXPECT_EQ(variable[1]["ip"], "0.0.0.4");
  EXPECT_EQ(written(db).size(), 5U);
}

TEST(WhiteListDb, AnEmptyOneWritesNothing) {
  Json::Value document;
  WhiteListDb().Serialize(document);
  EXPECT_TRUE(document.isNull());
}

TEST(WhiteListDb, WritingLeavesUnknownMembersAndLaterElements) {
  auto db = readFrom<WhiteListDb>(R"([{"ip":"1.0.0.0"}])");
  Json::Value document = json(R"([{"note":"x"},{"ip":"9.9.9.9"}])");
  db.Serialize(document);
  EXPECT_EQ(document, json(R"([{"note":"x","ip":"1.0.0.0","mask":"0.0.0.0","enabled":false},{"ip":"9.9.9.9"}])"));
}

TEST(WhiteListDb, ReplacesItsEntriesAndLogsIt) {
  auto db = readFrom<WhiteListDb>(R"([{"ip":"1.0.0.0"},{"ip":"2.0.0.0"}])");
  const CapturedLog log;
  db = over(db, R"([{"ip":"3.0.0.0","mask":"255.0.0.0","enabled":true}])");
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{5, "Cleaning Whitelist database and loading it from the received json"},
                                       LogLine{7, "Adding Empty Whitelist Entry"}));
  ASSERT_EQ(db.entries.size(), 1U);
  const auto& [key, entry] = *db.entries.begin();
  EXPECT_EQ(key, 0x03000000U);
  EXPECT_EQ(entry.ip, 0x03000000U);
  EXPECT_EQ(entry.mask, 0xFF000000U);
  EXPECT_TRUE(entry.enabled);
  EXPECT_EQ(entry.type, 9);
  EXPECT_EQ(entry.index, -1);
}

TEST(WhiteListDb, KeepsTheFirstEntryOfAnAddress) {
  const auto db =
      readFrom<WhiteListDb>(R"([{"ip":"1.0.0.0","mask":"255.0.0.0"},{"ip":"1.0.0.0","mask":"255.255.0.0"}])");
  ASSERT_EQ(db.entries.size(), 1U);
  EXPECT_EQ(db.entries.begin()->second.getMaskStr(), "255.0.0.0");
}

TEST(WhiteListDb, KeysBadAndMissingAddressesUnderZero) {
  const CapturedLog log;
  const auto db = readFrom<WhiteListDb>(R"([{"ip":"1.2.3","enabled":true},{},{"ip":"5.0.0.0"}])");
  ASSERT_EQ(db.entries.size(), 2U);
  EXPECT_TRUE(db.entries.at(0).enabled);
  EXPECT_THAT(log.texts(2), ElementsAre("Error parsing IP [1.2.3]: invalid IP address"));
}

TEST(WhiteListDb, EmptyAndNullLeaveNoEntry) {
  const auto db = readFrom<WhiteListDb>(R"([{"ip":"1.0.0.0"}])");
  EXPECT_THAT(over(db, "[]").entries, IsEmpty());
  EXPECT_THAT(over(db, "null").entries, IsEmpty());
  EXPECT_THAT(over(db, "{}").entries, IsEmpty());
}

TEST(WhiteListDb, RefusesAnObjectWithMembersAndKeepsWhatItReadBefore) {
  EXPECT_THROW(readFrom<WhiteListDb>(R"({"a":1})"), Json::LogicError);
  WhiteListDb db;
  Json::Value document = json(R"([{"ip":"1.0.0.0"},7])");
  EXPECT_THROW(db.Deserialize(document), Json::LogicError);
  EXPECT_EQ(db.entries.size(), 1U);
}

}  // namespace
}  // namespace zel::test
