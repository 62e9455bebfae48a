#include "simulator/background_simulator.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "client/endpoints.h"
#include "client/sysmgr_client.h"
#include "common/error_aux_msg.h"
#include "tests/common/test_client.h"
#include "tests/simulator/json_text.h"
#include "tests/simulator/listener.h"
#include "tests/simulator/raw_connection.h"
#include "tests/simulator/temporary_folder.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using zel::sim::BackgroundSimulator;
using zel::sim::BoardOptions;
using zel::test::at;
using zel::test::json;
using zel::test::kSoon;
using zel::test::Listener;
using zel::test::RawConnection;
using zel::test::TemporaryFolder;
using zel::test::TestClient;
namespace settings = zel::settings;

/// What a call throws; empty: nothing.
template <class Exception, class Call>
std::string thrownBy(Call call) {
  try {
    call();
  } catch (const Exception& error) {
    return error.what();
  }
  return {};
}

/// Waits for the notification that holds a value.
bool sees(Listener& listener, const std::string& topic, const std::string& path, const Json::Value& value) {
  return listener.waitFor([&](const std::string& name, const Json::Value& payload) {
    return name == topic && zel::test::text(at(payload, path)) == zel::test::text(value);
  });
}

class Kit : public testing::Test {
 protected:
  BackgroundSimulator board_;
  zmq::context_t context_;
  TestClient client_{context_, kSoon};
};

TEST_F(Kit, IsReadyWhenItIsConstructed) { EXPECT_EQ(client_.send(3).reply["board-model"]["model"], "ORVEN_AES67"); }

TEST_F(Kit, ChangesATypedSettingAndPublishesIt) {
  Listener listener(context_, {"1000"});
  ASSERT_TRUE(board_.waitForSubscription(1000));
  board_.set(settings::kRtspTcpPort, 5004);
  board_.set(settings::kRtspEthPort, "eth1");
  board_.set(settings::kNmosSlotId, 7);
  board_.set(settings::kVideoTimingMode, VideoTimingParameters::TIMING_MODE_2059);
  board_.set(settings::kSapEnable, true);

  EXPECT_TRUE(sees(listener, "1000", "rtsp/tcp-port", 5004));
  EXPECT_TRUE(sees(listener, "1000", "sap/enable", true));
  EXPECT_EQ(at(client_.send(0).reply, "stored/videoTimingParameters/timing-mode"), "2059");
  EXPECT_EQ(board_.get(settings::kRtspTcpPort), 5004U);
  EXPECT_EQ(board_.get(settings::kRtspEthPort), "eth1");
  EXPECT_EQ(board_.stored().nmos.slotId, 7);
}

TEST_F(Kit, SeesWhatTheApplicationHasSet) {
  SysMgrClient application;
  ASSERT_EQ(application.init(context_), 0);
  ASSERT_EQ(application.setEmberTcpPort(9000), 0);
  EXPECT_EQ(board_.get(settings::kEmberTcpPort), 9000U);
  ASSERT_EQ(application.setEmberTcpPort(70000), -7);

  const std::vector<BackgroundSimulator::Request> requests = board_.requests();
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_EQ(requests[0].command, 2U);
  EXPECT_EQ(requests[0].body, json(R"({"ember-tcp-port": 9000})"));
  EXPECT_EQ(requests[0].status, 0);
  EXPECT_EQ(requests[1].status, -7);
  board_.forgetRequests();
  EXPECT_TRUE(board_.requests().empty());
  EXPECT_FALSE(board_.waitForRequest(2, 20ms));
}

TEST_F(Kit, WaitsForASubscription) {
  EXPECT_FALSE(board_.waitForSubscription(1001, 20ms));
  SubscribeJsonClient client(context_);
  ASSERT_EQ(client.connect(board_.notificationEndpoint()), 0);
  ASSERT_EQ(client.subscribe("1001"), 0);
  EXPECT_TRUE(board_.waitForSubscription(1001));
  EXPECT_FALSE(board_.waitForSubscription(1000, 20ms));
  board_.stopListening();
  EXPECT_FALSE(board_.waitForSubscription(1001, 20ms));
  board_.startListening();
  PollFds fds;
  ASSERT_EQ(client.getPollItems(fds), 0);
  EXPECT_TRUE(zel::test::waitUntil([&] {  // a client's socket subscribes again while it is used
    fds.poll(1);
    return board_.waitForSubscription(1001, 0ms);
  }));
}

TEST_F(Kit, WaitsForARequest) {
  std::thread application([&] {
    std::this_thread::sleep_for(30ms);
    client_.send(4);
  });
  EXPECT_TRUE(board_.waitForRequest(4));
  application.join();
}

TEST_F(Kit, TakesTheLongestDurations) {
  constexpr auto kLongest = std::chrono::milliseconds::max();
  std::thread later([&] {
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(client_.send(2, json(R"({"rtsp-tcp-port": 5004})")).code, 0);
  });
  EXPECT_TRUE(board_.waitForRequest(2, kLongest));
  later.join();
  EXPECT_FALSE(board_.waitForRequest(6, std::chrono::milliseconds::min()));

  std::thread subscriber([&] {
    std::this_thread::sleep_for(50ms);
    Listener listener(context_, {"1000"});
    EXPECT_TRUE(board_.waitForSubscription(1000));
  });
  EXPECT_TRUE(board_.waitForSubscription(1000, kLongest));
  subscriber.join();

  board_.away(kLongest);
  std::this_thread::sleep_for(100ms);
  TestClient impatient(context_, 50ms);
  EXPECT_EQ(impatient.send(0).code, -102);
}

TEST(KitOfABoard, TakesTheLongestLiveInterval) {
  BoardOptions options;
  options.liveInterval = std::chrono::milliseconds::max();
  BackgroundSimulator board(options);
  const Json::Value before = board.document("dynamic");
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(board.document("dynamic"), before);
}

TEST_F(Kit, GivesAnInterfaceAnotherAddress) {
  Listener listener(context_, {"1001"});
  ASSERT_TRUE(board_.waitForSubscription(1001));
  board_.setInterfaceAddress("eth0", "10.0.0.9");
  EXPECT_TRUE(sees(listener, "1001", "eth-basics", board_.document("dynamic")["eth-basics"]));
  EXPECT_EQ(board_.dynamic().ethBasics.front().ip, 0x0A000009U);
  EXPECT_TRUE(board_.dynamic().ethBasics.front().ipPresent);
  board_.setInterfaceAddress("eth0", "0.0.0.0");
  EXPECT_FALSE(board_.dynamic().ethBasics.front().ipPresent);
}

TEST_F(Kit, ChangesADynamicValueByItsPath) {
  Listener listener(context_, {"1001"});
  ASSERT_TRUE(board_.waitForSubscription(1001));
  board_.setDynamic("temperature/fpga", 91);
  EXPECT_TRUE(sees(listener, "1001", "temperature/fpga", 91));
  board_.setDynamic("eth-basics/eth2/ip-present", false);
  EXPECT_EQ(client_.send(1).reply["dynamic"]["eth-basics"][2]["ip-present"], false);
}

TEST_F(Kit, ChangesEveryOtherDocument) {
  Listener listener(context_, {"1001", "1004"});
  ASSERT_TRUE(board_.waitForSubscription(1001));
  board_.setValue("network", "ptp/state", "listening");
  EXPECT_EQ(at(client_.send(4).reply, "network-stack-status/ptp/state"), "listening");
  board_.setValue("modules", "ptp", json(R"({"error": true, "warn": false})"));
  EXPECT_TRUE(sees(listener, "1001", "errors", json(R"([{"code": 1, "description": "ptp reports an error"}])")));
  board_.setValue("whitelist", "0", json(R"({"ip": "239.1.0.0", "mask": "255.255.0.0", "enabled": true})"));
  EXPECT_EQ(client_.send(16).reply["white-list"].size(), 4U);
  board_.publish(1004, "not JSON");
  board_.publish(1002, "");
}

TEST_F(Kit, RefusesAsTheBoardDoesAndChangesNothing) {
  const Json::Value stored = board_.document("stored");
  const Json::Value dynamic = board_.document("dynamic");
  using Invalid = std::invalid_argument;
  EXPECT_THAT(thrownBy<Invalid>([&] { board_.set(settings::kRtspTcpPort, 70000); }), HasSubstr("1 to 65535"));
  EXPECT_THAT(thrownBy<Invalid>([&] { board_.setDynamic("temperature/fgpa", 1); }), HasSubstr("temperature/fgpa"));
  EXPECT_THAT(thrownBy<Invalid>([&] { board_.setDynamic("temperature/fpga", "hot"); }), HasSubstr("\"hot\""));
  EXPECT_THAT(thrownBy<Invalid>([&] { board_.setInterfaceAddress("eth0", "10.0.0"); }), HasSubstr("10.0.0"));
  EXPECT_THAT(thrownBy<Invalid>([&] { board_.setInterfaceAddress("eth9", "10.0.0.1"); }), HasSubstr("eth9"));
  EXPECT_THAT(thrownBy<Invalid>([&] { board_.setValue("sotred", "x", 1); }), HasSubstr("sotred"));
  EXPECT_THAT(thrownBy<Invalid>([&] { board_.document("sotred"); }), HasSubstr("sotred"));
  EXPECT_THAT(thrownBy<Invalid>([&] { board_.misbehave("do=dance"); }), HasSubstr("do=dance"));
  EXPECT_THAT(thrownBy<Invalid>([&] { board_.misbehave("do=crash-before"); }), HasSubstr("away()"));
  EXPECT_EQ(board_.document("stored"), stored);
  EXPECT_EQ(board_.document("dynamic"), dynamic);
  EXPECT_EQ(client_.send(3).code, 0);
}

TEST_F(Kit, MisbehavesUntilItIsToldToBehave) {
  board_.misbehave("do=refuse status=-50 times=always");
  EXPECT_EQ(client_.send(0).code, -50);
  EXPECT_EQ(board_.requests().back().fault, "refuse");
  board_.behave();
  EXPECT_EQ(client_.send(0).code, 0);
}

TEST_F(Kit, StopsAnsweringAndGoesOn) {
  board_.stopAnswering();
  TestClient impatient(context_, 50ms);
  EXPECT_EQ(impatient.send(0).code, -103);
  std::thread later([&] {
    std::this_thread::sleep_for(50ms);
    board_.continueAnswering();
  });
  EXPECT_EQ(client_.send(0).code, 0);
  later.join();
}

TEST_F(Kit, DropsEveryConnection) {
  const RawConnection requests(5556);
  const RawConnection notifications(5575);
  ASSERT_EQ(client_.send(0).code, 0);  // the board has accepted them
  board_.dropConnections();
  EXPECT_TRUE(requests.isClosed());
  EXPECT_TRUE(notifications.isClosed());
  TestClient next(context_, kSoon);
  EXPECT_EQ(next.send(0).code, 0);
}

TEST_F(Kit, EndsConnectionsBehindTheAnswersOfServedRequests) {
  const std::function<void()> kEnds[] = {[this] { board_.dropConnections(); }, [this] { board_.away(1ms); },
                                         [this] {
                                           board_.stopListening();
                                           board_.startListening();
                                         }};
  for (int round = 0; round < 15; ++round) {
    board_.forgetRequests();
    TestClient client(context_, 2000ms);
    std::thread test([&] {
      EXPECT_TRUE(board_.waitForRequest(2));
      kEnds[round % 3]();
    });
    EXPECT_EQ(client.send(2, json(R"({"rtsp-tcp-port": 5004})")).code, 0) << "round " << round;
    test.join();
  }
}

TEST_F(Kit, IsAwayAndComesBackWithItsState) {
  board_.set(settings::kRtspTcpPort, 5004);
  const auto start = std::chrono::steady_clock::now();
  board_.away(300ms);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 300ms);
  TestClient impatient(context_, 50ms);
  EXPECT_EQ(impatient.send(0).code, -102);

  TestClient patient(context_, kSoon);
  EXPECT_EQ(at(patient.send(0).reply, "stored/rtsp/tcp-port"), 5004);
  EXPECT_GE(std::chrono::steady_clock::now() - start, 300ms);
}

TEST_F(Kit, LosesTheRequestsThatWaitWhenItLeaves) {
  board_.stopAnswering();
  TestClient impatient(context_, 100ms);
  EXPECT_EQ(impatient.send(2, json(R"({"rtsp-tcp-port": 5004})")).code, -103);
  board_.misbehave("do=delay ms=100 command=6");
  board_.stopListening();
  board_.stopListening();
  board_.continueAnswering();
  board_.set(settings::kSapEnable, true);  // the state is still there
  board_.startListening();
  board_.startListening();
  TestClient patient(context_, kSoon);
  EXPECT_EQ(at(patient.send(0).reply, "stored/rtsp/tcp-port"), 8554);
  EXPECT_EQ(at(patient.send(0).reply, "stored/sap/enable"), true);
}

TEST_F(Kit, LeavesTheErrorMessagesOfTheApplicationAlone) {
  ErrorAuxMsg::getInstance()->clear();
  ErrorAuxMsg::getInstance()->addMessage("the application's %s", "own");
  const auto answer = client_.send(2, json(R"({"add-eth-cfg": {"eth": "eth1", "static": {"ip": "127.0.0.1"}}})"));
  EXPECT_EQ(answer.reply["aux-errors"], json(R"(["Interface IP cannot be set as the local host 127.0.0.1"])"));
  EXPECT_THAT(ErrorAuxMsg::getInstance()->getMessages(), ElementsAre("the application's own"));
  ErrorAuxMsg::getInstance()->clear();
}

TEST(KitOfABoard, StartsWithAModelAndAState) {
  BoardOptions options;
  options.model = "ZIRC";
  options.state = json(R"({"stored": {"rtsp": {"tcp-port": 5004}}})");
  std::vector<std::string> lines;
  options.trace = [&](const std::string& line) { lines.push_back(line); };
  {
    const BackgroundSimulator board(options);
    EXPECT_EQ(board.document("model")["model"], "ZIRC");
    EXPECT_EQ(board.get(settings::kRtspTcpPort), 5004U);
    zmq::context_t context;
    TestClient client(context, kSoon);
    EXPECT_EQ(client.send(3).code, 0);
  }
  EXPECT_THAT(lines, ElementsAre(HasSubstr("GET Board Model")));
}

TEST(KitOfABoard, SaysWhyItCannotStart) {
  BoardOptions options;
  options.model = "KORWA";
  EXPECT_THAT(thrownBy<std::invalid_argument>([&] { const BackgroundSimulator board(options); }), HasSubstr("KORWA"));
  options = {};
  options.state = json(R"({"stored": {"rtsp": {"tcp-prot": 1}}})");
  EXPECT_THAT(thrownBy<std::invalid_argument>([&] { const BackgroundSimulator board(options); }),
              HasSubstr("rtsp/tcp-prot"));
  options = {};
  options.storeFile = "/no/such/folder/store";
  EXPECT_THAT(thrownBy<std::runtime_error>([&] { const BackgroundSimulator board(options); }), HasSubstr("/no/such"));
  const BackgroundSimulator first;
  EXPECT_THAT(thrownBy<std::runtime_error>([] { const BackgroundSimulator second; }),
              HasSubstr("Address already in use"));
}

TEST(KitOfABoard, KeepsItsStateForTheNextOne) {
  const TemporaryFolder folder;
  BoardOptions options;
  options.storeFile = folder.file("store");
  { BackgroundSimulator(options).set(settings::kRtspTcpPort, 5004); }
  EXPECT_EQ(BackgroundSimulator(options).get(settings::kRtspTcpPort), 5004U);
}

// --- endpoints of its own

BoardOptions onFreePorts() {
  BoardOptions options;
  options.requests = options.notifications = "tcp://127.0.0.1:*";
  return options;
}

BoardOptions inFolder(const TemporaryFolder& folder, const std::string& name) {
  BoardOptions options;
  options.requests = "ipc://" + folder.file(name + "-requests");
  options.notifications = "ipc://" + folder.file(name + "-notifications");
  return options;
}

/// Expects a board to answer the clients of this process, to be followed by their cache, and to come back.
void expectUsable(BackgroundSimulator& board) {
  zel::useEndpoints(board.requestEndpoint(), board.notificationEndpoint());
  zmq::context_t context;
  SysMgrClient client;
  ASSERT_EQ(client.init(context), 0);
  Listener listener(context, {"1000"});
  EXPECT_EQ(client.setRtspTcpPort(6000), 0);
  EXPECT_TRUE(sees(listener, "1000", "rtsp/tcp-port", 6000));
  EXPECT_EQ(board.get(settings::kRtspTcpPort), 6000U);

  board.stopListening();
  board.startListening();
  SysMgrClient again;
  ASSERT_EQ(again.init(context), 0);
  EXPECT_EQ(again.setRtspTcpPort(6001), 0);
  EXPECT_EQ(board.get(settings::kRtspTcpPort), 6001U);
}

TEST(KitWithEndpoints, HasSeveralBoardsInOneProcess) {
  const TemporaryFolder folder;
  const BackgroundSimulator fixed;
  BackgroundSimulator one(onFreePorts());
  BackgroundSimulator other(onFreePorts());
  BackgroundSimulator third(inFolder(folder, "third"));
  EXPECT_NE(one.requestEndpoint(), other.requestEndpoint());
  for (BackgroundSimulator* const board : {&one, &other, &third}) expectUsable(*board);
  EXPECT_EQ(fixed.get(settings::kRtspTcpPort), 8554U);
}

TEST(KitWithEndpoints, ListensWhereTheClientsOfTheProcessConnect) {
  const TemporaryFolder folder;
  zel::useEndpoints("ipc://" + folder.file("q"), "ipc://" + folder.file("n"));
  const BackgroundSimulator board;
  EXPECT_EQ(board.requestEndpoint(), "ipc://" + folder.file("q"));
  zmq::context_t context;
  SysMgrClient client;
  ASSERT_EQ(client.init(context), 0);
  EXPECT_EQ(client.setSapSupport(true), 0);
}

TEST(KitWithEndpoints, LeavesNoFileOfASocket) {
  const TemporaryFolder folder;
  { const BackgroundSimulator board(inFolder(folder, "a")); }
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(KitWithEndpoints, TakesThePlaceOfASocketThatIsLeftOver) {
  const TemporaryFolder folder;
  std::filesystem::path kept = folder.file("kept");
  {
    const BackgroundSimulator board(inFolder(folder, "a"));
    std::filesystem::rename(folder.file("a-requests"), kept);
  }
  std::filesystem::rename(kept, folder.file("a-requests"));  // as the process of a board leaves it that was killed
  const BackgroundSimulator board(inFolder(folder, "a"));
}

TEST(KitWithEndpoints, LeavesAnotherBoardsSocketAndOtherFilesAlone) {
  const TemporaryFolder folder;
  const BackgroundSimulator first(inFolder(folder, "a"));
  EXPECT_THAT(thrownBy<std::runtime_error>([&] { const BackgroundSimulator second(inFolder(folder, "a")); }),
              HasSubstr("another process listens on it"));
  zel::useEndpoints(first.requestEndpoint(), first.notificationEndpoint());
  zmq::context_t context;
  SysMgrClient client;
  ASSERT_EQ(client.init(context), 0);
  EXPECT_EQ(client.setSapSupport(true), 0);

  std::ofstream(folder.file("b-requests")) << "precious";
  EXPECT_THAT(thrownBy<std::runtime_error>([&] { const BackgroundSimulator second(inFolder(folder, "b")); }),
              HasSubstr("is not a socket"));
  std::string text;
  std::ifstream(folder.file("b-requests")) >> text;
  EXPECT_EQ(text, "precious");
}

}  // namespace
