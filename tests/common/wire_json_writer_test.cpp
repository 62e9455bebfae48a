#include <gmock/gmock.h>
#include <json/writer.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>
#include <random>
#include <string>
#include <utility>

#include "common/shared/wire_json.h"

using testing::HasSubstr;
using zel::kMaxFrameBytes;
using zel::WireJsonReader;
using zel::writeWireJson;

namespace {

using namespace std::string_literals;

std::string written(const Json::Value& value) {
  std::string text = "before";
  EXPECT_EQ(writeWireJson(value, text), "");
  return text;
}

void expectRefused(const Json::Value& value, const std::string& why) {
  for (int place = 0; place < 3; ++place) {
    Json::Value around = value;
    if (place == 1) (around = Json::Value())["a"] = value;
    if (place == 2) (around = Json::Value()).append(value);
    std::string text = "before";
    EXPECT_THAT(writeWireJson(around, text), HasSubstr(why));
    EXPECT_EQ(text, "");
  }
}

Json::Value nested(unsigned int depth) {
  Json::Value value = 1;
  for (unsigned int i = 0; i < depth; ++i) {
    Json::Value around;
    i % 2 == 0 ? around["a"] = value : around.append(value);
    value = around;
  }
  return value;
}

/// A random document; the deeper, the flatter.
class RandomDocuments {
 public:
  explicit RandomDocuments(unsigned int seed) : generator_(seed) {}

  Json::Value next(unsigned int depth = 0) {
    switch (generator_() % (depth < 6 ? 10 : 8)) {
      case 0: return {};
      case 1: return generator_() % 2 == 0;
      case 2: return static_cast<Json::Int64>(bits());
      case 3: return static_cast<Json::Int>(generator_());
      case 4: return static_cast<Json::UInt64>(bits() | std::uint64_t{1} << 63);
      case 5: return number();
      case 6:
      case 7: return text();
      case 8: {
        Json::Value object(Json::objectValue);
        for (auto i = generator_() % 6; i > 0; --i) object[text()] = next(depth + 1);
        return object;
      }
      default: {
        Json::Value array(Json::arrayValue);
        for (auto i = generator_() % 6; i > 0; --i) array.append(next(depth + 1));
        return array;
      }
    }
  }

 private:
  std::uint64_t bits() { return std::uint64_t{generator_()} << 32 | generator_(); }

  double number() {
    for (;;) {
      const std::uint64_t pattern = bits();
      double value = 0;
      static_assert(sizeof value == sizeof pattern);
      std::memcpy(&value, &pattern, sizeof value);
      if (std::isfinite(value)) return value;
    }
  }

  std::string text() {
    static const std::string kPieces[] = {"a",  "Z",   " ",    "\"",   "\\",     "/",      "\n",
                                          "\t", "\0"s, "\x1f", "\x7f", "\u00fc", "\u20ac", "\U0001f600"};
    std::string result;
    for (auto i = generator_() % 12; i > 0; --i) result += kPieces[generator_() % std::size(kPieces)];
    return result;
  }

  std::mt19937 generator_;
};

}  // namespace

TEST(WriteWireJson, WritesCompactText) {
  Json::Value value;
  value["b"]["list"].append(1);
  value["b"]["list"].append("two");
  value["b"]["list"].append(Json::Value());
  value["a"] = true;
  value["c"] = Json::Value(Json::objectValue);
  EXPECT_EQ(written(value), R"({"a":true,"b":{"list":[1,"two",null]},"c":{}})");
}

TEST(WriteWireJson, WritesEveryKindOfValue) {
  const std::pair<Json::Value, const char*> rows[] = {
      {Json::Value(), "null"},
      {Json::Value(Json::arrayValue), "[]"},
      {Json::Value(0), "0"},
      {Json::Value(-2147483647 - 1), "-2147483648"},
      {Json::Value(4294967295u), "4294967295"},
      {Json::Value(Json::UInt64(18446744073709551615u)), "18446744073709551615"},
      {Json::Value(1.5), "1.5"},
      {Json::Value(1.0), "1.0"},
      {Json::Value(0.1), "0.10000000000000001"},
      {Json::Value(-1e300), "-1.0000000000000001e+300"},
      {Json::Value(Json::stringValue), "\"\""},
      {Json::Value("Gr\u00fc\u00dfe \u20ac \U0001f600"), "\"Gr\u00fc\u00dfe \u20ac \U0001f600\""},
      {Json::Value("a\"\\\n\t\x01/"), "\"a\\\"\\\\\\n\\t\\u0001/\""},
      {Json::Value("\b\f\r\x1f\x7f"), "\"\\b\\f\\r\\u001f\x7f\""},
      {Json::Value("x\0y"s), "\"x\\u0000y\""},
  };
  for (const auto& [value, text] : rows) EXPECT_EQ(written(value), text);
}

TEST(WriteWireJson, WritesTheGapsOfAnArrayAsNull) {
  Json::Value value(Json::arrayValue);
  value[2] = 1;
  EXPECT_EQ(written(value), "[null,null,1]");
}

TEST(WriteWireJson, EscapesNames) {
  Json::Value value;
  value["a\"\n"s] = 1;
  value["x\0y"s] = 2;
  EXPECT_EQ(written(value), R"({"a\"\n":1,"x\u0000y":2})");
}

TEST(WriteWireJson, WritesWhatJsonCppsOwnWriterWrites) {
  Json::StreamWriterBuilder settings;
  settings["indentation"] = "";
  settings["emitUTF8"] = true;
  for (unsigned int seed = 0; seed < 2000; ++seed) {
    const Json::Value value = RandomDocuments(seed).next();
    ASSERT_EQ(written(value), Json::writeString(settings, value)) << "seed " << seed;
  }
}

TEST(WriteWireJson, WritesNoComments) {
  Json::Value value(1);
  value.setComment("// a remark"s, Json::commentBefore);
  EXPECT_EQ(written(value), "1");
}

TEST(WriteWireJson, RefusesNumbersThatAreNotFinite) {
  for (const double number :
       {std::nan(""), std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()}) {
    expectRefused(number, "a number is not finite");
  }
}

TEST(WriteWireJson, RefusesTextsThatAreNotUtf8) {
  for (const char* text : {"\xff", "a\x80", "\xc3", "\xc0\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80"}) {
    expectRefused(text, "a text is not UTF-8");
    Json::Value value;
    value[text] = 1;
    expectRefused(value, "a text is not UTF-8");
  }
}

TEST(WriteWireJson, WritesSixtyFourLevelsAndNoMore) {
  EXPECT_EQ(written(nested(64)).substr(0, 10), "[{\"a\":[{\"a");
  std::string text = "before";
  for (const unsigned int depth : {65u, 66u, 1000u}) {
    EXPECT_EQ(writeWireJson(nested(depth), text), "nested more than 64 deep");
    EXPECT_EQ(text, "");
  }
}

TEST(WriteWireJson, WritesSixtyFiveThousandValuesAndNoMore) {
  Json::Value list(Json::arrayValue);
  while (list.size() < 65535) list.append(0);
  EXPECT_EQ(written(list).size(), 2 * 65535U + 1);
  list.append(0);
  std::string text = "before";
  EXPECT_EQ(writeWireJson(list, text), "more than 65536 values");
  EXPECT_EQ(text, "");
}

TEST(WriteWireJson, WritesOneMebibyteAndNoMore) {
  const std::string most(kMaxFrameBytes - 2, 'x');
  EXPECT_EQ(written(most).size(), kMaxFrameBytes);
  std::string text = "before";
  EXPECT_EQ(writeWireJson(most + "x", text), "longer than 1048576 bytes");
  EXPECT_EQ(text, "");
  EXPECT_EQ(written(1), "1") << "the next value is written alone";
}

TEST(WriteWireJson, WritesOnAfterWhatItRefused) {
  expectRefused(std::nan(""), "not finite");
  expectRefused("\xff", "not UTF-8");
  EXPECT_EQ(written("x"), "\"x\"");
}

TEST(WriteWireJson, WritesWhatTheReaderReadsBackEqual) {
  WireJsonReader reader;
  for (unsigned int seed = 0; seed < 2000; ++seed) {
    const Json::Value value = RandomDocuments(seed).next();
    const std::string text = written(value);
    Json::Value back;
    ASSERT_EQ(reader.read(text, back), "") << text;
    ASSERT_EQ(written(back), text) << "seed " << seed;
    ASSERT_TRUE(back == value) << text;
  }
}
