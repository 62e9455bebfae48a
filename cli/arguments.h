#pragma once

#include "cli/command.h"

namespace zel::ctl {

/// What a command line asks for.
struct Request {
  const Command* command = nullptr;  ///< null: `text` is the whole answer
  std::string text;                  ///< of --help and --version
  Common common;
  Call::Values values;
};

/// @throws Failure for wrong usage
Request parseArguments(int argc, char** argv);

/// The help of a command or a group; of the program for null.
std::string helpOf(const Command* command);

/// What may stand in place of the last of the words, which may be empty or incomplete: a line each, with a tab and the
/// meaning behind the word where there is one.
std::string completions(const Words& words);

}  // namespace zel::ctl
