#include "view/board_view.h"

#include <poll.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <stdexcept>
#include <thread>

#include "client/zmq_utils.h"
#include "subscriber/sysmgr_subscriber.h"
#include "tests/support/captured_log.h"
#include "tests/support/child_process.h"
#include "tests/support/descriptor_loop.h"
#include "tests/support/fake_board.h"
#include "tests/support/few_descriptors.h"
#include "tests/support/stopwatch.h"
#include "tests/support/wait_until.h"
#include "tests/view/applied.h"

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using zel::BoardChange;
using zel::BoardView;
using zel::Document;
using zel::test::CapturedLog;
using zel::test::FakeBoard;
using zel::test::FewDescriptors;
using zel::test::kSlowdown;
using zel::test::kSoon;
using zel::test::NoDescriptors;
namespace settings = zel::settings;
using State = BoardView::State;

std::string storedWithPort(unsigned int port) {
  return R"({"rtsp": {"tcp-port": )" + std::to_string(port) + R"(, "eth-port": "all"}, "sap": {"enable": false}})";
}

/// A board with a document of each kind, which carries out sets of the RTSP port.
class Board : public FakeBoard {
 public:
  explicit Board(unsigned int port = 5000) {
    set(kStored, storedWithPort(port));
    set(kDynamic, R"({"eth-basics": [{"name": "eth0", "ip": "10.0.0.1", "label": "a"}]})");
    set(kBoardModel, R"({"model": "KORVA"})");
    set(kWhitelist, R"([{"ip": "239.0.0.1", "mask": "255.255.255.255", "enabled": true}])");
  }
  void change(unsigned int port) {
    set(kStored, storedWithPort(port));
    publisher.publish("1000", storedWithPort(port));
  }
  /// From now on a set of the RTSP port changes the stored parameters.
  /// @param notify  publishes them, too, from the daemon's thread
  void carryOutSets(bool notify) {
    daemon.onRequest([this, notify](const zel::test::Request& request) -> std::vector<zel::test::Answer> {
      if (request.id != "2") return {answerTo(request)};
      const unsigned int port = request.json["rtsp-tcp-port"].asUInt();
      set(kStored, storedWithPort(port));
      if (notify) publisher.publish("1000", storedWithPort(port));
      return {"{}"};
    });
  }
  zel::test::Answer answer(const zel::test::Request& request) { return answerTo(request); }
  void answerAgain() {
    daemon.onRequest(
        [this](const zel::test::Request& request) { return std::vector<zel::test::Answer>{answerTo(request)}; });
  }
};

class BoardViewTest : public testing::Test {
 protected:
  bool isReadable(milliseconds within = milliseconds(0)) const { return zel::test::isReadable(*view, within); }
  template <class Condition>
  bool runUntil(Condition holds, milliseconds within = kSoon) {
    return zel::test::runUntil(*view, holds, within);
  }
  /// Runs it for a while.
  void run(milliseconds time) {
    runUntil([] { return false; }, time);
  }
  bool runUntilLive() {
    return runUntil([&] { return view->state() == State::kLive; });
  }
  unsigned int port() const { return view->get(settings::kRtspTcpPort); }

  zmq::context_t context;
  std::unique_ptr<BoardView> view = std::make_unique<BoardView>(context);
};

TEST_F(BoardViewTest, BeginsWithTheDefaults) {
  EXPECT_EQ(view->state(), State::kConnecting);
  EXPECT_EQ(view->generation(), 0u);
  EXPECT_EQ(port(), SysParameters().rtspTcpPort);
  EXPECT_FALSE(view->confirmedAt(Document::kStored));
  EXPECT_FALSE(view->isTold(settings::kRtspTcpPort));
  EXPECT_TRUE(view->document(Document::kStored).isNull());
  EXPECT_EQ(view->process(), 0u) << "before open there is nothing to do";
}

TEST_F(BoardViewTest, FetchesTheFourDocumentsAndIsLive) {
  Board board;
  std::vector<std::pair<State, State>> states;
  view->onState([&](State before, State now) { states.emplace_back(before, now); });
  EXPECT_EQ(view->open(), 0);
  EXPECT_EQ(view->open(), 0) << "once is enough";
  ASSERT_TRUE(runUntilLive());
  EXPECT_THAT(states, ElementsAre(std::pair(State::kConnecting, State::kLive)));
  EXPECT_EQ(port(), 5000u);
  EXPECT_EQ(view->dynamic().ethBasics.front().label, "a");
  EXPECT_EQ(view->document(Document::kBoardModel)["model"], "KORVA");
  ASSERT_EQ(view->whitelist().size(), 1u);
  EXPECT_EQ(view->whitelist().front().getIpStr(), "239.0.0.1");
  EXPECT_EQ(view->generation(), 4u);
  for (const Document each : {Document::kStored, Document::kDynamic, Document::kBoardModel, Document::kWhitelist}) {
    EXPECT_TRUE(view->confirmedAt(each));
    EXPECT_FALSE(view->isUnreadable(each));
  }
  EXPECT_EQ(board.asked().size(), 4u);
}

TEST_F(BoardViewTest, SaysWhatTheDaemonToldAndWhatIsADefault) {
  Board board;
  view->open();
  ASSERT_TRUE(runUntilLive());
  EXPECT_TRUE(view->isTold(settings::kRtspTcpPort));
  EXPECT_TRUE(view->isTold(settings::kSapEnable));
  EXPECT_FALSE(view->isTold(settings::kSlpEnable));
  EXPECT_FALSE(view->isTold(settings::kNmos));
  board.set(FakeBoard::kStored, R"({"nmos": {}, "rtsp": {"tcp-port": null}})");
  board.publisher.publish("1000", R"({"nmos": {}, "rtsp": {"tcp-port": null}})");
  ASSERT_TRUE(runUntil([&] { return !view->isTold(settings::kSapEnable); }));
  EXPECT_TRUE(view->isTold(settings::kRtspTcpPort)) << "null is told, and is 0";
  EXPECT_EQ(port(), 0u);
  EXPECT_FALSE(view->isTold(settings::kNmos)) << "an empty block is missing";
}

TEST_F(BoardViewTest, HasEachDocumentAsTheDaemonToldIt) {
  Board board;
  view->open();
  ASSERT_TRUE(runUntilLive());
  // The records' own Deserialize inserts null members where these documents have none.
  const std::string stored[] = {
      R"({"rtsp": {"tcp-port": 6001}, "ethipv4": [{"name": "eth0", "mode": "dhcp"}, {"name": "eth1"}, {}], "nmos": {}})",
      R"({"rtsp": {"tcp-port": 6002}, "sap": null, "ethipv4": [{"name": "eth0", "static": {}}, {"mode": null}]})",
      R"({"rtsp": {"tcp-port": 6003}, "bitstream": {}, "vlan": [], "unknown": {"deep": [{"empty": {}}]}})"};
  for (const std::string& document : stored) {
    const std::uint64_t before = view->generation();
    board.publisher.publish("1000", document);
    ASSERT_TRUE(runUntil([&] { return view->generation() > before; })) << document;
    EXPECT_EQ(view->document(Document::kStored), zel::test::json(document));
  }
  EXPECT_EQ(port(), 6003u);
  const std::uint64_t before = view->generation();
  const std::string entries = R"([{"ip": "239.0.0.1"}, {}])";
  board.publisher.publish("1004", R"({"white-list": )" + entries + "}");
  ASSERT_TRUE(runUntil([&] { return view->generation() > before; }));
  EXPECT_EQ(view->document(Document::kWhitelist), zel::test::json(entries));
}

TEST_F(BoardViewTest, IsLiveBesideADaemonThatTakesItsTimeForEachAnswer) {
  constexpr milliseconds kTime{100};
  constexpr milliseconds kTimeout{200};  // enough for one answer, not for four
  Board board;
  board.daemon.onRequest([&](const zel::test::Request& request) {
    std::this_thread::sleep_for(kTime);
    return std::vector<zel::test::Answer>{board.answer(request)};
  });
  view->setProbe(milliseconds(0), kTimeout * kSlowdown);
  view->open();
  ASSERT_TRUE(runUntilLive());
  EXPECT_EQ(board.asked().size(), 4u);
  EXPECT_EQ(view->counters().requestsWithoutAnswer, 0u);
}

TEST_F(BoardViewTest, WaitsForADaemon) {
  view->open();
  run(milliseconds(100));
  EXPECT_EQ(view->state(), State::kConnecting);
  Board board;
  EXPECT_TRUE(runUntilLive());
}

TEST_F(BoardViewTest, IsNotReadableWhileNothingHappens) {
  Board board;
  view->open();
  ASSERT_TRUE(runUntilLive());
  run(milliseconds(400));  // each document is looked at once more
  EXPECT_FALSE(isReadable(milliseconds(200)));
}

TEST_F(BoardViewTest, TellsWhatChanges) {
  Board board;
  std::vector<std::string> told;
  view->open();
  ASSERT_TRUE(runUntilLive());
  view->onChange([&](const BoardChange& change) {
    EXPECT_EQ(change.document, Document::kStored);
    EXPECT_EQ(change.before.stored->rtspTcpPort, 5000u);
    EXPECT_EQ(change.now.stored->rtspTcpPort, 5001u);
    EXPECT_EQ(change.before.dynamic, change.now.dynamic);
    for (const zel::Difference& each : change.differences) told.push_back(each.path);
  });
  view->onChange(settings::kRtspTcpPort, [&](uint32_t before, uint32_t now) {
    told.push_back(std::to_string(before) + " " + std::to_string(now));
    EXPECT_EQ(port(), now);
  });
  view->onChange(settings::kSapEnable, [&](bool, bool) { FAIL() << "this one has not changed"; });
  const auto generation = view->generation();
  board.change(5001);
  ASSERT_TRUE(runUntil([&] { return told.size() == 2; }));
  EXPECT_THAT(told, ElementsAre("rtsp/tcp-port", "5000 5001"));
  EXPECT_EQ(view->generation(), generation + 1);
}

TEST_F(BoardViewTest, EqualDocumentsCallNobody) {
  Board board;
  view->open();
  ASSERT_TRUE(runUntilLive());
  view->onChange([](const BoardChange&) { FAIL(); });
  const auto generation = view->generation();
  const auto confirmed = *view->confirmedAt(Document::kStored);
  board.change(5000);
  board.publisher.publish("1000", " " + storedWithPort(5000));
  ASSERT_TRUE(runUntil(
      [&] { return view->counters().notifications == 2 && *view->confirmedAt(Document::kStored) > confirmed; }));
  run(milliseconds(20));
  EXPECT_EQ(view->generation(), generation);
}

TEST_F(BoardViewTest, TellsChangesOfAnInterfaceByItsName) {
  Board board;
  view->open();
  ASSERT_TRUE(runUntilLive());
  std::vector<std::string> told;
  const auto shown = [](const EthBasicInfo* each) {
    return each == nullptr ? std::string("none") : IpAddress(each->ip).toString() + " " + each->label;
  };
  view->onInterfaceChange("eth0", [&](const EthBasicInfo* before, const EthBasicInfo* now) {
    told.push_back(shown(before) + " -> " + shown(now));
  });
  for (const char* const document :
       {R"({"eth-basics": [{"name": "eth0", "ip": "10.0.0.2", "label": "a"}]})",
        R"({"eth-basics": [{"name": "eth0", "ip": "10.0.0.2", "label": "a"}, {"name": "x"}]})",
        R"({"eth-basics": [{"name": "x"}]})"}) {
    const auto generation = view->generation();
    board.set(FakeBoard::kDynamic, document);
    board.publisher.publish("1001", document);
    ASSERT_TRUE(runUntil([&] { return view->generation() > generation; }));
  }
  run(milliseconds(20));
  EXPECT_THAT(told, ElementsAre("10.0.0.1 a -> 10.0.0.2 a", "10.0.0.2 a -> none"));
}

TEST_F(BoardViewTest, TellsChangesOfTheWhitelistEntryByEntry) {
  Board board;
  view->open();
  ASSERT_TRUE(runUntilLive());
  std::vector<std::string> told;
  const auto shown = [](const WhiteListEntry* each) {
    return each == nullptr ? std::string("none") : each->getIpStr() + (each->enabled ? " on" : " off");
  };
  view->onWhitelistChange([&](const WhiteListEntry* before, const WhiteListEntry* now) {
    told.push_back(shown(before) + " -> " + shown(now));
  });
  const std::string changed =
      R"([{"ip": "239.0.0.1", "mask": "255.255.255.255", "enabled": false}, {"ip": "239.0.0.2"}])";
  board.set(FakeBoard::kWhitelist, changed);
  board.publisher.publish("1004", R"({"white-list": )" + changed + "}");
  ASSERT_TRUE(runUntil([&] { return told.size() == 2; }));
  board.set(FakeBoard::kWhitelist, "[]");
  board.publisher.publish("1004", R"({"white-list": []})");
  ASSERT_TRUE(runUntil([&] { return told.size() == 4; }));
  EXPECT_THAT(told, ElementsAre("239.0.0.1 on -> 239.0.0.1 off", "none -> 239.0.0.2 off", "239.0.0.1 off -> none",
                                "239.0.0.2 off -> none"));
  EXPECT_TRUE(view->whitelist().empty());
}

TEST_F(BoardViewTest, ReadsOnlyTheNewestOfABurst) {
  Board board;
  view->open();
  ASSERT_TRUE(runUntilLive());
  std::vector<uint32_t> told;
  view->onChange(settings::kRtspTcpPort, [&](uint32_t, uint32_t now) { told.push_back(now); });
  for (unsigned int each = 1; each <= 200; ++each) board.change(each);
  std::this_thread::sleep_for(milliseconds(100));
  ASSERT_TRUE(runUntil([&] { return port() == 200; }));
  EXPECT_LT(told.size(), 20u);
  EXPECT_EQ(view->counters().superseded, 200 - told.size());
  EXPECT_EQ(view->state(), State::kLive);
}

/// Behind a full queue the newest notifications are lost: the view fetches.
TEST_F(BoardViewTest, FetchesAfterABurstThatMayHaveFilledAQueue) {
  Board board;
  view->open();
  ASSERT_TRUE(runUntilLive());
  int resynchronised = 0;
  std::vector<uint32_t> told;
  view->onChange(settings::kRtspTcpPort, [&](uint32_t before, uint32_t now) {
    EXPECT_EQ(before, told.empty() ? 5000 : told.back());
    EXPECT_GT(now, told.empty() ? 0 : told.back()) << "nothing runs backwards";
    told.push_back(now);
  });
  view->onResynchronised([&] {
    ++resynchronised;
    EXPECT_EQ(told.back(), 5000u + 20000u) << "behind the differences";
  });
  for (unsigned int each = 1; each <= 20000; ++each) board.change(5000 + each);
  ASSERT_TRUE(runUntil([&] { return resynchronised > 0; }));
  EXPECT_EQ(port(), 25000u);
  run(milliseconds(100));
  EXPECT_EQ(port(), 25000u);
  EXPECT_GE(view->counters().overflows, 1u);
  EXPECT_EQ(view->state(), State::kLive);
}

TEST_F(BoardViewTest, FollowsARestartAndDeliversTheDifferences) {
  std::optional<Board> board(std::in_place);
  std::vector<std::string> told;
  view->onState([&](State, State now) { told.push_back(now == State::kLive ? "live" : "stale"); });
  view->onChange(settings::kRtspTcpPort, [&](uint32_t, uint32_t now) { told.push_back(std::to_string(now)); });
  view->onResynchronised([&] { told.emplace_back("resynchronised"); });
  view->open();
  ASSERT_TRUE(runUntilLive());
  board.reset();
  ASSERT_TRUE(runUntil([&] { return view->state() == State::kStale; }));
  EXPECT_EQ(port(), 5000u) << "the last that is known";
  board.emplace(6000);
  const auto back = std::chrono::steady_clock::now();
  ASSERT_TRUE(runUntilLive());
  EXPECT_LT(std::chrono::steady_clock::now() - back, milliseconds(250 * kSlowdown));
  run(milliseconds(20));
  EXPECT_THAT(told, ElementsAre("5000", "live", "stale", "6000", "live", "resynchronised"));
  EXPECT_EQ(view->counters().losses, 1u);
  EXPECT_EQ(view->counters().reconnections, 1u);
  EXPECT_EQ(view->counters().resynchronisations, 1u);
}

TEST_F(BoardViewTest, HealsAMalformedNotification) {
  Board board;
  view->open();
  ASSERT_TRUE(runUntilLive());
  std::vector<State> states;
  view->onState([&](State, State now) { states.push_back(now); });
  const std::vector<std::vector<std::string>> all = {{"1000", "nonsense"}, {"1000"},
                                                     {"1000", "{}", "{}"}, {"1000", ""},
                                                     {"1000", "{}"},       {"1000", R"({"stored": {"sap": {}}})"},
                                                     {"1004", "[]"}};
  std::uint64_t malformed = 0;
  for (const auto& frames : all) {
    states.clear();
    board.set(FakeBoard::kStored, storedWithPort(7000 + static_cast<unsigned int>(++malformed)));
    board.publisher.publish(frames);
    ASSERT_TRUE(runUntil([&] { return view->counters().malformed == malformed; })) << frames.back();
    ASSERT_TRUE(runUntil([&] { return states.size() == 2; })) << frames.back();
    EXPECT_THAT(states, ElementsAre(State::kStale, State::kLive));
    if (frames[0] == "1000") {
      EXPECT_EQ(port(), 7000 + malformed) << "what was lost is fetched";
    }
  }
}

TEST_F(BoardViewTest, TellsAValueOfAWrongTypeAndGoesOn) {
  Board board;
  view->open();
  ASSERT_TRUE(runUntilLive());
  std::string text;
  view->onWrongType([&](Document document, const std::string& what) {
    EXPECT_EQ(document, Document::kStored);
    text = what;
  });
  board.publisher.publish("1000", R"({"rtsp": {"tcp-port": "many"}})");
  ASSERT_TRUE(runUntil([&] { return !text.empty(); }));
  EXPECT_EQ(view->state(), State::kStale);
  EXPECT_TRUE(view->isUnreadable(Document::kStored));
  EXPECT_EQ(view->counters().wrongTypes, 1u);
  EXPECT_EQ(port(), 5000u);
  board.change(5001);
  ASSERT_TRUE(runUntilLive());
  EXPECT_EQ(port(), 5001u);
}

TEST_F(BoardViewTest, TellsARequestForARestart) {
  Board board;
  int told = 0;
  view->onRebootRequest([&] { ++told; });
  view->open();
  ASSERT_TRUE(runUntilLive());
  board.publisher.publish("1002", "");
  board.publisher.publish("1002", "{}");
  board.publisher.publish("10000", "{}");
  ASSERT_TRUE(runUntil([&] { return told == 2 && view->counters().unknownTopics == 1; }));
  EXPECT_EQ(view->counters().notifications, 3u);
}

/// TCP does not tell that a daemon is frozen.
TEST_F(BoardViewTest, NoticesAFrozenDaemonByAProbe) {
  Board board;
  view->setProbe(milliseconds(100), milliseconds(100 * kSlowdown));
  view->open();
  ASSERT_TRUE(runUntilLive());
  board.daemon.onRequest([](const zel::test::Request&) { return std::vector<zel::test::Answer>{}; });
  ASSERT_TRUE(runUntil([&] { return view->state() == State::kStale; }));
  EXPECT_GE(view->counters().probesWithoutAnswer, 1u);
  board.set(FakeBoard::kStored, storedWithPort(6000));
  board.answerAgain();
  ASSERT_TRUE(runUntilLive());
  EXPECT_EQ(port(), 6000u);
}

TEST_F(BoardViewTest, AProbeFindsAChangeThatNoNotificationTold) {
  Board board;
  view->setProbe(milliseconds(10));
  view->open();
  ASSERT_TRUE(runUntilLive());
  board.set(FakeBoard::kStored, storedWithPort(6000));
  ASSERT_TRUE(runUntil([&] { return port() == 6000; }));
  EXPECT_EQ(view->counters().missed, 1u);
  EXPECT_EQ(view->state(), State::kLive);
}

/// Nothing tells a subscriber when a busy publisher has seen its subscription.
TEST_F(BoardViewTest, FindsSoonWhatWasPublishedBeforeTheSubscriptionWasSeen) {
  Board board;
  view->open();
  ASSERT_TRUE(runUntilLive());
  board.set(FakeBoard::kStored, storedWithPort(6000));
  ASSERT_TRUE(runUntil([&] { return port() == 6000; }, milliseconds(600 * kSlowdown)));
  EXPECT_EQ(view->counters().missed, 1u);
  run(milliseconds(300));
  EXPECT_EQ(board.asked().size(), 8u) << "each document twice, then nothing until the next probe";
}

TEST_F(BoardViewTest, WithoutProbesItAsksNothing) {
  Board board;
  view->setProbe(milliseconds(0));
  view->open();
  ASSERT_TRUE(runUntilLive());
  run(milliseconds(300));
  EXPECT_EQ(board.asked().size(), 4u);
}

class BoardViewWrite : public BoardViewTest {
 protected:
  /// Sets the port, and expects that the completion sees it.
  void expectShown(Board& board, bool notify) {
    board.carryOutSets(notify);
    view->open();
    ASSERT_TRUE(runUntilLive());
    int status = 1;
    unsigned int shown = 0;
    view->set(settings::kRtspTcpPort, 5004, [&](const zel::Answer<void>& answer) {
      status = answer.status;
      shown = port();
    });
    ASSERT_TRUE(runUntil([&] { return status != 1; }));
    EXPECT_EQ(status, 0);
    EXPECT_EQ(shown, 5004u);
  }
};

TEST_F(BoardViewWrite, IsCompletedWhenTheNotificationShowsIt) {
  Board board;
  expectShown(board, true);
  EXPECT_EQ(board.asked().size(), 5u) << "nothing is fetched";
}

TEST_F(BoardViewWrite, IsCompletedByAFetchWhenNoNotificationComes) {
  Board board;
  expectShown(board, false);
  EXPECT_EQ(board.asked().size(), 6u);
}

/// The board has another value by now, whose notification is on the way; that of an unrelated change comes first.
TEST_F(BoardViewWrite, IsNotCompletedByAValueThatTheViewHeldBefore) {
  Board board;
  view->open();
  ASSERT_TRUE(runUntilLive());
  run(milliseconds(400));  // each document is looked at once more
  board.set(FakeBoard::kStored, storedWithPort(6000));
  board.daemon.onRequest([&](const zel::test::Request& request) -> std::vector<zel::test::Answer> {
    if (request.id != "2") return {board.answer(request)};
    board.publisher.publish("1000", R"({"rtsp": {"tcp-port": 5000}, "slp": {"enable": false}})");
    board.set(FakeBoard::kStored, storedWithPort(5000));
    return {"{}"};
  });
  bool isLate = true;
  std::vector<unsigned int> later;
  view->set(settings::kRtspTcpPort, 5000, [&](const zel::Answer<void>&) {
    EXPECT_FALSE(isLate);
    view->onChange(settings::kRtspTcpPort, [&](unsigned int, unsigned int now) { later.push_back(now); });
  });
  run(milliseconds(10));
  isLate = false;
  board.publisher.publish("1000", storedWithPort(6000));
  board.publisher.publish("1000", storedWithPort(5000));
  run(milliseconds(100));
  EXPECT_THAT(later, IsEmpty());
}

TEST_F(BoardViewWrite, AreCompletedInTheirOrderWhereOnlyTheLastNotificationIsRead) {
  Board board;
  board.carryOutSets(true);
  view->open();
  ASSERT_TRUE(runUntilLive());
  std::vector<int> order;
  for (const int number : {1, 2, 3}) {
    view->set(settings::kRtspTcpPort, 6000U + static_cast<unsigned int>(number),
              [&order, number](const zel::Answer<void>&) { order.push_back(number); });
  }
  while (order.empty()) {
    std::this_thread::sleep_for(milliseconds(3));
    view->process();
  }
  ASSERT_TRUE(runUntil([&] { return order.size() == 3; }));
  EXPECT_THAT(order, ElementsAre(1, 2, 3));
}

/// The notification of an earlier change comes while the document is fetched, and the one of the write does not come.
TEST_F(BoardViewWrite, IsNotCompletedByANotificationFromBefore) {
  Board board;
  board.carryOutSets(false);
  view->open();
  ASSERT_TRUE(runUntilLive());
  run(milliseconds(400));  // each document is looked at once more
  bool isLate = true;
  board.daemon.onRequest([&](const zel::test::Request& request) -> std::vector<zel::test::Answer> {
    if (request.id == "2") {
      board.set(FakeBoard::kStored, storedWithPort(5004));
      return {"{}"};
    }
    if (request.id == FakeBoard::kStored && std::exchange(isLate, false)) {
      board.publisher.publish("1000", storedWithPort(4999));
    }
    return {board.answer(request)};
  });
  unsigned int shown = 0;
  view->set(settings::kRtspTcpPort, 5004, [&](const zel::Answer<void>& answer) {
    EXPECT_EQ(answer.status, 0);
    shown = port();
  });
  ASSERT_TRUE(runUntil([&] { return shown != 0; }));
  EXPECT_EQ(shown, 5004u);
}

TEST_F(BoardViewTest, FetchesWhatIsNotifiedBehindTheBoardModel) {
  Board board;
  view->open();
  ASSERT_TRUE(runUntilLive());
  EXPECT_EQ(board.asked().front(), FakeBoard::kBoardModel);
}

TEST_F(BoardViewTest, ARefusedWriteCarriesTheDaemonsText) {
  Board board;
  view->open();
  ASSERT_TRUE(runUntilLive());
  board.daemon.answer(R"({"status": -5, "error": "out of range"})");
  zel::Answer<void> end;
  view->set(settings::kRtspTcpPort, 0, [&](const zel::Answer<void>& answer) { end = answer; });
  ASSERT_TRUE(runUntil([&] { return end.status != 0; }));
  EXPECT_EQ(end.status, -5);
  EXPECT_EQ(end.text, "out of range");
  EXPECT_EQ(view->counters().requestsRefused, 1u);
}

TEST_F(BoardViewTest, AWriteWithNobodyThereIsNotSent) {
  view->open();
  int status = 0;
  view->set(
      settings::kRtspTcpPort, 5004, [&](const zel::Answer<void>& answer) { status = answer.status; }, milliseconds(50));
  ASSERT_TRUE(runUntil([&] { return status != 0; }));
  EXPECT_EQ(status, -102);
  EXPECT_EQ(view->counters().requestsNotSent, 1u);
}

TEST_F(BoardViewTest, AChangeThatCannotBeReadBackIsUnknown) {
  Board board;
  view->open();
  ASSERT_TRUE(runUntilLive());
  board.refuse(FakeBoard::kWhitelist, -7);
  zel::Answer<void> end;
  WhiteListEntry entry;
  view->change(
      zel::requests::addMcastWhitelist(entry), Document::kWhitelist,
      [&](const zel::Answer<void>& answer) { end = answer; }, milliseconds(200 * kSlowdown));
  ASSERT_TRUE(runUntil([&] { return end.status != 0; }));
  EXPECT_EQ(end.status, -103);
  EXPECT_THAT(end.text, HasSubstr("the change was carried out, but the view could not read it back within "));
}

TEST_F(BoardViewTest, AnExceptionOfACallbackLosesNothing) {
  Board board;
  view->open();
  ASSERT_TRUE(runUntilLive());
  view->onChange([](const BoardChange&) { throw std::runtime_error("mine"); });
  std::vector<uint32_t> told;
  view->onChange(settings::kRtspTcpPort, [&](uint32_t, uint32_t now) { told.push_back(now); });
  board.change(5001);
  ASSERT_TRUE(isReadable(kSoon));
  bool thrown = false;
  while (!thrown) {
    ASSERT_TRUE(isReadable(kSoon));
    try {
      view->process();
    } catch (const std::runtime_error&) {
      thrown = true;
    }
  }
  EXPECT_THAT(told, IsEmpty());
  EXPECT_TRUE(isReadable());
  view->process();
  EXPECT_THAT(told, ElementsAre(5001u));
  EXPECT_EQ(port(), 5001u);
}

TEST_F(BoardViewTest, ACallbackMayRemoveOthersAndAddSome) {
  Board board;
  view->open();
  ASSERT_TRUE(runUntilLive());
  BoardView::Listener second = 0;
  int added = 0;
  view->onChange([&](const BoardChange&) {
    view->remove(second);
    view->onChange([&](const BoardChange&) { ++added; });
  });
  second = view->onChange([](const BoardChange&) { FAIL() << "it was removed"; });
  board.change(5001);
  ASSERT_TRUE(runUntil([&] { return port() == 5001; }));
  run(milliseconds(20));
  EXPECT_EQ(added, 0);
  EXPECT_FALSE(view->remove(second));
  board.change(5002);
  ASSERT_TRUE(runUntil([&] { return added == 1; }));
}

TEST_F(BoardViewTest, ACallbackMayDestroyTheView) {
  Board board;
  bool run = false;
  view->onState([&](State, State) {
    run = true;
    view.reset();
  });
  view->open();
  pollfd watched{view->descriptor(), POLLIN, 0};
  while (!run && poll(&watched, 1, static_cast<int>(kSoon.count())) == 1) view->process();
  EXPECT_TRUE(run);
  EXPECT_EQ(view, nullptr);
}

TEST_F(BoardViewTest, RecordsCanBeKept) {
  Board board;
  view->open();
  ASSERT_TRUE(runUntilLive());
  const zel::BoardRecords kept = view->records();
  board.change(5001);
  ASSERT_TRUE(runUntil([&] { return port() == 5001; }));
  view.reset();
  EXPECT_EQ(kept.stored->rtspTcpPort, 5000u);
}

TEST_F(BoardViewTest, TheDifferencesLeadFromTheFirstViewToTheLast) {
  Board board;
  Json::Value followed;
  view->onChange([&](const BoardChange& change) {
    if (change.document != Document::kStored) return;
    for (const zel::Difference& each : change.differences) zel::test::apply(each, followed);
  });
  view->open();
  ASSERT_TRUE(runUntilLive());
  for (unsigned int each = 1; each <= 50; ++each) {
    board.change(each);
    if (each % 7 == 0) run(milliseconds(5));
  }
  ASSERT_TRUE(runUntil([&] { return port() == 50; }));
  EXPECT_EQ(followed, view->document(Document::kStored));
}

TEST_F(BoardViewTest, LogsNoErrors) {
  CapturedLog log;
  std::optional<Board> board(std::in_place);
  view->open();
  ASSERT_TRUE(runUntilLive());
  board->publisher.publish("1000", "nonsense");
  ASSERT_TRUE(runUntil([&] { return view->counters().malformed == 1; }));
  board.reset();
  ASSERT_TRUE(runUntil([&] { return view->state() == State::kStale; }));
  EXPECT_THAT(log.texts(Logger::LEVEL_ERROR), IsEmpty());
}

TEST_F(BoardViewTest, InAForkedChildItDoesNothing) {
  Board board;
  view->open();
  ASSERT_TRUE(runUntilLive());
  const pid_t child = fork();
  if (child == 0) {
    const bool right = view->process() == 0;
    view.reset();
    _exit(right ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  board.change(5001);
  EXPECT_TRUE(runUntil([&] { return port() == 5001; }));
}

/// Another thread of the parent may have been changing the view, and the child does not have that thread.
TEST_F(BoardViewTest, AForkedChildThatDestroysItLeavesItAsItWas) {
  auto held = std::make_shared<int>();
  const std::weak_ptr<int> kept = held;
  view->onRebootRequest([held] {});
  held.reset();
  const int descriptor = view->descriptor();
  const pid_t child = fork();
  if (child == 0) {
    view.reset();
    _exit(!kept.expired() && fcntl(descriptor, F_GETFD) >= 0 ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  view.reset();
  EXPECT_TRUE(kept.expired());
}

/// A callback may fork. In the child the call of `process` returns and has touched nothing of the parent's.
TEST_F(BoardViewTest, AChildThatACallbackForkedLeavesTheParentsSocketsAlone) {
  Board board;
  view->open();
  ASSERT_TRUE(runUntilLive());
  pid_t child = -1;
  int later = 0;
  view->onChange([&](const BoardChange&) {
    if (child < 0) child = fork();
  });
  view->onChange([&](const BoardChange&) { ++later; });
  board.change(5001);
  while (child < 0) {
    ASSERT_TRUE(isReadable(kSoon));
    view->process();
  }
  if (child == 0) {
    view.reset();
    _exit(later == 0 ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_EQ(later, 1);
  board.change(5002);
  EXPECT_TRUE(runUntil([&] { return port() == 5002; }));
}

/// A child does not have the thread that opens views, and frees its stack when a thread of its own ends: the C library
/// keeps at most 40 MiB of stacks that no thread uses.
TEST(BoardViewInAForkedChild, IsNotTouchedAtExitWhileItWasBeingOpened) {
  if (zel::test::kSanitized) GTEST_SKIP() << "what only the stack of the thread knew is a leak to a sanitizer";
  std::atomic<bool> stopping{false};
  pthread_attr_t largeStack;
  pthread_attr_init(&largeStack);
  pthread_attr_setstacksize(&largeStack, std::size_t{64} << 20U);
  const auto openViews = [](void* stop) -> void* {
    zmq::context_t context;
    while (!*static_cast<std::atomic<bool>*>(stop)) BoardView(context).open();
    return nullptr;
  };
  pthread_t opener{};
  ASSERT_EQ(pthread_create(&opener, &largeStack, openViews, &stopping), 0);
  pthread_attr_destroy(&largeStack);
  for (int count = 0; count < 50 && !HasFailure(); ++count) {
    zel::test::ChildProcess child = zel::test::ChildProcess::call([] {
      std::thread([] {}).join();
      return 0;
    });
    EXPECT_EQ(child.wait(), 0) << child.errors();
  }
  stopping = true;
  pthread_join(opener, nullptr);
}

/// A loop that watches the descriptor sleeps while a frozen daemon lets a probe wait.
TEST_F(BoardViewTest, IsNotReadableWhileAProbeWaits) {
  Board board;
  view->setProbe(milliseconds(50), milliseconds(1000 * kSlowdown));
  view->open();
  ASSERT_TRUE(runUntilLive());
  const std::size_t asked = board.asked().size();
  board.daemon.onRequest([](const zel::test::Request&) { return std::vector<zel::test::Answer>{}; });
  ASSERT_TRUE(runUntil([&] { return board.asked().size() > asked; }));
  int calls = 0;
  const auto end = std::chrono::steady_clock::now() + milliseconds(300);
  while (std::chrono::steady_clock::now() < end) {
    if (!isReadable(milliseconds(50))) continue;
    view->process();
    ++calls;
  }
  EXPECT_LT(calls, 10) << "it is woken up for nothing now and then, but it does not spin";
}

TEST_F(BoardViewTest, FetchesAtOnceBehindAValueOfAWrongType) {
  Board board;
  view->setProbe(milliseconds(0));
  view->open();
  ASSERT_TRUE(runUntilLive());
  board.publisher.publish("1000", R"({"rtsp": {"tcp-port": "many"}})");
  ASSERT_TRUE(runUntil([&] { return view->counters().wrongTypes == 1; }));
  ASSERT_TRUE(runUntil([&] { return view->state() == State::kLive; }, milliseconds(80 * kSlowdown)));
  EXPECT_EQ(port(), 5000u);
}

/// A document that was being fetched when a notification of it was refused may be the one from before.
TEST_F(BoardViewTest, IsNotLiveByAFetchFromBeforeARefusedNotification) {
  for (const char* const refused : {"nonsense", R"({"rtsp": {"tcp-port": "many"}})"}) {
    Board board;
    view = std::make_unique<BoardView>(context);
    view->open();
    ASSERT_TRUE(runUntilLive());
    bool isFirst = true;
    board.daemon.onRequest([&](const zel::test::Request& request) -> std::vector<zel::test::Answer> {
      zel::test::Answer old = board.answer(request);
      if (request.id != FakeBoard::kStored || !std::exchange(isFirst, false)) return {old};
      board.set(FakeBoard::kStored, storedWithPort(6000));
      board.publisher.publish("1000", refused);
      return {std::move(old).after(milliseconds(30))};
    });
    bool wasStale = false;
    view->onState([&](State /*before*/, State now) {
      wasStale = wasStale || now == State::kStale;
      EXPECT_TRUE(now != State::kLive || port() == 6000u) << refused;
    });
    ASSERT_TRUE(runUntil([&] { return wasStale && view->state() == State::kLive; })) << refused;
    EXPECT_EQ(port(), 6000u);
  }
}

/// A daemon that was frozen when it ended is asked as any other one that comes back.
TEST_F(BoardViewTest, AsksOnceForEachDocumentAfterAFrozenDaemonHasEnded) {
  std::optional<Board> board(std::in_place);
  view->setProbe(milliseconds(500), milliseconds(100 * kSlowdown));
  view->open();
  ASSERT_TRUE(runUntilLive());
  board->daemon.onRequest([](const zel::test::Request&) { return std::vector<zel::test::Answer>{}; });
  ASSERT_TRUE(runUntil([&] { return view->counters().probesWithoutAnswer > 0; }));
  board.reset();
  ASSERT_TRUE(runUntil([&] { return view->counters().losses > 0; }));
  board.emplace();
  ASSERT_TRUE(runUntilLive());
  EXPECT_LE(board->asked().size(), 5u) << "a probe that waited for the board, and each document";
}

TEST_F(BoardViewTest, DropsARequestForARestartWithTheWrongFrames) {
  Board board;
  view->onRebootRequest([] { FAIL(); });
  view->open();
  ASSERT_TRUE(runUntilLive());
  board.publisher.publish(std::vector<std::string>{"1002"});
  board.publisher.publish({"1002", "{}", "{}"});
  ASSERT_TRUE(runUntil([&] { return view->counters().malformed == 2; }));
}

TEST_F(BoardViewTest, LogsTheLossOfTheConnectionUnderItsOwnName) {
  CapturedLog log;
  Logger::getInstance()->setLevel(Logger::LEVEL_PROGRESS);
  std::optional<Board> board(std::in_place);
  view->open();
  ASSERT_TRUE(runUntilLive());
  board.reset();
  ASSERT_TRUE(runUntil([&] { return view->state() == State::kStale; }));
  EXPECT_THAT(log.texts(Logger::LEVEL_PROGRESS),
              testing::Contains("BoardView: lost the connection to tcp://127.0.0.1:5575, connecting again"));
}

/// A daemon that refuses a query is not asked again and again at the pace of a daemon that is coming back.
TEST_F(BoardViewTest, AsksADaemonThatRefusesAQueryTwiceASecondAtMost) {
  Board board;
  board.refuse(FakeBoard::kWhitelist, -2);
  view->open();
  run(milliseconds(700));
  EXPECT_EQ(view->state(), State::kConnecting);
  const std::vector<std::string> asked = board.asked();
  EXPECT_LE(std::count(asked.begin(), asked.end(), FakeBoard::kWhitelist), 2) << "after the handshake, and once more";
  board.refuse(FakeBoard::kWhitelist, 0);
  EXPECT_TRUE(runUntilLive());
}

/// A view and a subscriber are of two libraries, and share the context.
TEST_F(BoardViewTest, FollowsBesideASubscriber) {
  Board board;
  view->open();
  SysmgrSubscriber first;
  EXPECT_EQ(first.init(context), 0);
  BoardView second(context);
  EXPECT_EQ(second.open(), 0);
  EXPECT_TRUE(runUntilLive());
  EXPECT_TRUE(zel::test::runUntil(second, [&] { return second.state() == State::kLive; }));
}

/// A view that was made with too few descriptors says so by its own; any other one is live when there are enough.
TEST_F(BoardViewTest, MadeWithTooFewDescriptorsItSaysSoOrRecovers) {
  Board board;
  zmq::context_t& own = context;  // the sanitizer needs descriptors to look at the type of this object
  int unusable = 0;
  for (unsigned int left = 0; left < 30; ++left) {
    std::unique_ptr<BoardView> made;
    {
      const FewDescriptors few(left);
      made = std::make_unique<BoardView>(own);
    }
    view = std::move(made);
    if (view->descriptor() < 0) {
      ++unusable;
      continue;
    }
    EXPECT_EQ(view->open(), 0);
    EXPECT_TRUE(runUntilLive()) << left;
    zel::Answer<void> written{1, ""};
    view->set(settings::kRtspTcpPort, 5000, [&](const zel::Answer<void>& answer) { written = answer; });
    EXPECT_TRUE(runUntil([&] { return written.status != 1; }));
    EXPECT_EQ(written.status, 0) << written.text;
  }
  EXPECT_GT(unusable, 0);
}

/// The view makes a client for its fetches with each connection, and may find too few descriptors then.
TEST_F(BoardViewTest, IsLiveWhenThereAreDescriptorsAgain) {
  Board board;
  view->open();
  ASSERT_TRUE(board.publisher.waitForSubscription("1000"));
  ASSERT_TRUE(isReadable(kSoon));
  {
    const NoDescriptors none(8);
    int calls = 0;
    for (const auto end = std::chrono::steady_clock::now() + milliseconds(500);
         std::chrono::steady_clock::now() < end;) {
      if (isReadable(milliseconds(20))) {
        ++calls;
        view->process();
      }
    }
    EXPECT_LT(calls, 30) << "it tries again after a while, not all the time";
  }
  EXPECT_EQ(view->state(), State::kConnecting);
  EXPECT_TRUE(runUntilLive());
  EXPECT_EQ(view->counters().reconnections, 0u) << "the connection is the first one";
}

/// As by a thread that goes on while another one destroys the static objects.
TEST_F(BoardViewTest, IsNotOpenedAfterItsEnd) {
  if (zel::test::kAddressSanitizer) {
    GTEST_SKIP() << "the view is called after its destructor, which the sanitizer reports, rightly";
  }
  if (zel::test::kThreadSanitizer) GTEST_SKIP() << zel::test::kNoThreadsAfterFork;
  zel::test::ChildProcess child = zel::test::ChildProcess::call([] {
    static zmq::context_t own;
    alignas(BoardView) static unsigned char memory[sizeof(BoardView)];
    auto* const ended = new (memory) BoardView(own, "inproc://a", "inproc://b");
    ended->~BoardView();
    return ended->open() == -101 ? 0 : 1;
  });
  EXPECT_EQ(child.wait(), 0) << child.errors();
}

/// The destructor waits for the call of the other thread, which calls again at once.
TEST(BoardViewAtTheEnd, IsDestroyedWhileAnotherThreadOpensItAgainAndAgain) {
  if (zel::test::kSanitized) GTEST_SKIP() << "the thread calls the view after its destructor";
  zel::test::ChildProcess child = zel::test::ChildProcess::call([] {
    static BoardView view(ZmqUtils::getInstance().getContext(), "nowhere", "nowhere");
    std::thread([] {
      for (;;) view.open();
    }).detach();
    std::this_thread::sleep_for(milliseconds(20));
    return 0;
  });
  EXPECT_EQ(child.wait(), 0) << child.errors();
}

TEST_F(BoardViewTest, AnEndpointThatIsNotValidIsReported) {
  const std::string good = "tcp://127.0.0.1:5575";
  const std::pair<std::string, std::string> endpoints[] = {{"nowhere", "nowhere"},
                                                           {good, "nowhere"},
                                                           {"nowhere", good},
                                                           {good, std::string("tcp://127.0.0.1:5\0"
                                                                              "575",
                                                                              21)}};
  for (const auto& [requests, notifications] : endpoints) {
    BoardView nowhere(context, requests, notifications);
    EXPECT_EQ(nowhere.open(), -101) << requests << " " << notifications;
    EXPECT_EQ(nowhere.set(settings::kRtspTcpPort, 5004), 0u);
    EXPECT_FALSE(zel::test::isReadable(nowhere, milliseconds(50)));
  }
}

TEST_F(BoardViewTest, SubmitsNothingBeforeItIsOpen) {
  EXPECT_EQ(view->set(settings::kRtspTcpPort, 5004, [](const auto&) { FAIL(); }), 0u);
  EXPECT_FALSE(isReadable(milliseconds(50)));
}

TEST_F(BoardViewTest, CutsTimesThatTheClockCannotCount) {
  Board board;
  board.carryOutSets(false);
  view->setProbe(milliseconds::max(), milliseconds::max());
  view->open();
  ASSERT_TRUE(runUntilLive());
  int status = 1;
  view->change(
      zel::requests::set(settings::kRtspTcpPort, 5004), Document::kStored,
      [&](const zel::Answer<void>& answer) { status = answer.status; }, milliseconds::max());
  ASSERT_TRUE(runUntil([&] { return status != 1; }));
  EXPECT_EQ(status, 0);
  EXPECT_EQ(port(), 5004u);
  run(milliseconds(400));
  EXPECT_EQ(board.asked().size(), 10u) << "4, 4 once more, the change, its fetch";
}

/// A loop that is slower than the window in which notifications are counted.
TEST_F(BoardViewTest, NoticesAFullQueueHoweverSlowTheLoopIs) {
  Board board;
  view->setProbe(milliseconds(0));
  view->open();
  ASSERT_TRUE(runUntilLive());
  for (unsigned int i = 0; i < 6000; ++i) board.change(10000 + i);
  const auto isKnown = [&] {
    if (view->counters().overflows == 0) std::this_thread::sleep_for(milliseconds(150));
    return port() == 15999;
  };
  ASSERT_TRUE(runUntil(isKnown));
  EXPECT_EQ(view->counters().overflows, 1u);
  ASSERT_TRUE(runUntilLive());
}

/// What is fetched during a burst is newer than the notifications that are still on their way.
TEST_F(BoardViewTest, DoesNotGoBackToNotificationsOfABurstAfterAFetch) {
  Board board;
  view->setProbe(milliseconds(0));
  view->open();
  ASSERT_TRUE(runUntilLive());
  std::vector<unsigned int> ports;
  view->onChange(settings::kRtspTcpPort, [&](unsigned int, unsigned int now) { ports.push_back(now); });
  for (unsigned int i = 0; i < 950; ++i) board.publisher.publish("1000", storedWithPort(10000 + i));
  ASSERT_TRUE(runUntil([&] { return view->counters().overflows == 1; }));
  board.set(FakeBoard::kStored, storedWithPort(20000));
  board.publisher.publish("1000", "not JSON");  // has the document fetched
  run(milliseconds(10));
  board.publisher.publish("1000", storedWithPort(11000));
  ASSERT_TRUE(runUntil([&] { return port() == 20000; }));
  ASSERT_TRUE(runUntilLive());
  run(milliseconds(50));
  EXPECT_THAT(ports, testing::WhenSorted(testing::ElementsAreArray(ports))) << "it went back";
  EXPECT_EQ(port(), 20000u);
}

}  // namespace
