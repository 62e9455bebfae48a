#pragma once

#include <string>

#include "cli/command.h"

namespace zel::ctl {

/// A command line in its parts.
struct Line {
  const Command* command = nullptr;  ///< the command or group that the first words choose; null: none
  Words words;                       ///< the words behind it, without options
  Words plainWords;                  ///< those behind "--", which neither choose a command nor are options
  Values options;                    ///< by name
  std::string unknownOption;         ///< the first option that no command has
  std::string openOption;            ///< the last option without the value that it needs
};
Line takeApart(const Words& typed);

/// What a command line asks for.
struct Request {
  const Command* command = nullptr;  ///< null: `text` is the whole answer
  std::string text;                  ///< of --help and --version
  Values values;
};
/// @throws Failure for wrong usage
Request parseArguments(const Words& typed);

/// The name of a group's command; with an empty group that of a command.
std::string nameIn(const std::string& group, const std::string& word);

/// The help of a command or a group; of the program for null.
std::string helpOf(const Command* command);

/// What may stand in place of the last of the words, which may be empty or incomplete: a line each, with a tab and the
/// meaning behind the word where there is one.
std::string completions(const Words& typed);

}  // namespace zel::ctl
