#include <ctime>

#include "tests/support/captured_log.h"
#include "tests/support/json_of.h"
#include "tests/support/wait_until.h"
#include "tests/types/random_records.h"
#include "tests/types/stored_rows.h"

namespace zel::test {
namespace {

/// Values of every kind, at the edges of their range.
const std::vector<Json::Value>& oddValues() {
  static const std::vector<Json::Value> values = [] {
    std::vector<Json::Value> all;
    for (const char* const text : {"null",
                                   "true",
                                   "false",
                                   "0",
                                   "-1",
                                   "1",
                                   "2147483647",
                                   "2147483648",
                                   "-2147483648",
                                   "-2147483649",
                                   "4294967295",
                                   "4294967296",
                                   "9223372036854775807",
                                   "-9223372036854775808",
                                   "18446744073709551615",
                                   "0.5",
                                   "-0.5",
                                   "1e300",
                                   "-1e300",
                                   "5e-324",
                                   "\"\"",
                                   "\"x\"",
                                   "\"1\"",
                                   "\"a\\u0000b\"",
                                   "\"DHCP\"",
                                   "\"static\"",
                                   "\"2059\"",
                                   "\"1.2.3.4\"",
                                   "\"999.1.1.1\"",
                                   "\"ZIRC\"",
                                   "[]",
                                   "[null]",
                                   "[[]]",
                                   "[1,\"x\",{}]",
                                   "{}",
                                   "{\"mode\":{}}",
                                   "{\"mode\":\"DHCP\"}",
                                   "{\"enable\":[]}",
                                   "{\"a\":{\"b\":{\"c\":{}}}}"}) {
      all.push_back(json(text));
    }
    all.emplace_back(std::numeric_limits<double>::infinity());
    all.emplace_back(std::numeric_limits<double>::quiet_NaN());
    all.emplace_back(std::string(100000, '%'));
    Json::Value deep;
    for (int i = 0; i < 500; ++i) deep = Json::Value(Json::arrayValue).append(deep);
    all.push_back(deep);
    return all;
  }();
  return values;
}

/// Every value of the document, the document itself included.
void collect(Json::Value& value, std::vector<Json::Value*>& all) {
  all.push_back(&value);
  if (!value.isObject() && !value.isArray()) return;
  for (Json::Value& member : value) collect(member, all);
}

/// Puts an odd value at every place of a document, one at a time, and has a record read it: it ends in a value, which
/// can be written again, or in JsonCpp's exception.
template <class Record>
void expectSurvives(const Json::Value& document, int& values, int& exceptions) {
  Json::Value counted = document;
  std::vector<Json::Value*> places;
  collect(counted, places);
  for (std::size_t place = 0; place < places.size(); ++place) {
    for (const Json::Value& odd : oddValues()) {
      Json::Value hostile = document;
      std::vector<Json::Value*> here;
      collect(hostile, here);
      *here[place] = odd;
      Record record;
      try {
        record.Deserialize(hostile);
        ++values;
      } catch (const Json::LogicError&) {
        ++exceptions;
      }
      written(record);
    }
  }
}

template <class Record>
void expectSurvives(const Record& record) {
  const CapturedLog log;  // the level-2 lines of bad addresses are not of interest here
  int values = 0;
  int exceptions = 0;
  expectSurvives<Record>(written(record), values, exceptions);
  EXPECT_GT(values, 0);
  EXPECT_GT(exceptions, 0);
}

TEST(HostileDocument, SysParameters) { expectSurvives(fullParameters()); }

TEST(HostileDocument, SysParametersDynamic) {
  RandomRecords random(7);
  auto parameters = random.sysParametersDynamic();
  parameters.ethBasics = {random.ethBasicInfo()};
  parameters.errors = {SystemError()};
  expectSurvives(parameters);
}

TEST(HostileDocument, OtherRecords) {
  RandomRecords random(8);
  expectSurvives(random.ethBasicInfo());
  expectSurvives(random.sfp());
  expectSurvives(random.boardModel());
  expectSurvives(random.videoTiming());
  expectSurvives(random.ethIpV4Cfg("eth0"));
  expectSurvives(EthIpV4Cfg());
  expectSurvives(random.vlan());
  expectSurvives(WhiteListEntry());
  WhiteListDb db;
  db.entries.emplace(1U, WhiteListEntry(1, 2, 3, WhiteListEntry::WHITELIST_ENTRY_EMPTY));
  expectSurvives(db);
}

TEST(HostileDocument, WrittenOverAnOddDocumentEndsInAValueOrAnException) {
  const auto full = fullParameters();
  const Json::Value document = written(full);
  Json::Value counted = document;
  std::vector<Json::Value*> places;
  collect(counted, places);
  int values = 0;
  int exceptions = 0;
  for (std::size_t place = 0; place < places.size(); ++place) {
    for (const char* const odd : {"null", "1", "\"x\"", "[1]", "{\"x\":1}", "true"}) {
      Json::Value target = document;
      std::vector<Json::Value*> here;
      collect(target, here);
      *here[place] = json(odd);
      try {
        full.Serialize(target);
        ++values;
      } catch (const Json::LogicError&) {
        ++exceptions;
      }
    }
  }
  EXPECT_GT(values, 0);
  EXPECT_GT(exceptions, 0);
}

TEST(HostileDocument, AMillionInterfacesAreReadQuickly) {
  constexpr unsigned int kCount = 1000000 / kSlowdown;  // in the same time
  Json::Value document;
  Json::Value& array = document["ethipv4"] = Json::Value(Json::arrayValue);
  // A DHCP mode that is there, so that nothing has to be added to a million objects.
  for (unsigned int i = 0; i < kCount; ++i) {
    Json::Value& element = array.append(Json::Value(Json::objectValue));
    element["eth"] = i * uint64_t(7919) % kCount;  // in no order
    element["mode"] = "DHCP";
  }
  SysParameters parameters;
  const std::clock_t start = std::clock();  // the processor's time: other programs do not count
  parameters.Deserialize(document);
  EXPECT_LT((std::clock() - start) / CLOCKS_PER_SEC, 40);
  EXPECT_EQ(parameters.ethIPv4Cfg.size(), kCount);
}

TEST(HostileDocument, FormatsInTextsAreNotFormats) {
  const CapturedLog log;
  readFrom<WhiteListEntry>(R"({"ip":"%s%n%d"})");
  EXPECT_THAT(log.texts(2), ::testing::ElementsAre("Error parsing IP [%s%n%d]: invalid IP address"));
  auto parameters = fullParameters();
  parameters.cfgFilePath = "%s%n";
  parameters.ethIPv4Cfg.front().eth = "%n%s";
  parameters.dumpParameter(BoardModel());
  EXPECT_THAT(log.texts(3), ::testing::Contains("    Store Path            [%s%n]"));
}

}  // namespace
}  // namespace zel::test
