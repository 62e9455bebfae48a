// sysmgr-conformance as a program: against the virtual board, the example daemon, and daemons with faults.

#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <csignal>
#include <fstream>

#include "common/shared/wire_json.h"
#include "simulator/fault.h"
#include "tests/simulator/board_process.h"
#include "tests/simulator/temporary_folder.h"
#include "tests/support/daemon_process.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using zel::test::ChildProcess;
using zel::test::kReady;
using zel::test::TemporaryFolder;

/// Starts a board that keeps every rule: without the option it publishes nothing to a client that subscribes.
ChildProcess startBoard(std::vector<std::string> arguments) {
  arguments.emplace_back("--repeat-on-subscribe");
  return zel::test::startBoard(std::move(arguments));
}

constexpr std::chrono::seconds kLimit{30};
constexpr int kMustFailed = 1;
constexpr int kShouldFailed = 3;
constexpr int kNotPutBack = 4;

struct Ended {
  std::optional<int> status;
  std::string output;
  std::string errors;
};

ChildProcess startConformance(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), ZEL_SYSMGR_CONFORMANCE);
  return ChildProcess::run(arguments);
}

Ended endOf(ChildProcess& program) {
  Ended ended;
  ended.status = program.wait(kLimit * zel::test::kSlowdown);
  ended.output = program.output();
  ended.errors = program.errors();
  return ended;
}

Ended conformance(const std::vector<std::string>& arguments) {
  ChildProcess program = startConformance(arguments);
  return endOf(program);
}

std::string citation(const std::string& rule) { return "docs/protocol.md#" + rule + ", "; }

ChildProcess startExample(const std::string& program, const std::string& file, const std::string& fault = "") {
  return ChildProcess::run({"env", "PLANTED_FAULT=" + fault, program, file});
}

std::string contentOf(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// A daemon that a command of the shell starts and starts again. It ends with this object.
class RestartedDaemon {
 public:
  explicit RestartedDaemon(const std::string& command)
      : pidFile_(folder_.path() + "/pid"), script_(folder_.path() + "/restart") {
    std::ofstream(script_) << "if [ -e " << pidFile_ << " ]; then\n  kill -KILL $(cat " << pidFile_ << ")\n"
                           << "  while kill -0 $(cat " << pidFile_ << ") 2>&-; do sleep 0.01; done\nfi\n"
                           << command << " >" << folder_.path() << "/log 2>&1 &\necho $! >" << pidFile_ << "\n";
  }
  ~RestartedDaemon() {
    const int pid = std::atoi(contentOf(pidFile_).c_str());
    if (pid > 0) kill(pid, SIGKILL);
  }
  RestartedDaemon(const RestartedDaemon&) = delete;
  RestartedDaemon& operator=(const RestartedDaemon&) = delete;

  std::string command() const { return "sh " + script_; }

 private:
  TemporaryFolder folder_;
  std::string pidFile_;
  std::string script_;
};

/// Runs every check that there is.
Ended everyCheckOn(const std::string& command) {
  const RestartedDaemon daemon(command);
  EXPECT_EQ(std::system(daemon.command().c_str()), 0);
  return conformance(
      {"--write", "--allow-reset", "--allow-reboot", "--verbose", "--restart-command", daemon.command()});
}

TEST(SysmgrConformance, FindsNothingWrongWithTheVirtualBoard) {
  const TemporaryFolder folder;
  const Ended ended = everyCheckOn(ZEL_SYSMGR_SIM " --repeat-on-subscribe --store " + folder.path() + "/store.json");
  EXPECT_EQ(ended.status, 0) << ended.output;
  EXPECT_THAT(ended.output, HasSubstr(": 0 of a must failed, 0 of a should failed, 0 skipped\n"));
}

TEST(SysmgrConformance, FindsNothingWrongWithTheExample) {
  const TemporaryFolder folder;
  const Ended ended = everyCheckOn(ZEL_DAEMON " " + folder.path() + "/state.json");
  EXPECT_EQ(ended.status, 0) << ended.output;
  EXPECT_THAT(ended.output, HasSubstr(": 0 of a must failed, 0 of a should failed, 0 skipped\n"));
}

TEST(SysmgrConformance, FindsNothingWrongWithAnyModelOfTheVirtualBoard) {
  for (const char* const model : {"KORVA", "ORVEN_TESSA", "VELDA", "PIXA_MADI", "BOARD_MODEL_UNDEFINED"}) {
    ChildProcess board = startBoard({"--model", model});
    ASSERT_TRUE(board.waitForOutput(kReady));
    const Ended ended = conformance({"--write"});
    EXPECT_EQ(ended.status, 0) << model << ended.output;
    board.kill();
  }
}

TEST(SysmgrConformance, FindsABoardThatDoesNotHeal) {
  ChildProcess board = zel::test::startBoard({});
  ASSERT_TRUE(board.waitForOutput(kReady));
  const Ended ended = conformance({});
  EXPECT_EQ(ended.status, kShouldFailed) << ended.output;
  EXPECT_THAT(ended.output, HasSubstr(citation("healing")));
  EXPECT_THAT(ended.output, HasSubstr(": 0 of a must failed, 1 of a should failed, "));
}

TEST(SysmgrConformance, FindsABoardThatIsBoundToEveryAddress) {
  ChildProcess board = startBoard({"--requests", "tcp://0.0.0.0:5556"});
  ASSERT_TRUE(board.waitForOutput(" ready, "));
  const Ended ended = conformance({});
  EXPECT_EQ(ended.status, kShouldFailed) << ended.output;
  EXPECT_THAT(ended.output, HasSubstr(citation("loopback")));
}

TEST(SysmgrConformance, OnlyAsksUnlessItMayWrite) {
  ChildProcess board = startBoard({"--verbose"});
  ASSERT_TRUE(board.waitForOutput(kReady));
  const Ended ended = conformance({"--read-only"});
  EXPECT_EQ(ended.status, 0) << ended.output;
  // Each request that the board took is a query, or a malformed one, or one without a usable body.
  std::istringstream lines(board.errors());
  for (std::string line; std::getline(lines, line);) {
    const bool isRefused = line.find("\"status\":-") != std::string::npos;
    const bool isQuery = line.find(" -> {\"") != std::string::npos && line.find("\"GET ") != std::string::npos;
    EXPECT_TRUE(isRefused || isQuery) << line;
  }
}

TEST(SysmgrConformance, PutsBackWhatItChangesWhenASignalEndsIt) {
  const TemporaryFolder folder;
  const std::string store = folder.path() + "/store.json";
  ChildProcess board = startBoard({"--store", store, "--verbose"});
  ASSERT_TRUE(board.waitForOutput(kReady));
  const std::string before = contentOf(store);
  ChildProcess program = startConformance({"--write"});
  zel::test::waitUntil([&] { return contentOf(store) != before; });
  program.signal(SIGINT);
  const Ended ended = endOf(program);
  EXPECT_THAT(ended.output, HasSubstr("The run stopped: interrupted by a signal."));
  EXPECT_EQ(ended.status, kMustFailed);
  EXPECT_EQ(contentOf(store), before);
}

TEST(SysmgrConformance, PutsBackWhatItChangesWhenChecksFail) {
  const TemporaryFolder folder;
  const std::string store = folder.path() + "/store.json";
  ChildProcess board = startBoard({"--store", store, "--fault-rule", "do=wrong-type command=2 times=100",  //
                                   "--fault-rule", "do=refuse command=14 times=5"});
  ASSERT_TRUE(board.waitForOutput(kReady));
  const std::string before = contentOf(store);
  const Ended ended = conformance({"--write"});
  EXPECT_EQ(ended.status, kMustFailed) << ended.output;
  EXPECT_EQ(contentOf(store), before);
}

TEST(SysmgrConformance, SaysWhatItCouldNotPutBack) {
  ChildProcess board = startBoard({"--fault-rule", "do=crash-after command=19 ms=0"});
  ASSERT_TRUE(board.waitForOutput(kReady));
  const Ended ended = conformance({"--write"});
  EXPECT_EQ(ended.status, kNotPutBack) << ended.output;
  EXPECT_THAT(ended.output, HasSubstr("Not put back: the daemon does not answer"));
}

TEST(SysmgrConformance, SaysThatNoDaemonIsThere) {
  const Ended ended = conformance({});
  EXPECT_EQ(ended.status, kMustFailed);
  EXPECT_THAT(ended.output, HasSubstr("no daemon takes requests on tcp://127.0.0.1:5556"));
}

TEST(SysmgrConformance, TalksToOtherEndpoints) {
  const Ended ended = conformance({"--requests", "tcp://127.0.0.1:7001", "--notifications", "tcp://127.0.0.1:7002"});
  EXPECT_THAT(ended.output, HasSubstr("no daemon takes requests on tcp://127.0.0.1:7001"));
}

TEST(SysmgrConformance, PrintsJson) {
  ChildProcess board = startBoard({"--fault-rule", "do=double times=always"});
  ASSERT_TRUE(board.waitForOutput(kReady));
  const Ended ended = conformance({"--json"});
  EXPECT_EQ(ended.status, kMustFailed);
  Json::Value report;
  ASSERT_EQ(zel::WireJsonReader().read(ended.output, report), "");
  EXPECT_GE(report["must-failed"].asInt(), 1);
  bool isFound = false;
  for (const Json::Value& check : report["checks"]) {
    if (check["rule"] != "one-answer") continue;
    isFound = true;
    EXPECT_EQ(check["result"], "failed");
    EXPECT_EQ(check["level"], "must");
    EXPECT_THAT(check["sentence"].asString(), HasSubstr("Each request has exactly one answer."));
    EXPECT_THAT(check["failures"][0].asString(), HasSubstr("a second answer came"));
  }
  EXPECT_TRUE(isFound);
}

TEST(SysmgrConformance, PrintsTap) {
  ChildProcess board = startBoard({});
  ASSERT_TRUE(board.waitForOutput(kReady));
  const Ended ended = conformance({"--tap"});
  EXPECT_EQ(ended.status, 0);
  EXPECT_THAT(ended.output, HasSubstr("TAP version 13\n1.."));
  EXPECT_THAT(ended.output, HasSubstr("\nok 1 - must endpoints\n"));
  EXPECT_THAT(ended.output, HasSubstr(" # SKIP needs --write\n"));
  EXPECT_THAT(ended.output, Not(HasSubstr("not ok")));
}

TEST(SysmgrConformance, ListsItsChecksWithTheirSentences) {
  const Ended ended = conformance({"--list"});
  EXPECT_EQ(ended.status, 0);
  EXPECT_THAT(ended.output, HasSubstr("one-answer: in all that came\n    must: Each request has exactly one answer."));
  EXPECT_THAT(ended.output, HasSubstr("set-accepts: nmos/node-port\n"));
}

TEST(SysmgrConformance, RefusesWrongUsage) {
  for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{{"--read-only", "--write"},
                                                                                         {"--allow-reset"},
                                                                                         {"--restart-command", "true"},
                                                                                         {"--json", "--tap"},
                                                                                         {"stray"}}) {
    const Ended ended = conformance(arguments);
    EXPECT_EQ(ended.status, 2) << arguments.front();
    EXPECT_NE(ended.errors, "");
  }
}

// --- daemons with faults

/// The virtual board with an order to misbehave.
struct Fault {
  const char* order;
  const char* rule;
  int status = kMustFailed;

  friend std::ostream& operator<<(std::ostream& out, const Fault& fault) { return out << fault.order; }
};

class SysmgrConformanceOnAFault : public testing::TestWithParam<Fault> {};

TEST_P(SysmgrConformanceOnAFault, CitesTheRule) {
  ChildProcess board = startBoard({"--fault-rule", GetParam().order});
  ASSERT_TRUE(board.waitForOutput(kReady));
  const Ended ended = conformance({});
  EXPECT_EQ(ended.status, GetParam().status) << ended.output;
  EXPECT_THAT(ended.output, HasSubstr(citation(GetParam().rule)));
}

constexpr Fault kFaults[] = {
    {"do=delay ms=1500", "answer-soon", kShouldFailed},
    {"do=silence", "answer-time"},
    {"do=silence times=always", "answer-time"},
    {"do=refuse", "queries-succeed"},
    {"do=late", "answer-time"},
    {"do=double", "one-answer"},
    {"do=garbage", "answer-object"},
    {"do=truncate", "json-strict"},
    {"do=oversize", "frame-size"},
    {"do=unknown-member", "own-members", kShouldFailed},
    {"do=wrong-type command=0", "payload"},
    {"do=wrong-type command=3 member=status", "status-type"},
    {"do=wrong-type command=0 member=stored/rtsp/tcp-port", "value-types"},
    {"do=crash-before", "survives"},
    {"do=crash-unanswered", "survives"},
    {"do=crash-after", "survives"},
    {"do=burst", "dynamic-rate", kShouldFailed},
};

/// A name for a test: letters and digits only.
std::string nameOf(const std::string& text) {
  std::string name;
  for (const char c : text) name += std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
  return name;
}

INSTANTIATE_TEST_SUITE_P(OfTheVirtualBoard, SysmgrConformanceOnAFault, testing::ValuesIn(kFaults),
                         [](const auto& row) { return nameOf(row.param.order); });

TEST(SysmgrConformance, IsTriedOnEveryFaultOfTheVirtualBoard) {
  std::istringstream help(zel::sim::FaultRule::help());
  int count = 0;
  for (std::string line; std::getline(help, line);) {
    // The line of a fault: two blanks and its name.
    if (line.rfind("  ", 0) != 0 || line.rfind("  --", 0) == 0) continue;
    const std::string order = "do=" + line.substr(2, line.find(' ', 2) - 2);
    const auto isIt = [&order](const Fault& fault) {
      return (fault.order + std::string(" ")).rfind(order + " ", 0) == 0;
    };
    EXPECT_TRUE(std::any_of(std::begin(kFaults), std::end(kFaults), isIt)) << order;
    ++count;
  }
  EXPECT_GT(count, 10);
}

TEST(SysmgrConformance, FindsADaemonThatAnswersAnEmptyObject) {
  const ChildProcess daemon = zel::test::startDaemon();
  const Ended ended = conformance({"--write"});
  EXPECT_EQ(ended.status, kMustFailed) << ended.output;
  for (const char* const rule : {"payload", "malformed-frames", "malformed-id", "body-object", "unknown-command"}) {
    EXPECT_THAT(ended.output, HasSubstr(citation(rule)));
  }
}

/// The example with one of the faults of plant_faults.py.
struct Planted {
  const char* fault;
  const char* rule;
  enum class Needs { kNothing, kReset, kRestart } needs = Needs::kNothing;

  friend std::ostream& operator<<(std::ostream& out, const Planted& planted) { return out << planted.fault; }
};

class SysmgrConformanceOnAPlantedFault : public testing::TestWithParam<Planted> {};

TEST_P(SysmgrConformanceOnAPlantedFault, CitesTheRule) {
  const TemporaryFolder folder;
  const RestartedDaemon daemon(std::string("PLANTED_FAULT=") + GetParam().fault + " " ZEL_FAULTY_DAEMON " " +
                               folder.path() + "/state.json");
  ASSERT_EQ(std::system(daemon.command().c_str()), 0);
  std::vector<std::string> arguments = {"--write"};
  if (GetParam().needs == Planted::Needs::kReset) arguments.emplace_back("--allow-reset");
  if (GetParam().needs == Planted::Needs::kRestart)
    arguments.insert(arguments.end(), {"--restart-command", daemon.command()});
  const Ended ended = conformance(arguments);
  // Some faults keep the program from putting back what it has changed.
  EXPECT_TRUE(ended.status == kMustFailed || ended.status == kNotPutBack) << ended.output;
  EXPECT_THAT(ended.output, HasSubstr(citation(GetParam().rule)));
}

constexpr Planted kPlanted[] = {
    {"keeps-half", "refused-whole"},
    {"publishes-refused", "refused-quietly"},
    {"identify-unpublished", "published"},
    {"wraps-stored", "not-wrapped"},
    {"publishes-before", "published-in-force"},
    {"replaces-block", "block-merges"},
    {"takes-fractions", "set-type"},
    {"lower-case-mode", "exact-texts"},
    {"lacks-serial-number", "whole-documents"},
    {"text-status", "status-type"},
    {"takes-all-commands", "unknown-command"},
    {"shortens-envelope", "envelope"},
    {"removes-by-address", "whitelist-missing"},
    {"forgets-whitelist", "restart-keeps", Planted::Needs::kRestart},
    {"forgets-interfaces", "restart-keeps", Planted::Needs::kRestart},
    {"renumbers-on-reset", "reset-keeps", Planted::Needs::kReset},
    {"counts-characters", "set-range"},
    {"repeats-reboot", "healing-reboot"},
    {"takes-short-addresses", "request-addresses"},
};

INSTANTIATE_TEST_SUITE_P(OfTheExample, SysmgrConformanceOnAPlantedFault, testing::ValuesIn(kPlanted),
                         [](const auto& row) { return nameOf(row.param.fault); });

/// So it is the active fault that is found.
TEST(TheFaultyExample, IsSoundWithoutAFault) {
  const TemporaryFolder folder;
  const ChildProcess daemon = startExample(ZEL_FAULTY_DAEMON, folder.path() + "/state.json");
  const Ended ended = conformance({"--write", "--allow-reset"});
  EXPECT_EQ(ended.status, 0) << ended.output;
}

TEST(TheFaultyExample, IsSoundOnARepSocket) {
  const TemporaryFolder folder;
  const ChildProcess daemon = startExample(ZEL_FAULTY_DAEMON, folder.path() + "/state.json", "uses-rep");
  const Ended ended = conformance({"--write", "--allow-reset"});
  EXPECT_EQ(ended.status, 0) << ended.output;
}

}  // namespace
