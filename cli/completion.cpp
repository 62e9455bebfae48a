#include "cli/arguments.h"
#include "client/endpoints.h"

namespace zel::ctl {

namespace {

Offers optionsOf(const Command* command) {
  Offers offers;
  for (const Option& option : command == nullptr ? std::vector<Option>() : command->options) {
    offers.push_back({option.name, option.help});
  }
  for (const Option& option : commonOptions()) offers.push_back({option.name, option.help});
  return offers;
}

Offers commandsOf(const Command* group) {
  const std::string name = group == nullptr ? "" : group->name;
  Offers offers;
  for (const std::string& word : commandsIn(name)) offers.push_back({word, commandOf(nameIn(name, word))->summary});
  return offers;
}

Offers valuesOf(const Line& line, const std::string& begin) {
  for (const Option& option : line.command == nullptr ? std::vector<Option>() : line.command->options) {
    if (option.name == line.openOption && option.values != nullptr) return option.values(line.words, begin);
  }
  return {};
}

/// The words that the argument takes which is next in the line.
Offers wordsIn(const Line& line, const std::string& begin) {
  std::size_t end = 0;
  for (const Argument& argument : line.command->arguments) {
    end += argument.most;
    if (line.words.size() < end) return argument.values == nullptr ? Offers() : argument.values(line.words, begin);
  }
  return {};
}

/// @param begin  of the word that is being typed
Offers offersFor(const Line& line, const std::string& begin) {
  if (!line.openOption.empty()) return valuesOf(line, begin);
  if (begin.rfind('-', 0) == 0) return optionsOf(line.command);
  if (line.command != nullptr && line.command->run != nullptr) return wordsIn(line, begin);
  return line.words.empty() ? commandsOf(line.command) : Offers();
}

}  // namespace

std::string completions(const Words& typed) {
  if (typed.empty()) return "";
  const std::string& begin = typed.back();
  const Line line = takeApart({typed.begin(), typed.end() - 1});
  const auto endpoint = [&line](const char* option) {
    const auto found = line.options.find(option);
    return found == line.options.end() ? std::string() : found->second.back();
  };
  useEndpoints(endpoint("--requests"), endpoint("--notifications"));
  std::string lines;
  for (const Offer& offer : offersFor(line, begin)) {
    if (offer.word.compare(0, begin.size(), begin) != 0) continue;
    lines += offer.word + (offer.meaning.empty() ? "" : "\t" + offer.meaning) + "\n";
  }
  return lines;
}

}  // namespace zel::ctl
