#include <CLI/CLI.hpp>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include "simulator/factory.h"
#include "simulator/simulator.h"

namespace {

using zel::sim::Simulator;

constexpr int kFailure = 1;
constexpr int kWrongUsage = 2;

Simulator* running = nullptr;

extern "C" void onSignal(int signal) { signal == SIGUSR1 ? running->reloadFaults() : running->stop(); }

void obeySignals(Simulator& simulator) {
  running = &simulator;
  struct sigaction action = {};
  action.sa_handler = onSignal;
  for (const int signal : {SIGUSR1, SIGINT, SIGTERM}) sigaction(signal, &action, nullptr);
}

void say(const std::string& text) { std::fprintf(stderr, "sysmgr-sim: %s\n", text.c_str()); }

int fail(const std::string& why) {
  say(why);
  return kFailure;
}

std::string joined(const std::vector<std::string>& texts) {
  std::string all;
  for (const std::string& text : texts) all += (all.empty() ? "" : " ") + text;
  return all;
}

}  // namespace

int main(int argc, char** argv) {
  std::string modelText = "ORVEN_AES67";
  std::string stateFile;
  std::vector<std::string> faultRules;
  bool live = false;
  unsigned int liveMs = 1000;
  bool verbose = false;
  zel::sim::SimulatorOptions options;

  CLI::App app("A virtual board: stands in for the system manager daemon, for any number of clients.", "sysmgr-sim");
  app.set_version_flag("--version", "sysmgr-sim " ZEL_VERSION);
  app.add_option("--model", modelText, "Board model (" + modelText + "): " + joined(zel::sim::modelTexts()))
      ->type_name("NAME");
  app.add_option("--state", stateFile, "JSON state document, or a piece of one, to start with")->type_name("FILE");
  app.add_option("--store", options.storeFile, "Keeps stored parameters and whitelist across restarts")
      ->type_name("FILE");
  app.add_option("--fault", options.faultFile, "Orders to misbehave, one a line")->type_name("FILE");
  app.add_option("--fault-rule", faultRules, "An order to misbehave; may be repeated")->type_name("RULE")->take_all();
  app.add_flag("--live", live, "Temperature, fan and interfaces move and are published");
  app.add_option("--live-interval", liveMs, "How often they move (1000); implies --live")
      ->type_name("MS")
      ->check(CLI::Range(1U, 3600000U))
      ->each([&live](const std::string&) { live = true; });
  app.add_flag("-v,--verbose", verbose, "Shows each request and its answer on standard error");
  app.footer("\n" + zel::sim::FaultRule::help() +
             "Exit status: 0 ended by SIGINT or SIGTERM, 1 failure, 2 wrong usage.");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kWrongUsage;
  }

  const auto model = zel::sim::modelFromText(modelText);
  if (!model) {
    say("there is no model \"" + modelText + "\"; there are: " + joined(zel::sim::modelTexts()));
    return kWrongUsage;
  }
  options.board = zel::sim::Board(*model);
  if (!stateFile.empty()) {
    Json::Value document;
    if (const std::string why = zel::sim::readJsonFile(stateFile, document); !why.empty()) return fail(why);
    if (const auto why = options.board.applyState(document)) return fail(stateFile + ": " + why.text);
  }
  for (const std::string& text : faultRules) {
    zel::sim::FaultRule rule;
    if (const std::string why = zel::sim::FaultRule::parse(text, rule); !why.empty()) {
      say("--fault-rule '" + text + "': " + why);
      return kWrongUsage;
    }
    options.faults.push_back(rule);
  }
  if (live) options.liveInterval = std::chrono::milliseconds(liveMs);
  options.tell = say;
  if (verbose) options.trace = say;

  const std::string name = BoardModelType::toText(options.board.model().model);
  Simulator simulator(std::move(options));
  obeySignals(simulator);
  if (const std::string why = simulator.open(); !why.empty()) return fail(why);
  std::printf("sysmgr-sim: %s ready, requests on %s, notifications on %s\n", name.c_str(),
              Simulator::requestEndpoint().c_str(), Simulator::publishEndpoint().c_str());
  std::fflush(stdout);
  simulator.run();
  return 0;
}
