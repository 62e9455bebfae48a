#include "simulator/script.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "simulator/judge.h"
#include "simulator/simulator.h"
#include "simulator/store.h"

namespace zel::sim {

namespace {

constexpr std::string_view kBlanks = " \t\r";

std::string_view takeWord(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  const std::string_view word = text.substr(0, text.find_first_of(kBlanks));
  text.remove_prefix(word.size());
  return word;
}

/// Reads "2s", "1.5s" or "300ms", up to a day.
bool readTime(std::string_view word, std::chrono::milliseconds& time) {
  const char* const end = word.data() + word.size();
  double number = 0;
  const auto read = std::from_chars(word.data(), end, number, std::chars_format::fixed);
  const std::string_view unit(read.ptr, static_cast<std::size_t>(end - read.ptr));
  if (read.ec != std::errc() || (unit != "s" && unit != "ms")) return false;
  if (unit == "s") number *= 1000;
  constexpr double kMostMs = 24.0 * 60 * 60 * 1000;
  if (!(number >= 0 && number <= kMostMs)) return false;
  time = std::chrono::milliseconds(static_cast<std::chrono::milliseconds::rep>(number));
  return true;
}

std::string wrongTime(std::string_view word) {
  return "\"" + shownBytes(word) + "\" is not a time such as 2s or 300ms, of a day at most";
}

bool readCommand(std::string_view word, std::optional<unsigned int>& command) {
  if (word == "any") return true;
  unsigned int id = 0;
  const char* const end = word.data() + word.size();
  const auto read = std::from_chars(word.data(), end, id);
  command = id;
  return read.ec == std::errc() && read.ptr == end;
}

}  // namespace

std::string Script::parseLine(std::string_view text, Line& line) {
  std::string_view rest = text;
  const std::string_view first = takeWord(rest);
  if (first == "at" || first == "after") {
    const std::string_view time = takeWord(rest);
    if (first == "after" && time == "request") {
      line.when = When::kAfterRequest;
      const std::string_view command = takeWord(rest);
      if (!readCommand(command, line.command))
        return "\"" + shownBytes(command) + "\" is not the id of a command or any";
    } else {
      line.when = first == "at" ? When::kAt : When::kAfter;
      if (!readTime(time, line.time)) return wrongTime(time);
    }
    text = rest;
  }
  return Order::parse(text, line.order);
}

std::string Script::parse(std::string_view text, Script& script) {
  Script made;
  made.name_ = script.name_;
  std::chrono::milliseconds latest{0};
  for (unsigned int number = 1; !text.empty(); ++number) {
    std::string_view one = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(one.size() + 1, text.size()));
    const std::size_t begin = one.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos || one[begin] == '#') continue;
    Line line;
    line.number = number;
    if (const std::string why = parseLine(one.substr(begin), line); !why.empty()) return made.named(line, why);
    if (line.when == When::kAt && line.time < latest)
      return made.named(line, "its time is before that of a line above");
    if (line.when == When::kAt) latest = line.time;
    made.lines_.push_back(std::move(line));
  }
  script = std::move(made);
  return {};
}

std::string Script::parseFile(const std::string& path, Script& script) {
  std::string text;
  if (std::string why = readTextFile(path, text); !why.empty()) return why;
  script.name_ = path;
  return parse(text, script);
}

std::string Script::named(const Line& line, const std::string& why) const {
  return name_ + ", line " + std::to_string(line.number) + ": " + why;
}

std::string Script::tryOn(Board board) const {
  for (const Line& line : lines_) {
    if (line.when == When::kAfterRequest) break;
    if (const std::string why = line.order.tryOn(board); !why.empty()) return named(line, why);
  }
  return {};
}

void Script::start(Simulator& simulator) {
  simulator.post([this, &simulator] {
    start_ = last_ = Clock::now();
    simulator.observe([this, &simulator](unsigned int id) {
      if (waitsForTime_ || next_ == lines_.size() || lines_[next_].when != When::kAfterRequest) return;
      if (lines_[next_].command.value_or(id) != id) return;
      if (carryOutNext(simulator, Clock::now())) goOn(simulator);
    });
    goOn(simulator);
  });
}

/// Carries out the lines that are due. A timer, or the next request, calls it again for the one after them.
void Script::goOn(Simulator& simulator) {
  while (next_ < lines_.size() && lines_[next_].when != When::kAfterRequest) {
    const Line& line = lines_[next_];
    const auto due = line.when == When::kAt ? std::max(start_ + line.time, last_) : last_ + line.time;
    if (!carryOutNext(simulator, due)) return;
  }
}

/// Carries the next line out, or sets a timer that does and goes on. @return whether it is carried out
bool Script::carryOutNext(Simulator& simulator, Clock::time_point due) {
  const Line& line = lines_[next_];
  if (line.order.endsConnections()) due = std::max(due, simulator.answersAreFetched());
  last_ = due;
  waitsForTime_ = due > Clock::now();
  if (waitsForTime_) {
    simulator.at(due, [this, &simulator, &line] {
      waitsForTime_ = false;
      ++next_;
      carryOut(line, simulator);
      goOn(simulator);
    });
    return false;
  }
  ++next_;
  carryOut(line, simulator);
  return true;
}

void Script::carryOut(const Line& line, Simulator& simulator) const {
  const OrderResult result = line.order.carryOut(simulator);
  if (result.status != OrderResult::kDone) simulator.tell(named(line, result.error));
  for (const std::string& text : result.lines) simulator.tell(text);
}

}  // namespace zel::sim
