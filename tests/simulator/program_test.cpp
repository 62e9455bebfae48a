#include <gmock/gmock.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "client/endpoints.h"
#include "client/sysmgr_client.h"
#include "simulator/fault.h"
#include "simulator/refusal.h"
#include "tests/common/test_client.h"
#include "tests/simulator/board_process.h"
#include "tests/simulator/json_text.h"
#include "tests/simulator/listener.h"
#include "tests/simulator/temporary_folder.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using zel::test::at;
using zel::test::ChildProcess;
using zel::test::json;
using zel::test::kReady;
using zel::test::kSoon;
using zel::test::startBoard;
using zel::test::TemporaryFolder;
using zel::test::TestClient;
using zel::test::waitUntil;
using namespace std::chrono_literals;

std::string contentOf(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

void write(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

/// A board that has to end by itself.
struct Ended {
  std::optional<int> status;
  std::string output;
  std::string errors;
};
Ended runToItsEnd(const std::vector<std::string>& arguments) {
  ChildProcess board = startBoard(arguments);
  Ended ended;
  ended.status = board.wait();
  ended.output = board.output();
  ended.errors = board.errors();
  return ended;
}

TEST(SysmgrSim, ShowsItsHelpAndItsVersion) {
  const Ended help = runToItsEnd({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_THAT(help.output, HasSubstr("--store FILE"));
  EXPECT_THAT(help.output, HasSubstr("PIXA_AES1616"));
  EXPECT_THAT(help.output, HasSubstr(zel::sim::FaultRule::help()));
  EXPECT_THAT(help.errors, IsEmpty());

  const Ended version = runToItsEnd({"--version"});
  EXPECT_EQ(version.status, 0);
  EXPECT_EQ(version.output, "sysmgr-sim " ZEL_VERSION "\n");
}

TEST(SysmgrSim, RefusesWrongUsage) {
  const std::pair<std::vector<std::string>, const char*> kRows[] = {
      {{"--no-such-option"}, "--no-such-option"},
      {{"stray"}, "stray"},
      {{"--model", "KORWA"}, "there is no model \"KORWA\"; there are: ORVEN_AES67 "},
      {{"--fault-rule", "do=dance"}, "--fault-rule 'do=dance': do=dance: one of the faults is wanted"},
      {{"--live-interval", "0"}, "--live-interval"},
      {{"--store"}, "--store"},
      {{"--store", ""}, "--store: its value is empty"},
      {{"--control", ""}, "--control: its value is empty"},
      {{"--script", ""}, "--script: its value is empty"},
      {{"--requests", ""}, "--requests: its value is empty"},
  };
  for (const auto& [arguments, word] : kRows) {
    const Ended ended = runToItsEnd(arguments);
    EXPECT_EQ(ended.status, 2) << word;
    EXPECT_THAT(ended.errors, HasSubstr(word));
    EXPECT_THAT(ended.output, IsEmpty());
  }
}

TEST(SysmgrSim, EndsCleanlyOnASignal) {
  for (const int signal : {SIGINT, SIGTERM}) {
    ChildProcess board = startBoard({"--model", "ZIRC"});
    ASSERT_TRUE(board.waitForOutput(kReady));
    EXPECT_EQ(board.output(), std::string("sysmgr-sim: ZIRC") + kReady);
    zmq::context_t context;
    TestClient client(context, kSoon);
    EXPECT_EQ(client.send(3).reply["board-model"]["model"], "ZIRC");
    board.signal(signal);
    EXPECT_EQ(board.wait(), 0);
    EXPECT_THAT(board.errors(), IsEmpty());
  }
}

TEST(SysmgrSim, SaysThatAPortIsTaken) {
  const TemporaryFolder folder;
  ChildProcess first = startBoard({});
  ASSERT_TRUE(first.waitForOutput(kReady));
  write(folder.file("store"), "not JSON");
  const Ended second = runToItsEnd({"--store", folder.file("store")});
  EXPECT_EQ(second.status, 1);
  EXPECT_THAT(second.errors, HasSubstr("sysmgr-sim: cannot listen on tcp://127.0.0.1:55"));
  EXPECT_THAT(second.errors, HasSubstr("Address already in use"));
  EXPECT_EQ(contentOf(folder.file("store")), "not JSON");  // it belongs to the one that runs
}

TEST(SysmgrSim, ListensAtOtherEndpoints) {
  const TemporaryFolder folder;
  const std::string requests = "ipc://" + folder.file("requests");
  const std::string notifications = "ipc://" + folder.file("notifications");
  ChildProcess board = startBoard({"--requests", requests, "--notifications", notifications});
  ASSERT_TRUE(board.waitForOutput("requests on " + requests + ", notifications on " + notifications + "\n"));
  zel::useEndpoints(requests, notifications);
  zmq::context_t context;
  SysMgrClient client;
  ASSERT_EQ(client.init(context), 0);
  zel::test::Listener listener(context, {"1000"});
  EXPECT_EQ(client.setRtspTcpPort(5004), 0);
  EXPECT_TRUE(listener.waitFor([](const std::string& topic, const Json::Value&) { return topic == "1000"; }));
  board.signal(SIGTERM);
  EXPECT_EQ(board.wait(), 0);
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
  zel::useEndpoints("", "");
}

TEST(SysmgrSim, SaysWhichEndpointItCannotUse) {
  for (const char* endpoint : {"tcp://nowhere", "carrier-pigeon://x", "ipc:///no/such/folder/socket"}) {
    const Ended ended = runToItsEnd({"--requests", endpoint});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.errors, HasSubstr(std::string("sysmgr-sim: cannot listen on ") + endpoint + ": "));
  }
}

TEST(SysmgrSim, RunsACommandInTheSharedNetwork) {
  const std::vector<std::string> arguments = {"run", "--shared-network", "--", "sh", "-c", "echo begun; sleep 1000"};
  ChildProcess first = startBoard(arguments);
  ASSERT_TRUE(first.waitForOutput("begun\n"));
  zmq::context_t context;
  TestClient client(context, kSoon);
  EXPECT_EQ(client.send(3).code, 0);

  const Ended second = runToItsEnd(arguments);
  EXPECT_EQ(second.status, 125);
  EXPECT_THAT(second.output, IsEmpty());
  EXPECT_THAT(second.errors, HasSubstr("Address already in use"));
}

/// Whether a process handles a signal, as the kernel tells it.
bool handles(pid_t pid, int signal) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  std::string word;
  while (status >> word && word != "SigCgt:") {
  }
  std::uint64_t caught = 0;
  status >> std::hex >> caught;
  return (caught >> static_cast<unsigned>(signal - 1) & 1U) != 0;
}

// Only a sanitizer sees that a handler touches a board that is gone.
TEST(SysmgrSim, ObeysNoSignalOnceItsBoardIsGone) {
  const std::vector<std::string> arguments = {"run", "--shared-network", "--", "sleep", "1000"};
  ChildProcess first = startBoard({});
  ASSERT_TRUE(first.waitForOutput(kReady));
  for (int round = 0; round < 5; ++round) {
    ChildProcess second = startBoard(arguments);
    ASSERT_TRUE(waitUntil([&second] { return handles(second.pid(), SIGUSR1) || second.wait(0ms); }));
    while (!second.wait(0ms)) second.signal(SIGUSR1);
    EXPECT_EQ(second.wait(), 125);
    EXPECT_THAT(second.errors(), HasSubstr("Address already in use"));
    EXPECT_THAT(second.errors(), Not(HasSubstr("Sanitizer")));
  }
}

TEST(SysmgrSim, StartsFromAStateFile) {
  const TemporaryFolder folder;
  write(folder.file("state"), R"({"board-model": {"model": "MERIX"}, "stored": {"rtsp": {"tcp-port": 5004}}})");
  ChildProcess board = startBoard({"--state", folder.file("state")});
  ASSERT_TRUE(board.waitForOutput(std::string("MERIX") + kReady));
  zmq::context_t context;
  TestClient client(context, kSoon);
  EXPECT_EQ(at(client.send(0).reply, "stored/rtsp/tcp-port").asUInt(), 5004U);
}

TEST(SysmgrSim, NamesWhatIsWrongWithAFile) {
  const TemporaryFolder folder;
  write(folder.file("unknown"), R"({"stored": {"rtsp": {"tcp-prot": 5004}}})");
  write(folder.file("range"), R"({"stored": {"rtsp": {"tcp-port": 0}}})");
  write(folder.file("broken"), R"({"stored": )");
  write(folder.file("faults"), "do=delay\n\ndo=delay speed=3\n");
  ASSERT_EQ(mkfifo(folder.file("fifo").c_str(), 0644), 0);
  std::filesystem::create_symlink("unknown", folder.file("link"));
  const std::pair<std::vector<std::string>, const char*> kRows[] = {
      {{"--state", folder.file("unknown")}, "rtsp/tcp-prot"},
      {{"--state", folder.file("range")}, "rtsp/tcp-port"},
      {{"--state", folder.file("broken")}, "is not one JSON document"},
      {{"--state", folder.file("none")}, "No such file"},
      {{"--fault", folder.file("faults")}, "line 3: \"speed\" is not a parameter"},
      {{"--fault", folder.file("none")}, "cannot be opened: No such file"},
      {{"--script", folder.file("none")}, "cannot be opened: No such file"},
      {{"--script", folder.path()}, "cannot be read: Is a directory"},
      {{"--script", "/dev/zero"}, "/dev/zero is larger than 1 MiB"},
      {{"--fault", "/dev/zero"}, "/dev/zero is larger than 1 MiB"},
      {{"--state", "/dev/zero"}, "/dev/zero is larger than 1 MiB"},
      {{"--store", folder.file("none") + "/store"}, "cannot be opened"},
      {{"--store", folder.path()}, "is not a regular file but a folder"},
      {{"--store", folder.file("fifo")}, "is not a regular file but a FIFO"},
      {{"--store", folder.file("link")}, "is not a regular file but a symbolic link"},
  };
  for (const auto& [arguments, word] : kRows) {
    const Ended ended = runToItsEnd(arguments);
    EXPECT_EQ(ended.status, 1) << word;
    EXPECT_THAT(ended.errors, HasSubstr(arguments.back()));
    EXPECT_THAT(ended.errors, HasSubstr(word));
    EXPECT_THAT(ended.output, IsEmpty());
  }
}

TEST(SysmgrSim, RefusesASpeedThatIsNotAPositiveNumber) {
  for (const char* const speed : {"nan", "-nan", "inf", "0", "-1"}) {
    const Ended ended = runToItsEnd({"--replay", "/no/such/recording", std::string("--speed=") + speed});
    EXPECT_EQ(ended.status, 2) << speed;
    EXPECT_THAT(ended.errors, HasSubstr("--speed"));
  }
}

TEST(SysmgrSim, SetsADamagedStoreAside) {
  const TemporaryFolder folder;
  const std::string store = folder.file("store");
  const std::pair<const char*, const char*> kRows[] = {
      {"{\"stored\":", "1"},                              // broken off
      {"{\"stored\":{\"rtsp\":{\"tcp-port\":0}}}", "2"},  // JSON, but no state that a board can have
      {"", "3"},
  };
  for (const auto& [damaged, number] : kRows) {
    write(store, damaged);
    ChildProcess board = startBoard({"--store", store});
    ASSERT_TRUE(board.waitForOutput(kReady));
    EXPECT_THAT(board.errors(), HasSubstr(store + " is damaged"));
    EXPECT_THAT(board.errors(), HasSubstr(store + ".damaged-" + number));
    zmq::context_t context;
    TestClient client(context, kSoon);
    EXPECT_EQ(at(client.send(0).reply, "stored/rtsp/tcp-port").asUInt(), 8554U);
    EXPECT_EQ(client.send(2, json(R"({"rtsp-tcp-port": 5004})")).code, 0);
    board.kill();
  }
  for (const auto& [damaged, number] : kRows) EXPECT_EQ(contentOf(store + ".damaged-" + number), damaged);
  EXPECT_EQ(at(json(contentOf(store)), "stored/rtsp/tcp-port"), 5004);
}

TEST(SysmgrSim, ShowsRequestsWhenItIsAskedTo) {
  ChildProcess board = startBoard({"--verbose", "--fault-rule", "do=refuse command=2 status=-5 text=\"not today\""});
  ASSERT_TRUE(board.waitForOutput(kReady));
  zmq::context_t context;
  TestClient client(context, kSoon);
  EXPECT_EQ(client.send(2, json(R"({"rtsp-tcp-port": 5004})")).code, -5);
  EXPECT_EQ(client.lastError().text, "not today");
  EXPECT_EQ(client.send(3).code, 0);
  EXPECT_THAT(board.errors(), HasSubstr("sysmgr-sim: 2 \"SET stored parameters\" {\"rtsp-tcp-port\":5004} -> "
                                        "{\"error\":\"not today\",\"status\":-5} (fault: refuse)\n"));
  EXPECT_THAT(board.errors(), HasSubstr("sysmgr-sim: 3 \"GET Board Model\""));
}

TEST(SysmgrSim, ReadsItsFaultsAgainOnASignal) {
  const TemporaryFolder folder;
  const std::string faults = folder.file("faults");
  write(faults, "");
  ChildProcess board = startBoard({"--fault", faults});
  ASSERT_TRUE(board.waitForOutput(kReady));
  zmq::context_t context;
  TestClient client(context, kSoon);
  EXPECT_EQ(client.send(3).code, 0);

  write(faults, "do=refuse status=-9 times=always\n");
  board.signal(SIGUSR1);
  EXPECT_TRUE(zel::test::waitUntil([&] { return client.send(3).code == -9; }));

  write(faults, "do=dance\n");  // a mistake changes nothing
  board.signal(SIGUSR1);
  EXPECT_TRUE(
      zel::test::waitUntil([&] { return board.errors().find(faults + ", line 1: do=dance") != std::string::npos; }));
  EXPECT_EQ(client.send(3).code, -9);

  write(faults, "");
  board.signal(SIGUSR1);
  EXPECT_TRUE(zel::test::waitUntil([&] { return client.send(3).code == 0; }));
}

TEST(SysmgrSim, MovesOnRequest) {
  const TemporaryFolder folder;
  ChildProcess board = startBoard({"--live-interval", "10"});
  ASSERT_TRUE(board.waitForOutput(kReady));
  zmq::context_t context;
  zel::test::Listener listener(context, {"1001"});
  int count = 0;
  EXPECT_TRUE(listener.waitFor([&](const std::string&, const Json::Value&) { return ++count == 5; }));
}

struct Crash {
  const char* fault;
  int code;           ///< what the client gets
  unsigned int port;  ///< what the board has when it is back
};
void PrintTo(const Crash& row, std::ostream* out) { *out << row.fault; }
class SysmgrSimCrash : public testing::TestWithParam<Crash> {};

TEST_P(SysmgrSimCrash, LeavesTheStoreAsItShould) {
  const TemporaryFolder folder;
  write(folder.file("faults"), std::string("do=") + GetParam().fault + " command=2\n");
  const std::string store = folder.file("store");
  zmq::context_t context;
  {
    const bool answered = GetParam().code == 0;
    TestClient client(context, answered ? kSoon : std::chrono::milliseconds(1000));
    ChildProcess board = startBoard({"--store", store, "--fault", folder.file("faults")});
    ASSERT_TRUE(board.waitForOutput(kReady));
    EXPECT_EQ(client.send(2, json(R"({"rtsp-tcp-port": 5004})")).code, GetParam().code);
    EXPECT_EQ(board.wait(), -SIGKILL);
  }
  ChildProcess board = startBoard({"--store", store});
  ASSERT_TRUE(board.waitForOutput(kReady));
  TestClient client(context, kSoon);
  EXPECT_EQ(at(client.send(0).reply, "stored/rtsp/tcp-port").asUInt(), GetParam().port);
}

INSTANTIATE_TEST_SUITE_P(Program, SysmgrSimCrash,
                         testing::Values(Crash{"crash-before", zel::status::kNoAnswer, 8554},
                                         Crash{"crash-unanswered", zel::status::kNoAnswer, 5004},
                                         Crash{"crash-after ms=1000", 0, 5004}),
                         [](const auto& row) {
                           std::string name = row.param.fault;
                           name = name.substr(0, name.find(' '));
                           name[name.find('-')] = '_';
                           return name;
                         });

}  // namespace
