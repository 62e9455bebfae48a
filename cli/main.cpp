#include <fcntl.h>
#include <json/value.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>

#include "cli/arguments.h"
#include "cli/command.h"
#include "cli/escape.h"
#include "cli/failure.h"
#include "cli/guardian.h"
#include "common/logger.h"

namespace {

using zel::ctl::Exit;

/// Shows the library's log only to users who ask for it; the command itself reports its failure.
void directLog(std::size_t verbosity) {
  Logger* const logger = Logger::getInstance();
  if (verbosity == 0) return logger->setSink([](Logger::logDebugLevel_t, const std::string&) {});
  logger->setLevel(verbosity == 1 ? Logger::LEVEL_CONFIG : Logger::LEVEL_TRACE);
}

/// Takes the place of a standard descriptor that is closed, so that no socket gets its number. What is written to
/// standard output then fails, as it does without this.
void occupyStandardDescriptors() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(descriptor, F_GETFD) < 0) open("/dev/null", descriptor == STDERR_FILENO ? O_WRONLY : O_RDONLY);
  }
}

/// Whether a failure is reported as JSON. Looks for --json in the words as they were typed: the failure may be that
/// they could not be parsed.
bool isForProgram(const zel::ctl::Words& typed) {
  const auto end = std::find(typed.begin(), typed.end(), "--");
  return std::find(typed.begin(), end, "--json") != end;
}

void reportToProgram(const zel::ctl::Failure& failure) {
  Json::Value line;
  Json::Value& error = line["error"];
  error["exit"] = static_cast<int>(failure.status());
  error["status"] = zel::ctl::nameOf(failure.status());
  error["text"] = failure.what();
  if (failure.code() != 0) error["code"] = failure.code();
  if (!failure.key().empty()) error["key"] = failure.key();
  if (!failure.advice().empty()) error["advice"] = failure.advice();
  std::fprintf(stderr, "%s\n", zel::ctl::Output::asJson(line).c_str());
}

void reportToUser(const zel::ctl::Failure& failure) {
  constexpr std::string_view kName = "sysmgrctl:";
  constexpr std::size_t kIndent = 2;
  const bool colour = zel::ctl::mayColour(STDERR_FILENO);
  const std::size_t columns = zel::ctl::terminalSize(STDERR_FILENO).columns;
  const auto broken = [columns](const std::string& text) { return zel::ctl::wrapped(text, columns, kIndent); };
  const std::string why = broken(std::string(kName) + " " + zel::ctl::visible(failure.what())).substr(kName.size());
  std::fprintf(stderr, "%s%s%s%s\n", colour ? "\033[31m" : "", kName.data(), colour ? "\033[0m" : "", why.c_str());
  if (failure.advice().empty()) return;
  std::fprintf(stderr, "%s\n", broken(std::string(kIndent, ' ') + zel::ctl::visible(failure.advice())).c_str());
}

/// Writes a text of the program's own.
Exit show(const std::string& text) {
  zel::ctl::Output output(false);
  output.text(text);
  output.flush();
  return Exit::kOk;
}

/// Runs a command; what it wrote comes out whether or not it fails later.
Exit execute(zel::ctl::Call& call, const zel::ctl::Command& command) {
  try {
    command.run(call);
  } catch (...) {
    call.output.flush();
    throw;
  }
  call.output.flush();
  return Exit::kOk;
}

Exit run(const zel::ctl::Words& typed) {
  // Asked by the shells' completion files; not an option for people, so it is not in the help.
  if (!typed.empty() && typed.front() == "--complete") {
    directLog(0);  // what the daemon does not answer is not offered, without a word
    return show(zel::ctl::completions({typed.begin() + 1, typed.end()}));
  }
  if (!typed.empty() && typed.front() == "--guard") {  // started by --confirm
    return static_cast<Exit>(zel::ctl::runGuardian({typed.begin() + 1, typed.end()}));
  }
  const zel::ctl::Request request = zel::ctl::parseArguments(typed);
  if (request.command == nullptr) return show(request.text);
  zel::ctl::Call call(*request.command, request.values);
  directLog(call.words("--verbose").size());
  return execute(call, *request.command);
}

}  // namespace

int main(int argc, char** argv) {
  occupyStandardDescriptors();
  const zel::ctl::Words typed(argv + 1, argv + argc);
  const auto failed = [&typed](const zel::ctl::Failure& failure) {
    isForProgram(typed) ? reportToProgram(failure) : reportToUser(failure);
    return static_cast<int>(failure.status());
  };
  try {
    return static_cast<int>(run(typed));
  } catch (const zel::ctl::Failure& failure) {
    return failed(failure);
  } catch (const Json::Exception& mismatch) {
    return failed({Exit::kBadAnswer, std::string("the answer has a value of the wrong type: ") + mismatch.what(),
                   "'sysmgrctl get DOCUMENT' shows a document as the daemon sends it"});
  } catch (const std::exception& error) {
    return failed({Exit::kOther, error.what()});
  }
}
