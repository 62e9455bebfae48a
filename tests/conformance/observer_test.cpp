// What the observer finds in answers and notifications.

#include "conformance/observer.h"

#include <gmock/gmock.h>

#include <fstream>
#include <regex>

namespace {

using std::chrono::milliseconds;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using zel::conformance::Observer;

constexpr int kGetStored = 0;
constexpr int kSet = 2;

/// So a finding can be in a JSON report, too.
TEST(Shown, CutsBetweenCharacters) {
  for (const std::string& begin : {std::string(), std::string("x")}) {
    std::string text = begin;
    while (text.size() < 1000) text += "\xc3\xa9";
    const std::string shown = zel::conformance::shown(text);
    EXPECT_LT(shown.size(), text.size());
    Json::Value value;
    EXPECT_EQ(zel::WireJsonReader().read("\"" + shown + "\"", value), "") << shown;
  }
}

TEST(Observer, FindsEachBreachInAnAnswer) {
  struct Row {
    std::vector<std::string> frames;
    const char* rule;
  };
  const Row kRows[] = {
      {{}, "answer-object"},
      {{"{}", "{}"}, "answer-object"},
      {{"[]"}, "answer-object"},
      {{"{"}, "answer-object"},
      {{"{\"status\":0}\n{}"}, "json-strict"},
      {{R"({"status":null})"}, "status-type"},
      {{R"({"status":0.5})"}, "status-type"},
      {{R"({"status":-2147483649})"}, "status-type"},
      {{R"({"status":"failed"})"}, "status-type"},
      {{R"({"status":-5,"error":1})"}, "error-type"},
      {{R"({"status":-5,"error":"text","aux-errors":[1]})"}, "error-type"},
      {{R"({"status":-5})"}, "error-text"},
      {{R"({"status":-5,"error":""})"}, "error-text"},
      {{R"({"other":1})"}, "own-members"},
      {{std::string(zel::kMaxFrameBytes + 1, ' ')}, "frame-size"},
      {{std::string(65, '[') + std::string(65, ']')}, "json-size"},
  };
  for (const Row& row : kRows) {
    Observer observer;
    observer.judgeAnswer("a request", kSet, false, row.frames, milliseconds(1));
    EXPECT_THAT(observer.findings(row.rule), Not(IsEmpty())) << row.rule;
  }
}

TEST(Observer, FindsNothingInAGoodAnswer) {
  for (const char* const text : {"{}", R"({"status":0})", R"({"status":1,"x-own":1})",
                                 R"({"status":-5,"error":"a text","aux-errors":["a text"]})"}) {
    Observer observer;
    observer.judgeAnswer("a request", kSet, false, {text}, milliseconds(1));
    for (const char* const rule : {"answer-object", "status-type", "error-type", "error-text", "own-members",
                                   "reserved-statuses", "json-strict", "answer-soon"}) {
      EXPECT_THAT(observer.findings(rule), IsEmpty()) << text;
    }
  }
}

TEST(Observer, FindsASlowAnswer) {
  Observer observer;
  observer.judgeAnswer("a request", kSet, false, {"{}"}, milliseconds(1001));
  EXPECT_THAT(observer.findings("answer-soon"), SizeIs(1));
}

TEST(Observer, FindsAQueryWithoutItsPayload) {
  for (const char* const text : {"{}", R"({"stored":[]})", R"({"stored":null})"}) {
    Observer observer;
    observer.judgeAnswer("a query", kGetStored, true, {text}, milliseconds(1));
    EXPECT_THAT(observer.findings("payload"), SizeIs(1)) << text;
  }
  Observer observer;
  observer.judgeAnswer("a query", kGetStored, true, {R"({"status":-5,"error":"a text"})"}, milliseconds(1));
  EXPECT_THAT(observer.findings("queries-succeed"), SizeIs(1));
}

/// Every status of common/status.h except those two that the daemon sends, too.
TEST(Observer, FindsTheStatusesThatTheClientMakes) {
  std::ifstream file(ZEL_SOURCE_DIR "/common/status.h");
  const std::string header{std::istreambuf_iterator<char>(file), {}};
  const std::regex number(" = (-[0-9]+);");
  int count = 0;
  for (std::sregex_iterator each(header.begin(), header.end(), number), end; each != end; ++each, ++count) {
    const std::string status = (*each)[1];
    Observer observer;
    observer.judgeAnswer("a request", kSet, false, {"{\"error\":\"text\",\"status\":" + status + "}"}, milliseconds(1));
    const bool isDaemons = status == "-16" || status == "-27";
    EXPECT_EQ(observer.findings("reserved-statuses").empty(), isDaemons) << status;
  }
  EXPECT_GT(count, 10);
}

TEST(Observer, FindsEachBreachInANotification) {
  struct Row {
    std::vector<std::string> frames;
    const char* rule;
  };
  const Row kRows[] = {
      {{"1000"}, "notification-frames"},
      {{"1000", "{}", ""}, "notification-frames"},
      {{"topic", "{}"}, "notification-frames"},
      {{"1002", "text"}, "notification-json"},
      {{"1003", "{}"}, "own-topics"},
      {{"10000", "{}"}, "own-topics"},
      {{"999", "{}"}, "own-topics"},
  };
  for (const Row& row : kRows) {
    Observer observer;
    observer.judgeNotification(row.frames);
    EXPECT_THAT(observer.findings(row.rule), SizeIs(1)) << row.frames.front();
  }
  Observer observer;
  observer.judgeNotification({"2000", "{}"});
  observer.judgeNotification({"1002", ""});
  for (const char* const rule : {"notification-frames", "notification-json", "own-topics"}) {
    EXPECT_THAT(observer.findings(rule), IsEmpty());
  }
}

TEST(Observer, StopsAfterTheSecondAnswerThatDoesNotCome) {
  Observer observer;
  EXPECT_NO_THROW(observer.missed("a request"));
  EXPECT_THROW(observer.missed("another one"), zel::conformance::Stopped);
  EXPECT_THAT(observer.findings("answer-time"), SizeIs(2));
}

}  // namespace
