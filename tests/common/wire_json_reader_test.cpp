#include <gmock/gmock.h>
#include <json/reader.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "common/shared/wire_json.h"

using testing::ElementsAre;
using zel::kMaxFrameBytes;
using zel::WireJsonReader;

namespace {

using namespace std::string_literals;

/// The value that JsonCpp's own reader builds from a text that both readers accept.
Json::Value asJsonCppReads(const std::string& text) {
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  Json::Value value;
  EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &value, nullptr)) << text;
  return value;
}

/// Whether two values are equal down to the types of their numbers.
void expectSame(const Json::Value& a, const Json::Value& b, const std::string& text) {
  ASSERT_EQ(a.type(), b.type()) << text;
  EXPECT_EQ(a, b) << text;
  if (!a.isObject() && !a.isArray()) return;
  ASSERT_EQ(a.size(), b.size()) << text;
  for (auto one = a.begin(), other = b.begin(); one != a.end(); ++one, ++other) expectSame(*one, *other, text);
}

std::string repeated(std::string_view piece, std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) text += piece;
  return text;
}

/// Objects and arrays in turn.
std::string mixed(std::size_t depth) {
  std::string before, after;
  for (std::size_t i = 0; i < depth; ++i) {
    before += i % 2 == 0 ? "{\"a\":" : "[";
    after.insert(0, i % 2 == 0 ? "}" : "]");
  }
  return before + "1" + after;
}

class WireJsonReaderTest : public testing::Test {
 protected:
  /// Reads the text as an exact range of bytes, so that a sanitizer sees a step beyond its end.
  std::string read(const std::string& text) {
    const std::unique_ptr<char[]> exact(new char[text.size()]);
    text.copy(exact.get(), text.size());
    return reader_.read({exact.get(), text.size()}, value_);
  }

  void expectRefused(const std::string& text) {
    value_ = "before";
    EXPECT_NE(read(text), "") << text.substr(0, 100);
    EXPECT_EQ(value_, Json::Value("before")) << text.substr(0, 100);
  }

  WireJsonReader reader_;
  Json::Value value_;
};

}  // namespace

TEST_F(WireJsonReaderTest, ReadsEveryKindOfValueAsJsonCppDoes) {
  for (const std::string& text : {"{}"s,
                                  "[]"s,
                                  "null"s,
                                  "true"s,
                                  "false"s,
                                  "\"\""s,
                                  "\"text\""s,
                                  "0"s,
                                  "-0"s,
                                  "1"s,
                                  "-1"s,
                                  "2147483647"s,
                                  "2147483648"s,
                                  "-2147483648"s,
                                  "-2147483649"s,
                                  "4294967295"s,
                                  "4294967296"s,
                                  "9223372036854775807"s,
                                  "9223372036854775808"s,
                                  "18446744073709551615"s,
                                  "-9223372036854775808"s,
                                  "1.0"s,
                                  "-1.0"s,
                                  "0.1"s,
                                  "-0.0"s,
                                  "1e3"s,
                                  "1E+3"s,
                                  "1e-3"s,
                                  "123456789.123456789"s,
                                  "1.7976931348623157e308"s,
                                  "2.2250738585072014e-308"s,
                                  "5e-324"s,
                                  " \t\r\n{ \"a\" : [ 1 , -2 , 3.5 , { \"b\" : null } ] }\n"s,
                                  R"("\" \\ \/ \b \f \n \r \t \u0041 \u00fc \u20ac \ud83d\ude00")"s,
                                  "\"Gr\u00fc\u00dfe \u20ac \U0001f600\""s,
                                  "{\"\":1,\"a b\":2,\"\\u0061\\\"\":3}"s,
                                  R"([[],{},[[]],[{}],{"a":{}}])"s}) {
    ASSERT_EQ(read(text), "") << text;
    expectSame(value_, asJsonCppReads(text), text);
  }
}

TEST_F(WireJsonReaderTest, TellsSignedFromUnsigned) {
  ASSERT_EQ(read("[1,9223372036854775807,9223372036854775808,-1]"), "");
  EXPECT_EQ(value_[0].type(), Json::intValue);
  EXPECT_EQ(value_[1].type(), Json::intValue);
  EXPECT_EQ(value_[2].type(), Json::uintValue);
  EXPECT_EQ(value_[3].type(), Json::intValue);
  EXPECT_EQ(value_[0], Json::Value(1));
  EXPECT_NE(value_[0], Json::Value(1u));
}

TEST_F(WireJsonReaderTest, KeepsAnEscapedNul) {
  ASSERT_EQ(read(R"({"a":"x\u0000y","k\u0000":1})"), "");
  EXPECT_EQ(value_["a"].asString(), "x\0y"s);
  EXPECT_THAT(value_.getMemberNames(), ElementsAre("a", "k\0"s));
}

TEST_F(WireJsonReaderTest, RefusesWhatIsNoJson) {
  for (const std::string& text : {""s,
                                  " "s,
                                  "\n"s,
                                  "x"s,
                                  "{"s,
                                  "}"s,
                                  "["s,
                                  "]"s,
                                  "{]"s,
                                  "[}"s,
                                  "{\"a\"}"s,
                                  "{\"a\":}"s,
                                  "{\"a\" 1}"s,
                                  "{a:1}"s,
                                  "{'a':1}"s,
                                  "{1:2}"s,
                                  "{\"a\":1 \"b\":2}"s,
                                  "[1 2]"s,
                                  "[1,]"s,
                                  "[,1]"s,
                                  "{\"a\":1,}"s,
                                  "{,\"a\":1}"s,
                                  "tru"s,
                                  "nul"s,
                                  "True"s,
                                  "nulls"s,
                                  "\"open"s,
                                  "\"a\\\""s,
                                  "\\\"a\\\""s,
                                  ","s,
                                  ":"s}) {
    expectRefused(text);
  }
}

TEST_F(WireJsonReaderTest, RefusesMoreThanOneDocument) {
  for (const std::string& text : {"{}{}"s, "{} {}"s, "{}x"s, "{},"s, "{}]"s, "1 2"s, "[]\n[]"s, "{\"a\":1}zz"s}) {
    expectRefused(text);
  }
}

TEST_F(WireJsonReaderTest, RefusesARawNul) {
  for (const std::string& text :
       {"\0"s, "{}\0"s, "{\"a\":1}\0zz"s, "\0{}"s, "{\0}"s, "{\"a\":\"\0\"}"s, "[1,\0 2]"s, "{\"a\0\":1}"s, "1\0"s}) {
    expectRefused(text);
  }
}

TEST_F(WireJsonReaderTest, RefusesNumbersThatAreNone) {
  for (const char* number :
       {"-",     "+1",     "007",     "01",   "-01",   "00",  "1.",  ".5",          "-.5",       "1.e3",
        "1e",    "1e+",    "1e+-3",   "0x10", "1_000", "NaN", "nan", "Infinity",    "-Infinity", "inf",
        "1e999", "-1e999", "1.8e308", "--1",  "1-",    "1a",  "0b1", "\xef\xbc\x91"}) {
    expectRefused(number);
    expectRefused("{\"a\":" + std::string(number) + "}");
    expectRefused("[" + std::string(number) + ",1]");
  }
}

TEST_F(WireJsonReaderTest, RefusesIntegersBeyondSixtyFourBits) {
  for (const char* number : {"18446744073709551616", "99999999999999999999", "-9223372036854775809",
                             "100000000000000000000000000000000000000000"}) {
    expectRefused(number);
  }
}

TEST_F(WireJsonReaderTest, RefusesComments) {
  for (const char* text : {"/**/{}", "{}//", "{}/**/", "{/* */}", "{\"a\":/**/1}", "{//\n}", "#\n{}", "[1,/*2,*/3]"}) {
    expectRefused(text);
  }
}

TEST_F(WireJsonReaderTest, RefusesBadTexts) {
  for (const std::string& text : {"\n"s, "\t"s, "\x01"s, "\x1f"s, "\\x"s, "\\'"s, "\\0"s, "\\u12"s, "\\u12g4"s,
                                  "\\U0041"s, "\\ud83d"s, "\\ude00"s, "\\ud83d\\ud83d"s, "\\ud83dx"s, "\\"s}) {
    expectRefused("\"" + text + "\"");
    expectRefused("{\"" + text + "\":1}");
  }
}

TEST_F(WireJsonReaderTest, RefusesWhatIsNotUtf8) {
  for (const char* bytes : {"\xff", "\xfe", "\x80", "\xc3", "\xc3(", "\xe2\x82", "\xf0\x9f\x98", "\xc0\xaf",
                            "\xe0\x80\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xf8\x88\x80\x80\x80"}) {
    expectRefused("{\"a\":\"" + std::string(bytes) + "\"}");
    expectRefused("{\"" + std::string(bytes) + "\":1}");
    expectRefused("{}" + std::string(bytes));
  }
}

TEST_F(WireJsonReaderTest, RefusesAByteOrderMark) {
  expectRefused("\xef\xbb\xbf{}");
  expectRefused("{}\xef\xbb\xbf");
}

TEST_F(WireJsonReaderTest, RefusesANameThatStandsTwice) {
  for (const char* text :
       {R"({"a":1,"a":2})", R"({"a":1,"b":2,"a":1})", R"({"a":1,"\u0061":2})", R"({"x":[{"a":{},"a":{}}]})"}) {
    expectRefused(text);
    EXPECT_EQ(read(text), "the name \"a\" occurs twice in an object") << text;
  }
  expectRefused(R"({"":1,"":2})");
  EXPECT_EQ(read(R"({"":1,"":2})"), "the name \"\" occurs twice in an object");
  EXPECT_EQ(read(R"({"a":{"a":1},"b":{"a":1}})"), "");
}

TEST_F(WireJsonReaderTest, ReadsSixtyFiveThousandValuesAndNoMore) {
  const auto list = [](const std::string& item, std::size_t count) {
    std::string text = "[" + item;
    for (std::size_t i = 1; i < count; ++i) text += "," + item;
    return text + "]";
  };
  const std::string tooMany = "more than 65536 values";
  for (const char* const item : {"0", "{}", "[]", "\"\""}) {
    value_ = "before";
    EXPECT_EQ(read(list(item, 65536)), tooMany) << item;
    EXPECT_EQ(value_, Json::Value("before"));
    EXPECT_EQ(read(list(item, 65535)), "") << item;
    EXPECT_EQ(value_.size(), 65535U) << "the list itself is a value, too";
  }
  const std::string object = R"({"a":0})";  // two values
  EXPECT_EQ(read(list(object, 32768)), tooMany);
  EXPECT_EQ(read(list(object, 32767)), "");
  EXPECT_EQ(read(list("0", 524287)), tooMany) << "as many as a frame holds";
}

TEST_F(WireJsonReaderTest, ReadsSixtyFourLevelsAndNoMore) {
  for (const bool deeper : {false, true}) {
    const std::size_t depth = deeper ? 65 : 64;
    for (const std::string& text :
         {repeated("[", depth) + repeated("]", depth), repeated("[", depth) + "1" + repeated("]", depth),
          repeated("{\"a\":", depth - 1) + "{}" + repeated("}", depth - 1),
          repeated("{\"a\":", depth) + "1" + repeated("}", depth), mixed(depth),
          "[" + mixed(depth - 1) + "," + mixed(depth - 1) + "]"}) {
      value_ = "before";
      EXPECT_EQ(read(text), deeper ? "nested more than 64 deep" : "") << text;
      EXPECT_EQ(value_ == Json::Value("before"), deeper);
    }
  }
}

TEST_F(WireJsonReaderTest, RefusesFarTooManyLevels) {
  for (const std::size_t depth : {66u, 1'000u, 10'000u, 500'000u}) {
    expectRefused(repeated("[", depth));
    expectRefused(repeated("[", depth) + repeated("]", depth));
  }
  expectRefused(repeated("{\"a\":", 10'000));
  expectRefused(mixed(10'000));
}

TEST_F(WireJsonReaderTest, ReadsOneMebibyteAndNoMore) {
  const std::string most = "{\"a\":\"" + std::string(kMaxFrameBytes - 8, 'x') + "\"}";
  ASSERT_EQ(most.size(), kMaxFrameBytes);
  EXPECT_EQ(read(most), "");
  EXPECT_EQ(value_["a"].asString().size(), kMaxFrameBytes - 8);
  expectRefused(most + " ");
  EXPECT_EQ(read(most + " "), "longer than 1048576 bytes");
  EXPECT_EQ(read("{}" + std::string(kMaxFrameBytes - 2, ' ')), "");
}

TEST_F(WireJsonReaderTest, ReadsDocumentsOfEverySizeInTurn) {
  // The buffers grow with the documents; a small one after a large one is read in the small buffer again.
  for (std::size_t size = 2; size <= kMaxFrameBytes; size = size * 3 + 1) {
    const std::string text = "[" + std::string(size - 2, ' ') + "]";
    EXPECT_EQ(read(text), "") << size;
    EXPECT_EQ(read(mixed(64)), "") << "after " << size;
    expectRefused(mixed(65));
  }
}

TEST_F(WireJsonReaderTest, ReplacesTheValueWhole) {
  value_["old"] = 1;
  EXPECT_EQ(read("{\"new\":2}"), "");
  EXPECT_THAT(value_.getMemberNames(), ElementsAre("new"));
}

TEST_F(WireJsonReaderTest, ReadsOnAfterWhatItRefused) {
  for (const std::string& text : {""s, "{\"a\":[1,2"s, "{\"a\":1,\"a\":2}"s, mixed(65), repeated("[", 10'000), "\xff"s,
                                  std::string(kMaxFrameBytes + 1, ' ')}) {
    expectRefused(text);
    EXPECT_EQ(read("{\"b\":3}"), "");
    EXPECT_THAT(value_.getMemberNames(), ElementsAre("b"));
  }
}

TEST_F(WireJsonReaderTest, SaysWhyInOneLine) {
  for (const std::string& text : {""s, "x"s, "{\"a\nb\":1,\"a\nb\":2}"s, "\"\xff\""s, mixed(65)}) {
    const std::string why = read(text);
    EXPECT_NE(why, "");
    EXPECT_EQ(why.find('\n'), std::string::npos) << why;
  }
}

TEST_F(WireJsonReaderTest, ReadsOverEveryEarlierDocument) {
  // Whatever the value held, it becomes the document and nothing else.
  const std::string texts[] = {"{}",
                               "[]",
                               "null",
                               "7",
                               "\"text\"",
                               R"({"a":1,"b":"x"})",
                               R"({"a":"1","b":"y"})",
                               R"({"a":-1,"b":null})",
                               R"({"a":18446744073709551615,"b":1.5})",
                               R"({"b":"x","a":1})",
                               R"({"a":1})",
                               R"({"a":1,"b":"x","c":true})",
                               R"({"a":1,"c":"x"})",
                               R"({"a":{},"b":[]})",
                               R"({"a":[],"b":{}})",
                               R"({"a":{"c":[1,2,{"d":"e"}]},"b":[]})",
                               R"({"a":{"c":[3,4,{"d":"f"}]},"b":[]})",
                               R"({"a":{"c":[3,4,{"e":"f"}]},"b":[]})",
                               R"({"a":{"c":[3,4]},"b":[0]})",
                               R"([1,"x"])",
                               R"(["1","x\u0000y"])",
                               R"(["1","x"])",
                               R"([1])",
                               R"([[1],[2]])",
                               R"([{"a":1},[2]])",
                               R"({"a\u0000":1,"a":2})",
                               R"({"a":1,"a\u0000":2})"};
  for (const std::string& before : texts) {
    for (const std::string& after : texts) {
      ASSERT_EQ(read(before), "");
      ASSERT_EQ(read(after), "");
      expectSame(value_, asJsonCppReads(after), after + " over " + before);
    }
  }
}

TEST_F(WireJsonReaderTest, NeverReadsWhatTheValueHeld) {
  std::string name = "a name that JsonCpp points to and does not copy";
  value_[Json::StaticString(name.c_str())] = 1;
  ASSERT_EQ(read(R"({"a name that JsonCpp points to and does not copy":2})"), "");
  name.assign(name.size(), 'x');
  EXPECT_EQ(value_.getMemberNames(), std::vector<std::string>{"a name that JsonCpp points to and does not copy"});
}

TEST_F(WireJsonReaderTest, CountsTheValuesOfADocumentThatTheCallerHasAlready) {
  value_ = Json::Value(Json::arrayValue);
  for (int i = 0; i < 70'000; ++i) value_.append(1);
  EXPECT_EQ(read("[1" + repeated(",1", 69'999) + "]"), "more than 65536 values");
}

TEST_F(WireJsonReaderTest, LeavesTheValueWhenItRefuses) {
  for (const std::string& refused : {R"({"a":2,"a":3})"s, R"({"a":2,"b":2,"b":3})"s, R"({"a":2,"b":3)"s,
                                     R"({"a":2,"b":3}x)"s, "{\"a\":2,\"b\":\"\xff\"}"s}) {
    ASSERT_EQ(read(R"({"a":0,"b":1})"), "");
    EXPECT_NE(read(refused), "");
    EXPECT_EQ(value_, asJsonCppReads(R"({"a":0,"b":1})")) << refused;
  }
}
