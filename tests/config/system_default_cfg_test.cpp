#include "config/system_default_cfg.h"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <sstream>
#include <thread>

#include "client/zmq_utils.h"
#include "common/status.h"
#include "tests/support/captured_log.h"
#include "tests/support/child_process.h"
#include "tests/support/fake_board.h"
#include "tests/support/leaks.h"
#include "tests/support/stopwatch.h"
#include "tests/support/wait_until.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using zel::test::CapturedLog;
using zel::test::checkLinePattern;
using zel::test::ChildProcess;
using zel::test::FakeBoard;
using zel::test::json;
using zel::test::kSlowdown;
using zel::test::kSoon;
using zel::test::LogLine;
using zel::test::timeOf;
using zel::test::waitUntil;

// Every test is the first to use the cache: ctest runs each in a process of its own.
SystemDefaultCfg& cache() { return SystemDefaultCfg::getInstance(); }

unsigned int rtspPort() {
  unsigned int port = 0;
  EXPECT_EQ(cache().getRtspTcpPort(&port), 0);
  return port;
}

std::vector<std::string> whitelist() {
  std::vector<std::string> texts;
  for (const WhiteListEntry& entry : cache().getMulticastWhiteList()) texts.push_back(entry.getIpStr());
  return texts;
}

std::string checkLine(const std::string& signature, int code) { return checkLinePattern(signature, code); }

// ---- construction

TEST(SystemDefaultCfg, FetchesEverythingWhenItIsMade) {
  FakeBoard board;
  board.set(FakeBoard::kStored, R"({"rtsp": {"tcp-port": 5004}})");
  board.set(FakeBoard::kDynamic, R"({"eth-basics": [{"name": "eth0", "mac": "0123456789ab"}]})");
  board.set(FakeBoard::kBoardModel, R"({"model": "KORVA", "module": "SDI-ST2110"})");
  board.set(FakeBoard::kWhitelist, R"([{"ip": "239.1.1.1"}, {"ip": "232.0.0.0"}])");
  EXPECT_TRUE(cache().isInitialized());
  EXPECT_THAT(board.asked(), ElementsAre("0", "1", "3", "16"));

  EXPECT_EQ(rtspPort(), 5004u);
  std::string name;
  EXPECT_EQ(cache().getAdvertisementBoardName(&name), 0);
  EXPECT_EQ(name, "Velmar ORVEN0123456789ab");
  EXPECT_EQ(cache().getBoardModel().model, BoardModelType::KORVA);
  EXPECT_THAT(whitelist(), ElementsAre("239.1.1.1", "232.0.0.0"));
}

TEST(SystemDefaultCfg, LogsEachStep) {
  FakeBoard board;
  board.set(FakeBoard::kBoardModel, R"({"model": "ORVEN_TESSA"})");
  CapturedLog log;
  cache();
  EXPECT_THAT(
      log.lines(),
      ElementsAre(
          LogLine{5, "SystemDefaultCfg singleton being created ..."},
          LogLine{5, "ZmqUtils: initializing ZMQ Context ..."}, LogLine{6, "SystemDefaultCfg zmq context initialized"},
          LogLine{6, "SystemDefaultCfg stored parameters retrieved"},
          LogLine{6, "SystemDefaultCfg dynamic parameters retrieved"}, LogLine{5, "BoardModel::setModel - ORVEN_TESSA"},
          LogLine{6, "SystemDefaultCfg board model retrieved"}, LogLine{5, "SystemDefaultCfg INITIALIZATION SUCCESS"},
          LogLine{6, "SystemDefaultCfg whitelist entry retrieved"}, LogLine{5, "SystemDefaultCfg singleton created"}));
}

TEST(SystemDefaultCfg, IsMadeOnce) {
  FakeBoard board;
  CapturedLog log;
  SystemDefaultCfg* made[2] = {};
  std::thread other([&] { made[0] = &cache(); });
  made[1] = &cache();
  other.join();
  EXPECT_EQ(made[0], made[1]);
  EXPECT_EQ(&cache(), made[0]);
  EXPECT_EQ(board.asked().size(), 4u);
  const std::vector<std::string> texts = log.texts(5);
  EXPECT_EQ(std::count(texts.begin(), texts.end(), "SystemDefaultCfg singleton created"), 1);
}

TEST(SystemDefaultCfg, IsMadeWithoutADaemonToo) {
  CapturedLog log;
  EXPECT_LE(timeOf(cache).own, 5050ms + (kSlowdown - 1) * 100ms) << "the time-out of a request and 50 ms";
  EXPECT_FALSE(cache().isInitialized());
  const int code = zel::status::kNotSent;
  EXPECT_THAT(log.texts(2),
              ElementsAre(MatchesRegex(checkLine("int SysMgrJsonClient::getStoredParameters(Json::Value&)", code)),
                          MatchesRegex(checkLine("int SysMgrClient::getStoredParameters(SysParameters&)", code)),
                          MatchesRegex(checkLine("int SystemDefaultCfg::init()", code))));
  EXPECT_THAT(log.texts(6), ElementsAre("SystemDefaultCfg zmq context initialized"));
  EXPECT_THAT(log.texts(5),
              ElementsAre("SystemDefaultCfg singleton being created ...", "ZmqUtils: initializing ZMQ Context ...",
                          "SystemDefaultCfg singleton created"));
  EXPECT_EQ(rtspPort(), 8554u);
  unsigned int port = 0;
  EXPECT_EQ(cache().getAdvertisementTcpPort(&port), 0);
  EXPECT_EQ(port, 80u);

  FakeBoard board;
  board.set(FakeBoard::kStored, R"({"rtsp": {"tcp-port": 5004}})");
  EXPECT_EQ(cache().init(), 0);
  EXPECT_TRUE(cache().isInitialized());
  EXPECT_EQ(rtspPort(), 5004u);
}

TEST(SystemDefaultCfg, IsMadeInAForkedChildWhoseParentWasMakingIt) {
  if (zel::test::kSanitized) GTEST_SKIP() << "a sanitizer's own locks may be held at a fork";
  std::thread maker([] { cache(); });  // waits for a daemon
  std::this_thread::sleep_for(50ms);
  const pid_t child = fork();
  if (child == 0) {
    ZmqUtils::getInstance().resetContext();
    _exit(cache().isInitialized() ? 0 : 3);
  }
  const FakeBoard board;
  int status = 0;
  EXPECT_TRUE(waitUntil([&] { return waitpid(child, &status, WNOHANG) == child; }, 10s));
  kill(child, SIGKILL);
  EXPECT_EQ(status, 0);
  maker.join();
  EXPECT_TRUE(cache().isInitialized());
}

/// The parent goes on following, and so does the child, once it has asked for that.
TEST(SystemDefaultCfg, FollowsInAForkedChildToo) {
  if (zel::test::kThreadSanitizer) GTEST_SKIP() << zel::test::kNoThreadsAfterFork;
  FakeBoard board;
  board.set(FakeBoard::kDynamic, R"({"eth-basics": [{"name": "eth0", "mac": "0123456789ab"}]})");
  PollFds fds;
  ASSERT_EQ(cache().initSubscribers(fds), 0);
  board.set(FakeBoard::kDynamic, R"({"eth-basics": [{"name": "eth0", "mac": "ba9876543210"}]})");
  ChildProcess child = ChildProcess::call([] {
    EthBasicInfo info;
    EXPECT_EQ(cache().getEthDynamicBasicInfo("eth0", info), 0);
    EXPECT_EQ(info.mac, "0123456789ab") << "of the fork";
    ZmqUtils::getInstance().resetContext();
    PollFds own;
    EXPECT_EQ(cache().init(), 0);
    EXPECT_EQ(cache().getEthDynamicBasicInfo("eth0", info), 0);
    EXPECT_EQ(info.mac, "ba9876543210") << "fetched, since it does not follow";
    EXPECT_EQ(cache().initSubscribers(own), 0);
    EXPECT_EQ(own.size(), 1u);
    EXPECT_EQ(cache().init(), 0);
    std::printf("following\n");
    std::fflush(stdout);
    EXPECT_TRUE(waitUntil([&] { return cache().processEvent(own[0]) != 0; }));
    EXPECT_EQ(rtspPort(), 6001u);
    return 0;
  });
  ASSERT_TRUE(child.waitForOutput("following"));
  board.publisher.publish("1000", R"({"rtsp": {"tcp-port": 6001}})");
  EXPECT_EQ(child.wait(), 0) << child.output() << child.errors();
  EXPECT_TRUE(waitUntil([&] { return cache().processEvent(fds[0]) != 0; }));
  EXPECT_EQ(rtspPort(), 6001u);
}

TEST(SystemDefaultCfg, IsMadeWithoutAUsableContextToo) {
  const FakeBoard board;
  ZmqUtils::getInstance().getContext().shutdown();
  CapturedLog log;
  EXPECT_FALSE(cache().isInitialized());
  EXPECT_THAT(log.texts(2),
              ElementsAre(MatchesRegex(checkLine("int SystemDefaultCfg::init()", zel::status::kCannotConnect))));
  EXPECT_THAT(log.texts(6), IsEmpty());
  EXPECT_THAT(board.asked(), IsEmpty());
  EXPECT_EQ(rtspPort(), 8554u);
}

TEST(SystemDefaultCfg, AnswersWithDefaultsUntilItIsInitialized) {
  FakeBoard board;
  board.refuse(FakeBoard::kStored, -5);
  EXPECT_FALSE(cache().isInitialized());

  unsigned int number = 7;
  std::string text = "old";
  float threshold = 7;
  EXPECT_EQ(rtspPort(), 8554u);
  EXPECT_EQ(cache().getAdvertisementTcpPort(&number), 0);
  EXPECT_EQ(number, 80u);
  EXPECT_EQ(cache().getAdvertisementBoardName(&text), 0);
  EXPECT_EQ(text, "") << "the empty prefix of a new record";
  EXPECT_EQ(cache().getAdvertisementIfaceIndex(&number), 0);
  EXPECT_EQ(number, 0xFFFFFFFFu);
  text = "old";
  EXPECT_EQ(cache().getCfgFilePath(&text), 0);
  EXPECT_EQ(text, "");
  EXPECT_EQ(cache().getClockOffsetFromMasterThreshold(threshold), 0);
  EXPECT_EQ(threshold, 30000.0f);
  EXPECT_TRUE(cache().isRedundancyEnable());
  EXPECT_FALSE(cache().isRedundancyDualLinkEnable());
  EXPECT_FALSE(cache().isRedundancySinglePortEnable());
  EXPECT_TRUE(cache().isWalkaboutEnable());
  EXPECT_FALSE(cache().isSapEnable());
  EXPECT_TRUE(cache().isSlpEnable());
  EXPECT_TRUE(cache().isAutosaveEnabled());
  EXPECT_FALSE(cache().pauseStreamsIfPtpIsInFailure());
  EXPECT_THAT(cache().getMulticastWhiteList(), IsEmpty());
  EXPECT_EQ(cache().getBoardModel().model, BoardModelType::BOARD_MODEL_UNDEFINED);
  EXPECT_EQ(cache().getPrimaryVlanTag(), 10);
  EXPECT_EQ(cache().getSecondaryVlanTag(), 20);
  EXPECT_EQ(cache().getTdmChannelsPerLine(), 32u);
  EXPECT_EQ(cache().getNmosParameters().nodePort, 12345);
  VideoTimingParameters timing;
  timing.initBufDelay = 7;
  EXPECT_EQ(cache().getVideoTimingParameters(timing), 0);
  EXPECT_EQ(timing.timingMode, VideoTimingParameters::TIMING_MODE_UNSET);
  EXPECT_EQ(timing.initBufDelay, -1);
}

// ---- init

struct FailingStep {
  const char* id;
  const char* jsonSignature;
  const char* typedSignature;
};
const FailingStep kFailingSteps[] = {
    {FakeBoard::kStored, "int SysMgrJsonClient::getStoredParameters(Json::Value&)",
     "int SysMgrClient::getStoredParameters(SysParameters&)"},
    {FakeBoard::kDynamic, "int SysMgrJsonClient::getDynamicParameters(Json::Value&)",
     "int SysMgrClient::getDynamicParameters(SysParametersDynamic&)"},
    {FakeBoard::kBoardModel, "int SysMgrJsonClient::getBoardModel(Json::Value&)",
     "int SysMgrClient::getBoardModel(BoardModel&)"},
    {FakeBoard::kWhitelist, "int SysMgrJsonClient::getMcastWhitelist(Json::Value&)",
     "int SysMgrClient::getMcastWhitelist(std::list<WhiteListEntry>&)"},
};

class FailingStepTest : public testing::TestWithParam<int> {
 protected:
  FailingStepTest() {
    board.set(FakeBoard::kStored, R"({"rtsp": {"tcp-port": 5004}})");
    board.set(FakeBoard::kDynamic, R"({"eth-basics": [{"name": "eth0", "mac": "0123456789ab"}]})");
    board.set(FakeBoard::kBoardModel, R"({"model": "ZIRC"})");
    board.set(FakeBoard::kWhitelist, R"([{"ip": "239.1.1.1"}])");
    board.refuse(failing().id, -77);
  }
  const FailingStep& failing() const { return kFailingSteps[GetParam()]; }
  FakeBoard board;
};

TEST_P(FailingStepTest, EndsInitAndIsReportedOnceALayer) {
  cache();
  const std::size_t asked = board.asked().size();
  CapturedLog log;
  EXPECT_EQ(cache().init(), -77);
  EXPECT_THAT(log.texts(2), ElementsAre(MatchesRegex(checkLine(failing().jsonSignature, -77)),
                                        MatchesRegex(checkLine(failing().typedSignature, -77)),
                                        MatchesRegex(checkLine("int SystemDefaultCfg::init()", -77))));
  EXPECT_EQ(board.asked().size(), asked + std::size_t(GetParam()) + 1) << "the later steps are not tried";
  EXPECT_EQ(log.texts(6).size(), std::size_t(GetParam()) + 1) << "the connection, and each step before";
}

TEST_P(FailingStepTest, KeepsWhatTheStepsBeforeHaveFetched) {
  std::string name;
  cache().getAdvertisementBoardName(&name);
  const std::size_t done = std::size_t(GetParam());
  EXPECT_EQ(rtspPort(), done > 0 ? 5004u : 8554u);
  EXPECT_EQ(name.find("0123456789ab") != std::string::npos, done > 1);
  EXPECT_EQ(cache().getBoardModel().model, done > 2 ? BoardModelType::ZIRC : BoardModelType::BOARD_MODEL_UNDEFINED);
  EXPECT_EQ(cache().isInitialized(), done > 2) << "the whitelist does not count";
  EXPECT_THAT(whitelist(), IsEmpty());
}

TEST_P(FailingStepTest, MaySucceedLater) {
  cache();
  board.refuse(failing().id, 0);
  EXPECT_EQ(cache().init(), 0);
  EXPECT_TRUE(cache().isInitialized());
  EXPECT_THAT(whitelist(), ElementsAre("239.1.1.1"));
}

TEST_P(FailingStepTest, LeavesTheCacheInitializedOnceItIs) {
  board.refuse(failing().id, 0);
  EXPECT_TRUE(cache().isInitialized());
  board.refuse(failing().id, -77);
  EXPECT_EQ(cache().init(), -77);
  EXPECT_TRUE(cache().isInitialized());
  EXPECT_THAT(whitelist(), ElementsAre("239.1.1.1"));
}

INSTANTIATE_TEST_SUITE_P(SystemDefaultCfg, FailingStepTest, testing::Range(0, 4));

TEST(SystemDefaultCfg, SaysThatItIsInitializedThoughTheWhitelistFails) {
  FakeBoard board;
  board.refuse(FakeBoard::kWhitelist, -77);
  CapturedLog log;
  cache();
  EXPECT_THAT(log.texts(5), testing::Contains("SystemDefaultCfg INITIALIZATION SUCCESS"));
  EXPECT_THAT(log.texts(6), testing::Not(testing::Contains("SystemDefaultCfg whitelist entry retrieved")));
}

TEST(SystemDefaultCfg, TakesAPositiveStatusForSuccess) {
  FakeBoard board;
  for (const char* const id :
       {FakeBoard::kStored, FakeBoard::kDynamic, FakeBoard::kBoardModel, FakeBoard::kWhitelist}) {
    board.refuse(id, 3);
  }
  EXPECT_TRUE(cache().isInitialized());
  EXPECT_EQ(cache().init(), 0);
}

TEST(SystemDefaultCfg, ReplacesTheWhitelistWhenItIsInitializedAgain) {
  FakeBoard board;
  board.set(FakeBoard::kWhitelist, R"([{"ip": "239.1.1.1"}, {"ip": "239.1.1.2"}])");
  std::list<WhiteListEntry>& list = cache().getMulticastWhiteList();
  EXPECT_EQ(cache().init(), 0);
  EXPECT_THAT(whitelist(), ElementsAre("239.1.1.1", "239.1.1.2")) << "not doubled";
  board.set(FakeBoard::kWhitelist, R"([{"ip": "239.1.1.3"}])");
  EXPECT_EQ(cache().init(), 0);
  EXPECT_THAT(whitelist(), ElementsAre("239.1.1.3"));
  board.refuse(FakeBoard::kWhitelist, -5);
  EXPECT_EQ(cache().init(), -5);
  EXPECT_THAT(whitelist(), ElementsAre("239.1.1.3"));
  board.refuse(FakeBoard::kWhitelist, 0);
  board.set(FakeBoard::kWhitelist, "[]");
  EXPECT_EQ(cache().init(), 0);
  EXPECT_THAT(whitelist(), IsEmpty());
  EXPECT_EQ(&list, &cache().getMulticastWhiteList()) << "it is the list itself that is handed out";
}

struct WrongType {
  const char* id;
  const char* document;
  bool initialized;
};

TEST(SystemDefaultCfg, StandsWhenTheFirstAnswerHasAWrongType) {
  const WrongType wrongTypes[] = {{FakeBoard::kStored, R"({"rtsp": {"tcp-port": "many"}})", false},
                                  {FakeBoard::kStored, "[1]", false},
                                  {FakeBoard::kDynamic, R"({"temperature": {"fpga": "hot"}})", false},
                                  {FakeBoard::kBoardModel, R"({"model": {"a": 1}})", false},
                                  {FakeBoard::kWhitelist, R"([{"enabled": "yes"}])", true},
                                  {FakeBoard::kWhitelist, R"({"a": 1})", true}};
  for (const WrongType& wrong : wrongTypes) {
    ChildProcess process = ChildProcess::call([&wrong] {
      FakeBoard board;
      board.set(wrong.id, wrong.document);
      CapturedLog log;
      EXPECT_EQ(cache().isInitialized(), wrong.initialized);
      EXPECT_THAT(log.texts(2),
                  ElementsAre(MatchesRegex(checkLine("int SystemDefaultCfg::init()", zel::status::kBadAnswer))));
      EXPECT_EQ(rtspPort(), 8554u);
      EXPECT_THAT(whitelist(), IsEmpty());
      board.set(wrong.id, "{}");
      EXPECT_EQ(cache().init(), 0);
      EXPECT_TRUE(cache().isInitialized());
      return 0;
    });
    EXPECT_EQ(process.wait(), 0) << wrong.document << '\n' << process.output() << process.errors();
  }
}

TEST(SystemDefaultCfg, CanBeUsedAfterAnAnswerOfAWrongType) {
  FakeBoard board;
  board.set(FakeBoard::kWhitelist, R"([{"ip": "239.1.1.1"}])");
  cache();
  board.set(FakeBoard::kStored, R"({"rtsp": {"tcp-port": 5004}, "tdm": {"channels-per-line": "many"}})");
  EXPECT_THROW(cache().init(), Json::LogicError);
  EXPECT_EQ(rtspPort(), 8554u) << "never half a document";
  EXPECT_TRUE(cache().isInitialized());
  EXPECT_THAT(whitelist(), ElementsAre("239.1.1.1"));
  board.set(FakeBoard::kStored, "{}");
  board.set(FakeBoard::kWhitelist, R"([{"ip": "239.1.1.2"}, {"enabled": "yes"}])");
  EXPECT_THROW(cache().init(), Json::LogicError);
  EXPECT_THAT(whitelist(), ElementsAre("239.1.1.1")) << "never half a list";
  board.set(FakeBoard::kWhitelist, "[]");
  EXPECT_EQ(cache().init(), 0);
  EXPECT_EQ(rtspPort(), 8554u);
}

// ---- getters

TEST(SystemDefaultCfg, AnswersFromTheStoredParameters) {
  FakeBoard board;
  board.set(FakeBoard::kStored, R"({
      "rtsp": {"eth-port": "eth1", "tcp-port": 5004},
      "advert": {"eth-port": "eth2", "tcp-port": 8080, "board-name-prefix": "Prefix "},
      "cfg": {"cfg-file-path": "/data/", "autosave-enable": false, "offset-from-master-threshold": 16777217,
              "pause-audio-streams-ptp-fails": true},
      "redundancy": {"enable": false}, "walkabout": {"enable": false}, "sap": {"enable": true},
      "slp": {"enable": false}, "vlan": {"primary-id": 4000, "secondary-id": 65535},
      "nmos": {"slot-id": 5, "node-name": "node"},
      "videoTimingParameters": {"timing-mode": "2059", "initBufDelay": 1, "minWrRdPtrThresh": 2,
                                "maxWrRdPtrThresh": 3, "rtpPktsPerFrame": 4},
      "tdm": {"channels-per-line": 16}})");
  board.set(FakeBoard::kBoardModel, R"({"model": "ZIRC", "module": "HDMI-ST2110"})");
  const std::size_t asked = (cache(), board.asked().size());

  unsigned int number = 0;
  EXPECT_EQ(cache().getRtspTcpPort(&number), 0);
  EXPECT_EQ(number, 5004u);
  EXPECT_EQ(cache().getAdvertisementTcpPort(&number), 0);
  EXPECT_EQ(number, 8080u);
  std::string text = "old";
  EXPECT_EQ(cache().getAdvertisementBoardName(&text), 0);
  EXPECT_EQ(text, "Prefix ") << "there is no interface";
  text = "old";
  EXPECT_EQ(cache().getCfgFilePath(&text), 0);
  EXPECT_EQ(text, "/data/");
  float threshold = 0;
  EXPECT_EQ(cache().getClockOffsetFromMasterThreshold(threshold), 0);
  EXPECT_EQ(threshold, 16777216.0f);
  EXPECT_FALSE(cache().isRedundancyEnable());
  EXPECT_FALSE(cache().isWalkaboutEnable());
  EXPECT_TRUE(cache().isSapEnable());
  EXPECT_FALSE(cache().isSlpEnable());
  EXPECT_FALSE(cache().isAutosaveEnabled());
  EXPECT_TRUE(cache().pauseStreamsIfPtpIsInFailure());
  EXPECT_EQ(cache().getPrimaryVlanTag(), 4000);
  EXPECT_EQ(cache().getSecondaryVlanTag(), 65535);
  VideoTimingParameters timing;
  EXPECT_EQ(cache().getVideoTimingParameters(timing), 0);
  EXPECT_EQ(timing.timingMode, VideoTimingParameters::TIMING_MODE_2059);
  EXPECT_EQ(timing.initBufDelay, 1);
  EXPECT_EQ(timing.minWrRdPtrThresh, 2);
  EXPECT_EQ(timing.maxWrRdPtrThresh, 3);
  EXPECT_EQ(timing.rtpPktsPerFrame, 4);
  EXPECT_EQ(cache().getTdmChannelsPerLine(), 16u);
  EXPECT_EQ(cache().getNmosParameters().slotId, 5);
  EXPECT_EQ(cache().getNmosParameters().nodeName, "node");
  const BoardModel model = cache().getBoardModel();
  EXPECT_EQ(model.model, BoardModelType::ZIRC);
  EXPECT_EQ(model.bitstream.type, BitstreamType::BITSTREAM_HDMI_ST2110);
  EXPECT_EQ(model.supportedVideoFormats.size(), 20u);
  EXPECT_EQ(board.asked().size(), asked) << "no getter asks the daemon";
}

TEST(SystemDefaultCfg, RefusesANullPointer) {
  FakeBoard board;
  cache();
  CapturedLog log;
  EXPECT_EQ(cache().getRtspTcpPort(nullptr), -4);
  EXPECT_EQ(cache().getAdvertisementTcpPort(nullptr), -4);
  EXPECT_EQ(cache().getAdvertisementBoardName(nullptr), -4);
  EXPECT_EQ(cache().getAdvertisementIfaceIndex(nullptr), -4);
  EXPECT_EQ(cache().getCfgFilePath(nullptr), -4);
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "getRtspTcpPort:: Parameter is null."},
                                       LogLine{2, "getAdvertisementTcpPort:: Parameter is null."},
                                       LogLine{2, "getAdvertisementBoardName:: Parameter is null."},
                                       LogLine{2, "getAdvertisementIfaceIndex:: Parameter is null."},
                                       LogLine{2, "getCfgFilePath:: Parameter is null."}));
}

TEST(SystemDefaultCfg, NamesTheBoardByItsFirstInterface) {
  FakeBoard board;
  board.set(FakeBoard::kStored, R"({"advert": {"board-name-prefix": "Board-"}})");
  board.set(FakeBoard::kDynamic, R"({"eth-basics": [{"name": "eth1", "mac": "aabbccddeeff"},
                                                     {"name": "eth0", "mac": "001122334455"}]})");
  std::string name = "old";
  EXPECT_EQ(cache().getAdvertisementBoardName(&name), 0);
  EXPECT_EQ(name, "Board-aabbccddeeff");
}

TEST(SystemDefaultCfg, LooksForTheAdvertisementInterfaceByTheBoardNamePrefix) {
  FakeBoard board;
  board.set(FakeBoard::kDynamic, R"({"eth-basics": [{"name": "eth", "index": 1}, {"name": "eth10", "index": 2},
      {"name": "eth1", "index": 3}, {"name": "eth1", "index": 4}]})");
  board.set(FakeBoard::kStored, R"({"advert": {"eth-port": "eth10", "board-name-prefix": "eth1"}})");
  unsigned int index = 7;
  EXPECT_EQ(cache().getAdvertisementIfaceIndex(&index), 0);
  EXPECT_EQ(index, 3u) << "the first of exactly this name";

  board.set(FakeBoard::kStored, R"({"advert": {"eth-port": "eth1", "board-name-prefix": "Velmar ORVEN"}})");
  cache().init();
  EXPECT_EQ(cache().getAdvertisementIfaceIndex(&index), 0);
  EXPECT_EQ(index, 0xFFFFFFFFu) << "the advertisement interface does not count";
}

TEST(SystemDefaultCfg, KeepsAnIndexOfZeroApartFromNone) {
  FakeBoard board;
  board.set(FakeBoard::kDynamic, R"({"eth-basics": [{"name": "eth1", "index": 0}]})");
  board.set(FakeBoard::kStored, R"({"advert": {"board-name-prefix": "eth1"}})");
  unsigned int index = 7;
  EXPECT_EQ(cache().getAdvertisementIfaceIndex(&index), 0);
  EXPECT_EQ(index, 0u);
}

// ---- the client

TEST(SystemDefaultCfg, LendsItsClient) {
  FakeBoard board;
  SysMgrClient& client = cache().getClientReference();
  EXPECT_EQ(&client, &cache().getClientReference());
  EXPECT_EQ(client.setRtspTcpPort(5004), 0);
  EXPECT_EQ(board.daemon.lastRequest().id, "2");
  EXPECT_EQ(board.daemon.lastRequest().json, json(R"({"rtsp-tcp-port": 5004})"));
}

TEST(SystemDefaultCfg, SetsTheStateOfAModule) {
  FakeBoard board;
  cache();
  EXPECT_EQ(cache().setModuleState("audio", 2, 0), 0);
  EXPECT_EQ(board.daemon.lastRequest().id, "7");
  EXPECT_EQ(board.daemon.lastRequest().json, json(R"({"audio": {"error": true, "warn": false}})"));
  EXPECT_EQ(cache().setModuleState("audio", 0, 255), 0);
  EXPECT_EQ(board.daemon.lastRequest().json, json(R"({"audio": {"error": false, "warn": true}})"));
  board.refuse("7", -12);
  EXPECT_EQ(cache().setModuleState("audio", 1, 1), -12);
  board.refuse("7", 12);
  EXPECT_EQ(cache().setModuleState("audio", 1, 1), 0);
}

// ---- notifications

TEST(SystemDefaultCfg, HasReceivedNothingBeforeItIsSubscribed) {
  FakeBoard board;
  cache();
  CapturedLog log;
  EXPECT_EQ(cache().processEvent({}), 0);
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "SysmgrSubscriber is not initialized yet."}));
}

/// A cache that follows its daemon.
class Following : public testing::Test {
 protected:
  Following() {
    board.set(FakeBoard::kStored, R"({"rtsp": {"tcp-port": 5000}})");
    board.set(FakeBoard::kBoardModel, R"({"model": "KORVA"})");
    board.set(FakeBoard::kWhitelist, R"([{"ip": "239.1.1.1"}])");
    EXPECT_EQ(cache().initSubscribers(fds), 0);
    EXPECT_TRUE(board.publisher.waitForSubscription("1004"));
  }
  /// Publishes a notification and processes it. @return the result of `processEvent`
  int process(const std::string& topic, const std::string& payload) {
    board.publisher.publish(topic, payload);
    EXPECT_EQ(fds.poll(kSoon.count()), static_cast<int>(fds.size()));
    return cache().processEvent(fds[0]);
  }

  FakeBoard board;
  PollFds fds;
};

TEST_F(Following, SubscribesToEveryTopic) {
  for (const char* const topic : {"1000", "1001", "1002", "1004"}) {
    EXPECT_EQ(board.publisher.subscriptions(topic), 1u) << topic;
  }
  EXPECT_EQ(fds.size(), 1u);
}

TEST_F(Following, AddsOnlyItsPollItemWhenItIsSubscribedAgain) {
  EXPECT_EQ(cache().initSubscribers(fds), 0);
  PollFds other;
  EXPECT_EQ(cache().initSubscribers(other), 0);
  ASSERT_EQ(fds.size(), 2u);
  ASSERT_EQ(other.size(), 1u);
  EXPECT_EQ(fds[1].socket, fds[0].socket);
  EXPECT_EQ(other[0].socket, fds[0].socket);
  EXPECT_EQ(process("1002", ""), 1) << "two items are ready, for one message";
  EXPECT_EQ(cache().processEvent(fds[0]), 0);
}

TEST_F(Following, TakesTheStoredParametersOver) {
  CapturedLog log;
  EXPECT_NE(process("1000", R"({"rtsp": {"tcp-port": 5004, "eth-port": "eth9"}, "serial-number": "S",
      "nmos": {"slot-id": 3}, "videoTimingParameters": {"timing-mode": "frame_sync"}})"),
            0);
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{6, "notifyStoredParametersUpdate - received notification"},
                                       LogLine{5, "BoardModel::setModel - Undefined"}));
  EXPECT_EQ(rtspPort(), 5004u);
  EXPECT_EQ(cache().getNmosParameters().slotId, 3);
  VideoTimingParameters timing;
  cache().getVideoTimingParameters(timing);
  EXPECT_EQ(timing.timingMode, VideoTimingParameters::TIMING_MODE_FRAME_SYNC);
  EXPECT_EQ(cache().getBoardModel().model, BoardModelType::KORVA) << "what the daemon reports is another thing";
}

TEST_F(Following, ReplacesTheStoredParametersWhole) {
  process("1000", R"({"nmos": {"slot-id": 3}, "tdm": {"channels-per-line": 8}})");
  process("1000", "{}");
  EXPECT_EQ(rtspPort(), 8554u);
  EXPECT_EQ(cache().getTdmChannelsPerLine(), 32u);
  EXPECT_EQ(cache().getNmosParameters().slotId, 0) << "each notification is read into a new record";
}

TEST_F(Following, TakesTheDynamicParametersOver) {
  CapturedLog log;
  EXPECT_NE(process("1001", R"({"eth-basics": [{"name": "eth0", "mac": "0123456789ab", "ip": "10.0.0.1"}]})"), 0);
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{6, "notifyDynamicInfoUpdate - received notification"}));
  EXPECT_TRUE(cache().isLocalBoardIpAddr(IpAddress(0x0A000001)));
  EXPECT_NE(process("1001", "{}"), 0);
  EXPECT_FALSE(cache().isLocalBoardIpAddr(IpAddress(0x0A000001)));
}

TEST_F(Following, TakesTheWhitelistOver) {
  CapturedLog log;
  EXPECT_NE(process("1004", R"({"white-list": [{"ip": "239.1.1.2"}, {"ip": "239.1.1.3"}]})"), 0);
  EXPECT_THAT(log.lines(),
              ElementsAre(LogLine{7, "Adding Empty Whitelist Entry"}, LogLine{7, "Adding Empty Whitelist Entry"},
                          LogLine{6, "notifyMcastWhitelistUpdate - received notification"}));
  EXPECT_THAT(whitelist(), ElementsAre("239.1.1.2", "239.1.1.3"));
  EXPECT_NE(process("1004", "{}"), 0);
  EXPECT_THAT(whitelist(), IsEmpty());
}

TEST_F(Following, IgnoresARebootRequest) {
  const std::size_t asked = board.asked().size();
  CapturedLog log;
  EXPECT_NE(process("1002", R"({"rtsp": {"tcp-port": 1}})"), 0);
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{6, "notifyRebootRequest - received notification - ignoring it"}));
  EXPECT_EQ(rtspPort(), 5000u);
  EXPECT_EQ(cache().getBoardModel().model, BoardModelType::KORVA);
  EXPECT_THAT(whitelist(), ElementsAre("239.1.1.1"));
  EXPECT_TRUE(cache().isInitialized());
  EXPECT_EQ(board.asked().size(), asked);
}

TEST_F(Following, ReturnsZeroFromItsCallbacks) {
  SysParameters stored;
  stored.rtspTcpPort = 1;
  stored.boardModel.model = BoardModelType::MERIX;
  CapturedLog log;
  EXPECT_EQ(cache().notifyStoredParametersUpdate(stored), 0);
  EXPECT_THAT(log.texts(5), ElementsAre("BoardModel::setModel - MERIX"));
  EXPECT_EQ(rtspPort(), 1u);
  SysParametersDynamic dynamic;
  EXPECT_EQ(cache().notifyDynamicInfoUpdate(dynamic), 0);
  EXPECT_EQ(cache().notifyRebootRequest(), 0);
  std::list<WhiteListEntry> entries(3);
  EXPECT_EQ(cache().notifyMcastWhitelistUpdate(entries), 0);
  EXPECT_EQ(cache().getMulticastWhiteList().size(), 3u);
  EXPECT_EQ(entries.size(), 3u) << "a copy is taken";
}

TEST_F(Following, DropsWhatIsMalformed) {
  const std::pair<std::vector<std::string>, const char*> malformed[] = {
      {{"1000"}, "SysmgrSubscriber: Error receiving message -110"},
      {{"1000", "{}", "{}"}, "SysmgrSubscriber: Error receiving message -110"},
      {{"1000", R"({"rtsp": )"}, "SysmgrSubscriber: Error receiving message -111"},
      {{"10000", "{}"}, "SysmgrSubscriber: filter [10000] is not recognized!"}};
  for (const auto& [frames, text] : malformed) {
    CapturedLog log;
    board.publisher.publish(frames);
    ASSERT_EQ(fds.poll(kSoon.count()), 1);
    EXPECT_NE(cache().processEvent(fds[0]), 0);
    EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, text}));
    EXPECT_EQ(rtspPort(), 5000u);
  }
  process("1000", R"({"rtsp": {"tcp-port": 5004}})");
  EXPECT_EQ(rtspPort(), 5004u);
}

TEST_F(Following, KeepsWhatItHasWhenANotificationHasAWrongType) {
  const std::pair<const char*, const char*> wrong[] = {
      {"1000", R"({"rtsp": {"tcp-port": 5004}, "tdm": {"channels-per-line": "many"}})"},
      {"1001", R"({"chipid-name": "X", "temperature": {"fpga": "hot"}})"},
      {"1004", R"({"white-list": [{"ip": "239.1.1.2"}, {"enabled": "yes"}]})"}};
  for (const auto& [topic, payload] : wrong) {
    EXPECT_THROW(process(topic, payload), Json::LogicError) << payload;
  }
  EXPECT_EQ(rtspPort(), 5000u);
  EXPECT_THAT(whitelist(), ElementsAre("239.1.1.1"));
  process("1000", R"({"rtsp": {"tcp-port": 5004}})");
  EXPECT_EQ(rtspPort(), 5004u);
}

TEST_F(Following, FollowsWhileItIsInitializedAgain) {
  EXPECT_EQ(cache().init(), 0);
  EXPECT_EQ(cache().init(), 0);
  process("1000", R"({"rtsp": {"tcp-port": 5004}})");
  EXPECT_EQ(rtspPort(), 5004u);
}

TEST_F(Following, HasNoGapWhenItIsInitializedAfterItIsSubscribed) {
  // The change reached the daemon after the first fetch and before the subscription.
  board.set(FakeBoard::kStored, R"({"rtsp": {"tcp-port": 5001}})");
  EXPECT_EQ(rtspPort(), 5000u);
  EXPECT_EQ(cache().init(), 0);
  EXPECT_EQ(rtspPort(), 5001u);
}

TEST_F(Following, IsUpToDateAfterABurstThatItSleptThrough) {
  const std::string padding(1000, 'x');
  constexpr int kBurst = 5000;
  for (int port = 1; port <= kBurst; ++port) {
    board.publisher.publish(
        "1000", R"({"rtsp": {"tcp-port": )" + std::to_string(port) + R"(}, "padding": ")" + padding + "\"}");
  }
  board.set(FakeBoard::kStored, R"({"rtsp": {"tcp-port": 5000}})");
  std::this_thread::sleep_for(200ms);  // asleep: the queues fill up

  int taken = 0;
  while (fds.poll(100) > 0) taken += cache().processEvent(fds[0]);
  EXPECT_GE(taken, 1000);
  EXPECT_EQ(cache().init(), 0);
  EXPECT_EQ(rtspPort(), 5000u);
  process("1000", R"({"rtsp": {"tcp-port": 6000}})");
  EXPECT_EQ(rtspPort(), 6000u);
}

/// The port of the newest stored document, as the board answers and publishes it.
std::string storedWithPort(unsigned int port) { return R"({"rtsp": {"tcp-port": )" + std::to_string(port) + "}}"; }

/// By hand, with more: ZEL_PAUSE_ROUNDS=100.
int pauseRounds() {
  const char* const wished = std::getenv("ZEL_PAUSE_ROUNDS");
  return wished == nullptr ? 3 : std::atoi(wished);
}

TEST_F(Following, NothingThatWaitedDuringAPauseReplacesWhatInitFetches) {
  static constexpr unsigned int kChanges = 20'000;
  for (int round = 0; round < pauseRounds(); ++round) {
    for (unsigned int port = 1; port <= kChanges; ++port) board.publisher.publish("1000", storedWithPort(port));
    board.set(FakeBoard::kStored, storedWithPort(kChanges));
    ASSERT_EQ(cache().init(), 0);
    ASSERT_EQ(rtspPort(), kChanges) << round;
    for (int quiet = 0; quiet < 3;) {
      if (fds.poll(10) == 0) ++quiet;
      while (cache().processEvent(fds[0]) != 0) continue;
      ASSERT_EQ(rtspPort(), kChanges) << round;
    }
  }
  process("1000", storedWithPort(6000));
  EXPECT_EQ(rtspPort(), 6000u);
}

TEST(SystemDefaultCfg, ShowsTheNewestStateAfterTheProcessWasStopped) {
  static constexpr unsigned int kChanges = 20'000;
  ChildProcess application = ChildProcess::call([] {
    PollFds fds;
    EXPECT_EQ(cache().initSubscribers(fds), 0);
    while (cache().processEvent(fds[0]) == 0) fds.poll(10);  // the subscription has arrived
    for (;;) {
      std::puts("stopping");
      std::fflush(stdout);
      std::raise(SIGSTOP);
      EXPECT_EQ(cache().init(), 0);
      for (int quiet = 0; quiet < 3;) {
        EXPECT_EQ(rtspPort(), kChanges);
        if (fds.poll(10) == 0) ++quiet;
        while (cache().processEvent(fds[0]) != 0) continue;
      }
      std::puts(testing::Test::HasFailure() ? "failed" : "right");
    }
    return 0;
  });
  FakeBoard board;
  ASSERT_TRUE(board.publisher.waitForSubscription("1004"));
  board.publisher.publish("1002", "");
  std::string expected;
  for (int round = 0; round < pauseRounds(); ++round) {
    ASSERT_TRUE(application.waitForOutput(expected + "stopping\n")) << application.output() << application.errors();
    application.waitUntilFrozen();
    ASSERT_TRUE(board.publisher.waitForSubscription("1004"));
    for (unsigned int port = 1; port <= kChanges; ++port) board.publisher.publish("1000", storedWithPort(port));
    board.set(FakeBoard::kStored, storedWithPort(kChanges));
    application.thaw();
    expected += "stopping\nright\n";
  }
  EXPECT_TRUE(application.waitForOutput(expected)) << application.output() << application.errors();
}

TEST_F(Following, EqualsTheDaemonOnceTheWritersRest) {
  for (int round = 0; round < pauseRounds(); ++round) {
    for (unsigned int port = 1; port <= 5000; ++port) board.publisher.publish("1000", storedWithPort(port));
    std::atomic<bool> rest{false};
    std::atomic<unsigned int> last{0};
    std::thread writer([&] {
      for (unsigned int port = 10'000; !rest; ++port) {
        board.set(FakeBoard::kStored, storedWithPort(port));
        board.publisher.publish("1000", storedWithPort(port));
        last = port;
        std::this_thread::sleep_for(200us);
      }
    });
    ASSERT_TRUE(waitUntil([&] { return last > 0; }));
    const int result = cache().init();
    rest = true;
    writer.join();
    ASSERT_EQ(result, 0);
    ASSERT_TRUE(waitUntil([&] {
      fds.poll(1);
      while (cache().processEvent(fds[0]) != 0) continue;
      return rtspPort() == last;
    })) << "round "
        << round << ": " << rtspPort() << " instead of " << last;
  }
}

TEST_F(Following, DropsAWaitingNotificationOfAWrongTypeInInit) {
  board.publisher.publish("1000", R"({"rtsp": {"tcp-port": "many"}})");
  ASSERT_EQ(fds.poll(kSoon.count()), 1);
  CapturedLog log;
  EXPECT_EQ(cache().init(), 0);
  EXPECT_THAT(log.texts(6), testing::Contains(testing::StartsWith("SystemDefaultCfg dropped a notification: ")));
  EXPECT_EQ(rtspPort(), 5000u);
}

TEST_F(Following, HandlesWhatWaitsWhenInitFails) {
  board.publisher.publish("1000", storedWithPort(5007));
  ASSERT_EQ(fds.poll(kSoon.count()), 1);
  board.refuse(FakeBoard::kStored, -5);
  EXPECT_EQ(cache().init(), -5);
  EXPECT_EQ(rtspPort(), 5007u);
}

TEST(SystemDefaultCfg, MayBeSubscribedBeforeThereIsADaemon) {
  std::optional<FakeBoard> board(std::in_place);
  cache();
  board.reset();
  PollFds fds;
  EXPECT_EQ(cache().initSubscribers(fds), 0);
  board.emplace();
  ASSERT_TRUE(waitUntil([&] { return fds.poll(1) == 0 && board->publisher.subscriptions("1004") == 1; }));
  board->publisher.publish("1000", R"({"rtsp": {"tcp-port": 5004}})");
  EXPECT_EQ(fds.poll(kSoon.count()), 1);
  EXPECT_NE(cache().processEvent(fds[0]), 0);
  EXPECT_EQ(rtspPort(), 5004u);
}

TEST(SystemDefaultCfg, DoesNotFollowWhenTheSubscriptionFails) {
  const zel::test::LeaksOnPurpose leaks;  // each attempt makes a subscriber's client
  FakeBoard board;
  cache();
  zmq::context_t& context = ZmqUtils::getInstance().getContext();
  std::vector<void*> sockets;
  while (void* const socket = zmq_socket(context.handle(), ZMQ_PAIR)) sockets.push_back(socket);
  CapturedLog log;
  PollFds fds;
  EXPECT_EQ(cache().initSubscribers(fds), zel::status::kCannotConnect);
  EXPECT_TRUE(fds.empty());
  EXPECT_THAT(
      log.texts(2),
      ElementsAre(MatchesRegex(checkLine("int SysmgrSubscriber::init(zmq::context_t&)", zel::status::kCannotConnect))));
  for (void* const socket : sockets) zmq_close(socket);

  const std::size_t asked = board.asked().size();
  std::list<EthBasicInfo> interfaces;
  EXPECT_EQ(cache().getEthDynamicBasicInfo(interfaces), 0);
  EXPECT_EQ(board.asked().size(), asked + 1) << "so it asks";
  EXPECT_TRUE(waitUntil([&] { return cache().initSubscribers(fds) == 0; })) << "and the next call tries again";
  EXPECT_EQ(fds.size(), 1u);
}

TEST(SystemDefaultCfg, ShowsWhatAnotherProcessChanges) {
  ChildProcess other = ChildProcess::call([] {
    SysMgrClient client;
    client.init(ZmqUtils::getInstance().getContext());
    return client.setRtspTcpPort(5004);
  });
  other.freeze();
  FakeBoard board;
  PollFds fds;
  ASSERT_EQ(cache().initSubscribers(fds), 0);
  ASSERT_TRUE(board.publisher.waitForSubscription("1000"));
  EXPECT_EQ(rtspPort(), 8554u);

  board.daemon.onRequest([&board](const zel::test::Request& request) {
    const std::string port = request.json["rtsp-tcp-port"].asString();
    board.publisher.publish("1000", R"({"rtsp": {"tcp-port": )" + port + "}}");
    return std::vector<zel::test::Answer>{"{}"};
  });
  other.thaw();
  ASSERT_EQ(fds.poll(kSoon.count()), 1);
  EXPECT_NE(cache().processEvent(fds[0]), 0);
  EXPECT_EQ(rtspPort(), 5004u);
  EXPECT_EQ(other.wait(), 0);
}

// ---- the end of the process

/// What a process writes to its log when it has used the cache.
std::vector<std::string> logOfAProcess(const std::function<void()>& body) {
  ChildProcess child = ChildProcess::call([&] {
    Logger::getInstance()->setLevel(Logger::LEVEL_LIFECYCLE);
    Logger::getInstance()->setSink([](Logger::logDebugLevel_t level, const std::string& text) {
      std::printf("%d %s\n", int(level), text.c_str());
      std::fflush(stdout);
    });
    body();
    return 0;
  });
  EXPECT_EQ(child.wait(), 0) << child.errors();
  std::vector<std::string> lines;
  std::istringstream output(child.output());
  for (std::string line; std::getline(output, line);) lines.push_back(line);
  return lines;
}

TEST(SystemDefaultCfg, IsDestroyedBeforeTheContext) {
  const std::vector<std::string> lines = logOfAProcess([] {
    FakeBoard board;
    cache();
  });
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[lines.size() - 2], "5 SystemDefaultCfg singleton destroyed");
  EXPECT_EQ(lines.back(), "5 ZmqUtils: closing ZMQ context");
}

}  // namespace
