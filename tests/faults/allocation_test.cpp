// Each allocation of an operation fails once. What comes of it is a negative code or std::bad_alloc; nothing is half
// done where it must not be, nothing leaks (the address sanitizer tells) and the next operation works.

#include <gmock/gmock.h>
#include <poll.h>

#include <algorithm>
#include <functional>

#include "client/async_client.h"
#include "client/sysmgr_client.h"
#include "client/sysmgr_jsonApi.h"
#include "client/zmq_utils.h"
#include "common/logger.h"
#include "common/status.h"
#include "config/system_default_cfg.h"
#include "subscriber/sysmgr_subscriber.h"
#include "tests/support/child_process.h"
#include "tests/support/failing_allocations.h"
#include "tests/support/fake_board.h"
#include "tests/support/wait_until.h"

namespace {

using testing::AnyOf;
using testing::Eq;
using testing::Gt;
using zel::test::ChildProcess;
using zel::test::failEachAllocation;
using zel::test::FailingAllocation;
using zel::test::FakeBoard;
using zel::test::kSoon;
using zel::test::Request;
using Status = std::optional<int>;

// Two states of a board that differ in everything, texts too long for the string itself included.
constexpr char kStoredA[] = R"({
  "rtsp": {"tcp-port": 5004, "eth-port": "a network interface"}, "cfg": {"cfg-file-path": "/a/path/of/many/characters"},
  "advert": {"board-name-prefix": "a prefix of many characters", "tcp-port": 81}, "vlan": {"primary-id": 11},
  "nmos": {"node-name": "a node of many characters", "device-name": "a device of many characters", "slot-id": 1},
  "videoTimingParameters": {"timing-mode": "2059"}, "sap": {"enable": true}, "serial-number": "a number of many digits",
  "ethipv4": [{"eth": "an interface of many characters", "mode": "DHCP"},
              {"eth": "eth1", "mode": "static", "static": {"ip": "10.0.0.1"}}]})";
constexpr char kStoredB[] = R"({
  "rtsp": {"tcp-port": 6004, "eth-port": "b network interface with a long name"}, "cfg": {"cfg-file-path": "/b/path/of/many/more/characters"},
  "advert": {"board-name-prefix": "b prefix of a great many characters", "tcp-port": 82}, "vlan": {"primary-id": 12},
  "nmos": {"node-name": "b node of a great many characters", "device-name": "b device of a great many characters", "slot-id": 2},
  "videoTimingParameters": {"timing-mode": "frame_sync"}, "sap": {"enable": false},
  "serial-number": "b number of a great many digits", "ethipv4": [
    {"eth": "b interface of a great many characters", "mode": "DHCP"}, {"eth": "eth1", "mode": "DHCP"},
    {"eth": "c interface of a great many characters", "mode": "DHCP"}]})";
constexpr char kDynamicA[] = R"({"chipid-name": "a chip of many characters", "eth-basics": [
  {"name": "eth0", "mac": "aaaaaaaaaaaa", "ip": "10.0.0.1"}, {"name": "a network interface", "ip": "10.0.0.2"}]})";
constexpr char kDynamicB[] = R"({"chipid-name": "b chip of a great many characters", "eth-basics": [
  {"name": "eth0", "mac": "bbbbbbbbbbbb", "ip": "10.0.0.3"}, {"name": "b network interface with a long name", "ip": "10.0.0.4"}]})";
constexpr char kModelA[] = R"({"model": "KORVA", "module": "SDI-ST2110"})";
constexpr char kModelB[] = R"({"model": "ZIRC", "module": "HDMI-ST2110"})";
constexpr char kWhitelistA[] =
    R"([{"ip": "239.1.1.1", "mask": "255.255.255.0", "enabled": true}, {"ip": "239.1.1.2"}])";
constexpr char kWhitelistB[] = R"([{"ip": "239.2.1.1"}, {"ip": "239.2.1.2"}, {"ip": "239.2.1.3", "enabled": true}])";

/// Lets the library format every message, and drops it.
void logEverythingAway() {
  Logger::getInstance()->setSink([](Logger::logDebugLevel_t, const std::string&) {});
  Logger::getInstance()->setLevel(Logger::LEVEL_TRACE);
}

void setA(FakeBoard& board) {
  board.set(FakeBoard::kStored, kStoredA);
  board.set(FakeBoard::kDynamic, kDynamicA);
  board.set(FakeBoard::kBoardModel, kModelA);
  board.set(FakeBoard::kWhitelist, kWhitelistA);
}

void setB(FakeBoard& board) {
  board.set(FakeBoard::kStored, kStoredB);
  board.set(FakeBoard::kDynamic, kDynamicB);
  board.set(FakeBoard::kBoardModel, kModelB);
  board.set(FakeBoard::kWhitelist, kWhitelistB);
}

template <class Record>
Json::Value written(const Record& record) {
  Json::Value document;
  record.Serialize(document);
  return document;
}

Json::Value written(const std::list<WhiteListEntry>& entries) {
  Json::Value document(Json::arrayValue);
  for (const WhiteListEntry& entry : entries) document.append(written(entry));
  return document;
}

class AllocationFailure : public testing::Test {
 protected:
  AllocationFailure() {
    logEverythingAway();
    setA(board_);
  }

  FakeBoard board_;
  zmq::context_t context_;
};

// ---- requests

TEST_F(AllocationFailure, LeavesTheReplyOfARequestUntouched) {
  SysMgrJsonClient client;
  ASSERT_EQ(client.init(context_), 0);
  Json::Value whole;
  ASSERT_EQ(client.getStoredParameters(whole), 0);
  Json::Value reply("untouched");
  const auto judge = [&](Status status) {
    EXPECT_EQ(reply, status.value_or(-1) < 0 ? Json::Value("untouched") : whole);
    EXPECT_EQ(client.getStoredParameters(reply), 0);
    EXPECT_EQ(reply, whole);
    reply = "untouched";
  };
  EXPECT_THAT(failEachAllocation([&] { return client.getStoredParameters(reply); }, judge), Gt(30));
}

/// What is sent as a setter's request; its text takes an allocation of its own.
NmosParameters longNamed() {
  NmosParameters nmos;
  nmos.nodeName = "a node whose name is longer than a string holds without an allocation";
  return nmos;
}

TEST_F(AllocationFailure, LeavesNothingOfANewClientBehindAndSendsNoHalfRequest) {
  const NmosParameters nmos = longNamed();
  const auto attempt = [&] {
    SysMgrClient client;
    const int status = client.init(context_);
    return status < 0 ? status : client.setNmosParameters(nmos);
  };
  EXPECT_THAT(failEachAllocation(attempt, [](Status) {}), Gt(30));
  for (const Request& request : board_.daemon.requests()) EXPECT_EQ(request.json, written(nmos)) << request.body;
}

/// Fetches a record with each allocation failing.
template <class Record, class Fetch>
void fetchRecord(SysMgrClient& client, Fetch fetch) {
  Record whole;
  ASSERT_EQ((client.*fetch)(whole), 0);
  Record record;
  const auto judge = [&](Status status) {
    if (status) {
      EXPECT_EQ(written(record), written(*status < 0 ? Record() : whole));
    }
    Record next;
    EXPECT_EQ((client.*fetch)(next), 0);
    EXPECT_EQ(written(next), written(whole));
    record = Record();
  };
  EXPECT_THAT(failEachAllocation([&] { return (client.*fetch)(record); }, judge), Gt(0));
}

TEST_F(AllocationFailure, LeavesARecordUntouchedWhereACodeTellsOfIt) {
  SysMgrClient client;
  ASSERT_EQ(client.init(context_), 0);
  fetchRecord<SysParameters>(client, &SysMgrClient::getStoredParameters);
  fetchRecord<SysParametersDynamic>(client, &SysMgrClient::getDynamicParameters);
  fetchRecord<BoardModel>(client, &SysMgrClient::getBoardModel);
  fetchRecord<std::list<WhiteListEntry>>(client, &SysMgrClient::getMcastWhitelist);
}

TEST_F(AllocationFailure, LeavesAClientWorkingThatSends) {
  SysMgrClient client;
  ASSERT_EQ(client.init(context_), 0);
  const NmosParameters nmos = longNamed();
  const auto judge = [&](Status) { EXPECT_EQ(client.setNmosParameters(nmos), 0); };
  EXPECT_THAT(failEachAllocation([&] { return client.setNmosParameters(nmos); }, judge), Gt(20));
  for (const Request& request : board_.daemon.requests()) EXPECT_EQ(request.json, written(nmos)) << request.body;
}

TEST_F(AllocationFailure, LeavesAClientWhoseRequestIsRefusedWorking) {
  board_.refuse(FakeBoard::kStored, -5);
  SysMgrClient client;
  ASSERT_EQ(client.init(context_), 0);
  SysParameters record;
  const auto attempt = [&] { return client.getStoredParameters(record) == -5 ? 0 : -1; };
  const auto judge = [&](Status) {
    EXPECT_EQ(client.getStoredParameters(record), -5);
    ErrorReport report;
    EXPECT_EQ(client.getLastErrorMessage(report), 0);
    EXPECT_EQ(report.code, -5);
    EXPECT_EQ(written(record), written(SysParameters()));
  };
  EXPECT_THAT(failEachAllocation(attempt, judge), Gt(5));
}

/// An asynchronous client and its loop.
class AsyncRequests {
 public:
  explicit AsyncRequests(zmq::context_t& context) : client_(context) {}

  /// Has a request carried out, until its completion has run. @return its status
  int carryOut() {
    completions = 0;
    submitted = false;
    submitted = client_.submit(request_, completion_, kTimeout) != 0;
    return await();
  }
  int await() {
    pollfd watched{client_.descriptor(), POLLIN, 0};
    while (client_.pending() > 0 && poll(&watched, 1, static_cast<int>(kSoon.count())) == 1) client_.process();
    return status_;
  }
  std::size_t pending() const { return client_.pending(); }

  bool submitted = false;
  int completions = 0;

 private:
  static constexpr std::chrono::milliseconds kTimeout{500 * zel::test::kSlowdown};
  zel::AsyncClient client_;
  zel::Request<SysParameters> request_ = zel::requests::storedParameters();
  std::function<void(const zel::Answer<SysParameters>&)> completion_ = [this](const auto& answer) {
    ++completions;
    status_ = answer.status;
    EXPECT_EQ(answer.value.ethIPv4Cfg.size(), answer.ok() ? 2u : 0u) << "whole or not at all";
  };
  int status_ = -1;
};

TEST_F(AllocationFailure, CompletesEachRequestOfAnAsynchronousClientOnce) {
  AsyncRequests requests(context_);
  ASSERT_EQ(requests.carryOut(), 0);
  const auto judge = [&](Status) {
    EXPECT_EQ(requests.pending() + static_cast<std::size_t>(requests.completions), requests.submitted ? 1u : 0u);
    requests.await();
    EXPECT_EQ(requests.completions, requests.submitted ? 1 : 0);
    EXPECT_EQ(requests.carryOut(), 0);
  };
  EXPECT_THAT(failEachAllocation([&] { return requests.carryOut(); }, judge), Gt(30));
}

/// Those that wait behind a daemon that is away, and whose time is over, one by one.
TEST_F(AllocationFailure, EndsEachLateRequestOfAnAsynchronousClientOnce) {
  zel::AsyncClient client(context_, "tcp://127.0.0.1:5999");
  std::size_t completions = 0;
  std::size_t submitted = 0;
  const std::function<void(const zel::Answer<void>&)> completion = [&](const auto&) { ++completions; };
  const zel::Request<void> request = zel::requests::factoryReset();
  const auto attempt = [&] {
    completions = 0;
    for (submitted = 0; submitted < 3; ++submitted) client.submit(request, completion, std::chrono::milliseconds(1));
    while (client.pending() > 0) client.process();
    return 0;
  };
  const auto judge = [&](Status) {
    while (client.pending() > 0) client.process();
    EXPECT_EQ(completions, submitted);
  };
  EXPECT_THAT(failEachAllocation(attempt, judge), Gt(30));
}

// ---- notifications

/// Sees whether each record is whole, without an allocation.
class Receiver final : public SysmgrSubscriber {
 public:
  int notifyStoredParametersUpdate(SysParameters& parameters) override {
    ++received;
    EXPECT_EQ(parameters.ethIPv4Cfg.size(), 2u);
    EXPECT_STREQ(parameters.cfgFilePath.c_str(), "/a/path/of/many/characters");
    EXPECT_STREQ(parameters.nmos.nodeName.c_str(), "a node of many characters");
    return 0;
  }
  int received = 0;
};

TEST_F(AllocationFailure, CostsASubscriberOneNotificationAtMost) {
  Receiver receiver;
  PollFds fds;
  ASSERT_EQ(receiver.init(context_), 0);
  ASSERT_EQ(receiver.subscribeAll(), 0);
  ASSERT_EQ(receiver.getPollItems(fds), 0);
  ASSERT_TRUE(board_.publisher.waitForSubscription("1000"));
  const auto publish = [&] {
    board_.publisher.publish("1000", kStoredA);
    EXPECT_EQ(fds.poll(kSoon.count()), 1);
  };
  const auto judge = [&](Status) {
    while (receiver.processEvent(fds[0]) != 0) continue;
    receiver.received = 0;
    publish();
    EXPECT_NE(receiver.processEvent(fds[0]), 0);
    EXPECT_EQ(receiver.received, 1);
    publish();  // for the next attempt
  };
  publish();
  EXPECT_THAT(failEachAllocation([&] { return receiver.processEvent(fds[0]); }, judge), Gt(30));
}

TEST_F(AllocationFailure, LeavesNothingOfANewSubscriberBehind) {
  const auto connect = [&] {
    Receiver receiver;
    PollFds fds;
    int status = receiver.init(context_);
    if (status >= 0) status = receiver.subscribeAll();
    if (status >= 0) status = receiver.getPollItems(fds);
    return status < 0 ? status : fds.poll(0);
  };
  EXPECT_THAT(failEachAllocation(connect, [](Status) {}), Gt(5));
}

TEST_F(AllocationFailure, LetsASubscriberBeConnectedAgain) {
  Receiver receiver;
  long failed = 0;
  for (bool connected = false; !connected;) {
    const FailingAllocation failing(++failed);
    try {
      connected = receiver.init(context_) == 0;
    } catch (const std::bad_alloc&) {
      // as documented
    }
  }
  EXPECT_THAT(failed, Gt(5));
  PollFds fds;
  ASSERT_EQ(receiver.subscribeAll(), 0);
  ASSERT_EQ(receiver.getPollItems(fds), 0);
  ASSERT_TRUE(board_.publisher.waitForSubscription("1000"));
  board_.publisher.publish("1000", kStoredA);
  EXPECT_EQ(fds.poll(kSoon.count()), 1);
  EXPECT_NE(receiver.processEvent(fds[0]), 0);
  EXPECT_EQ(receiver.received, 1);
}

TEST(EndOfTheProcess, TakesNoAllocation) {
  ChildProcess user = ChildProcess::call([] {
    static zmq::context_t context;
    static SysMgrJsonClient client;
    static Receiver receiver;
    EXPECT_EQ(client.init(context), 0);
    EXPECT_EQ(receiver.init(context), 0);
    [[maybe_unused]] static const FailingAllocation* toTheEnd = nullptr;
    std::atexit([] { toTheEnd = new FailingAllocation(1); });  // runs first: it was registered last
    return 0;
  });
  EXPECT_EQ(user.wait(), 0) << user.errors();
}

// ---- the cache

/// What the cache shows, in the parts that change as one.
struct View {
  Json::Value stored, dynamic, model, whitelist;

  static View now() {
    SystemDefaultCfg& cache = SystemDefaultCfg::getInstance();
    View view;
    unsigned int number = 0;
    std::string text;
    cache.getRtspTcpPort(&number);
    view.stored["rtsp"] = number;
    cache.getAdvertisementTcpPort(&number);
    view.stored["advert"] = number;
    cache.getCfgFilePath(&text);
    view.stored["path"] = text;
    cache.getAdvertisementBoardName(&text);
    view.stored["prefix"] = text.substr(0, 2);
    view.stored["sap"] = cache.isSapEnable();
    view.stored["vlan"] = cache.getPrimaryVlanTag();
    view.stored["nmos"] = written(cache.getNmosParameters());
    VideoTimingParameters timing;
    cache.getVideoTimingParameters(timing);
    view.stored["timing"] = written(timing);

    view.dynamic["mac"] = text.size() < 12 ? text : text.substr(text.size() - 12);
    for (const uint32_t ip : {0x0A000001u, 0x0A000002u, 0x0A000003u, 0x0A000004u}) {
      view.dynamic["local"].append(cache.isLocalBoardIpAddr(IpAddress(ip)));
    }
    const BoardModel model = cache.getBoardModel();
    view.model = written(model);
    view.model["formats"] = Json::UInt(model.supportedVideoFormats.size());
    view.whitelist = written(cache.getMulticastWhiteList());
    return view;
  }
};

bool operator==(const View& a, const View& b) {
  return a.stored == b.stored && a.dynamic == b.dynamic && a.model == b.model && a.whitelist == b.whitelist;
}

void expectPartsOf(const View& view, const View& a, const View& b) {
  EXPECT_THAT(view.stored, AnyOf(Eq(a.stored), Eq(b.stored)));
  EXPECT_THAT(view.dynamic, AnyOf(Eq(a.dynamic), Eq(b.dynamic)));
  EXPECT_THAT(view.model, AnyOf(Eq(a.model), Eq(b.model)));
  EXPECT_THAT(view.whitelist, AnyOf(Eq(a.whitelist), Eq(b.whitelist)));
}

class CacheAllocationFailure : public testing::Test {
 protected:
  CacheAllocationFailure() {
    logEverythingAway();
    setB(board_);
    cache_.init();
    b_ = View::now();
    setA(board_);
    cache_.init();
    a_ = View::now();
  }

  FakeBoard board_;
  SystemDefaultCfg& cache_ = SystemDefaultCfg::getInstance();
  View a_, b_;
};

TEST_F(CacheAllocationFailure, LeavesEachPartOldOrNewWhenEverythingIsFetched) {
  ASSERT_FALSE(a_ == b_);
  setB(board_);
  const auto judge = [&](Status status) {
    expectPartsOf(View::now(), a_, b_);
    EXPECT_TRUE(status != 0 || View::now() == b_);
    setA(board_);
    EXPECT_EQ(cache_.init(), 0);
    EXPECT_TRUE(View::now() == a_);
    setB(board_);
  };
  EXPECT_THAT(failEachAllocation([&] { return cache_.init(); }, judge), Gt(100));
}

TEST_F(CacheAllocationFailure, LeavesTheInterfacesOldOrNewWhenTheyAreFetched) {
  setB(board_);
  std::list<EthBasicInfo> list;
  const auto judge = [&](Status) {
    expectPartsOf(View::now(), a_, b_);
    setA(board_);
    EXPECT_EQ(cache_.getEthDynamicBasicInfo(list), 0);
    EXPECT_TRUE(View::now() == a_);
    setB(board_);
  };
  EXPECT_THAT(failEachAllocation([&] { return cache_.getEthDynamicBasicInfo(list); }, judge), Gt(5));
}

TEST_F(CacheAllocationFailure, LeavesEachPartOldOrNewWhenANotificationTellsOfIt) {
  PollFds fds;
  ASSERT_EQ(cache_.initSubscribers(fds), 0);
  for (const char* const topic : {"1000", "1001", "1004"}) ASSERT_TRUE(board_.publisher.waitForSubscription(topic));
  const auto publish = [&](const char* topic, const std::string& document) {
    board_.publisher.publish(topic, document);
    EXPECT_EQ(fds.poll(kSoon.count()), 1);
  };
  const auto process = [&] { return cache_.processEvent(fds[0]) != 0 ? 0 : -1; };
  const auto listed = [](const char* entries) { return R"({"white-list": )" + std::string(entries) + "}"; };
  struct Row {
    const char* topic;
    std::string a, b;
  };
  for (const Row& row : {Row{"1000", kStoredA, kStoredB}, Row{"1001", kDynamicA, kDynamicB},
                         Row{"1004", listed(kWhitelistA), listed(kWhitelistB)}}) {
    SCOPED_TRACE(row.topic);
    const auto judge = [&](Status) {
      while (process() == 0) continue;
      expectPartsOf(View::now(), a_, b_);
      publish(row.topic, row.b);
      EXPECT_EQ(process(), 0);
      EXPECT_FALSE(View::now() == a_);
      publish(row.topic, row.a);
      EXPECT_EQ(process(), 0);
      EXPECT_TRUE(View::now() == a_);
      publish(row.topic, row.b);
    };
    publish(row.topic, row.b);
    EXPECT_THAT(failEachAllocation(process, judge), Gt(5));
    EXPECT_EQ(process(), 0);
    publish(row.topic, row.a);
    EXPECT_EQ(process(), 0);
  }
}

// A process of its own for each: a first use comes once.
TEST(FirstUseOfTheCache, CanBeTriedAgainAfterAFailedAllocation) {
  ChildProcess board = ChildProcess::call([] {
    FakeBoard own;
    setA(own);
    std::puts("ready");
    std::fflush(stdout);
    return pause();
  });
  ASSERT_TRUE(board.waitForOutput("ready"));
  constexpr int kNoneFailed = 3;
  const auto firstUse = [](long number) {
    logEverythingAway();
    bool happened = false;
    {
      const FailingAllocation failing(number);
      try {
        SystemDefaultCfg::getInstance();
      } catch (const std::bad_alloc&) {
        // as documented
      }
      happened = failing.happened();
    }
    SystemDefaultCfg& cache = SystemDefaultCfg::getInstance();
    EXPECT_EQ(cache.init(), 0);
    EXPECT_EQ(View::now().stored["rtsp"], 5004u);
    EXPECT_EQ(View::now().whitelist.size(), 2u);
    return happened ? 0 : kNoneFailed;
  };
  for (long number = 1;; ++number) {
    ChildProcess user = ChildProcess::call([&] { return firstUse(number); });
    const auto status = user.wait();
    if (status == kNoneFailed) {
      EXPECT_THAT(number, Gt(100));
      break;
    }
    ASSERT_EQ(status, 0) << "allocation " << number << " failed\n" << user.output() << user.errors();
  }
}

}  // namespace
