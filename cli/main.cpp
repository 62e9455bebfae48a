#include <unistd.h>
#include <cstdio>
#include <exception>
#include <string>

#include "cli/arguments.h"
#include "cli/command.h"
#include "cli/failure.h"
#include "common/logger.h"

namespace {

using zel::ctl::Exit;

/// What the library logs is for those who ask for it; a failure is told by the command itself.
void directLog(int verbosity) {
  Logger* const logger = Logger::getInstance();
  if (verbosity == 0) return logger->setSink([](Logger::logDebugLevel_t, const std::string&) {});
  logger->setLevel(verbosity == 1 ? Logger::LEVEL_CONFIG : Logger::LEVEL_TRACE);
}

Exit report(Exit status, const std::string& why, const std::string& advice) {
  const bool colour = zel::ctl::mayColour(STDERR_FILENO);
  std::fprintf(stderr, "%ssysmgrctl:%s %s\n", colour ? "\033[31m" : "", colour ? "\033[0m" : "",
               zel::ctl::cellOf(why).c_str());
  if (!advice.empty()) std::fprintf(stderr, "  %s\n", zel::ctl::cellOf(advice).c_str());
  return status;
}

Exit run(int argc, char** argv) {
  // Asked by the shells' completion files; not an option for people, so it is not in the help.
  if (argc > 1 && std::string(argv[1]) == "--complete") {
    std::fputs(zel::ctl::completions({argv + 2, argv + argc}).c_str(), stdout);
    return Exit::kOk;
  }
  const zel::ctl::Request request = zel::ctl::parseArguments(argc, argv);
  if (request.command == nullptr) {
    std::fputs(request.text.c_str(), stdout);
    return Exit::kOk;
  }
  directLog(request.common.verbosity);
  zel::ctl::Call call(*request.command, request.common, request.values);
  request.command->run(call);
  call.output.flush();
  return Exit::kOk;
}

}  // namespace

int main(int argc, char** argv) {
  Exit status = Exit::kOther;
  try {
    status = run(argc, argv);
  } catch (const zel::ctl::Failure& failure) {
    std::fflush(stdout);
    status = report(failure.status(), failure.what(), failure.advice());
  } catch (const std::exception& error) {
    status = report(Exit::kOther, error.what(), "");
  }
  return static_cast<int>(status);
}
