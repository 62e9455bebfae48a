#include "cli/columns.h"

#include <sys/ioctl.h>
#include <wchar.h>

#include <algorithm>
#include <clocale>
#include <string_view>

#include "common/shared/utf8.h"

namespace zel::ctl {

namespace {

/// The columns of the character at the start of the text, whose bytes are counted in `length`.
std::size_t columnsOfFirst(std::string_view text, std::size_t& length) {
  static const char* const kLocale = std::setlocale(LC_CTYPE, "C.UTF-8");  // wcwidth(3) asks it
  const CodePoint first = firstCodePoint(text);
  length = std::max<std::size_t>(first.length, 1);
  const bool isKnown = kLocale != nullptr && first.length > 0;
  const int columns = isKnown ? wcwidth(static_cast<wchar_t>(first.value)) : 1;
  return columns < 0 ? 1 : static_cast<std::size_t>(columns);
}

/// A line that is broken into pieces.
class Pieces {
 public:
  Pieces(std::size_t columns, std::size_t indent) : columns_(columns), indent_(indent) {}

  /// Adds a part behind so many blanks, or at the beginning of the next piece where it has no room.
  void add(std::size_t blanks, const std::string& part) {
    const std::size_t wide = columnsOf(part);
    const bool isFirst = text_.empty() || used_ == indent_;
    if (!isFirst && used_ + blanks + wide > columns_) {
      text_ += "\n" + std::string(indent_, ' ');
      used_ = indent_;
      blanks = 0;
    }
    text_ += std::string(blanks, ' ') + part;
    used_ += blanks + wide;
  }

  /// The same with each word of a part that is longer than a piece.
  void addWords(std::size_t blanks, const std::string& part) {
    for (std::size_t begin = 0; begin < part.size();) {
      const std::size_t end = std::min(part.find(' ', begin), part.size());
      add(blanks, part.substr(begin, end - begin));
      begin = end + 1;
      blanks = 1;
    }
  }

  const std::string& text() const { return text_; }

 private:
  std::size_t columns_;
  std::size_t indent_;
  std::size_t used_ = 0;  ///< columns of the last piece
  std::string text_;
};

}  // namespace

std::size_t columnsOf(const std::string& text) {
  std::size_t columns = 0;
  std::size_t length = 0;
  for (std::string_view rest = text; !rest.empty(); rest.remove_prefix(length)) columns += columnsOfFirst(rest, length);
  return columns;
}

TerminalSize terminalSize(int descriptor) {
  winsize size{};
  if (ioctl(descriptor, TIOCGWINSZ, &size) != 0) return {};
  return {size.ws_col, size.ws_row};
}

std::string wrapped(const std::string& line, std::size_t columns, std::size_t indent) {
  if (columns == 0 || columnsOf(line) <= columns) return line;
  if (indent > columns / 2) indent = 4;
  Pieces pieces(columns, indent);
  for (std::size_t at = 0; at < line.size();) {
    const std::size_t begin = std::min(line.find_first_not_of(' ', at), line.size());
    const std::size_t end = std::min(line.find("  ", begin), line.size());
    const std::string part = line.substr(begin, end - begin);
    columnsOf(part) <= columns - indent ? pieces.add(begin - at, part) : pieces.addWords(begin - at, part);
    at = end;
  }
  return pieces.text();
}

std::size_t lastPartOf(const std::string& line) {
  const std::size_t gap = line.rfind("  ");
  return gap == std::string::npos ? 0 : columnsOf(line.substr(0, gap + 2));
}

}  // namespace zel::ctl
