#include <malloc.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "simulator/control.h"
#include "simulator/factory.h"
#include "simulator/notify.h"
#include "simulator/private_network.h"
#include "simulator/replay.h"
#include "simulator/script.h"
#include "simulator/simulator.h"
#include "simulator/socket_file.h"
#include "simulator/watched_command.h"

namespace {

using zel::sim::Simulator;
using zel::sim::WatchedCommand;

constexpr int kFailure = 1;
constexpr int kWrongUsage = 2;
constexpr std::size_t kMostGrowth = std::size_t{32} << 20U;
constexpr long kLongestEndNs = 600'000'000;
constexpr char kControlVariable[] = "SYSMGR_SIM_CONTROL";
constexpr char kWithoutNetwork[] =
    "Allow it (run as root, or permit user namespaces: sysctl kernel.unprivileged_userns_clone=1,\n"
    "sysctl kernel.apparmor_restrict_unprivileged_userns=0, or in a container the option\n"
    "--security-opt seccomp=unconfined or --cap-add=SYS_ADMIN), or give --shared-network: then the board\n"
    "takes the ports of this machine, and only one can run at a time.";

Simulator* running = nullptr;
bool runsCommand = false;           ///< `sysmgr-sim run`, whose own exit statuses are not those of the board
WatchedCommand* command = nullptr;  ///< once there is one

timer_t deadline;
volatile std::sig_atomic_t endStatus = 0;

// ZeroMQ takes as long to end as what its clients have sent takes to go through. Nothing is lost with it: the store is
// written before each answer.
extern "C" void onDeadline(int) { std::_Exit(endStatus); }

void endSoon() {
  struct sigaction action = {};
  action.sa_handler = onDeadline;
  sigaction(SIGALRM, &action, nullptr);
  const itimerspec end{{}, {0, kLongestEndNs}};
  timer_settime(deadline, 0, &end, nullptr);
}

void obey(int signal, const siginfo_t& info) {
  if (signal == SIGUSR1) return running->reloadFaults();
  if (command == nullptr) {
    endSoon();
    running->stop();
  } else if (signal == SIGCHLD) {
    if (command->hasEnded()) running->stop();
  } else if (info.si_code != SI_KERNEL) {  // one from the terminal reaches the command, too
    command->pass(signal);
  }
}

extern "C" void onSignal(int signal, siginfo_t* info, void*) {
  const int error = errno;  // of the code that the signal interrupts
  obey(signal, *info);
  errno = error;
}

/// Hands the signals of the process on to the simulator as long as both live: the command may end, and a signal may
/// come, while the objects of the board are taken apart.
class ObeyedSignals {
 public:
  explicit ObeyedSignals(Simulator& simulator) {
    running = &simulator;
    timer_create(CLOCK_MONOTONIC, nullptr, &deadline);  // sends SIGALRM
    struct sigaction action = {};
    action.sa_sigaction = onSignal;
    action.sa_flags = SA_SIGINFO;
    sigset_t obeyed;
    sigemptyset(&obeyed);
    sigaddset(&obeyed, SIGALRM);
    for (const int signal : {SIGUSR1, SIGINT, SIGTERM, SIGCHLD}) {
      if (signal == SIGCHLD && command == nullptr) continue;
      sigaction(signal, &action, nullptr);
      sigaddset(&obeyed, signal);
    }
    sigprocmask(SIG_UNBLOCK, &obeyed, nullptr);  // the one who started this process may have blocked them
    if (command != nullptr && command->hasEnded()) running->stop();  // before its end could be told
  }
  ~ObeyedSignals() {
    for (const int signal : {SIGUSR1, SIGINT, SIGTERM}) std::signal(signal, SIG_IGN);
    std::signal(SIGCHLD, SIG_DFL);  // an ignored one would take the exit statuses away
  }
  ObeyedSignals(const ObeyedSignals&) = delete;
  ObeyedSignals& operator=(const ObeyedSignals&) = delete;
  ObeyedSignals(ObeyedSignals&&) = delete;
  ObeyedSignals& operator=(ObeyedSignals&&) = delete;
};

void say(const std::string& text) { std::fprintf(stderr, "sysmgr-sim: %s\n", text.c_str()); }

void tellServiceManager(const char* state) {
  const std::string why = zel::sim::notifyServiceManager(state);
  if (!why.empty()) say("the service manager was not notified: " + why);
}

int fail(int status, const std::string& why) {
  say(why);
  return runsCommand ? WatchedCommand::kFailed : status;
}

/// The words with a blank between them.
std::string joined(const std::vector<std::string>& texts) {
  std::string all;
  for (const std::string& text : texts) {
    if (!all.empty()) all += ' ';
    all += text;
  }
  return all;
}

struct Arguments {
  std::string model = "ORVEN_AES67";
  std::string requests;
  std::string notifications;
  std::string stateFile;
  std::string storeFile;
  std::string faultFile;
  std::vector<std::string> faultRules;
  std::string control;
  bool repeatOnSubscribe = false;
  std::string scriptFile;
  std::string replayFile;
  double speed = 1;
  unsigned int liveMs = 1000;
  bool live = false;
  bool verbose = false;
  std::vector<std::string> command;  ///< of `run`
  bool sharedNetwork = false;
};

/// An empty text, which an unset variable of a shell leaves, is not the same as an option that is not given.
std::string refuseEmpty(const std::string& text) { return text.empty() ? "its value is empty" : ""; }

/// "nan" is a number for the parser, and inside every range.
std::string refuseNan(const std::string& text) {
  return std::isnan(std::strtod(text.c_str(), nullptr)) ? "its value is not a number" : "";
}

/// Describes the options of a recording, which takes the place of the board.
void describeReplay(CLI::App& app, Arguments& arguments) {
  CLI::Option* const replay =
      app.add_option("--replay", arguments.replayFile, "Is the board that 'sysmgrctl record' recorded in FILE")
          ->type_name("FILE");
  for (const char* const other : {"--model", "--state", "--store", "--live", "--live-interval"}) {
    replay->excludes(app.get_option(other));
  }
  app.add_option("--speed", arguments.speed, "How many times faster the recording runs (1)")
      ->type_name("X")
      ->check(CLI::Range(0.01, 1e6))
      ->check(refuseNan)
      ->needs(replay);
}

void describe(CLI::App& app, Arguments& arguments) {
  const std::string models = "Board model (" + arguments.model + "): " + joined(zel::sim::modelTexts());
  app.add_option("--model", arguments.model, models)->type_name("NAME");
  app.add_option("--requests", arguments.requests, "Answers there, not on tcp://127.0.0.1:5556; ipc:///PATH too")
      ->type_name("ENDPOINT");
  app.add_option("--notifications", arguments.notifications, "Publishes there, not on tcp://127.0.0.1:5575")
      ->type_name("ENDPOINT");
  app.add_option("--state", arguments.stateFile, "JSON state document, or a piece of one, to start with")
      ->type_name("FILE");
  app.add_option("--store", arguments.storeFile, "Keeps stored parameters and whitelist across restarts")
      ->type_name("FILE");
  app.add_option("--fault", arguments.faultFile, "Orders to misbehave, one a line")->type_name("FILE");
  app.add_option("--fault-rule", arguments.faultRules, "An order to misbehave; may be repeated")
      ->type_name("RULE")
      ->take_all();
  app.add_option("--control", arguments.control, "Takes orders on a Unix socket, from 'sysmgr-sim tell'")
      ->type_name("PATH");
  app.add_option("--script", arguments.scriptFile, "Orders to carry out, with times, one a line")->type_name("FILE");
  app.add_flag("--live", arguments.live, "Temperature, fan and interfaces move and are published");
  app.add_option("--live-interval", arguments.liveMs, "How often they move (1000); implies --live")
      ->type_name("MS")
      ->check(CLI::Range(1U, 3600000U))
      ->each([&arguments](const std::string&) { arguments.live = true; });
  app.add_flag("--repeat-on-subscribe", arguments.repeatOnSubscribe,
               "Publishes the current document of a topic whenever a client subscribes to it");
  describeReplay(app, arguments);
  for (const char* const named :
       {"--requests", "--notifications", "--state", "--store", "--fault", "--control", "--script", "--replay"}) {
    app.get_option(named)->check(refuseEmpty, "");
  }
  app.add_flag("-v,--verbose", arguments.verbose, "Shows each request and its answer on standard error");
  app.footer("\n" + zel::sim::FaultRule::help() +
             "Exit status: 0 ended by SIGINT or SIGTERM, 1 failure, 2 wrong usage.");
}

/// @return 0, or the exit status with which the program ends, which has said why
int prepare(const Arguments& arguments, zel::sim::SimulatorOptions& options) {
  const auto model = zel::sim::modelFromText(arguments.model);
  if (!model) {
    return fail(kWrongUsage,
                "there is no model \"" + arguments.model + "\"; there are: " + joined(zel::sim::modelTexts()));
  }
  options.board = zel::sim::Board(*model);
  for (const std::string& text : arguments.faultRules) {
    zel::sim::FaultRule rule;
    if (const std::string why = zel::sim::FaultRule::parse(text, rule); !why.empty()) {
      return fail(kWrongUsage, std::string("--fault-rule '").append(text).append("': ").append(why));
    }
    options.faults.push_back(rule);
  }
  if (!arguments.stateFile.empty()) {
    Json::Value document;
    const std::string unreadable = zel::sim::readJsonFile(arguments.stateFile, document);
    if (!unreadable.empty()) return fail(kFailure, unreadable);
    if (const auto why = options.board.applyState(document))
      return fail(kFailure, arguments.stateFile + ": " + why.text);
  }
  options.requests = arguments.requests;
  options.notifications = arguments.notifications;
  options.storeFile = arguments.storeFile;
  options.faultFile = arguments.faultFile;
  if (arguments.live) options.liveInterval = std::chrono::milliseconds(arguments.liveMs);
  options.repeatOnSubscribe = arguments.repeatOnSubscribe;
  options.mostGrowth = kMostGrowth;
  options.tell = say;
  if (arguments.verbose) options.trace = say;
  return 0;
}

/// The absolute path of a socket; the given one where the absolute one is too long for a socket.
std::string absoluteSocketPath(const std::string& path) {
  const std::string absolute = std::filesystem::absolute(path);
  return zel::sim::socketAddress(absolute) ? absolute : path;
}

/// Makes the process that waits to start the command, in the network in which the board will be.
/// @return 0, or the exit status with which the program ends, which has said why
int prepareCommand(const Arguments& arguments, std::optional<WatchedCommand>& made) {
  if (!arguments.sharedNetwork) {
    const std::string why = zel::sim::enterPrivateNetwork();
    if (!why.empty()) return fail(kFailure, "a private network cannot be made (" + why + ").\n" + kWithoutNetwork);
  }
  // For `sysmgr-sim tell`, also in another folder.
  if (!arguments.control.empty()) setenv(kControlVariable, absoluteSocketPath(arguments.control).c_str(), 1);
  if (arguments.control.empty()) unsetenv(kControlVariable);  // it may be that of another board
  command = &made.emplace(arguments.command);
  return 0;
}

/// Says that the board can be reached: to the one who has started it, or by the start of the command.
void tellReady(const std::string& model, const Simulator& simulator) {
  if (command != nullptr) return command->start();
  std::printf("sysmgr-sim: %s ready, requests on %s, notifications on %s\n", model.c_str(),
              simulator.requestEndpoint().c_str(), simulator.notificationEndpoint().c_str());
  std::fflush(stdout);
  tellServiceManager("READY=1");
}

int serve(const Arguments& arguments, zel::sim::SimulatorOptions options) {
  std::optional<WatchedCommand> made;
  if (runsCommand) {
    if (const int status = prepareCommand(arguments, made); status != 0) return status;
  }
  mallopt(M_MMAP_THRESHOLD, 128 * 1024);  // stays so: large frames leave no gaps in the heap behind
  const std::string model = arguments.replayFile.empty() ? BoardModelType::toText(options.board.model().model)
                                                         : "replay of " + arguments.replayFile;
  zel::sim::Replay replay(arguments.speed);
  if (!arguments.replayFile.empty()) {
    std::string cut;
    if (const std::string why = replay.open(arguments.replayFile, cut); !why.empty()) return fail(kFailure, why);
    if (!cut.empty()) say(cut);
    options.replay = &replay;
  }
  zel::sim::Script script;
  if (!arguments.scriptFile.empty()) {
    const std::string why = zel::sim::Script::parseFile(arguments.scriptFile, script);
    if (!why.empty()) return fail(kFailure, why);
  }
  Simulator simulator(std::move(options));
  const ObeyedSignals signals(simulator);
  if (const std::string why = simulator.open(); !why.empty()) return fail(kFailure, why);
  if (const std::string why = script.tryOn(simulator.board()); !why.empty()) return fail(kFailure, why);
  zel::sim::ControlSocket control;
  if (!arguments.control.empty()) {
    if (const std::string why = control.open(arguments.control); !why.empty()) return fail(kFailure, why);
    control.serve([&simulator](const std::string& line) { return zel::sim::tell(simulator, line); });
  }
  script.start(simulator);
  if (!arguments.replayFile.empty()) replay.start(simulator);
  tellReady(model, simulator);
  simulator.run();
  if (command == nullptr) tellServiceManager("STOPPING=1");
  if (command != nullptr) {
    endStatus = command->wait();
    endSoon();
  }
  return endStatus;
}

void describeRun(CLI::App& app, Arguments& arguments) {
  CLI::App* const run =
      app.add_subcommand("run", "Runs a command beside a board of its own: run [OPTIONS] -- COMMAND...");
  describe(*run, arguments);
  run->add_flag("--shared-network", arguments.sharedNetwork,
                "The board listens in the network of the machine, not in a private one");
  run->preparse_callback([](std::size_t) { runsCommand = true; });
  run->footer(
      "\nThe exit status is the command's, or 128 and the number of the signal that ended it; 125 when the command\n"
      "was not started, 126 when it cannot be executed, 127 when there is no such command.");
}

/// Takes the command of `run` off the end of the arguments. The parser would take some words of it apart: "[a,b]".
/// @return how many arguments are left
int takeCommand(int argc, char** argv, std::vector<std::string>& words) {
  const auto isOneOf = [](const std::vector<std::string_view>& wanted) {
    return [wanted](const char* word) { return std::find(wanted.begin(), wanted.end(), word) != wanted.end(); };
  };
  char** const end = argv + argc;
  char** const subcommand = std::find_if(argv, end, isOneOf({"run", "tell"}));
  if (subcommand == end || std::string_view(*subcommand) != "run") return argc;
  char** const separator = std::find_if(subcommand, end, isOneOf({"--"}));
  if (separator != end) words.assign(separator + 1, end);
  return static_cast<int>(separator - argv);
}

/// `sysmgr-sim tell`: sends an order to a simulator that runs.
int tell(const std::string& path, const std::vector<std::string>& words) {
  if (path.empty()) return fail(kWrongUsage, "--control PATH is missing, and SYSMGR_SIM_CONTROL is not set");
  std::string order = joined(words);
  std::replace(order.begin(), order.end(), '\n',
               ' ');  // an order is one line; between the values of JSON it is a blank
  const zel::sim::OrderResult result = zel::sim::tellAt(path, order);
  for (const std::string& line : result.lines) std::printf("%s\n", line.c_str());
  if (std::fflush(stdout) != 0) return fail(kFailure, "the answer cannot be written");
  return result.status == zel::sim::OrderResult::kDone ? 0 : fail(result.status, result.error);
}

/// Describes `tell`, whose words from the order on are not looked at.
CLI::App* describeTell(CLI::App& app, std::string& path) {
  CLI::App* const tell = app.add_subcommand("tell", "Tells a simulator that runs with --control to do something");
  tell->prefix_command();
  tell->add_option("--control", path, "The path of its control socket ($SYSMGR_SIM_CONTROL)")
      ->envname(kControlVariable)
      ->type_name("PATH");
  tell->footer("\n" + zel::sim::Order::help() +
               "Exit status: 0 done, 1 the order cannot be carried out or no simulator takes it, 2 wrong usage.");
  return tell;
}

int run(int argc, char** argv) {
  Arguments arguments;
  argc = takeCommand(argc, argv, arguments.command);
  CLI::App app("A virtual board: stands in for the system manager daemon, for any number of clients.", "sysmgr-sim");
  describe(app, arguments);
  app.set_version_flag("--version", "sysmgr-sim " ZEL_VERSION);
  describeRun(app, arguments);
  std::string path;
  const CLI::App* const tellCommand = describeTell(app, path);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    const bool asked = app.exit(error) == 0;  // for the help or the version
    return asked ? 0 : runsCommand ? WatchedCommand::kFailed : kWrongUsage;
  }
  if (tellCommand->parsed()) return tell(path, tellCommand->remaining());
  if (runsCommand && arguments.command.empty()) return fail(kWrongUsage, "run: the command is missing behind '--'");
  zel::sim::SimulatorOptions options;
  if (const int status = prepare(arguments, options); status != 0) return status;
  return serve(arguments, std::move(options));
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    return fail(kFailure, error.what());
  }
}
