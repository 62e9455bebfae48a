#include "cli/arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <list>
#include <set>

#ifndef SYSMGRCTL_VERSION
#error "the build says which version this is"
#endif

namespace zel::ctl {

namespace {

/// The parser of a command and the places for what it reads. The parser knows the options; the words behind them are
/// handed out here.
struct Parser {
  const Command* command;
  CLI::App* app;
  Words words;
  Call::Values options;
  std::map<std::string, bool> flags;
};

void addArguments(Parser& parser) {
  for (const Argument& argument : parser.command->arguments) {
    const std::string key = argument.key();
    if (argument.isFlag()) {
      parser.app->add_flag(key, parser.flags[key]);
    } else if (argument.isOption()) {
      parser.app->add_option(key, parser.options[key])
          ->expected(1)
          ->allow_extra_args(false)  // a list would go on with the words behind its first value
          ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    }
  }
  if (parser.command->run != nullptr) parser.app->add_option("words", parser.words)->expected(0, Argument::kAny);
}

std::string usageLine(const Command& command) {
  std::string line = "sysmgrctl " + command.name;
  for (const Argument& argument : command.arguments) {
    const std::string many = argument.most > 1 && !argument.isOption() ? "..." : "";
    line += argument.least > 0 ? " " + argument.name + many : " [" + argument.name + many + "]";
  }
  return command.run == nullptr ? line + " COMMAND" : line;
}

std::string listed(const std::string& heading, const std::vector<std::pair<std::string, std::string>>& rows) {
  std::size_t width = 0;
  for (const auto& [name, text] : rows) width = std::max(width, name.size());
  std::string lines = "\n" + heading + ":\n";
  for (const auto& [name, text] : rows) {
    lines.append("  ").append(name).append(width - name.size() + 2, ' ').append(text).append("\n");
  }
  return lines;
}

const std::vector<std::pair<std::string, std::string>> kCommonOptions = {
    {"--json", "JSON on standard output in place of tables"},
    {"-w, --wait SECONDS", "how long the whole command may take; 5 where nothing else is said"},
    {"-v, --verbose", "show the library's messages on standard error; -vv shows more of them"},
    {"-h, --help", "this help, or the help of a command"},
    {"--version", "the version"},
};

std::string commonHelp() { return listed("Options of every command", kCommonOptions); }

/// The whole name of a group's command.
std::string nameIn(const std::string& group, const std::string& word) {
  return group.empty() ? word : group + " " + word;
}

/// The name of the command that the words choose, with the number of words that make it.
std::pair<std::string, std::size_t> chosenCommand(const Words& words) {
  std::string name;
  std::size_t count = 0;
  for (const std::string& word : words) {
    const std::string longer = nameIn(name, word);
    if (commandOf(longer) == nullptr) break;
    name = longer;
    ++count;
  }
  return {name, count};
}

Failure wrongUsage(const std::string& why, const std::string& command, const std::string& guess) {
  const std::string help = "'sysmgrctl " + command + (command.empty() ? "" : " ") + "--help' shows the usage";
  return usage(why, guess.empty() ? help : guess + " " + help);
}

/// Says what is wrong with words that no argument takes.
Failure unexpected(const std::string& command, const Words& rest) {
  const std::string& word = rest.front();
  const Command* const known = commandOf(command);
  if (word.rfind('-', 0) == 0 && word.size() > 1) {
    Words options = {"--json", "--wait", "--verbose", "--help", "--version"};
    for (const Argument& argument : known == nullptr ? std::vector<Argument>() : known->arguments) {
      if (argument.isOption()) options.push_back(argument.key());
    }
    return wrongUsage("there is no option '" + word + "'", command, didYouMean(word, options));
  }
  const Words names = commandsIn(command);
  if (known == nullptr || known->run == nullptr) {
    const std::string of = command.empty() ? "" : " of '" + command + "'";
    return wrongUsage("there is no command '" + word + "'" + of, command, didYouMean(word, names));
  }
  return wrongUsage("'" + word + "' is one word too many", command, "");
}

/// Hands the words out to the command's arguments in their order.
Call::Values valuesOf(const Parser& parser) {
  Call::Values values = parser.options;
  for (const auto& [key, isSet] : parser.flags) {
    if (isSet) values[key] = {"yes"};
  }
  const Words& words = parser.words;
  std::size_t next = 0;
  for (const Argument& argument : parser.command->arguments) {
    if (argument.isOption()) continue;
    const std::size_t count = std::min(words.size() - next, static_cast<std::size_t>(argument.most));
    if (count < static_cast<std::size_t>(argument.least)) {
      throw wrongUsage(argument.name + " is missing (" + argument.help + ")", parser.command->name, "");
    }
    const auto first = words.begin() + static_cast<std::ptrdiff_t>(next);
    values[argument.key()].assign(first, first + static_cast<std::ptrdiff_t>(count));
    next += count;
  }
  if (next < words.size()) throw unexpected(parser.command->name, {words[next]});
  return values;
}

}  // namespace

std::string helpOf(const Command* command) {
  std::vector<std::pair<std::string, std::string>> commands;
  const std::string group = command == nullptr ? "" : command->name;
  for (const std::string& name : commandsIn(group)) {
    commands.emplace_back(name, commandOf(nameIn(group, name))->summary);
  }
  if (command == nullptr) {
    return "sysmgrctl: the board's system manager from a shell\n\n"
           "Usage: sysmgrctl [OPTION...] COMMAND [ARGUMENT...]\n" +
           listed("Commands", commands) + commonHelp() +
           "\nExit status: 0 done, 1 other failure, 2 wrong usage, 3 no answer in time, 4 refused by the daemon,\n"
           "5 unusable answer, 8 no daemon, 10 not found. More in sysmgrctl(1).\n";
  }
  std::string text =
      "sysmgrctl " + command->name + ": " + command->summary + "\n\nUsage: " + usageLine(*command) + "\n";
  if (!commands.empty()) text += listed("Commands", commands);
  std::vector<std::pair<std::string, std::string>> arguments;
  for (const Argument& argument : command->arguments) arguments.emplace_back(argument.name, argument.help);
  if (!arguments.empty()) text += listed("Arguments", arguments);
  if (!command->notes.empty()) text += "\n" + command->notes + "\n";
  return text + commonHelp();
}

Request parseArguments(int argc, char** argv) {
  Request request;
  CLI::App app;
  app.set_help_flag("-h,--help");
  app.set_version_flag("--version", "sysmgrctl " SYSMGRCTL_VERSION);
  app.fallthrough();
  app.require_subcommand(0, 1);  // inherited: behind a command, words that are called like one are words
  app.add_flag("--json", request.common.json);
  std::string wait;
  CLI::Option* const waitOption = app.add_option("-w,--wait", wait)->take_last();
  app.add_flag("-v,--verbose", request.common.verbosity);

  // Only commands that a word calls can be chosen, and the others would take their time to be set up.
  const std::set<std::string> typed(argv + 1, argv + argc);
  std::list<Parser> parsers;  // their addresses stay
  std::map<std::string, CLI::App*> apps = {{"", &app}};
  for (const Command& command : commands()) {
    const std::size_t space = command.name.rfind(' ');
    const auto parent = apps.find(space == std::string::npos ? "" : command.name.substr(0, space));
    const std::string word = command.name.substr(space + 1);
    if (parent == apps.end() || typed.count(word) == 0) continue;
    CLI::App* const sub = parent->second->add_subcommand(word);
    apps[command.name] = sub;
    parsers.push_back({&command, sub, {}, {}, {}});
    addArguments(parsers.back());
  }

  const auto chosen = [&]() -> Parser* {
    Parser* deepest = nullptr;
    for (Parser& parser : parsers) {
      if (parser.app->parsed()) deepest = &parser;
    }
    return deepest;
  };
  const auto nameOfChosen = [&] { return chosen() == nullptr ? std::string() : chosen()->command->name; };

  // What stands behind "--" is no option, whatever it looks like.
  const auto mark = std::find(argv + 1, argv + argc, std::string("--"));
  const Words plainWords(std::min(mark + 1, argv + argc), argv + argc);
  try {
    app.parse(static_cast<int>(mark - argv), argv);
  } catch (const CLI::CallForHelp&) {
    request.text = helpOf(chosen() == nullptr ? nullptr : chosen()->command);
    return request;
  } catch (const CLI::CallForVersion&) {
    request.text = "sysmgrctl " SYSMGRCTL_VERSION "\n";
    return request;
  } catch (const CLI::ExtrasError&) {
    throw unexpected(nameOfChosen(), app.remaining(true));
  } catch (const CLI::ArgumentMismatch& error) {
    const std::string text = error.what();  // "--wait: ..."
    throw wrongUsage(text.substr(0, text.find(':')) + " needs a value", nameOfChosen(), "");
  } catch (const CLI::ParseError& error) {
    throw wrongUsage(error.what(), nameOfChosen(), "");
  }

  Parser* const parser = chosen();
  if (parser == nullptr || parser->command->run == nullptr) {
    const std::string name = nameOfChosen();
    throw wrongUsage(name.empty() ? "no command is given" : "'" + name + "' needs a command behind it", name, "");
  }
  if (waitOption->count() > 0) request.common.wait = parseSeconds("--wait", wait);
  parser->words.insert(parser->words.end(), plainWords.begin(), plainWords.end());
  request.command = parser->command;
  request.values = valuesOf(*parser);
  return request;
}

namespace {

/// A command line up to the word that is being typed.
struct Typed {
  const Command* command = nullptr;  ///< the command or group that the words choose
  Words words;                       ///< behind it, without options
  std::string openOption;            ///< the option whose value is being typed
  std::string last;                  ///< the beginning of the word
};

bool takesValue(const Command* command, const std::string& option) {
  if (option == "-w" || option == "--wait") return true;
  if (command == nullptr) return false;
  const auto isIt = [&option](const Argument& argument) {
    return argument.isOption() && !argument.isFlag() && argument.key() == option;
  };
  return std::any_of(command->arguments.begin(), command->arguments.end(), isIt);
}

Typed understand(const Words& words) {
  Typed typed;
  if (words.empty()) return typed;
  typed.last = words.back();
  Words plain;
  for (auto word = words.begin(); word + 1 != words.end(); ++word) {
    if (!typed.openOption.empty()) {
      typed.openOption.clear();
    } else if (word->rfind('-', 0) == 0) {
      if (takesValue(typed.command, *word)) typed.openOption = *word;
    } else {
      plain.push_back(*word);
      typed.command = commandOf(chosenCommand(plain).first);
    }
  }
  const std::size_t chosen = chosenCommand(plain).second;
  typed.words.assign(plain.begin() + static_cast<std::ptrdiff_t>(chosen), plain.end());
  return typed;
}

Offers optionsOf(const Command* command) {
  Offers offers;
  for (const Argument& argument : command == nullptr ? std::vector<Argument>() : command->arguments) {
    if (argument.isOption()) offers.push_back({argument.key(), argument.help});
  }
  for (const auto& [names, help] : kCommonOptions) {
    const std::size_t begin = names.find("--");
    offers.push_back({names.substr(begin, names.find(' ', begin) - begin), help});
  }
  return offers;
}

Offers subcommandsOf(const Command* group) {
  const std::string name = group == nullptr ? "" : group->name;
  Offers offers;
  for (const std::string& word : commandsIn(name)) offers.push_back({word, commandOf(nameIn(name, word))->summary});
  return offers;
}

Offers valuesOf(const Argument& argument, const Words& typedBefore) {
  return argument.values == nullptr ? Offers() : argument.values(typedBefore);
}

/// What the command takes in the place that is being typed.
Offers valuesIn(const Typed& typed) {
  std::size_t begin = 0;
  for (const Argument& argument : typed.command->arguments) {
    if (argument.isOption()) {
      if (argument.key() == typed.openOption) return valuesOf(argument, typed.words);
      continue;
    }
    const std::size_t end = begin + static_cast<std::size_t>(argument.most);
    if (typed.openOption.empty() && typed.words.size() < end) return valuesOf(argument, typed.words);
    begin = end;
  }
  return {};
}

Offers offersFor(const Typed& typed) {
  const bool isCommand = typed.command != nullptr && typed.command->run != nullptr;
  if (typed.openOption.empty() && typed.last.rfind('-', 0) == 0) return optionsOf(typed.command);
  if (isCommand) return valuesIn(typed);
  const bool isStranger = !typed.words.empty() || !typed.openOption.empty();
  return isStranger ? Offers() : subcommandsOf(typed.command);
}

}  // namespace

std::string completions(const Words& words) {
  const Typed typed = understand(words);
  std::string lines;
  for (const Offer& offer : offersFor(typed)) {
    if (offer.word.compare(0, typed.last.size(), typed.last) != 0) continue;
    lines += offer.word + (offer.meaning.empty() ? "" : "\t" + offer.meaning) + "\n";
  }
  return lines;
}

}  // namespace zel::ctl
