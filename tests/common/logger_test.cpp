#include "common/logger.h"

#include <gmock/gmock.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/captured_log.h"
#include "tests/support/child_process.h"

using testing::ElementsAre;
using testing::IsEmpty;
using zel::test::CapturedLog;
using zel::test::ChildProcess;
using zel::test::LogLine;

namespace {

constexpr Logger::logDebugLevel_t kLevels[] = {Logger::LEVEL_ERROR, Logger::LEVEL_CONFIG, Logger::LEVEL_LIFECYCLE,
                                               Logger::LEVEL_PROGRESS, Logger::LEVEL_TRACE};

std::vector<LogLine> lines;
void collect(Logger::logDebugLevel_t level, const std::string& text) { lines.push_back({level, text}); }

/// What the default sink writes to standard error while a process does this.
std::string written(const std::function<void()>& action) {
  ChildProcess child = ChildProcess::call([&action] {
    action();
    return 0;
  });
  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(child.output(), "");
  return child.errors();
}

}  // namespace

TEST(Logger, NumbersItsLevels) {
  EXPECT_THAT(kLevels, ElementsAre(2, 3, 5, 6, 7));
  EXPECT_EQ(sizeof(Logger::logDebugLevel_t), 4u);
}

TEST(Logger, IsOneForTheProcess) { EXPECT_EQ(Logger::getInstance(), Logger::getInstance()); }

TEST(Logger, PassesErrorsAndConfigurationAtFirst) {
  EXPECT_EQ(Logger::getInstance()->getLevel(), Logger::LEVEL_CONFIG);
  Logger::getInstance()->setSink(collect);
  for (const Logger::logDebugLevel_t level : kLevels) Logger::log(level, "x");
  EXPECT_THAT(lines, ElementsAre(LogLine{2, "x"}, LogLine{3, "x"}));
}

TEST(Logger, PassesWhatIsNotAboveTheThreshold) {
  Logger::getInstance()->setSink(collect);
  for (const Logger::logDebugLevel_t threshold : kLevels) {
    Logger::getInstance()->setLevel(threshold);
    EXPECT_EQ(Logger::getInstance()->getLevel(), threshold);
    for (const Logger::logDebugLevel_t level : kLevels) {
      lines.clear();
      Logger::log(level, "x");
      Logger::getInstance()->logMessage(level, "y");
      EXPECT_EQ(lines.size(), level <= threshold ? 2u : 0u) << level << " at " << threshold;
    }
  }
  lines.clear();
  Logger::getInstance()->setLevel(static_cast<Logger::logDebugLevel_t>(0));
  Logger::log(Logger::LEVEL_ERROR, "x");
  EXPECT_THAT(lines, IsEmpty());
}

TEST(Logger, DropsBeforeItFormats) {
  Logger::getInstance()->setSink(collect);
  int count = 0;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"  // the conversion that leaves a trace of the formatting
  Logger::log(Logger::LEVEL_TRACE, "1234%n", &count);
  EXPECT_EQ(count, 0);
  Logger::log(Logger::LEVEL_ERROR, "1234%n", &count);
  EXPECT_EQ(count, 4);
#pragma GCC diagnostic pop
}

TEST(Logger, FormatsAsPrintfDoes) {
  const CapturedLog log;
  Logger::log(Logger::LEVEL_ERROR, "CHK(%s)::%d Error Code %d", "int f()", 7, -5);
  Logger::getInstance()->logMessage(Logger::LEVEL_TRACE, "%u%% %5.2f|%-4s|%x", 50u, 1.5, "a", 255u);
  Logger::log(Logger::LEVEL_PROGRESS, "%s", "");
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "CHK(int f())::7 Error Code -5"}, LogLine{7, "50%  1.50|a   |ff"},
                                       LogLine{6, ""}));
}

TEST(Logger, ShowsTheFormatOfWhatCannotBeFormatted) {
  const CapturedLog log;
  Logger::log(Logger::LEVEL_ERROR, "not a character: %lc", static_cast<wint_t>(0x7fffffff));
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "not a character: %lc"}));
}

TEST(Logger, KeepsATextOfAnyLength) {
  const CapturedLog log;
  const std::string text(1'000'000, 'x');
  Logger::log(Logger::LEVEL_ERROR, "%s!", text.c_str());
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(log.lines()[0].text == text + "!");
}

TEST(Logger, HandsControlCharactersToASinkAsTheyAre) {
  const CapturedLog log;
  Logger::log(Logger::LEVEL_ERROR, "%s", "a\nb\x1b[0m\\ \xff");
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "a\nb\x1b[0m\\ \xff"}));
}

TEST(Logger, LetsWhatASinkThrowsPass) {
  Logger::getInstance()->setSink([](auto, const std::string& text) { throw std::runtime_error(text); });
  EXPECT_THROW(Logger::log(Logger::LEVEL_ERROR, "x"), std::runtime_error);
  EXPECT_THROW(Logger::getInstance()->logMessage(Logger::LEVEL_ERROR, "x"), std::runtime_error);
  EXPECT_NO_THROW(Logger::log(Logger::LEVEL_TRACE, "x")) << "dropped";
  Logger::getInstance()->setSink(collect);
  Logger::log(Logger::LEVEL_ERROR, "y");
  EXPECT_THAT(lines, ElementsAre(LogLine{2, "y"}));
}

TEST(Logger, LetsASinkLogAndReplaceTheSink) {
  Logger::getInstance()->setSink([](auto, const std::string& text) {
    Logger::getInstance()->setSink(collect);
    Logger::log(Logger::LEVEL_ERROR, "after %s", text.c_str());
  });
  Logger::log(Logger::LEVEL_ERROR, "x");
  EXPECT_THAT(lines, ElementsAre(LogLine{2, "after x"}));
}

TEST(Logger, WritesOneLineAMessageToStandardErrorByDefault) {
  EXPECT_EQ(written([] {
              Logger::getInstance()->setLevel(Logger::LEVEL_TRACE);
              for (const Logger::logDebugLevel_t level : kLevels) Logger::log(level, "%s", "text");
              Logger::log(static_cast<Logger::logDebugLevel_t>(1), "text");
            }),
            "error: text\nconfig: text\nlifecycle: text\nprogress: text\ntrace: text\nlog: text\n");
}

TEST(Logger, RestoresTheDefaultSinkByAnEmptyOne) {
  for (const Logger::Sink& empty : {Logger::Sink(), Logger::Sink(nullptr)}) {
    EXPECT_EQ(written([&empty] {
                Logger::getInstance()->setSink(collect);
                Logger::log(Logger::LEVEL_ERROR, "unseen");
                Logger::getInstance()->setSink(empty);
                Logger::log(Logger::LEVEL_ERROR, "seen");
              }),
              "error: seen\n");
  }
}

TEST(Logger, EscapesWhatCouldForgeALineOrSteerATerminal) {
  const std::pair<const char*, const char*> rows[] = {
      {"plain, ~ and \"quoted\"", "plain, ~ and \"quoted\""},
      {"a\nerror: forged", "a\\x0aerror: forged"},
      {"\r\t\v\f\b\a\x01\x1f", "\\x0d\\x09\\x0b\\x0c\\x08\\x07\\x01\\x1f"},
      {"\x1b[31mred", "\\x1b[31mred"},
      {"\x7f", "\\x7f"},
      {"back\\slash \\x0a", "back\\\\slash \\\\x0a"},
      {"Gr\xc3\xbc\xc3\x9f"
       "e \xe2\x82\xac \xf0\x9f\x98\x80",
       "Gr\xc3\xbc\xc3\x9f"
       "e \xe2\x82\xac \xf0\x9f\x98\x80"},
      {"\xc2\x9b"
       "31m",
       "\\xc2\\x9b"
       "31m"},  // the control sequence introducer of the second control set
      {"\xc2\x80\xc2\x9f\xc2\xa0", "\\xc2\\x80\\xc2\\x9f\xc2\xa0"},
      {"\xd8\x9c \xe2\x80\x8e \xe2\x80\x8f", "\\xd8\\x9c \\xe2\\x80\\x8e \\xe2\\x80\\x8f"},  // marks of direction
      {"\xe2\x80\xa8 \xe2\x80\xae \xe2\x80\xac",
       "\\xe2\\x80\\xa8 \\xe2\\x80\\xae \\xe2\\x80\\xac"},               // a line separator, an override, its end
      {"\xe2\x81\xa6 \xe2\x81\xa9", "\\xe2\\x81\\xa6 \\xe2\\x81\\xa9"},  // isolates
      {"\xe2\x80\xa7 \xe2\x80\xaf", "\xe2\x80\xa7 \xe2\x80\xaf"},        // their neighbours
      {"\xff\xc3\xbc", "\\xff\\xc3\\xbc"},                               // not UTF-8
      {"\xc0\x8a", "\\xc0\\x8a"},                                        // an overlong line feed
      {"\xc2", "\\xc2"},
  };
  std::string expected;
  for (const auto& [text, line] : rows) expected += "error: " + std::string(line) + "\n";
  EXPECT_EQ(written([&rows] {
              for (const auto& row : rows) Logger::log(Logger::LEVEL_ERROR, "%s", row.first);
            }),
            expected);
}

TEST(Logger, OutlivesEveryOtherStaticObject) {
  EXPECT_EQ(written([] {
              struct Late {
                ~Late() { Logger::log(Logger::LEVEL_ERROR, "late"); }
              };
              static Late late;
              Logger::log(Logger::LEVEL_ERROR, "early");
            }),
            "error: early\nerror: late\n");
}

TEST(Logger, IsUsedByManyThreadsAtOnce) {
  const std::string all = written([] {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([] {
        for (int j = 0; j < 100; ++j) Logger::log(Logger::LEVEL_ERROR, "%s", std::string(100, 'x').c_str());
      });
    }
    for (int j = 0; j < 100; ++j) {
      Logger::getInstance()->setLevel(j % 2 == 0 ? Logger::LEVEL_TRACE : Logger::LEVEL_ERROR);
      Logger::getInstance()->setSink(nullptr);
    }
    for (std::thread& thread : threads) thread.join();
  });
  std::string expected;
  for (int i = 0; i < 400; ++i) expected += "error: " + std::string(100, 'x') + "\n";
  EXPECT_EQ(all, expected) << "the lines are whole";
}
