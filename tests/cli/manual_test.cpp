#include <gmock/gmock.h>

#include <fstream>
#include <iterator>
#include <regex>
#include <string>

#include "cli/command.h"
#include "cli/exit_status.h"

// The manual page is written by hand; these tests tell when the program has outgrown it.

namespace zel::ctl {
namespace {

using testing::HasSubstr;

/// The page's text, without the marks of its typesetting.
std::string manual() {
  std::ifstream file(SYSMGRCTL_MANUAL);
  std::string text((std::istreambuf_iterator<char>(file)), {});
  text = std::regex_replace(text, std::regex("\\\\f[A-Z]"), "");
  text = std::regex_replace(text, std::regex("\\\\-"), "-");
  text = std::regex_replace(text, std::regex("\n\\.[A-Z]+ "), "\n");
  return std::regex_replace(text, std::regex("\""), "");
}

TEST(Manual, NamesEveryCommandWithItsArguments) {
  const std::string page = manual();
  for (const Command& command : commands()) {
    if (command.run == nullptr) continue;
    EXPECT_THAT(page, HasSubstr("\nsysmgrctl " + command.name)) << command.name;
    for (const Argument& argument : command.arguments) EXPECT_THAT(page, HasSubstr(argument.shown)) << command.name;
    for (const Option& option : command.options) EXPECT_THAT(page, HasSubstr(option.name)) << command.name;
  }
}

TEST(Manual, NamesEveryDocument) {
  const std::string page = manual();
  for (const Offer& document : documents()) EXPECT_THAT(page, HasSubstr(document.word));
  for (const std::string& document : watchableDocuments()) EXPECT_THAT(page, HasSubstr(document));
}

TEST(Manual, NamesEveryExitStatus) {
  const std::string page = manual();
  for (const Exit status : {Exit::kOk, Exit::kOther, Exit::kUsage, Exit::kTimeOut, Exit::kRefused, Exit::kBadAnswer,
                            Exit::kNoDaemon, Exit::kNotFound}) {
    EXPECT_THAT(page, HasSubstr("\n" + std::to_string(static_cast<int>(status)) + "\n"));
  }
}

}  // namespace
}  // namespace zel::ctl
