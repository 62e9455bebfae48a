#include "cli/arguments.h"

#include <gmock/gmock.h>

#include <map>

namespace zel::ctl {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StrEq;

// The transcripts show whole command lines; here is what they stand on.

TEST(Options, OfOneNameHaveAValueInAllCommandsOrInNone) {
  std::map<std::string, bool> haveValue;
  const auto check = [&haveValue](const std::vector<Option>& options) {
    for (const Option& option : options) {
      const bool hasValue = option.value != nullptr;
      EXPECT_EQ(haveValue.emplace(option.name, hasValue).first->second, hasValue) << option.name;
    }
  };
  check(commonOptions());
  for (const Command& command : commands()) check(command.options);
}

TEST(Line, HoldsTheWordsAndTheOptionsInAnyOrder) {
  for (const Words& typed :
       {Words{"--timeout", "1", "-v", "watch", "stored"}, Words{"watch", "-v", "stored", "--timeout=1"},
        Words{"watch", "--timeout", "1", "stored", "-v"}}) {
    const Line line = takeApart(typed);
    ASSERT_NE(line.command, nullptr);
    EXPECT_THAT(line.command->name, StrEq("watch"));
    EXPECT_THAT(line.words, ElementsAre("stored"));
    EXPECT_THAT(line.options,
                ElementsAre(testing::Pair("--timeout", ElementsAre("1")), testing::Pair("--verbose", ElementsAre(""))));
  }
}

TEST(Line, TakesShortOptionsTogether) {
  const Line line = takeApart({"-vvw5", "eth", "list"});
  EXPECT_THAT(line.command->name, StrEq("eth list"));
  EXPECT_THAT(line.options.at("--verbose"), ElementsAre("", ""));
  EXPECT_THAT(line.options.at("--wait"), ElementsAre("5"));
}

TEST(Line, KeepsWhatIsBehindTheMarkApart) {
  const Line line = takeApart({"set", "--json", "--", "get", "--json", "-x"});
  EXPECT_THAT(line.command->name, StrEq("set"));
  EXPECT_THAT(line.words, IsEmpty());
  EXPECT_THAT(line.plainWords, ElementsAre("get", "--json", "-x"));
  EXPECT_THAT(line.options.at("--json"), ElementsAre(""));
}

TEST(Line, NamesAnOptionThatLacksItsValue) {
  EXPECT_THAT(takeApart({"eth", "add", "--address"}).openOption, StrEq("--address"));
  EXPECT_THAT(takeApart({"eth", "add", "--address", "--dhcp"}).openOption, StrEq("--address"));
  EXPECT_THAT(takeApart({"eth", "add", "--address", "--", "eth1"}).openOption, StrEq("--address"));
}

TEST(Line, NamesAnOptionThatNoCommandHas) {
  EXPECT_THAT(takeApart({"status", "--no", "--nor"}).unknownOption, StrEq("--no"));
  EXPECT_THAT(takeApart({"status", "-vx"}).unknownOption, StrEq("-vx"));
  EXPECT_THAT(takeApart({"status", "--json=yes"}).unknownOption, StrEq("--json=yes"));
}

TEST(Line, TakesANegativeNumberForAWord) {
  EXPECT_THAT(takeApart({"set", "rtsp/tcp-port", "-5"}).words, ElementsAre("rtsp/tcp-port", "-5"));
}

}  // namespace
}  // namespace zel::ctl
