#include "simulator/control.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/common/test_client.h"
#include "tests/simulator/board_process.h"
#include "tests/simulator/json_text.h"
#include "tests/simulator/listener.h"
#include "tests/simulator/temporary_folder.h"
#include "tests/support/frames.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using zel::sim::OrderResult;
using zel::sim::tellAt;
using zel::test::at;
using zel::test::ChildProcess;
using zel::test::json;
using zel::test::kReady;
using zel::test::kSoon;
using zel::test::Listener;
using zel::test::receiveFrames;
using zel::test::startBoard;
using zel::test::TemporaryFolder;
using zel::test::TestClient;

/// A board that takes orders.
class ToldBoard : public testing::Test {
 protected:
  ToldBoard() : board_(startBoard({"--control", path()})) { EXPECT_TRUE(board_.waitForOutput(kReady)); }

  std::string path() const { return folder_.file("control"); }
  OrderResult tell(const std::string& order) const { return tellAt(path(), order); }
  void expectTold(const std::string& order) const { EXPECT_THAT(tell(order).error, IsEmpty()) << order; }

  TemporaryFolder folder_;
  ChildProcess board_;
  zmq::context_t context_;
};

// --- what orders do

TEST_F(ToldBoard, PublishesAChangedDocument) {
  Listener listener(context_, {"1000", "1001", "1004"});
  TestClient client(context_, kSoon);
  EXPECT_EQ(client.send(3).code, 0);  // came behind the subscriptions
  expectTold("dynamic eth-basics/eth0/ip 10.0.0.9");
  EXPECT_TRUE(listener.waitFor([](const std::string& topic, const Json::Value& payload) {
    return topic == "1001" && at(payload, "eth-basics")[0]["ip"] == "10.0.0.9";
  }));
  expectTold("stored rtsp/tcp-port 5004");
  EXPECT_TRUE(listener.waitFor([](const std::string& topic, const Json::Value& payload) {
    return topic == "1000" && at(payload, "rtsp/tcp-port") == 5004;
  }));
  expectTold(R"(whitelist [{"ip": "239.1.0.0", "mask": "255.255.0.0"}])");
  EXPECT_TRUE(listener.waitFor([](const std::string& topic, const Json::Value& payload) {
    return topic == "1004" && payload["white-list"].size() == 4;
  }));
  EXPECT_EQ(at(client.send(0).reply, "stored/rtsp/tcp-port"), 5004);
}

TEST_F(ToldBoard, PublishesWhatItIsTold) {
  zmq::socket_t subscriber(context_, zmq::socket_type::sub);
  subscriber.set(zmq::sockopt::subscribe, "");
  subscriber.set(zmq::sockopt::rcvtimeo, static_cast<int>(kSoon.count()));
  subscriber.connect("tcp://127.0.0.1:5575");
  // It is subscribed once it hears something.
  EXPECT_TRUE(zel::test::waitUntil([&] {
    expectTold("publish first");
    zmq_pollitem_t item = {subscriber.handle(), 0, ZMQ_POLLIN, 0};
    return zmq_poll(&item, 1, 10) == 1;
  }));
  expectTold(R"(publish 1000 {"half":   )");
  expectTold(R"(publish-frames 1001 \x00\xff "a b" \\)");
  std::vector<std::string> frames;
  do frames = receiveFrames(subscriber);
  while (frames.size() == 2 && frames[0] == "first");
  EXPECT_EQ(frames, (std::vector<std::string>{"1000", "{\"half\":"}));
  EXPECT_EQ(receiveFrames(subscriber), (std::vector<std::string>{"1001", std::string("\0\xff", 2), "a b", "\\"}));
}

TEST_F(ToldBoard, MisbehavesUntilItsFaultsAreCleared) {
  TestClient client(context_, kSoon);
  expectTold("fault do=refuse status=-9 times=always");
  EXPECT_EQ(client.send(3).code, -9);
  expectTold("faults clear");
  EXPECT_EQ(client.send(3).code, 0);
}

TEST_F(ToldBoard, LetsRequestsWaitUntilItGoesOn) {
  TestClient impatient(context_);
  EXPECT_EQ(impatient.ask(3).code, 0);  // it is connected
  expectTold("stop");
  EXPECT_EQ(impatient.send(2, json(R"({"rtsp-tcp-port": 5004})")).code, zel::status::kNoAnswer);
  std::thread later([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    expectTold("continue");
  });
  TestClient patient(context_, kSoon);
  EXPECT_EQ(patient.send(3).code, 0);
  later.join();
  EXPECT_EQ(at(patient.send(0).reply, "stored/rtsp/tcp-port"), 5004);  // the first request waited, too
}

TEST_F(ToldBoard, HoldsAnswersBackThatAreDueWhileItIsStopped) {
  expectTold("fault do=late command=3 ms=50");
  TestClient client(context_, kSoon);
  std::thread orders([this] {
    EXPECT_TRUE(zel::test::waitUntil([this] { return tell("requests").lines.size() == 1; }));
    expectTold("stop");
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    expectTold("continue");
  });
  const auto outcome = client.send(3);
  orders.join();
  EXPECT_EQ(outcome.code, 0);
  EXPECT_GE(outcome.took.wall, std::chrono::milliseconds(200));
}

TEST_F(ToldBoard, GoesAwayAndComesBack) {
  TestClient client(context_, kSoon);
  TestClient impatient(context_);
  Listener listener(context_, {"1000"});
  const Json::Value kChange = json(R"({"rtsp-tcp-port": 5004})");
  EXPECT_EQ(client.send(2, kChange).code, 0);
  EXPECT_TRUE(listener.waitFor([](const std::string&, const Json::Value&) { return true; }));
  for (int round = 0; round < 2; ++round) {
    expectTold("away");
    expectTold("away");
    EXPECT_EQ(impatient.send(3).code, zel::status::kNotSent);
    expectTold("publish 1000 {}");
    expectTold("drop");
    expectTold("back");
    expectTold("back");
    EXPECT_EQ(at(client.send(0).reply, "stored/rtsp/tcp-port"), 5004);
    std::atomic<bool> heard{false};
    std::thread orders([&] {
      while (!heard && tell("stored rtsp/tcp-port 5004").error.empty()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
      }
    });
    heard = listener.waitFor([](const std::string&, const Json::Value& payload) { return !payload.empty(); });
    EXPECT_TRUE(heard.exchange(true));
    orders.join();
  }
}

TEST_F(ToldBoard, SaysThatItsPortIsTakenWhenItComesBack) {
  expectTold("away");
  {
    zmq::socket_t other(context_, zmq::socket_type::rep);
    ASSERT_TRUE(zel::test::waitUntil([&other] { return zmq_bind(other.handle(), "tcp://127.0.0.1:5556") == 0; }));
    EXPECT_THAT(tell("back").error, HasSubstr("cannot listen on tcp://127.0.0.1:5556"));
    other.set(zmq::sockopt::linger, 0);
  }
  EXPECT_TRUE(zel::test::waitUntil([this] { return tell("back").error.empty(); }));
  TestClient client(context_, kSoon);
  EXPECT_EQ(client.send(3).code, 0);
}

TEST_F(ToldBoard, DropsConnectionsThatComeBack) {
  zmq::socket_t dealer(context_, zmq::socket_type::dealer);
  dealer.set(zmq::sockopt::linger, 0);
  zmq::socket_t monitor(context_, zmq::socket_type::pair);
  zmq_socket_monitor(dealer.handle(), "inproc://dealer", ZMQ_EVENT_DISCONNECTED | ZMQ_EVENT_HANDSHAKE_SUCCEEDED);
  monitor.connect("inproc://dealer");
  monitor.set(zmq::sockopt::rcvtimeo, static_cast<int>(kSoon.count()));
  const auto nextEvent = [&monitor] {
    zmq::message_t event;
    zmq::message_t address;
    std::uint16_t number = 0;
    if (monitor.recv(event) && monitor.recv(address)) std::memcpy(&number, event.data(), sizeof number);
    return number;
  };
  dealer.connect("tcp://127.0.0.1:5556");
  EXPECT_EQ(nextEvent(), ZMQ_EVENT_HANDSHAKE_SUCCEEDED);
  expectTold("drop");
  EXPECT_EQ(nextEvent(), ZMQ_EVENT_DISCONNECTED);
  EXPECT_EQ(nextEvent(), ZMQ_EVENT_HANDSHAKE_SUCCEEDED);
  TestClient client(context_, kSoon);
  EXPECT_EQ(client.send(3).code, 0);
  zmq_socket_monitor(dealer.handle(), nullptr, 0);
}

TEST_F(ToldBoard, ListsTheRequests) {
  TestClient client(context_, kSoon);
  EXPECT_EQ(client.send(3).code, 0);
  expectTold("fault do=refuse status=-9");
  EXPECT_EQ(client.send(2, json(R"({"rtsp-tcp-port": 5004})")).code, -9);
  EXPECT_EQ(client.send(2, json(R"({"rtsp-tcp-port": 0})")).code, -7);
  // The list has a request when it has been answered; the client may know the answer earlier.
  EXPECT_TRUE(zel::test::waitUntil([this] { return tell("requests").lines.size() == 3; }));
  std::vector<std::string> lines;
  for (const std::string& line : tell("requests").lines) {
    Json::Value request = json(line);
    EXPECT_TRUE(request.isMember("ms"));
    request.removeMember("ms");
    lines.push_back(zel::test::text(request));
  }
  EXPECT_THAT(lines, testing::ElementsAre(
                         R"({"command":3,"number":1,"status":0})",
                         R"({"body":{"rtsp-tcp-port":5004},"command":2,"fault":"refuse","number":2,"status":-9})",
                         R"({"body":{"rtsp-tcp-port":0},"command":2,"number":3,"status":-7})"));
  expectTold("requests clear");
  EXPECT_THAT(tell("requests").lines, IsEmpty());
}

// --- sysmgr-sim tell

TEST_F(ToldBoard, IsToldByTheProgram) {
  struct Row {
    std::vector<std::string> words;
    int status;
    const char* error;
  };
  const Row kRows[] = {
      {{"dynamic", "temperature/fpga", "-3"}, 0, ""},
      {{"fault", "do=refuse text=\"not today\" status=-9 command=6"}, 0, ""},
      {{"stored", "{\"rtsp\":\n {\"tcp-port\": 5004}}"}, 0, ""},
      {{"requests"}, 0, ""},
      {{"stored", "rtsp/tcp-port", "0"}, 1, "sysmgr-sim: \"rtsp/tcp-port\" is 0, which is out of range: 1 to 65535.\n"},
      {{"dance"}, 2, "sysmgr-sim: \"dance\" is not an order\n"},
      {{}, 2, "sysmgr-sim: an order is missing\n"},
  };
  for (const Row& row : kRows) {
    std::vector<std::string> words = {"tell", "--control", path()};
    words.insert(words.end(), row.words.begin(), row.words.end());
    ChildProcess told = startBoard(words);
    EXPECT_EQ(told.wait(), row.status);
    EXPECT_EQ(told.errors(), row.error);
  }
  TestClient client(context_, kSoon);
  EXPECT_EQ(at(client.send(1).reply, "dynamic/temperature/fpga"), -3);
  EXPECT_EQ(at(client.send(0).reply, "stored/rtsp/tcp-port"), 5004);
  EXPECT_EQ(client.send(6).code, -9);
  EXPECT_EQ(client.lastError().text, "not today");
}

TEST_F(ToldBoard, IsFoundByTheEnvironment) {
  ChildProcess without = startBoard({"tell", "requests"});
  EXPECT_EQ(without.wait(), 2);
  EXPECT_THAT(without.errors(), HasSubstr("--control PATH is missing"));
  setenv("SYSMGR_SIM_CONTROL", path().c_str(), 1);
  ChildProcess with = startBoard({"tell", "requests"});
  unsetenv("SYSMGR_SIM_CONTROL");
  EXPECT_EQ(with.wait(), 0);
}

TEST(Tell, SaysThatNobodyTakesOrders) {
  const TemporaryFolder folder;
  for (const std::string& path : {folder.file("none"), std::string(200, 'x'), std::string("/")}) {
    ChildProcess told = startBoard({"tell", "--control", path, "stop"});
    EXPECT_EQ(told.wait(), 1) << path;
    EXPECT_THAT(told.errors(), StartsWith("sysmgr-sim: "));
    EXPECT_THAT(told.errors(), HasSubstr(path.substr(0, 100)));
  }
}

TEST(Tell, ListsTheOrdersInItsHelp) {
  ChildProcess help = startBoard({"tell", "--help"});
  EXPECT_EQ(help.wait(), 0);
  EXPECT_THAT(help.output(), HasSubstr(zel::sim::Order::help()));
}

// --- the socket's file

TEST_F(ToldBoard, MakesASocketForItsOwnerOnlyAndRemovesIt) {
  struct stat facts = {};
  ASSERT_EQ(lstat(path().c_str(), &facts), 0);
  EXPECT_EQ(facts.st_mode, static_cast<mode_t>(S_IFSOCK | 0600));
  board_.signal(SIGTERM);
  EXPECT_EQ(board_.wait(), 0);
  EXPECT_NE(lstat(path().c_str(), &facts), 0);
}

TEST_F(ToldBoard, ReplacesASocketThatNobodyListensOn) {
  board_.kill();
  ASSERT_TRUE(std::filesystem::exists(path()));
  ChildProcess next = startBoard({"--control", path()});
  ASSERT_TRUE(next.waitForOutput(kReady));
  expectTold("requests");
}

TEST(ControlSocketFile, IsRefusedWhereSomethingElseIs) {
  const TemporaryFolder folder;
  std::ofstream(folder.file("file")) << "kept";
  std::filesystem::create_symlink("nowhere", folder.file("link"));
  std::filesystem::create_directory(folder.file("folder"));
  ASSERT_EQ(mkfifo(folder.file("fifo").c_str(), 0600), 0);
  const std::pair<std::string, const char*> kRows[] = {
      {folder.file("file"), "is there already, and is not a socket"},
      {folder.file("link"), "is there already, and is not a socket"},
      {folder.file("folder"), "is there already, and is not a socket"},
      {folder.file("fifo"), "is there already, and is not a socket"},
      {folder.file("none") + "/control", "No such file"},
      {folder.file(std::string(200, 'x')), "cannot be the path of a socket"},
  };
  for (const auto& [path, why] : kRows) {
    ChildProcess board = startBoard({"--control", path});
    EXPECT_EQ(board.wait(), 1) << path;
    EXPECT_THAT(board.errors(), HasSubstr(why));
    EXPECT_THAT(board.output(), IsEmpty());
  }
  std::string content;
  std::ifstream(folder.file("file")) >> content;
  EXPECT_EQ(content, "kept");
}

TEST(ControlSocketFile, BelongsToTheProcessThatListens) {
  const TemporaryFolder folder;
  zel::sim::ControlSocket first;
  ASSERT_THAT(first.open(folder.file("control")), IsEmpty());
  {
    zel::sim::ControlSocket second;
    EXPECT_THAT(second.open(folder.file("control")), HasSubstr("another process listens on it"));
  }
  EXPECT_TRUE(std::filesystem::exists(folder.file("control")));
}

// --- hostile clients

/// A client of the control socket that may send whatever it likes.
class LooseClient {
 public:
  explicit LooseClient(const std::string& path) : descriptor_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    timeval limit = {};
    limit.tv_sec = std::chrono::duration_cast<std::chrono::seconds>(kSoon).count();
    setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    setsockopt(descriptor_, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    EXPECT_EQ(connect(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }
  ~LooseClient() { close(descriptor_); }
  LooseClient(const LooseClient&) = delete;
  LooseClient& operator=(const LooseClient&) = delete;

  /// @return how much of it was taken
  std::size_t send(const std::string& bytes, int flags = 0) const {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
      const ssize_t count = ::send(descriptor_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL | flags);
      if (count < 0) break;
      sent += static_cast<std::size_t>(count);
    }
    return sent;
  }
  void endSending() const { shutdown(descriptor_, SHUT_WR); }
  /// @return everything up to the end of the connection
  std::string rest() const {
    std::string text;
    char piece[4096];
    for (ssize_t count; (count = recv(descriptor_, piece, sizeof piece, 0)) > 0;) {
      text.append(piece, static_cast<std::size_t>(count));
    }
    return text;
  }

 private:
  int descriptor_;
};

TEST_F(ToldBoard, AnswersEachLineOfAClient) {
  const LooseClient client(path());
  client.send("stop\r\ncontin");
  client.send("ue\n\ndance\nfaults clear\nrequests");
  client.endSending();
  EXPECT_EQ(client.rest(),
            "ok 0\nok 0\nnot-understood an order is missing\nnot-understood \"dance\" is not an order\nok 0\n");
}

TEST_F(ToldBoard, OutlivesEveryKindOfClient) {
  const long before = zel::test::residentKiB(board_.pid());
  std::string binary;
  for (int i = 0; i < 100000; ++i) binary += static_cast<char>(i * 7919 >> 3);
  {
    const LooseClient bytes(path());
    bytes.send(binary + "\n");
    bytes.endSending();
    EXPECT_THAT(bytes.rest(), StartsWith("not-understood "));

    const LooseClient endless(path());
    EXPECT_LT(endless.send(std::string(std::size_t{64} << 20U, 'x')), std::size_t{32} << 20U);

    const LooseClient longLine(path());
    longLine.send(std::string(zel::sim::ControlSocket::kLongestLine + 1, 'x'));
    EXPECT_EQ(longLine.rest(), "not-understood the line is too long\n");

    for (int i = 0; i < 100; ++i) {  // asks and goes
      const LooseClient hasty(path());
      hasty.send("requests\ndynamic {}\n");
    }
    const LooseClient greedy(path());  // asks and does not read
    std::string many;
    for (int i = 0; i < 20000; ++i) many += "dance\n";
    for (int i = 0; i < 10; ++i) greedy.send(many, MSG_DONTWAIT);
  }
  expectTold("requests");
  TestClient client(context_, kSoon);
  EXPECT_EQ(client.send(3).code, 0);
  zel::test::expectFlatMemory(before, zel::test::residentKiB(board_.pid()), 32L * 1024);
}

TEST_F(ToldBoard, LeavesTheMostSilentOfTooManyClients) {
  std::vector<std::unique_ptr<LooseClient>> halfOpen;
  for (int i = 0; i < 100; ++i) {
    halfOpen.push_back(std::make_unique<LooseClient>(path()));
    halfOpen.back()->send("sto");
  }
  expectTold("requests");
  EXPECT_EQ(halfOpen.front()->rest(), "");
  board_.signal(SIGTERM);
  EXPECT_EQ(board_.wait(), 0);
}

// --- scripts

TEST(SysmgrSimScript, CarriesOrdersOutInTheirTime) {
  const TemporaryFolder folder;
  std::ofstream(folder.file("script")) << "# eth0 gets another address, then PTP is lost\n"
                                          "dynamic temperature/fpga 1\n"
                                          "after request 3 dynamic temperature/fpga 2\n"
                                          "after 100ms dynamic temperature/fpga 3\n"
                                          "dynamic eth-basics/eth0/ip 10.0.0.9\n"
                                          "after request any fault do=refuse status=-9\n"
                                          "dynamic eth-basics/eth7/ip 10.0.0.9\n";
  ChildProcess board = startBoard({"--script", folder.file("script")});
  ASSERT_TRUE(board.waitForOutput(kReady));
  zmq::context_t context;
  TestClient client(context, kSoon);
  Listener listener(context, {"1001"});
  const auto degrees = [&] { return at(client.send(1).reply, "dynamic/temperature/fpga").asInt(); };
  EXPECT_EQ(degrees(), 1);  // request 1 is not waited for
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(client.send(3).code, 0);
  EXPECT_TRUE(listener.waitFor(
      [](const std::string&, const Json::Value& payload) { return at(payload, "temperature/fpga") == 2; }));
  EXPECT_TRUE(listener.waitFor([](const std::string&, const Json::Value& payload) {
    return at(payload, "temperature/fpga") == 3 && at(payload, "eth-basics")[0]["ip"] == "10.0.0.9";
  }));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));
  EXPECT_EQ(degrees(), 3);
  EXPECT_EQ(client.send(3).code, -9);
  EXPECT_TRUE(zel::test::waitUntil([&] {
    return board.errors().find(folder.file("script") + ", line 7: dynamic eth-basics/eth7/ip: there is no") !=
           std::string::npos;
  }));
}

TEST(SysmgrSimScript, WaitsForTheTimesSinceTheStart) {
  const TemporaryFolder folder;
  std::ofstream(folder.file("script")) << "at 0.2s dynamic temperature/fpga 1\nat 400ms dynamic temperature/fpga 2\n";
  const auto start = std::chrono::steady_clock::now();
  ChildProcess board = startBoard({"--script", folder.file("script")});
  ASSERT_TRUE(board.waitForOutput(kReady));
  zmq::context_t context;
  TestClient client(context, kSoon);
  EXPECT_TRUE(zel::test::waitUntil([&] { return at(client.send(1).reply, "dynamic/temperature/fpga").asInt() == 2; }));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(400));
}

TEST(SysmgrSimScript, EndsConnectionsBehindTheAnswerThatItWaitsFor) {
  constexpr int kRounds = 4;
  const TemporaryFolder folder;
  {
    std::ofstream script(folder.file("script"));
    for (int round = 0; round < kRounds; ++round) {
      script << "after request 2 away\nafter 20ms back\nafter request 2 drop\n";
    }
  }
  ChildProcess board = startBoard({"--script", folder.file("script")});
  ASSERT_TRUE(board.waitForOutput(kReady));
  zmq::context_t context;
  for (int round = 0; round < 2 * kRounds; ++round) {
    TestClient client(context, std::chrono::seconds(2));
    EXPECT_EQ(client.send(2, json(R"({"rtsp-tcp-port": 5004})")).code, 0) << "round " << round;
    std::this_thread::sleep_for(std::chrono::milliseconds(250));  // until the connections have been ended
  }
}

TEST(SysmgrSimScript, IsCheckedAsAWholeBeforeTheStart) {
  const TemporaryFolder folder;
  const std::pair<const char*, const char*> kRows[] = {
      {"stop\n\nat 1s dance\n", ", line 3: \"dance\" is not an order"},
      {"at 1h stop\n", ", line 1: \"1h\" is not a time"},
      {"at 3s dynamic eth-basics/eth9/ip 10.0.0.1\n", ", line 1: dynamic eth-basics/eth9/ip: there is no \"eth9\""},
  };
  for (const auto& [text, why] : kRows) {
    std::ofstream(folder.file("script")) << text;
    ChildProcess board = startBoard({"--script", folder.file("script")});
    EXPECT_EQ(board.wait(), 1);
    EXPECT_THAT(board.errors(), HasSubstr(folder.file("script") + why));
    EXPECT_THAT(board.output(), IsEmpty());
  }
}

}  // namespace
