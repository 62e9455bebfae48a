#include <algorithm>
#include <utility>

#include "cli/arguments.h"

namespace zel::ctl {

namespace {

using Rows = std::vector<std::pair<std::string, std::string>>;

std::string section(const std::string& heading, const Rows& rows) {
  if (rows.empty()) return "";
  std::size_t width = 0;
  for (const auto& [name, text] : rows) width = std::max(width, name.size());
  std::string lines = "\n" + heading + ":\n";
  for (const auto& [name, text] : rows) {
    lines.append("  ").append(name).append(width - name.size() + 2, ' ').append(text).append("\n");
  }
  return lines;
}

std::string withValue(const Option& option) {
  return option.value == nullptr ? option.name : option.name + " " + option.value;
}

std::string withShortForm(const Option& option) {
  return (option.letter == '\0' ? "" : std::string("-") + option.letter + ", ") + withValue(option);
}

std::string usageLine(const Command& command) {
  std::string line = "sysmgrctl " + command.name;
  for (const Argument& argument : command.arguments) {
    const std::string words = std::string(argument.shown) + (argument.most > 1 ? "..." : "");
    line += argument.least > 0 ? " " + words : " [" + words + "]";
  }
  for (const Option& option : command.options) line += " [" + withValue(option) + "]";
  return command.run == nullptr ? line + " COMMAND" : line;
}

std::string commandsHelp(const std::string& group) {
  Rows rows;
  for (const std::string& word : commandsIn(group)) rows.emplace_back(word, commandOf(nameIn(group, word))->summary);
  return section("Commands", rows);
}

std::string commonHelp() {
  Rows rows;
  for (const Option& option : commonOptions()) {
    rows.emplace_back(withShortForm(option), option.help);
  }
  return section("Options of every command", rows);
}

}  // namespace

std::string helpOf(const Command* command) {
  if (command == nullptr) {
    return "sysmgrctl: the board's system manager from a shell\n\n"
           "Usage: sysmgrctl [OPTION...] COMMAND [ARGUMENT...]\n" +
           commandsHelp("") + commonHelp() +
           "\nExit status: 0 done, 1 other failure, 2 wrong usage, 3 no answer in time, 4 refused by the daemon, "
           "5 unusable answer, 8 no daemon, 10 not found. More in sysmgrctl(1).\n";
  }
  Rows arguments;
  for (const Argument& argument : command->arguments) arguments.emplace_back(argument.shown, argument.help);
  for (const Option& option : command->options) arguments.emplace_back(withShortForm(option), option.help);
  return "sysmgrctl " + command->name + ": " + command->summary + "\n\nUsage: " + usageLine(*command) + "\n" +
         commandsHelp(command->name) + section("Arguments", arguments) +
         (command->notes.empty() ? "" : "\n" + command->notes + "\n") + commonHelp();
}

}  // namespace zel::ctl
