// sysmgr-conformance: says which rules of docs/protocol.md a running daemon keeps.

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>

#include "client/sysmgr_jsonApi.h"
#include "common/logger.h"
#include "conformance/rules.h"
#include "conformance/run.h"
#include "subscriber/sysmgr_subscriber.h"

namespace {

using namespace zel::conformance;

constexpr int kMustFailed = 1;
constexpr int kWrongUsage = 2;
constexpr int kShouldFailed = 3;
constexpr int kNotPutBack = 4;

struct Arguments {
  Options options;
  unsigned int timeoutMs = 5000;
  bool readOnly = false;
  bool json = false;
  bool tap = false;
  bool verbose = false;
  bool list = false;
};

void describe(CLI::App& app, Arguments& arguments) {
  Options& options = arguments.options;
  app.set_version_flag("--version", "sysmgr-conformance " ZEL_VERSION);
  auto* const readOnly = app.add_flag("--read-only", arguments.readOnly, "Only asks; changes nothing (the default)");
  auto* const write =
      app.add_flag("--write", options.write, "Changes settings, interfaces and whitelist as well, and puts them back");
  readOnly->excludes(write);
  app.add_flag("--allow-reset", options.allowReset,
               "Resets to the factory values as well, and puts back what was there")
      ->needs(write);
  app.add_flag("--allow-reboot", options.allowReboot, "Sends the reboot command as well");
  app.add_option("--restart-command", options.restartCommand,
                 "Restarts the daemon with this command of the shell as well; it returns when the daemon is started")
      ->type_name("COMMAND")
      ->needs(write);
  app.add_option("--requests", options.requestEndpoint, "Endpoint of the requests (" + options.requestEndpoint + ")")
      ->type_name("ENDPOINT");
  app.add_option("--notifications", options.notificationEndpoint,
                 "Endpoint of the notifications (" + options.notificationEndpoint + ")")
      ->type_name("ENDPOINT");
  app.add_option("--timeout", arguments.timeoutMs, "How long an answer may take (5000)")
      ->type_name("MS")
      ->check(CLI::Range(100U, 60000U));
  auto* const json = app.add_flag("--json", arguments.json, "Prints the results as JSON");
  app.add_flag("--tap", arguments.tap, "Prints the results in the Test Anything Protocol")->excludes(json);
  app.add_flag("--list", arguments.list, "Prints the checks and the sentences that they cite, and runs none");
  app.add_flag("-v,--verbose", arguments.verbose, "Shows the checks that passed and those that were skipped, too");
  app.footer(
      "\nExit status: 0 every check passed or was skipped, 1 a must failed, 2 wrong usage, 3 only a should failed,\n"
      "4 something that was changed could not be put back.");
}

void list(const std::vector<Check>& checks) {
  for (const Check& check : checks) {
    const Rule& rule = ruleAt(check.rule);
    std::printf("%s%s%s\n    %s: %s\n", check.rule, check.name.empty() ? "" : ": ", check.name.c_str(),
                rule.level.c_str(), rule.sentence.c_str());
  }
}

int statusOf(const Report& report) {
  if (!report.notPutBack.empty()) return kNotPutBack;
  if (!report.stopped.empty() || report.failures("must") > 0) return kMustFailed;
  return report.failures("should") > 0 ? kShouldFailed : 0;
}

void obeySignals() {
  struct sigaction action {};
  action.sa_handler = [](int) { interrupted = true; };
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
}

int runProgram(int argc, char** argv) {
  Arguments arguments;
  arguments.options.requestEndpoint = SysMgrJsonClient().getIpcConnectAddress();
  arguments.options.notificationEndpoint = SysmgrPublisher::kEndpoint;
  CLI::App app("Says which rules of the wire's page (docs/protocol.md) a running daemon keeps.", "sysmgr-conformance");
  describe(app, arguments);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kWrongUsage;
  }
  const std::vector<Check> checks = allChecks();
  if (arguments.list) {
    list(checks);
    return 0;
  }
  arguments.options.patience = std::chrono::milliseconds(arguments.timeoutMs);
  Logger::getInstance()->setSink([](Logger::logDebugLevel_t, const std::string&) {});  // an address that is not one
  obeySignals();
  const Report report = run(checks, arguments.options);
  const std::string text = arguments.json  ? asJson(report)
                           : arguments.tap ? asTap(report)
                                           : asText(report, arguments.verbose);
  std::fputs(text.c_str(), stdout);
  return statusOf(report);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return runProgram(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "sysmgr-conformance: %s\n", error.what());
    return kMustFailed;
  }
}
