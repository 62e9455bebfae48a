#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <iterator>

#include "common/shared/wire_json.h"
#include "simulator/control.h"
#include "simulator/replay.h"
#include "tests/common/test_client.h"
#include "tests/simulator/board_process.h"
#include "tests/simulator/json_text.h"
#include "tests/simulator/listener.h"
#include "tests/simulator/temporary_folder.h"

// What sysmgrctl records of a board, and the board that sysmgr-sim makes of it.

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using zel::test::ChildProcess;
using zel::test::json;
using zel::test::kReady;
using zel::test::kSoon;
using zel::test::Listener;
using zel::test::startBoard;
using zel::test::TemporaryFolder;
using zel::test::TestClient;

std::vector<std::string> linesOf(const std::string& path) {
  std::ifstream file(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

std::string wireText(const Json::Value& value) {
  std::string text;
  EXPECT_EQ(zel::writeWireJson(value, text), "");
  return text;
}

/// What a board answers to the three queries whose documents are published.
using Documents = std::vector<std::string>;
constexpr unsigned int kQueries[] = {0, 1, 16};
Documents documentsOf(TestClient& client) {
  Documents documents;
  for (const unsigned int query : kQueries) documents.push_back(wireText(client.send(query).reply));
  return documents;
}
Documents documentsOf(const zel::sim::Replay& replay) {
  Documents documents;
  for (const unsigned int query : kQueries) documents.push_back(wireText(replay.handle(query, Json::Value()).reply));
  return documents;
}

constexpr int kTwoHours = 7200000;  // ms
constexpr int kMostEntries = 150;   // that the changes add to the whitelist

/// Makes a change that the board publishes once.
void change(int number, TestClient& client, const std::string& control) {
  const std::string text = std::to_string(number);
  if (number % 3 == 0 || number > 3 * kMostEntries) {
    EXPECT_EQ(client.send(2, json(R"({"offset-from-master-threshold": )" + text + "}")).code, 0);
  } else if (number % 3 == 1) {
    const std::string value = std::to_string(number) + "." + std::to_string(number * 7919 % 1000);
    EXPECT_EQ(zel::sim::tellAt(control, "dynamic eth-basics/eth1/sfp-info/rx_power " + value).error, "");
  } else {
    const std::string address = "239.1." + std::to_string(number / 250) + "." + std::to_string(number % 250);
    EXPECT_EQ(
        client.send(13, json(R"({"white-list": [{"ip": ")" + address + R"(", "mask": "255.255.255.255"}]})")).code, 0);
  }
}

/// Gives the notifications of a recording the times of the two hours.
void stretch(const std::string& path, int msBetweenChanges) {
  std::vector<std::string> lines = linesOf(path);
  std::ofstream file(path);
  int number = 0;
  for (const std::string& line : lines) {
    Json::Value event = json(line);
    if (event.isMember("frames")) event["ms"] = ++number * msBetweenChanges;
    file << zel::test::text(event) << "\n";
  }
}

/// Steps through a recording. @return how many steps it has
std::size_t expectSteps(zel::sim::Replay& replay, const std::vector<Documents>& steps) {
  std::size_t number = 0;
  for (; number < steps.size(); ++number) {
    EXPECT_EQ(documentsOf(replay), steps[number]) << number;
    if (!replay.next() || testing::Test::HasFailure()) break;
    replay.step();
  }
  return number;
}

/// The first two thirds of a recording, up to the middle of a line, are those steps, and the word about it is said.
void expectCutRecording(const std::string& whole, const std::string& path, const std::vector<Documents>& steps) {
  std::ifstream file(whole, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  const std::size_t begin = bytes.rfind('\n', bytes.size() / 3 * 2) + 1;
  std::ofstream(path, std::ios::binary) << bytes.substr(0, begin + 20);
  const auto lines = std::count(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(begin), '\n');

  zel::sim::Replay replay;
  std::string cut;
  ASSERT_THAT(replay.open(path, cut), IsEmpty());
  EXPECT_EQ(cut, path + ", line " + std::to_string(lines + 1) + " is cut off; the recording is replayed up to there");
  EXPECT_EQ(expectSteps(replay, steps), static_cast<std::size_t>(lines) - 6);
}

// A longer run by hand: ZEL_RECORDED_CHANGES=7200, one each second.
TEST(Recording, OfTwoHoursIsTheSameBoardAtEachStep) {
  const auto changes = static_cast<int>(zel::test::lengthFromEnvironment("ZEL_RECORDED_CHANGES", 360));
  const int msBetweenChanges = kTwoHours / changes;
  const TemporaryFolder folder;
  const std::string path = folder.file("recording");
  zmq::context_t context;
  std::vector<Documents> steps;
  {
    ChildProcess board = startBoard({"--control", folder.file("control")});
    ASSERT_TRUE(board.waitForOutput(kReady));
    ChildProcess recorder = ChildProcess::run({ZEL_SYSMGRCTL, "record", path});
    ASSERT_TRUE(zel::test::waitUntil([&] { return linesOf(path).size() == 6; })) << recorder.errors();
    TestClient client(context, kSoon);
    steps.push_back(documentsOf(client));
    for (int number = 1; number <= changes; ++number) {
      change(number, client, folder.file("control"));
      steps.push_back(documentsOf(client));
    }
    ASSERT_TRUE(zel::test::waitUntil([&] { return linesOf(path).size() == 6U + static_cast<unsigned int>(changes); }));
    recorder.signal(SIGINT);
    EXPECT_EQ(recorder.wait(), -SIGINT);
  }
  stretch(path, msBetweenChanges);

  zel::sim::Replay replay;
  std::string cut;
  ASSERT_THAT(replay.open(path, cut), IsEmpty());
  EXPECT_THAT(cut, IsEmpty());
  EXPECT_EQ(expectSteps(replay, steps), static_cast<std::size_t>(changes));
  expectCutRecording(path, folder.file("cut"), steps);

  // And in time: two hours in two seconds.
  const std::vector<std::string> lines = linesOf(path);
  ChildProcess board = startBoard({"--replay", path, "--speed", "3600"});
  ASSERT_TRUE(board.waitForOutput(kReady));
  Listener listener(context, {""});
  TestClient client(context, kSoon);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(client.send(3).code, 0);  // the time begins
  for (std::size_t number = 6; number < lines.size(); ++number) {
    const Json::Value event = json(lines[number]);
    ASSERT_TRUE(listener.waitFor([&](const std::string& topic, const Json::Value& payload) {
      EXPECT_EQ(topic, event["frames"][0].asString()) << number;
      EXPECT_EQ(wireText(payload), event["frames"][1].asString()) << number;
      return true;
    }));
  }
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1950));
  EXPECT_EQ(documentsOf(client), steps.back());
  EXPECT_TRUE(
      zel::test::waitUntil([&] { return board.errors() == "sysmgr-sim: the recording " + path + " is over\n"; }));
}

TEST(Recording, GoesOnWithTheDocumentsWhenTheBoardIsBack) {
  const TemporaryFolder folder;
  const std::string path = folder.file("recording");
  ChildProcess board = startBoard({});
  ASSERT_TRUE(board.waitForOutput(kReady));
  ChildProcess recorder = ChildProcess::run({ZEL_SYSMGRCTL, "record", path});
  ASSERT_TRUE(zel::test::waitUntil([&] { return linesOf(path).size() == 6; }));
  board.kill();
  ASSERT_TRUE(zel::test::waitUntil([&] { return linesOf(path).size() == 7; }));
  ChildProcess next = startBoard({"--model", "ZIRC"});
  ASSERT_TRUE(zel::test::waitUntil([&] { return linesOf(path).size() == 12; }));
  const std::vector<std::string> lines = linesOf(path);
  EXPECT_EQ(json(lines[0])["recording"], "sysmgr");
  EXPECT_EQ(json(lines[1])["connection"], "begins");
  EXPECT_EQ(json(lines[4])["value"]["model"], "ORVEN_AES67");
  EXPECT_EQ(json(lines[6])["connection"], "ends");
  EXPECT_EQ(json(lines[7])["connection"], "begins");
  EXPECT_EQ(json(lines[10])["value"]["model"], "ZIRC");

  // The board that was away is away again, and then the other one.
  recorder.signal(SIGINT);  // or else the end of this board is recorded, too
  EXPECT_EQ(recorder.wait(), -SIGINT);
  next.kill();
  ChildProcess again = startBoard({"--replay", path, "--speed", "2"});
  ASSERT_TRUE(again.waitForOutput(kReady));
  zmq::context_t context;
  TestClient client(context);
  const auto model = [&client] {
    const auto outcome = client.send(3);
    return outcome.code == 0 ? outcome.reply["board-model"]["model"].asString() : "away";
  };
  EXPECT_EQ(model(), "ORVEN_AES67");
  EXPECT_TRUE(zel::test::waitUntil([&] { return model() == "ZIRC"; })) << again.errors();
}

TEST(Recording, KeepsWhatIsMalformed) {
  const TemporaryFolder folder;
  const std::string path = folder.file("recording");
  ChildProcess board = startBoard({"--control", folder.file("control"), "--fault-rule", "do=garbage command=3"});
  ASSERT_TRUE(board.waitForOutput(kReady));
  ChildProcess recorder = ChildProcess::run({ZEL_SYSMGRCTL, "record", path});
  ASSERT_TRUE(zel::test::waitUntil([&] { return linesOf(path).size() == 6; }));
  for (const char* const order :
       {"publish 1000 {half", R"(publish-frames 1000 \x00\xff\x0a)", "publish-frames a b c"}) {
    EXPECT_EQ(zel::sim::tellAt(folder.file("control"), order).error, "");
  }
  ASSERT_TRUE(zel::test::waitUntil([&] { return linesOf(path).size() == 9; }));
  const std::vector<std::string> lines = linesOf(path);
  EXPECT_THAT(json(lines[4])["failed"].asString(), HasSubstr("cannot read the board model"));
  EXPECT_THAT(lines[6], HasSubstr(R"("frames":["1000","{half"])"));
  EXPECT_THAT(lines[7], HasSubstr(R"("hex-frames":["31303030","00ff0a"])"));
  EXPECT_THAT(lines[8], HasSubstr(R"("frames":["a","b","c"])"));
}

TEST(Replay, CannotBeChangedButMisbehavesOnDemand) {
  const TemporaryFolder folder;
  std::ofstream(folder.file("recording")) << R"({"recording":"sysmgr","version":1})"
                                             "\n"
                                             R"({"document":"stored","ms":1,"value":{"any":"thing"}})"
                                             "\n"
                                             R"({"frames":["1000"]")";
  ChildProcess board = startBoard({"--replay", folder.file("recording"), "--control", folder.file("control")});
  ASSERT_TRUE(board.waitForOutput("replay of " + folder.file("recording") + kReady));
  EXPECT_EQ(board.errors(),
            "sysmgr-sim: " + folder.file("recording") + ", line 3 is cut off; the recording is replayed up to there\n");
  zmq::context_t context;
  TestClient client(context, kSoon);
  EXPECT_EQ(wireText(client.send(0).reply), R"({"status":0,"stored":{"any":"thing"}})");
  EXPECT_EQ(client.send(2, json(R"({"rtsp-tcp-port": 5004})")).code, -14);
  EXPECT_THAT(client.lastError().text, HasSubstr("This board is a recording"));
  const std::string control = folder.file("control");
  EXPECT_EQ(zel::sim::tellAt(control, "stored rtsp/tcp-port 5004").error,
            "This board is a recording, which cannot be changed.");
  EXPECT_EQ(zel::sim::tellAt(control, "fault do=refuse status=-9").error, "");
  EXPECT_EQ(client.send(0).code, -9);
}

}  // namespace
