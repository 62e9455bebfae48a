#pragma once

#include <cstddef>
#include <string>

namespace zel::ctl {

/// How many columns of a terminal a UTF-8 text takes: two for a wide character, none for a combining one.
std::size_t columnsOf(const std::string& text);

/// The size of the terminal behind a descriptor; 0: it is not a terminal, or its size is not known.
struct TerminalSize {
  std::size_t columns = 0;
  std::size_t rows = 0;
};
TerminalSize terminalSize(int descriptor);

// The parts of a line are two blanks or more from each other: the cells of a table's row.

/// A line broken between its parts, or between the words of a part that is too long, so that each piece takes at most
/// so many columns. The pieces behind the first begin at `indent`. A longer word stays whole.
/// @param columns  0: the line stays as it is
std::string wrapped(const std::string& line, std::size_t columns, std::size_t indent);

/// The column at which the last part of a line begins.
std::size_t lastPartOf(const std::string& line);

}  // namespace zel::ctl
