#include "cli/json_paths.h"

#include <gmock/gmock.h>
#include <json/reader.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

namespace zel::ctl {
namespace {

using testing::ElementsAre;
using testing::FieldsAre;
using testing::IsEmpty;
using testing::Optional;
using testing::Pair;
using testing::Pointee;

Json::Value json(const std::string& text) {
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  Json::Value value;
  if (!reader->parse(text.data(), text.data() + text.size(), &value, nullptr)) throw std::invalid_argument(text);
  return value;
}

std::vector<std::pair<std::string, Json::Value>> leavesOf(const Json::Value& document) {
  std::vector<std::pair<std::string, Json::Value>> leaves;
  forEachLeaf(document,
              [&leaves](const std::string& path, const Json::Value& value) { leaves.emplace_back(path, value); });
  return leaves;
}

struct Change {
  std::string path;
  std::optional<Json::Value> before;
  std::optional<Json::Value> after;
};

std::vector<Change> changesBetween(const Json::Value& before, const Json::Value& after) {
  const auto copied = [](const Json::Value* value) {
    return value == nullptr ? std::nullopt : std::optional<Json::Value>(*value);
  };
  std::vector<Change> changes;
  forEachChange(before, after, [&](const std::string& path, const Json::Value* old, const Json::Value* now) {
    changes.push_back({path, copied(old), copied(now)});
  });
  return changes;
}

TEST(Leaves, AreTheValuesWithTheirPaths) {
  EXPECT_THAT(leavesOf(json(R"({"a": {"b": 1, "c": {}}, "d": [], "e": null})")),
              ElementsAre(Pair("a/b", Json::Value(1)), Pair("a/c", Json::Value(Json::objectValue)),
                          Pair("d", Json::Value(Json::arrayValue)), Pair("e", Json::Value())));
}

TEST(Leaves, GoByTheNamesOfTheirListElements) {
  EXPECT_THAT(leavesOf(json(R"([{"eth": "eth1", "name": "x"}])")),
              ElementsAre(Pair("eth1/eth", "eth1"), Pair("eth1/name", "x")));
  EXPECT_THAT(pathsOf(json(R"([{"name": "eth0"}])")), ElementsAre("eth0", "eth0/name"));
  EXPECT_THAT(pathsOf(json(R"([{"ip": "239.0.0.1"}])")), ElementsAre("239.0.0.1", "239.0.0.1/ip"));
}

TEST(Leaves, GoByNumbersWhereTheNamesDoNotTell) {
  EXPECT_THAT(pathsOf(json(R"([7, 8])")), ElementsAre("0", "1"));
  EXPECT_THAT(pathsOf(json(R"([{"name": "a"}, {"name": "a"}])")), ElementsAre("0", "0/name", "1", "1/name"));
  EXPECT_THAT(pathsOf(json(R"([{"name": ""}])")), ElementsAre("0", "0/name"));
  EXPECT_THAT(pathsOf(json(R"([{"name": "a"}, {}])")), ElementsAre("0", "0/name", "1"));
}

TEST(Leaves, AreNotNamedByPathsThatNobodyTypes) {
  Json::Value document;
  document[std::string(201, 'k')]["inside"] = 1;
  document["short"] = 2;
  EXPECT_THAT(pathsOf(document), ElementsAre("short"));
}

TEST(ValueAt, FindsWhatThePathNames) {
  const Json::Value document = json(R"({"a": {"b": 1}, "x/y": {"z": 2}, "list": [{"eth": "eth0.10", "n": 3}]})");
  EXPECT_THAT(valueAt(document, ""), Pointee(document));
  EXPECT_THAT(valueAt(document, "a/b"), Pointee(Json::Value(1)));
  EXPECT_THAT(valueAt(document, "/a/b"), Pointee(Json::Value(1)));
  EXPECT_THAT(valueAt(document, "a/"), Pointee(json(R"({"b": 1})")));
  EXPECT_THAT(valueAt(document, "x/y/z"), Pointee(Json::Value(2)));
  EXPECT_THAT(valueAt(document, "list/eth0.10/n"), Pointee(Json::Value(3)));
}

TEST(ValueAt, FindsNothingElse) {
  const Json::Value document = json(R"({"a": {"b": 1}})");
  for (const char* path : {"b", "a/c", "a/b/c", "ab"}) EXPECT_EQ(valueAt(document, path), nullptr) << path;
}

TEST(Changes, AreWhatDiffersWhatIsNewAndWhatIsGone) {
  const Json::Value before = json(R"({"same": 1, "other": 1, "gone": true})");
  const Json::Value after = json(R"({"same": 1, "other": "1", "new": null})");
  EXPECT_THAT(changesBetween(before, after),
              ElementsAre(FieldsAre("gone", Optional(Json::Value(true)), std::nullopt),
                          FieldsAre("new", std::nullopt, Optional(Json::Value())),
                          FieldsAre("other", Optional(Json::Value(1)), Optional(Json::Value("1")))));
  EXPECT_THAT(changesBetween(before, before), IsEmpty());
}

TEST(Changes, OfAPlaceThatGetsOrLosesItsInsideAreBoth) {
  EXPECT_THAT(changesBetween(json(R"({"a": {}})"), json(R"({"a": {"b": 1}})")),
              ElementsAre(FieldsAre("a", Optional(Json::Value(Json::objectValue)), std::nullopt),
                          FieldsAre("a/b", std::nullopt, Optional(Json::Value(1)))));
  EXPECT_THAT(changesBetween(json(R"({"a": [7]})"), json(R"({"a": "x"})")),
              ElementsAre(FieldsAre("a", std::nullopt, Optional(Json::Value("x"))),
                          FieldsAre("a/0", Optional(Json::Value(7)), std::nullopt)));
}

TEST(Changes, OfAListFollowTheNamesNotThePlaces) {
  const Json::Value before = json(R"([{"eth": "eth0", "n": 1}, {"eth": "eth1", "n": 2}])");
  const Json::Value after = json(R"([{"eth": "eth1", "n": 2}, {"eth": "eth0", "n": 3}])");
  EXPECT_THAT(changesBetween(before, after),
              ElementsAre(FieldsAre("eth0/n", Optional(Json::Value(1)), Optional(Json::Value(3)))));
}

}  // namespace
}  // namespace zel::ctl
