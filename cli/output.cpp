#include "cli/output.h"

#include <json/writer.h>
#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <iomanip>
#include <limits>
#include <sstream>
#include <utility>

#include "cli/escape.h"
#include "cli/failure.h"
#include "cli/json_paths.h"

namespace zel::ctl {

namespace {

constexpr std::size_t kGap = 2;             ///< blanks between columns
constexpr std::size_t kWidestAligned = 80;  ///< columns; a cell that is wider moves those behind it
constexpr std::size_t kKibi = 1024;
constexpr std::size_t kBuffer = 64 * kKibi;               ///< bytes
constexpr std::size_t kMostOfPaths = 64 * kKibi * kKibi;  ///< bytes that the paths of one document may take
constexpr std::size_t kPiece = PIPE_BUF;                  ///< bytes that a pipe takes at once when it takes any

using Row = std::vector<std::string>;

void widen(std::size_t& column, const std::string& cell) {
  const std::size_t width = columnsOf(cell);
  if (width <= kWidestAligned) column = std::max(column, width);
}

/// The widths of the columns over all rows.
std::vector<std::size_t> widthsOf(const std::vector<Row>& rows) {
  std::vector<std::size_t> widths;
  for (const Row& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) widen(widths[i], row[i]);
  }
  return widths;
}

/// The cells of a row, each at the beginning of its column.
std::string aligned(const Row& row, const std::vector<std::size_t>& widths) {
  std::string line;
  for (std::size_t i = 0; i < row.size(); ++i) {
    line += row[i];
    line.append(widths[i] - std::min(widths[i], columnsOf(row[i])) + kGap, ' ');
  }
  line.erase(line.find_last_not_of(' ') + 1);
  return line;
}

std::string withDigits(double number, int digits) {
  std::ostringstream stream;
  stream << std::setprecision(digits) << number;
  return stream.str();
}

/// A number as the daemon meant it: one of 32 bits with the digits that tell it from the other ones of 32 bits.
std::string textOf(double number) {
  constexpr int kDigitsOfFloat = 7;  // and up to two more
  constexpr int kDigitsOfDouble = 15;
  const bool fits = std::fabs(number) <= static_cast<double>(std::numeric_limits<float>::max());
  const float single = fits ? static_cast<float>(number) : 0.0F;
  const bool isSingle = fits && static_cast<double>(single) == number;
  if (!isSingle) return withDigits(number, kDigitsOfDouble);
  std::string text;
  for (int digits = kDigitsOfFloat; text.empty() || std::strtof(text.c_str(), nullptr) != single; ++digits) {
    text = withDigits(number, digits);
  }
  return text;
}

}  // namespace

bool mayColour(int descriptor) {
  const char* const noColour = std::getenv("NO_COLOR");
  return isatty(descriptor) == 1 && (noColour == nullptr || *noColour == '\0');
}

std::string cellOf(const Json::Value& value) {
  switch (value.type()) {
    case Json::stringValue: return visible(value.asString());
    case Json::intValue:
    case Json::uintValue:
    case Json::booleanValue: return value.asString();
    case Json::realValue: return textOf(value.asDouble());
    default: return Output::asJson(value);
  }
}

void note(const std::string& text) {
  constexpr std::size_t kIndent = 2;
  const std::string line = wrapped("sysmgrctl: " + visible(text), terminalSize(STDERR_FILENO).columns, kIndent);
  std::fprintf(stderr, "%s\n", line.c_str());
}

Output::Output(bool json)
    : json_(json), colour_(!json && mayColour(STDOUT_FILENO)), terminal_(terminalSize(STDOUT_FILENO)) {}

std::string Output::asJson(const Json::Value& value) {
  static const Json::StreamWriterBuilder kOnOneLine = [] {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["commentStyle"] = "None";
    builder["emitUTF8"] = true;
    builder["precision"] = 15;  // a decimal number comes out as it came in
    return builder;
  }();
  return visibleJson(Json::writeString(kOnOneLine, value));
}

void Output::endBy(const Deadline& deadline) {
  if (end_ == nullptr || deadline.left() < end_->left()) end_ = &deadline;
}

void Output::document(const Json::Value& value) {
  page(value, [&] { leaves(value); });
}

void Output::list(const Json::Value& value, const char* member, const std::vector<Column>& columns) {
  page(value, [&] { table(value[member], columns); });
}

void Output::line(const std::string& text) { write(folded(visible(text)) + "\n"); }

void Output::text(const std::string& lines) {
  constexpr std::size_t kColumns = 100;  // where there is no terminal
  const std::size_t columns = terminal_.columns == 0 ? kColumns : terminal_.columns;
  std::istringstream stream(lines);
  for (std::string each; std::getline(stream, each);) write(wrapped(each, columns, lastPartOf(each)) + "\n");
}

void Output::leaves(const Json::Value& value) {
  std::vector<std::size_t> widths(2);
  std::size_t bytes = 0;
  forEachLeaf(value, [&](const std::string& path, const Json::Value&) {
    const std::string cell = visible(path);
    widen(widths[0], cell);
    bytes += cell.size();
    if (bytes > kBuffer) keepTime();
    if (bytes <= kMostOfPaths) return;
    throw Failure(Exit::kBadAnswer, "the names in this document are so long that a table of it would take over 64 MiB",
                  "'--json' shows the document as the daemon sends it");
  });
  forEachLeaf(value, [&](const std::string& path, const Json::Value& leaf) {
    write(folded(aligned({visible(path), cellOf(leaf)}, widths)) + "\n");
  });
}

void Output::labelled(const std::vector<Row>& rows) {
  const std::vector<std::size_t> widths = widthsOf(rows);
  for (const Row& row : rows) {
    const std::string& label = row.front();
    write(bold(label) + folded(aligned(row, widths), widths.front() + kGap).substr(label.size()) + "\n");
  }
}

void Output::table(const Json::Value& list, const std::vector<Column>& columns) {
  std::vector<Row> rows(1);
  for (const Column& column : columns) rows.front().emplace_back(column.heading);
  for (const Json::Value& element : list) {
    Row row;
    for (const Column& column : columns) {
      const Json::Value& value = element[column.member];
      row.push_back(value.isNull() ? "-" : cellOf(value));
    }
    rows.push_back(std::move(row));
  }
  const std::vector<std::size_t> widths = widthsOf(rows);
  write(bold(folded(aligned(rows.front(), widths))) + "\n");
  for (std::size_t i = 1; i < rows.size(); ++i) write(folded(aligned(rows[i], widths)) + "\n");
}

void Output::flush() {
  const std::string pending = std::exchange(buffer_, {});
  for (std::size_t done = 0; done < pending.size();) {
    waitUntilWritable();
    const ssize_t written = ::write(STDOUT_FILENO, pending.data() + done, std::min(kPiece, pending.size() - done));
    if (written >= 0) {
      done += static_cast<std::size_t>(written);
    } else if (errno != EINTR && errno != EAGAIN) {
      throw Failure(Exit::kOther, "cannot write to standard output", "is the disk full, or the other end closed?");
    }
  }
}

void Output::separatePictures() {
  if (!json_ && terminal_.rows == 0) write("\n");
}

void Output::showPicture() {
  if (json_ || terminal_.rows == 0) return flush();
  terminal_ = terminalSize(STDOUT_FILENO);  // it may have another size now
  std::istringstream lines(std::exchange(buffer_, isRedrawn_ ? "\033[H" : "\033[2J\033[H"));
  isRedrawn_ = true;
  std::size_t row = 1;  // the last row of the terminal stays free, or it would scroll
  for (std::string each; row < terminal_.rows && std::getline(lines, each); ++row) buffer_ += each + "\033[K\n";
  buffer_ += "\033[J";
  flush();
}

std::string Output::folded(const std::string& line, std::size_t indent) const {
  return wrapped(line, terminal_.columns, indent == 0 ? lastPartOf(line) : indent);
}

std::string Output::bold(const std::string& text) const { return colour_ ? "\033[1m" + text + "\033[0m" : text; }

void Output::write(const std::string& raw) {
  buffer_ += raw;
  if (buffer_.size() < kBuffer) return;
  keepTime();
  flush();
}

void Output::keepTime() const {
  if (end_ != nullptr && end_->isOver()) throw timeIsOver(*end_);
}

void Output::waitUntilWritable() const {
  pollfd output = {STDOUT_FILENO, POLLOUT, 0};
  const int ready = poll(&output, 1, end_ == nullptr ? -1 : static_cast<int>(end_->left().count()));
  if (ready == 0 && end_ != nullptr) throw timeIsOver(*end_);
}

}  // namespace zel::ctl
