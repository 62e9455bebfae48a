// The rules of docs/protocol.md, the checks that cite them, and the bytes of its examples.

#include <gmock/gmock.h>

#include <set>
#include <sstream>

#include "conformance/check.h"
#include "conformance/rules.h"
#include "simulator/refusal.h"
#include "simulator/simulator.h"
#include "tests/support/frames.h"
#include "tests/support/wait_until.h"

namespace {

using testing::Contains;
using zel::conformance::allChecks;
using zel::conformance::Check;
using zel::conformance::kProtocolPage;
using zel::conformance::NotChecked;
using zel::conformance::Rule;
using zel::conformance::ruleAt;
using zel::conformance::rulesOf;
using zel::conformance::rulesWithoutCheck;
using zel::test::Frames;
using zel::test::receiveFrames;

std::set<std::string> checkedRules() {
  std::set<std::string> anchors;
  for (const Check& check : allChecks()) anchors.insert(check.rule);
  return anchors;
}

TEST(ProtocolPage, ReadsARuleWithItsContinuation) {
  const std::vector<Rule> rules = rulesOf(
      "text\n- <a id=\"one-answer\"></a>**must** Each request\n  has one answer.\n  behind\n\n  not this\n"
      "- an item\n- <a id=\"own\"></a>**choice** The daemon's.\n");
  ASSERT_EQ(rules.size(), 2U);
  EXPECT_EQ(rules[0].anchor, "one-answer");
  EXPECT_EQ(rules[0].level, "must");
  EXPECT_EQ(rules[0].sentence, "Each request has one answer. behind");
  EXPECT_EQ(rules[1].level, "choice");
}

TEST(ProtocolPage, HasALevelAndAnAnchorOfItsOwnInEachRule) {
  std::set<std::string> anchors;
  const std::vector<Rule> rules = rulesOf(kProtocolPage);
  EXPECT_GT(rules.size(), 100U);
  for (const Rule& rule : rules) {
    EXPECT_TRUE(anchors.insert(rule.anchor).second) << rule.anchor << " is there twice";
    EXPECT_THAT((std::set<std::string>{"must", "should", "choice"}), Contains(rule.level)) << rule.anchor;
    EXPECT_THAT(rule.sentence, testing::EndsWith(rule.sentence.back() == ')' ? ".)" : ".")) << rule.anchor;
  }
  // Nothing that has an anchor escapes the reader of the rules.
  std::size_t marks = 0;
  const std::string page = kProtocolPage;
  for (std::size_t at = page.find("<a id="); at != std::string::npos; at = page.find("<a id=", at + 1)) ++marks;
  EXPECT_EQ(marks, rules.size());
}

TEST(Checks, CiteRulesThatADaemonCanBreak) {
  for (const Check& check : allChecks()) {
    EXPECT_NE(ruleAt(check.rule).level, "choice") << check.rule;
  }
}

TEST(Checks, AreThereForEveryMustThatCanBeObserved) {
  std::set<std::string> covered = checkedRules();
  for (const NotChecked& rule : rulesWithoutCheck()) covered.insert(rule.rule);
  for (const Rule& rule : rulesOf(kProtocolPage)) {
    if (rule.level == "must") {
      EXPECT_THAT(covered, Contains(rule.anchor)) << rule.sentence;
    }
  }
}

TEST(Checks, AreMissingOnlyForAReason) {
  const std::set<std::string> checked = checkedRules();
  for (const NotChecked& rule : rulesWithoutCheck()) {
    EXPECT_EQ(ruleAt(rule.rule).level, "must");
    EXPECT_EQ(checked.count(rule.rule), 0U) << rule.rule;
    EXPECT_STRNE(rule.why, "");
  }
}

TEST(Checks, HaveNamesThatTellThemApart) {
  std::set<std::string> names;
  for (const Check& check : allChecks()) {
    EXPECT_TRUE(names.insert(check.rule + (": " + check.name)).second) << check.rule << ": " << check.name;
  }
}

TEST(ProtocolPage, HasEachStatusOfTheVirtualBoard) {
  namespace refusal = zel::sim::refusal;
  for (const int status :
       {refusal::kUnknownCommand, refusal::kMalformedRequest, refusal::kUnknownKey, refusal::kWrongType,
        refusal::kOutOfRange, refusal::kNotFound, refusal::kFixedEntry, refusal::kTooMany, refusal::kBusy,
        refusal::kNotStored, refusal::kInterfaceNotFound, refusal::kInvalidAddress}) {
    EXPECT_THAT(kProtocolPage, testing::HasSubstr("\n| " + std::to_string(status) + " | ")) << status;
  }
}

// --- the examples, byte by byte

/// One frame of an example: the flag byte, and the content behind the length.
struct ExampleFrame {
  int flags = 0;
  std::string content;
};

int hexDigits(const std::string& word) {
  if (word.size() != 2 || word.find_first_not_of("0123456789abcdef") != std::string::npos) return -1;
  return std::stoi(word, nullptr, 16);
}

/// The frames of an example of the page. Each has one line: flag, length, bytes, and what they are in words.
std::vector<ExampleFrame> exampleOf(const std::string& name) {
  const std::string page = kProtocolPage;
  const std::string mark = "<!-- tests/conformance/page_test.cpp: " + name + " -->\n```\n";
  const std::size_t begin = page.find(mark);
  EXPECT_NE(begin, std::string::npos) << name;
  std::vector<ExampleFrame> frames;
  std::istringstream lines(page.substr(begin + mark.size()));
  for (std::string line; std::getline(lines, line) && line != "```";) {
    std::istringstream words(line);
    std::vector<int> bytes;
    for (std::string word; words >> word && hexDigits(word) >= 0;) bytes.push_back(hexDigits(word));
    EXPECT_GE(bytes.size(), 2U) << line;
    const std::size_t size = bytes.size() < 2 ? 0 : static_cast<std::size_t>(bytes[1]);
    EXPECT_EQ(bytes.size(), size + 2) << line;
    frames.push_back({bytes.empty() ? 0 : bytes[0], std::string(bytes.begin() + 2, bytes.end())});
  }
  EXPECT_FALSE(frames.empty()) << name;
  for (std::size_t i = 0; i < frames.size(); ++i) EXPECT_EQ(frames[i].flags, i + 1 < frames.size() ? 1 : 0) << name;
  return frames;
}

Frames contentsOf(const std::vector<ExampleFrame>& frames) {
  Frames contents;
  for (const ExampleFrame& frame : frames) contents.push_back(frame.content);
  return contents;
}

class Example : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(board_.failure(), "");
    dealer_.connect("tcp://127.0.0.1:5556");
    follower_.connect("tcp://127.0.0.1:5575");
    follower_.set(zmq::sockopt::subscribe, "");
    follower_.set(zmq::sockopt::rcvtimeo, 200);
    dealer_.set(zmq::sockopt::rcvtimeo, 5000);
  }
  void send(const Frames& frames) { zel::test::sendFrames(dealer_, frames); }

  zel::sim::SimulatorThread board_;
  zmq::context_t context_;
  zmq::socket_t dealer_{context_, zmq::socket_type::dealer};
  zmq::socket_t follower_{context_, zmq::socket_type::sub};
};

TEST_F(Example, OfARequestHasTheAnswerOfThePage) {
  send(contentsOf(exampleOf("request")));
  EXPECT_EQ(receiveFrames(dealer_), contentsOf(exampleOf("answer")));
}

TEST_F(Example, OfARefusedRequestHasTheRefusalOfThePage) {
  send(contentsOf(exampleOf("refused request")));
  EXPECT_EQ(receiveFrames(dealer_), contentsOf(exampleOf("refusal")));
}

TEST_F(Example, OfANotificationIsWhatTheBoardPublishes) {
  const Frames wanted = contentsOf(exampleOf("notification"));
  Frames published;
  zel::test::waitUntil([&] {  // until the subscription has arrived
    send({"number", "", "8", ""});
    receiveFrames(dealer_);
    published = receiveFrames(follower_);
    return !published.empty();
  });
  EXPECT_EQ(published, wanted);
}

}  // namespace
