#include "cli/arguments.h"

#include <algorithm>
#include <cctype>
#include <cstddef>

#include "cli/suggest.h"

#ifndef SYSMGRCTL_VERSION
#error "the build says which version this is"
#endif

namespace zel::ctl {

namespace {

constexpr const char* kMark = "--";  ///< no word behind it is an option

/// The first option of any command for which the predicate holds; null: none.
template <class Predicate>
const Option* findOption(const Predicate& predicate) {
  const auto among = [&predicate](const std::vector<Option>& options) {
    const auto found = std::find_if(options.begin(), options.end(), predicate);
    return found == options.end() ? nullptr : &*found;
  };
  const Option* found = among(commonOptions());
  for (const Command& command : commands()) found = found == nullptr ? among(command.options) : found;
  return found;
}

/// Whether a word is an option, by its looks; a negative number is not.
bool isOption(const std::string& word) {
  return word.size() > 1 && word[0] == '-' && word[1] != '.' && std::isdigit(static_cast<unsigned char>(word[1])) == 0;
}

/// The options in a word, each in its long form: "-vw5" as "--verbose" and "--wait=5".
Words longForms(const std::string& word) {
  if (word.rfind(kMark, 0) == 0) return {word};
  Words forms;
  for (std::size_t i = 1; i < word.size(); ++i) {
    const Option* const option = findOption([&](const Option& each) { return each.letter == word[i]; });
    if (option == nullptr) return {word};
    forms.push_back(option->name);
    if (option->value == nullptr) continue;
    if (i + 1 < word.size()) forms.back() += "=" + word.substr(i + 1);
    break;
  }
  return forms;
}

/// Moves the words that choose a command out of the words of a line.
void chooseCommand(Line& line) {
  std::string name;
  auto word = line.words.begin();
  for (; word != line.words.end(); ++word) {
    name = nameIn(name, *word);
    const Command* const command = commandOf(name);
    if (command == nullptr) break;
    line.command = command;
  }
  line.words.erase(line.words.begin(), word);
}

Failure wrongUsage(const std::string& why, const Command* command, const std::string& guess = {}) {
  const std::string name = command == nullptr ? "" : command->name + " ";
  const std::string help = "'sysmgrctl " + name + "--help' shows the usage";
  return usage(why, guess.empty() ? help : guess + " " + help);
}

bool takesOption(const Command& command, const std::string& name) {
  const auto isIt = [&name](const Option& option) { return option.name == name; };
  return std::any_of(command.options.begin(), command.options.end(), isIt) ||
         std::any_of(commonOptions().begin(), commonOptions().end(), isIt);
}

Failure unknownOption(const std::string& option, const Command* command) {
  Words names;
  for (const Option& each : commonOptions()) names.push_back(each.name);
  for (const Option& each : command == nullptr ? std::vector<Option>() : command->options) names.push_back(each.name);
  const std::string why = command == nullptr ? "there is no option '" + option + "'"
                                             : "'" + command->name + "' has no option '" + option + "'";
  return wrongUsage(why, command, didYouMean(option, names));
}

Failure unknownCommand(const Line& line) {
  const std::string group = line.command == nullptr ? "" : line.command->name;
  if (line.words.empty()) {
    return wrongUsage(group.empty() ? "no command is given" : "'" + group + "' needs a command behind it",
                      line.command);
  }
  const std::string& word = line.words.front();
  return wrongUsage("there is no command '" + word + "'" + (group.empty() ? "" : " of '" + group + "'"), line.command,
                    didYouMean(word, commandsIn(group)));
}

/// Refuses an empty text for a file, a folder, an endpoint or a shell's command: it is an unset variable of a shell,
/// not a word that was left out.
/// @param shown  what the help calls the words; null for an option without a value
void checkFilled(const char* shown, const Words& words, const Command& command) {
  static const Words kNeverEmpty = {"FILE", "DIRECTORY", "ENDPOINT", "COMMAND"};
  if (shown == nullptr || !contains(kNeverEmpty, shown) || !contains(words, "")) return;
  throw wrongUsage(std::string(shown) + " is an empty text", &command);
}

void checkOptions(const Line& line) {
  if (!line.unknownOption.empty()) throw unknownOption(line.unknownOption, line.command);
  if (!line.openOption.empty()) throw wrongUsage(line.openOption + " needs a value", line.command);
  if (line.command == nullptr || line.command->run == nullptr) throw unknownCommand(line);
  for (const auto& [name, values] : line.options) {
    if (!takesOption(*line.command, name)) throw unknownOption(name, line.command);
    checkFilled(findOption([&wanted = name](const Option& each) { return each.name == wanted; })->value, values,
                *line.command);
  }
}

/// Hands the words out to the command's arguments in their order.
void handOut(const Command& command, const Words& words, Values& values) {
  std::size_t next = 0;
  for (const Argument& argument : command.arguments) {
    const std::size_t count = std::min(words.size() - next, argument.most);
    if (count < argument.least) {
      throw wrongUsage(std::string(argument.shown) + " is missing (" + argument.help + ")", &command);
    }
    const auto first = words.begin() + static_cast<std::ptrdiff_t>(next);
    values[argument.key].assign(first, first + static_cast<std::ptrdiff_t>(count));
    checkFilled(argument.shown, values[argument.key], command);
    next += count;
  }
  if (next < words.size()) throw wrongUsage("'" + words[next] + "' is one word too many", &command);
}

}  // namespace

std::string nameIn(const std::string& group, const std::string& word) {
  return group.empty() ? word : group + " " + word;
}

Line takeApart(const Words& typed) {
  Line line;
  const auto mark = std::find(typed.begin(), typed.end(), kMark);
  for (auto word = typed.begin(); word != mark; ++word) {
    if (!isOption(*word)) {
      line.words.push_back(*word);
      continue;
    }
    for (const std::string& form : longForms(*word)) {
      const std::size_t equals = form.find('=');
      const std::string name = form.substr(0, equals);
      const Option* const option = findOption([&name](const Option& each) { return each.name == name; });
      const bool isJoined = equals != std::string::npos;
      if (option == nullptr || (isJoined && option->value == nullptr)) {
        if (line.unknownOption.empty()) line.unknownOption = form;
      } else if (isJoined || option->value == nullptr) {
        line.options[name].push_back(isJoined ? form.substr(equals + 1) : "");
      } else if (word + 1 != mark && !isOption(word[1])) {
        line.options[name].push_back(*++word);
      } else {
        line.openOption = name;
      }
    }
  }
  if (mark != typed.end()) line.plainWords.assign(mark + 1, typed.end());
  chooseCommand(line);
  return line;
}

Request parseArguments(const Words& typed) {
  Line line = takeApart(typed);
  if (line.options.count("--help") > 0) return {nullptr, helpOf(line.command), {}};
  if (line.options.count("--version") > 0) return {nullptr, "sysmgrctl " SYSMGRCTL_VERSION "\n", {}};
  checkOptions(line);
  line.words.insert(line.words.end(), line.plainWords.begin(), line.plainWords.end());
  handOut(*line.command, line.words, line.options);
  return {line.command, "", line.options};
}

}  // namespace zel::ctl
