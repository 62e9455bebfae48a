#include "simulator/fault.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <fstream>
#include <iterator>

#include "tests/simulator/json_text.h"
#include "tests/simulator/temporary_folder.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using zel::sim::Exchange;
using zel::sim::FaultInjector;
using zel::sim::FaultRule;
using zel::test::json;

FaultRule ruleOf(const std::string& text) {
  FaultRule rule;
  EXPECT_THAT(FaultRule::parse(text, rule), IsEmpty()) << text;
  return rule;
}

Exchange exchangeWith(const std::string& text) {
  FaultInjector faults;
  faults.add(ruleOf(text));
  return faults.next(2);
}

std::string textAfter(const std::string& rule, std::string text) {
  const Exchange exchange = exchangeWith(rule);
  EXPECT_TRUE(exchange.editText) << rule;
  if (exchange.editText) exchange.editText(text);
  return text;
}

Json::Value replyAfter(const std::string& rule, const std::string& reply) {
  const Exchange exchange = exchangeWith(rule);
  EXPECT_TRUE(exchange.editReply) << rule;
  Json::Value edited = json(reply);
  if (exchange.editReply) exchange.editReply(edited);
  return edited;
}

TEST(FaultInjector, ServesHonestlyWithoutAnOrder) {
  FaultInjector faults;
  const Exchange exchange = faults.next(2);
  EXPECT_EQ(exchange.fault, nullptr);
  EXPECT_TRUE(exchange.acts);
  EXPECT_EQ(exchange.answers, 1);
  EXPECT_EQ(exchange.actAfter.count(), 0);
  EXPECT_EQ(exchange.answerAfter.count(), 0);
  EXPECT_EQ(exchange.burst, 0U);
  EXPECT_EQ(exchange.crash, Exchange::Crash::kNever);
  EXPECT_FALSE(exchange.editReply);
  EXPECT_FALSE(exchange.editText);
}

TEST(FaultInjector, StrikesTheNextRequestOfACommandOnce) {
  FaultInjector faults;
  faults.add(ruleOf("do=silence command=2"));
  EXPECT_EQ(faults.next(3).fault, nullptr);
  EXPECT_STREQ(faults.next(2).fault, "silence");
  EXPECT_EQ(faults.next(2).fault, nullptr);
}

TEST(FaultInjector, StrikesSoManyTimes) {
  FaultInjector faults;
  faults.add(ruleOf("do=silence times=3"));
  for (const unsigned int id : {0U, 1U, 2U}) EXPECT_STREQ(faults.next(id).fault, "silence");
  EXPECT_EQ(faults.next(2).fault, nullptr);
}

TEST(FaultInjector, StrikesAlways) {
  FaultInjector faults;
  faults.add(ruleOf("do=silence times=always command=any"));
  for (int count = 0; count < 1000; ++count) ASSERT_STREQ(faults.next(2).fault, "silence");
}

TEST(FaultInjector, TakesTheFirstOfSeveralOrders) {
  FaultInjector faults;
  faults.add(ruleOf("do=double"));
  faults.add(ruleOf("do=silence"));
  EXPECT_STREQ(faults.next(2).fault, "double");
  EXPECT_STREQ(faults.next(2).fault, "silence");
}

TEST(FaultRule, MeansWhatItSays) {
  EXPECT_EQ(exchangeWith("do=delay").actAfter.count(), 1000);
  EXPECT_EQ(exchangeWith("do=delay ms=20").actAfter.count(), 20);
  EXPECT_FALSE(exchangeWith("do=silence").acts);
  EXPECT_EQ(exchangeWith("do=silence").answers, 0);
  EXPECT_FALSE(exchangeWith("do=refuse").acts);
  EXPECT_EQ(replyAfter("do=refuse", R"({"status": 0, "x": 1})"),
            json(R"({"status": -50, "error": "Refused on demand."})"));
  EXPECT_EQ(replyAfter(R"(do=refuse status=-5 text="not today")", "{}"),
            json(R"({"status": -5, "error": "not today"})"));
  EXPECT_TRUE(exchangeWith("do=late").acts);
  EXPECT_EQ(exchangeWith("do=late").answerAfter.count(), 6000);
  EXPECT_EQ(exchangeWith("do=late ms=7").answerAfter.count(), 7);
  EXPECT_EQ(exchangeWith("do=double").answers, 2);
  EXPECT_EQ(textAfter("do=garbage", "{}"), "{no JSON");
  EXPECT_EQ(textAfter("do=garbage text=", "{}"), "");
  EXPECT_EQ(textAfter("do=truncate", R"({"status":0})"), R"({"stat)");
  EXPECT_EQ(textAfter("do=truncate bytes=3", R"({"status":0})"), R"({"s)");
  EXPECT_EQ(textAfter("do=truncate bytes=300", "{}"), "{}");
  EXPECT_EQ(textAfter("do=oversize", "{}").size(), 1024U * 1024 + 1);
  EXPECT_EQ(textAfter("do=oversize bytes=5", "{}"), "{}   ");
  EXPECT_EQ(replyAfter("do=unknown-member", R"({"status": 0})"),
            json(R"({"status": 0, "unknown-member": {"nobody": "knows me"}})"));
  EXPECT_EQ(replyAfter("do=unknown-member member=stored/rtsp/x", R"({"stored": {"rtsp": {"tcp-port": 1}}})"),
            json(R"({"stored": {"rtsp": {"tcp-port": 1, "x": {"nobody": "knows me"}}}})"));
  EXPECT_EQ(replyAfter("do=wrong-type", R"({"status": 0, "stored": {}})"),
            json(R"({"status": 0, "stored": ["of the wrong type"]})"));
  EXPECT_EQ(replyAfter("do=wrong-type", R"({"status": 0})"), json(R"({"status": ["of the wrong type"]})"));
  EXPECT_EQ(replyAfter("do=wrong-type member=stored/a", R"({"stored": {"a": 1, "b": 2}})"),
            json(R"({"stored": {"a": ["of the wrong type"], "b": 2}})"));
  EXPECT_EQ(exchangeWith("do=crash-before").crash, Exchange::Crash::kBeforeActing);
  EXPECT_EQ(exchangeWith("do=crash-unanswered").crash, Exchange::Crash::kBeforeAnswering);
  EXPECT_EQ(exchangeWith("do=crash-after").crash, Exchange::Crash::kAfterAnswering);
  EXPECT_EQ(exchangeWith("do=crash-after").crashAfter.count(), 100);
  EXPECT_EQ(exchangeWith("do=crash-after ms=3").crashAfter.count(), 3);
  EXPECT_EQ(exchangeWith("do=burst").burst, 100U);
  EXPECT_EQ(exchangeWith("do=burst count=7").burst, 7U);
}

TEST(FaultRule, IsRefusedWithAReason) {
  const std::pair<const char*, const char*> kRows[] = {
      {"do=silence\ndo=late", "do=silence\\x0ado=late: one of the faults is wanted"},
      {"", "do=FAULT is missing"},
      {"command=2", "do=FAULT is missing"},
      {"do=dance", "do=dance"},
      {"do=delay ms=soon", "ms=soon: milliseconds is wanted"},
      {"do=delay ms=-1", "ms=-1"},
      {"do=delay ms=", "ms="},
      {"do=delay times=0", "times=0"},
      {"do=delay times=never", "times=never"},
      {"do=delay command=two", "command=two"},
      {"do=delay command=2x", "command=2x"},
      {"do=delay count=3", "do=delay has no parameter count"},
      {"do=refuse status=5", "status=5"},
      {"do=wrong-type member=", "member="},
      {"do=delay when=now", "\"when\" is not a parameter"},
      {"delay", "\"delay\" is not name=value"},
      {"do=garbage text=\"open", "a double quote is not closed"},
  };
  for (const auto& [text, why] : kRows) {
    FaultRule rule;
    EXPECT_THAT(FaultRule::parse(text, rule), HasSubstr(why)) << text;
  }
}

TEST(FaultRule, IsReadFromAFile) {
  const zel::test::TemporaryFolder folder;
  const std::string path = folder.file("faults");
  std::ofstream(path) << "# what the board does wrong\n\n  do=delay ms=5\r\n\tdo=silence command=3 \n";
  std::vector<FaultRule> rules;
  EXPECT_THAT(FaultRule::parseFile(path, rules), IsEmpty());
  ASSERT_EQ(rules.size(), 2U);
  EXPECT_FALSE(rules[1].concerns(2));
  EXPECT_TRUE(rules[1].concerns(3));

  std::ofstream(path) << "do=delay\ndo=dance\n";
  EXPECT_THAT(FaultRule::parseFile(path, rules), HasSubstr(path + ", line 2: do=dance"));
  EXPECT_EQ(rules.size(), 2U);
  EXPECT_THAT(FaultRule::parseFile(folder.file("none"), rules), HasSubstr("No such file"));
}

TEST(FaultRule, IsDocumentedAsItsHelpSays) {
  std::ifstream file(ZEL_SOURCE_DIR "/docs/simulator.md");
  const std::string page{std::istreambuf_iterator<char>(file), {}};
  EXPECT_THAT(page, HasSubstr(FaultRule::help()));
}

}  // namespace
