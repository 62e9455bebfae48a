#include "cli/output.h"

#include <json/writer.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "cli/failure.h"
#include "cli/json_paths.h"

namespace zel::ctl {

namespace {

constexpr std::size_t kGap = 2;  ///< blanks between columns

std::string withoutControls(const std::string& text) {
  std::string safe;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const auto next = i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : 0U;
    const bool isC1 = byte == 0xC2U && next >= 0x80U && next < 0xA0U;  // U+0080 to U+009F, in UTF-8
    const unsigned int control = isC1 ? next : byte;
    if (isC1) ++i;
    if (!isC1 && byte >= 0x20U && byte != 0x7FU) {
      safe += text[i];
      continue;
    }
    char escaped[8];
    std::snprintf(escaped, sizeof escaped, "\\x%02x", control);
    safe += escaped;
  }
  return safe;
}

/// How many characters a UTF-8 text shows.
std::size_t widthOf(const std::string& text) {
  const auto begins = [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U; };
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), begins));
}

/// Rows of cells as lines in which the columns begin one below the other.
std::vector<std::string> aligned(const std::vector<std::vector<std::string>>& cells) {
  std::vector<std::size_t> widths;
  for (const auto& row : cells) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], widthOf(row[i]));
  }
  std::vector<std::string> lines;
  for (const auto& row : cells) {
    std::string text;
    for (std::size_t i = 0; i < row.size(); ++i) {
      text += row[i];
      text.append(widths[i] - widthOf(row[i]) + kGap, ' ');
    }
    text.erase(text.find_last_not_of(' ') + 1);
    lines.push_back(text);
  }
  return lines;
}

}  // namespace

bool mayColour(int descriptor) {
  const char* const noColour = std::getenv("NO_COLOR");
  return isatty(descriptor) == 1 && (noColour == nullptr || *noColour == '\0');
}

std::string cellOf(const Json::Value& value) {
  if (value.isString()) return withoutControls(value.asString());
  if (value.type() != Json::realValue) return Output::asJson(value);
  char text[32];
  std::snprintf(text, sizeof text, "%.7g", value.asDouble());  // what a 32-bit float holds
  return text;
}

Output::Output(bool json) : json_(json), colour_(!json && mayColour(STDOUT_FILENO)) {}

std::string Output::asJson(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["commentStyle"] = "None";
  builder["emitUTF8"] = true;
  builder["precision"] = 15;  // a decimal number comes out as it came in
  return Json::writeString(builder, value);
}

void Output::document(const Json::Value& value) {
  page(value, [&] { leaves(value); });
}

void Output::leaves(const Json::Value& value) {
  std::vector<std::vector<std::string>> cells;
  for (const auto& [path, leaf] : leavesOf(value)) cells.push_back({cellOf(path), cellOf(leaf)});
  rows(cells);
}

void Output::list(const Json::Value& value, const char* member, const std::vector<Column>& columns) {
  page(value, [&] { table(value[member], columns); });
}

void Output::line(const std::string& text) { std::printf("%s\n", text.c_str()); }

void Output::rows(const std::vector<std::vector<std::string>>& cells) {
  for (const std::string& text : aligned(cells)) line(text);
}

void Output::table(const Json::Value& list, const std::vector<Column>& columns) {
  std::vector<std::vector<std::string>> cells(1);
  for (const Column& column : columns) cells.front().emplace_back(column.heading);
  for (const Json::Value& element : list) {
    std::vector<std::string> row;
    for (const Column& column : columns) {
      const Json::Value& value = element[column.member];
      row.push_back(value.isNull() ? "-" : cellOf(value));
    }
    cells.push_back(row);
  }
  const std::vector<std::string> lines = aligned(cells);
  line(bold(lines.front()));
  for (std::size_t i = 1; i < lines.size(); ++i) line(lines[i]);
}

void Output::flush() {
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    throw Failure(Exit::kOther, "cannot write to standard output", "is the disk full, or the other end closed?");
  }
}

std::string Output::bold(const std::string& text) const { return colour_ ? "\033[1m" + text + "\033[0m" : text; }

}  // namespace zel::ctl
