#include "view/differences.h"

#include <random>

#include "tests/support/json_of.h"
#include "tests/support/stopwatch.h"
#include "tests/support/wait_until.h"
#include "tests/view/applied.h"

namespace {

using zel::test::json;

/// The differences as texts, "path: before -> now", with "-" for what is not there.
std::vector<std::string> texts(const std::string& before, const std::string& now) {
  const auto shown = [](const std::optional<Json::Value>& value) {
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    return value ? Json::writeString(writer, *value) : "-";
  };
  std::vector<std::string> found;
  for (const zel::Difference& each : zel::differences(json(before), json(now))) {
    found.push_back(each.path + ": " + shown(each.before) + " -> " + shown(each.now));
  }
  return found;
}

using testing::ElementsAre;
using testing::IsEmpty;

TEST(Differences, OfEqualDocumentsThereAreNone) {
  EXPECT_THAT(texts(R"({"a": [1, {"b": null}]})", R"({"a": [1, {"b": null}]})"), IsEmpty());
}

TEST(Differences, NameTheMembersWithTheirPath) {
  EXPECT_THAT(texts(R"({"rtsp": {"tcp-port": 1, "eth-port": "all"}, "sap": {"enable": true}})",
                    R"({"rtsp": {"tcp-port": 2, "eth-port": "all"}, "slp": {"enable": true}})"),
              ElementsAre("rtsp/tcp-port: 1 -> 2", R"(sap: {"enable":true} -> -)", R"(slp: - -> {"enable":true})"));
}

TEST(Differences, TellNullFromNothing) {
  EXPECT_THAT(texts(R"({"a": null})", R"({})"), ElementsAre("a: null -> -"));
  EXPECT_THAT(texts(R"({})", R"({"a": null})"), ElementsAre("a: - -> null"));
}

TEST(Differences, NameTheElementsOfAnArray) {
  EXPECT_THAT(texts(R"({"eth-basics": [{"name": "eth0", "ip": "10.0.0.1"}, {"name": "eth1"}]})",
                    R"({"eth-basics": [{"name": "eth0", "ip": "10.0.0.2"}, {"name": "eth2"}]})"),
              ElementsAre(R"(eth-basics/eth0/ip: "10.0.0.1" -> "10.0.0.2")", R"(eth-basics/eth1: {"name":"eth1"} -> -)",
                          R"(eth-basics/eth2: - -> {"name":"eth2"})"));
  EXPECT_THAT(texts(R"([{"ip": "239.0.0.1", "enabled": true}])", R"([{"ip": "239.0.0.1", "enabled": false}])"),
              ElementsAre("239.0.0.1/enabled: true -> false"));
  EXPECT_THAT(texts(R"([{"eth": "eth0", "label": "a"}])", R"([{"eth": "eth0", "label": "b"}])"),
              ElementsAre(R"(eth0/label: "a" -> "b")"));
}

/// The longest list that the wire can hold: 65,536 values.
TEST(Differences, OfALongListAreFoundSoon) {
  constexpr int kElements = 16000;
  Json::Value before;
  for (int i = 0; i < kElements; ++i) before[i]["name"] = "eth" + std::to_string(i);
  Json::Value now = before;
  now[kElements - 1]["label"] = "last";
  const zel::test::Stopwatch watch;
  EXPECT_EQ(zel::differences(before, now).size(), 1u);
  EXPECT_LT(watch.elapsed().own, std::chrono::milliseconds(200 * zel::test::kSlowdown));
}

TEST(Differences, AnArrayWithoutNamesDiffersAsAWhole) {
  EXPECT_THAT(texts(R"({"a": [1, 2]})", R"({"a": [1, 3]})"), ElementsAre("a: [1,2] -> [1,3]"));
  EXPECT_THAT(texts(R"([{"name": "x"}, {"name": "x"}])", R"([{"name": "x"}])"),
              ElementsAre(R"(: [{"name":"x"},{"name":"x"}] -> [{"name":"x"}])"));
  EXPECT_THAT(texts(R"([{"name": "a/b", "v": 1}])", R"([{"name": "a/b", "v": 2}])"),
              ElementsAre(R"(: [{"name":"a/b","v":1}] -> [{"name":"a/b","v":2}])"));
}

TEST(Differences, AnotherOrderIsADifferenceOfTheArray) {
  EXPECT_THAT(texts(R"([{"name": "a"}, {"name": "b"}])", R"([{"name": "b"}, {"name": "a"}])"),
              ElementsAre(R"(: [{"name":"a"},{"name":"b"}] -> [{"name":"b"},{"name":"a"}])"));
  EXPECT_THAT(texts(R"([{"name": "a"}])", R"([{"name": "b"}, {"name": "a"}])"),
              ElementsAre(R"(: [{"name":"a"}] -> [{"name":"b"},{"name":"a"}])"));
}

TEST(Differences, AMemberWithASlashMakesItsObjectDifferAsAWhole) {
  EXPECT_THAT(texts(R"({"o": {"a/b": 1}})", R"({"o": {"a/b": 2}})"), ElementsAre(R"(o: {"a/b":1} -> {"a/b":2})"));
}

TEST(Differences, OfADocumentThatIsNewThereIsOne) {
  EXPECT_THAT(texts("null", R"({"a": 1})"), ElementsAre(R"(: null -> {"a":1})"));
}

/// A random document with objects, arrays of named objects, and values that often stay the same.
Json::Value randomDocument(std::mt19937& random, int depth = 0) {
  const auto upTo = [&](int most) { return std::uniform_int_distribution<int>(0, most)(random); };
  switch (depth > 3 ? upTo(2) : upTo(5)) {
    case 0: return upTo(3);
    case 1: return std::string(1, static_cast<char>('a' + upTo(2)));
    case 2: return upTo(1) == 0 ? Json::Value() : Json::Value(true);
    case 3: {
      Json::Value array(Json::arrayValue);
      const char* const names[] = {"eth0", "eth1", "eth2", "eth3"};
      for (const char* const name : names) {
        if (upTo(2) == 0) continue;
        Json::Value element(Json::objectValue);
        element["name"] = name;
        if (upTo(1) == 0) element["value"] = randomDocument(random, depth + 2);
        array.append(element);
      }
      if (upTo(5) == 0) array.append(upTo(3));
      return array;
    }
    default: {
      Json::Value object(Json::objectValue);
      for (const char* const name : {"x", "y", "z", "name"}) {
        if (upTo(2) != 0) object[name] = randomDocument(random, depth + 1);
      }
      return object;
    }
  }
}

TEST(Differences, TurnTheFirstVersionIntoTheSecond) {
  std::mt19937 random(1);
  for (int round = 0; round < 5000; ++round) {
    Json::Value before = randomDocument(random);
    const Json::Value now = randomDocument(random);
    for (const zel::Difference& each : zel::differences(before, now)) zel::test::apply(each, before);
    ASSERT_EQ(before, now) << "round " << round;
  }
}

}  // namespace
