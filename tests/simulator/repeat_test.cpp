#include <gmock/gmock.h>

#include <cstdio>
#include <fstream>
#include <map>

#include "config/system_default_cfg.h"
#include "tests/common/test_client.h"
#include "tests/simulator/board_process.h"
#include "tests/simulator/json_text.h"
#include "tests/simulator/temporary_folder.h"
#include "tests/support/descriptor_loop.h"
#include "view/board_view.h"

// A daemon that publishes the current document of a topic whenever a client subscribes to it: programs that follow the
// notifications are up to date after its restart without a request.

namespace {

using zel::test::ChildProcess;
using zel::test::json;
using zel::test::kReady;
using zel::test::kSoon;
using zel::test::startBoard;
using zel::test::TemporaryFolder;
using zel::test::TestClient;

/// A board whose RTSP server listens on the port.
ChildProcess boardWithPort(const TemporaryFolder& folder, unsigned int port, std::vector<std::string> arguments) {
  std::ofstream(folder.file("state")) << R"({"stored": {"rtsp": {"tcp-port": )" << port << "}}}";
  arguments.insert(arguments.end(), {"--state", folder.file("state")});
  ChildProcess board = startBoard(arguments);
  EXPECT_TRUE(board.waitForOutput(kReady));
  return board;
}

/// Runs the poll loop of an application until the predicate holds.
template <class Follower, class Predicate>
bool follow(Follower& follower, PollFds& fds, Predicate isIt, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!isIt() && std::chrono::steady_clock::now() < end) {
    fds.poll(10);
    while (follower.processEvent(fds[0]) != 0) continue;
  }
  return isIt();
}

TEST(RepeatOnSubscribe, BringsTheCacheUpToDateAfterARestart) {
  const TemporaryFolder folder;
  SystemDefaultCfg& cfg = SystemDefaultCfg::getInstance();
  PollFds fds;
  const auto port = [&cfg] {
    unsigned int now = 0;
    cfg.getRtspTcpPort(&now);
    return now;
  };
  {
    ChildProcess board = boardWithPort(folder, 5001, {"--repeat-on-subscribe"});
    ASSERT_EQ(cfg.init(), 0);
    ASSERT_EQ(cfg.initSubscribers(fds), 0);
    ASSERT_TRUE(follow(
        cfg, fds, [&] { return port() == 5001; }, kSoon));
  }
  {
    ChildProcess board = boardWithPort(folder, 5002, {});
    EXPECT_FALSE(follow(
        cfg, fds, [&] { return port() == 5002; }, std::chrono::milliseconds(500)));
  }
  ChildProcess board = boardWithPort(folder, 5003, {"--repeat-on-subscribe"});
  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(follow(
      cfg, fds, [&] { return port() == 5003; }, kSoon));
  const auto took = std::chrono::steady_clock::now() - start;
  std::printf("up to date %lld ms after the restart\n",
              static_cast<long long>(std::chrono::duration_cast<std::chrono::milliseconds>(took).count()));

  // What is published for others changes nothing.
  zmq::context_t context;
  TestClient client(context, kSoon);
  EXPECT_EQ(client.send(2, json(R"({"rtsp-tcp-port": 5004})")).code, 0);
  zmq::socket_t other(context, zmq::socket_type::sub);
  other.set(zmq::sockopt::subscribe, "");
  other.connect(SysmgrPublisher::kEndpoint);
  EXPECT_TRUE(follow(
      cfg, fds, [&] { return port() == 5004; }, kSoon));
  EXPECT_FALSE(follow(
      cfg, fds, [&] { return port() != 5004; }, std::chrono::milliseconds(200)));
  EXPECT_EQ(cfg.getMulticastWhiteList().size(), 3U);
}

zmq::socket_t followerOfAll(zmq::context_t& context) {
  zmq::socket_t follower(context, zmq::socket_type::sub);
  follower.set(zmq::sockopt::subscribe, "");
  follower.connect(SysmgrPublisher::kEndpoint);
  return follower;
}

TEST(RepeatOnSubscribe, TellsTheViewNothingWhenOthersSubscribe) {
  const TemporaryFolder folder;
  ChildProcess board = boardWithPort(folder, 5001, {"--repeat-on-subscribe"});
  zmq::context_t context;
  zel::BoardView view(context);
  ASSERT_EQ(view.open(), 0);
  // Until its own subscriptions are answered, too.
  ASSERT_TRUE(zel::test::runUntil(
      view, [&] { return view.state() == zel::BoardView::State::kLive && view.counters().notifications >= 3; }, kSoon));
  zel::test::runUntil(
      view, [] { return false; }, std::chrono::milliseconds(100));
  const auto generation = view.generation();
  const auto notifications = view.counters().notifications;
  int changes = 0;
  view.onChange([&](const zel::BoardChange&) { ++changes; });

  const zmq::socket_t other = followerOfAll(context);
  // 1000, 1001 and 1004 once more
  EXPECT_TRUE(zel::test::runUntil(
      view, [&] { return view.counters().notifications >= notifications + 3; }, kSoon));
  zel::test::runUntil(
      view, [] { return false; }, std::chrono::milliseconds(100));
  EXPECT_EQ(changes, 0);
  EXPECT_EQ(view.generation(), generation);
  EXPECT_EQ(view.state(), zel::BoardView::State::kLive);
}

TEST(RepeatOnSubscribe, TellsTheViewEachChangeOnceAfterARestart) {
  const TemporaryFolder folder;
  auto board = std::make_unique<ChildProcess>(boardWithPort(folder, 5001, {"--repeat-on-subscribe"}));
  zmq::context_t context;
  zel::BoardView view(context);
  std::vector<unsigned int> ports;
  view.onChange(zel::settings::kRtspTcpPort, [&](std::uint32_t, std::uint32_t now) { ports.push_back(now); });
  ASSERT_EQ(view.open(), 0);
  ASSERT_TRUE(zel::test::runUntil(
      view, [&] { return view.state() == zel::BoardView::State::kLive; }, kSoon));
  board.reset();
  ASSERT_TRUE(zel::test::runUntil(
      view, [&] { return view.state() == zel::BoardView::State::kStale; }, kSoon));
  board = std::make_unique<ChildProcess>(boardWithPort(folder, 5002, {"--repeat-on-subscribe"}));
  ASSERT_TRUE(zel::test::runUntil(
      view, [&] { return view.state() == zel::BoardView::State::kLive; }, kSoon));
  // The view asks, and the board repeats: each document comes in two ways.
  zel::test::runUntil(
      view, [] { return false; }, std::chrono::milliseconds(200));
  EXPECT_EQ(ports, (std::vector<unsigned int>{5001, 5002}));
}

/// Counts what a subscriber is told.
struct Counter : SysmgrSubscriber {
  int notifyStoredParametersUpdate(SysParameters& parameters) override {
    port = parameters.rtspTcpPort;
    return ++stored;
  }
  int notifyDynamicInfoUpdate(SysParametersDynamic&) override { return ++dynamic; }
  int notifyRebootRequest() override { return ++reboots; }
  int notifyMcastWhitelistUpdate(std::list<WhiteListEntry>& entries) override {
    whitelist = entries.size();
    return 0;
  }
  int stored = 0;
  int dynamic = 0;
  int reboots = 0;
  std::size_t whitelist = 0;
  unsigned int port = 0;
};

TEST(RepeatOnSubscribe, SendsEachDocumentToASubscriberButNoReboot) {
  const TemporaryFolder folder;
  ChildProcess board = boardWithPort(folder, 5001, {"--repeat-on-subscribe"});
  zmq::context_t context;
  Counter counter;
  PollFds fds;
  ASSERT_EQ(counter.init(context), 0);
  ASSERT_EQ(counter.subscribeAll(), 0);
  ASSERT_EQ(counter.getPollItems(fds), 0);
  EXPECT_TRUE(follow(
      counter, fds, [&] { return counter.stored > 0 && counter.dynamic > 0 && counter.whitelist == 3; }, kSoon));
  EXPECT_EQ(counter.port, 5001U);
  EXPECT_FALSE(follow(
      counter, fds, [&] { return counter.reboots > 0; }, std::chrono::milliseconds(100)));
}

TEST(RepeatOnSubscribe, PublishesOnceForManySubscriptionsAtOnce) {
  const TemporaryFolder folder;
  ChildProcess board = boardWithPort(folder, 5001, {"--repeat-on-subscribe"});
  zmq::context_t context;
  Counter counter;
  PollFds fds;
  ASSERT_EQ(counter.init(context), 0);
  ASSERT_EQ(counter.subscribe(SysmgrPublisher::SYSMGR_STORED_PARAMETERS_UPDATE), 0);
  ASSERT_EQ(counter.getPollItems(fds), 0);
  ASSERT_TRUE(follow(
      counter, fds, [&] { return counter.stored > 0; }, kSoon));

  zmq::socket_t other(context, zmq::socket_type::sub);
  other.connect(SysmgrPublisher::kEndpoint);
  constexpr int kTimes = 20;
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < kTimes; ++i) {
    other.set(zmq::sockopt::subscribe, "1000");
    other.set(zmq::sockopt::unsubscribe, "1000");
  }
  follow(
      counter, fds, [] { return false; }, std::chrono::milliseconds(200));
  const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
  EXPECT_GE(counter.stored, 2);
  EXPECT_LE(counter.stored, 2 + took.count() / 10);  // at most one in 10 ms
}

}  // namespace
