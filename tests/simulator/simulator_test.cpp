#include "simulator/simulator.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <functional>

#include "client/sysmgr_client.h"
#include "common/subscribe_json_client.h"
#include "tests/common/test_client.h"
#include "tests/simulator/failing_files.h"
#include "tests/simulator/json_text.h"
#include "tests/simulator/listener.h"
#include "tests/simulator/temporary_folder.h"
#include "tests/support/interrupted_calls.h"
#include "tests/support/setter_calls.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using zel::sim::SimulatorOptions;
using zel::sim::SimulatorThread;
using zel::test::at;
using zel::test::FailingFiles;
using zel::test::json;
using zel::test::kSoon;
using zel::test::Listener;
using zel::test::SetterCall;
using zel::test::TestClient;
using zel::test::text;
namespace refusal = zel::sim::refusal;

SimulatorOptions with(const std::vector<std::string>& faults) {
  SimulatorOptions options;
  for (const std::string& fault : faults) {
    zel::sim::FaultRule rule;
    EXPECT_THAT(zel::sim::FaultRule::parse(fault, rule), IsEmpty()) << fault;
    options.faults.push_back(rule);
  }
  return options;
}

// --- every setter

/// Calls a setter, and expects the value at a path of the stored parameters and of the notification.
void expectStored(const std::function<int(SysMgrClient&)>& setter, const char* path, const Json::Value& value) {
  const SimulatorThread simulator;
  ASSERT_THAT(simulator.failure(), IsEmpty());
  zmq::context_t context;
  SysMgrClient client;
  ASSERT_EQ(client.init(context), 0);
  Listener listener(context, {"1000"});
  SysParameters stored;
  Json::Value before;
  ASSERT_EQ(client.getStoredParameters(stored), 0);
  stored.Serialize(before);
  ASSERT_NE(text(at(before, path)), text(value)) << "the setter changes nothing";

  EXPECT_EQ(setter(client), 0);

  Json::Value after;
  SysParameters changed;
  ASSERT_EQ(client.getStoredParameters(changed), 0);
  changed.Serialize(after);
  EXPECT_EQ(text(at(after, path)), text(value));
  Json::Value published;
  ASSERT_TRUE(listener.waitFor([&](const std::string& topic, const Json::Value& payload) {
    published = payload;
    return topic == "1000" && text(at(payload, path)) == text(value);
  }));
  EXPECT_EQ(text(published), text(after));
}

class EverySetter : public testing::TestWithParam<SetterCall> {};

TEST_P(EverySetter, IsFoundAgainAtItsPlaceAndInTheNotification) {
  const SetterCall& setter = GetParam();
  if (setter.row == &zel::settings::kAddInterface) {
    expectStored(setter.call, "ethipv4", json(R"([{"eth": "eth0", "mode": "DHCP"}, {"eth": "eth1", "mode": "DHCP"},
                                                  {"eth": "eth2", "mode": "DHCP"}])"));
  } else if (setter.row == &zel::settings::kRemoveInterface) {
    expectStored(setter.call, "ethipv4", json(R"([
        {"eth": "eth0", "mode": "static",
         "static": {"gw": "0.0.0.0", "ip": "192.168.0.100", "mask": "255.255.255.0"}},
        {"eth": "eth2", "mode": "DHCP"}])"));
  } else {
    expectStored(setter.call, setter.row->path, setter.value);
  }
}

INSTANTIATE_TEST_SUITE_P(Simulator, EverySetter, testing::ValuesIn(zel::test::setterCalls()), zel::test::nameOfSetter);

// --- over the wire

class RunningSimulator : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_THAT(simulator_.failure(), IsEmpty());
    ASSERT_EQ(client_.init(context_), 0);
  }

  ErrorReport lastError() {
    ErrorReport report;
    client_.getLastErrorMessage(report);
    return report;
  }

  SimulatorThread simulator_;
  zmq::context_t context_;
  SysMgrClient client_;
  TestClient json_{context_, kSoon};
};

TEST_F(RunningSimulator, RefusesWithATextForThePerson) {
  Listener listener(context_, {""});
  EXPECT_EQ(client_.setRtspTcpPort(70000), refusal::kOutOfRange);
  EXPECT_EQ(lastError().code, refusal::kOutOfRange);
  EXPECT_THAT(lastError().text, HasSubstr("\"rtsp-tcp-port\" is 70000"));

  EXPECT_EQ(client_.setVlanPrimaryID(4095), refusal::kOutOfRange);
  EXPECT_THAT(lastError().text, HasSubstr("\"primary-vlan-id\" is 4095"));

  EthIpV4Cfg cfg;
  cfg.eth = "eth1";
  cfg.ip = 0xEF010101;
  EXPECT_EQ(client_.addEthIPv4Cfg(cfg), zel::status::kInvalidAddress);
  EXPECT_THAT(lastError().text, HasSubstr("239.1.1.1"));
  EXPECT_THAT(lastError().text, HasSubstr("Interface IP cannot be multicast"));

  EXPECT_EQ(client_.remEthIPv4Cfg("eth9"), zel::status::kInterfaceNotFound);
  EXPECT_EQ(client_.removeMcastWhitelist("224.0.1.129", "255.255.255.255"), refusal::kFixedEntry);
  EXPECT_EQ(client_.enableMcastWhitelist("224.0.1.129", "255.255.255.255", false), refusal::kFixedEntry);

  EXPECT_EQ(client_.rebootDevice(), 0);  // the next that is published: nothing was before
  std::string first;
  ASSERT_TRUE(listener.waitFor([&](const std::string& topic, const Json::Value&) {
    first = topic;
    return true;
  }));
  EXPECT_EQ(first, "1002");
}

TEST_F(RunningSimulator, WorksOnTheWhitelist) {
  Listener listener(context_, {"1004"});
  EXPECT_EQ(client_.addMcastWhitelist("239.1.0.0", "255.255.0.0", true), 0);
  EXPECT_EQ(client_.enableMcastWhitelist("239.1.0.0", "255.255.0.0", false), 0);
  std::list<WhiteListEntry> entries;
  EXPECT_EQ(client_.getMcastWhitelist(entries), 0);
  ASSERT_EQ(entries.size(), 4U);
  EXPECT_EQ(std::next(entries.begin())->getIpStr(), "239.1.0.0");
  EXPECT_FALSE(std::next(entries.begin())->is_enabled());
  EXPECT_EQ(client_.removeMcastWhitelist("239.1.0.0", "255.255.0.0"), 0);
  for (const unsigned int size : {4U, 4U, 3U}) {
    unsigned int published = 0;
    EXPECT_TRUE(listener.waitFor([&](const std::string&, const Json::Value& payload) {
      published = payload["white-list"].size();
      return true;
    }));
    EXPECT_EQ(published, size);
  }
}

TEST_F(RunningSimulator, GoesBackToTheFactoryState) {
  SysParameters factory;
  ASSERT_EQ(client_.getStoredParameters(factory), 0);
  ASSERT_EQ(client_.setRtspTcpPort(5004), 0);
  Listener listener(context_, {"1000"});
  EXPECT_EQ(client_.factoryReset(), 0);
  SysParameters after;
  ASSERT_EQ(client_.getStoredParameters(after), 0);
  EXPECT_EQ(after.rtspTcpPort, 8554U);
  EXPECT_EQ(after.serialNumber, factory.serialNumber);
  EXPECT_TRUE(listener.waitFor(
      [](const std::string&, const Json::Value& payload) { return at(payload, "rtsp/tcp-port").asUInt() == 8554; }));
}

TEST_F(RunningSimulator, AnswersTheOtherQueries) {
  SysParametersDynamic dynamic;
  EXPECT_EQ(client_.getDynamicParameters(dynamic), 0);
  EXPECT_EQ(dynamic.ethBasics.size(), 3U);
  BoardModel model;
  EXPECT_EQ(client_.getBoardModel(model), 0);
  EXPECT_EQ(model.model, BoardModelType::ORVEN_AES67);
  SystemBasicInfo info;
  EXPECT_EQ(client_.getSystemInfo(info), 0);
  EXPECT_EQ(info.fields["name"], "ORVEN AES67");
  NetworkStackStatus status;
  EXPECT_EQ(client_.getNetworkStackStatus(status), 0);
  EXPECT_EQ(status.fields["state"], "running");
  EXPECT_EQ(client_.setModuleState("audio", true, false), 0);
  EXPECT_EQ(client_.getDynamicParameters(dynamic), 0);
  EXPECT_EQ(dynamic.errors.size(), 1U);
}

TEST_F(RunningSimulator, NamesACommandThatItDoesNotKnow) {
  const auto outcome = json_.send(4711);
  EXPECT_EQ(outcome.code, refusal::kUnknownCommand);
  EXPECT_THAT(json_.lastError().text, HasSubstr("4711"));
}

TEST_F(RunningSimulator, IsNotKeptFromAnsweringAndPublishingBySignals) {
  Listener listener(context_, {"1000"});
  zel::test::interruptedCalls.everySecond = true;
  for (std::uint32_t port = 5001; port <= 5003; ++port) {
    EXPECT_EQ(client_.setRtspTcpPort(port), 0);
    SysParameters stored;
    EXPECT_EQ(client_.getStoredParameters(stored), 0);
    EXPECT_EQ(stored.rtspTcpPort, port);
  }
  zel::test::interruptedCalls.everySecond = false;
  EXPECT_TRUE(listener.waitFor(
      [](const std::string&, const Json::Value& payload) { return text(at(payload, "rtsp/tcp-port")) == "5003"; }));
}

TEST(Simulator, SaysThatAPortIsTaken) {
  const SimulatorThread first;
  const SimulatorThread second;
  EXPECT_THAT(first.failure(), IsEmpty());
  EXPECT_THAT(second.failure(), HasSubstr("cannot listen on tcp://127.0.0.1:55"));
  EXPECT_THAT(second.failure(), HasSubstr("another simulator"));
}

TEST(Simulator, MovesByItself) {
  SimulatorOptions options;
  options.liveInterval = std::chrono::milliseconds(5);
  const SimulatorThread simulator(std::move(options));
  zmq::context_t context;
  Listener listener(context, {"1001"});
  int temperature = 0;
  EXPECT_TRUE(listener.waitFor([&](const std::string&, const Json::Value& payload) {
    const int now = at(payload, "temperature/fpga").asInt();
    const bool moved = temperature != 0 && now != temperature;
    temperature = now;
    return moved;
  }));
}

/// The port that the board has.
unsigned int portOf(TestClient& client) { return at(client.send(0).reply, "stored/rtsp/tcp-port").asUInt(); }

// --- the store

SimulatorOptions withStore(const std::string& file) {
  SimulatorOptions options;
  options.storeFile = file;
  return options;
}

TEST(Simulator, KeepsItsStateAcrossARestart) {
  const zel::test::TemporaryFolder folder;
  zmq::context_t context;
  TestClient client(context, kSoon);
  for (const unsigned int port : {5004U, 5005U}) {
    const SimulatorThread simulator(withStore(folder.file("store")));
    ASSERT_THAT(simulator.failure(), IsEmpty());
    const auto before = client.send(0);
    EXPECT_EQ(at(before.reply, "stored/rtsp/tcp-port").asUInt(), port == 5004 ? 8554U : 5004U);
    EXPECT_EQ(client.send(16).reply["white-list"].size(), port == 5004 ? 3U : 4U);
    Json::Value change;
    change["rtsp-tcp-port"] = port;
    EXPECT_EQ(client.send(2, change).code, 0);
    EXPECT_EQ(client.send(13, json(R"({"white-list": [{"ip": "239.1.0.0", "mask": "255.255.0.0"}]})")).code, 0);
  }
}

TEST(Simulator, DoesNotMakeAChangeThatTheStoreDoesNotTake) {
  const zel::test::TemporaryFolder folder;
  std::filesystem::create_directory(folder.file("moved"));
  const SimulatorThread simulator(withStore(folder.file("moved") + "/store"));
  ASSERT_THAT(simulator.failure(), IsEmpty());
  std::filesystem::remove_all(folder.file("moved"));

  zmq::context_t context;
  TestClient client(context, kSoon);
  EXPECT_EQ(client.send(2, json(R"({"rtsp-tcp-port": 5004})")).code, refusal::kNotStored);
  EXPECT_THAT(client.lastError().text, HasSubstr("moved/store cannot be written"));
  EXPECT_EQ(at(client.send(0).reply, "stored/rtsp/tcp-port").asUInt(), 8554U);
}

/// A step of saving that fails.
struct FailingStep {
  const char* name;
  std::atomic<int> FailingFiles::*step;
  int call;  ///< which of its calls
  int code;  ///< what the client gets
};
void PrintTo(const FailingStep& row, std::ostream* out) { *out << row.name; }
class StoreThatFails : public testing::TestWithParam<FailingStep> {};

TEST_P(StoreThatFails, IsAnsweredWithWhatIsInForceAfterARestart) {
  const zel::test::TemporaryFolder folder;
  zmq::context_t context;
  TestClient client(context, kSoon);
  const unsigned int expected = GetParam().code < 0 ? 8554 : 5004;
  {
    const SimulatorThread simulator(withStore(folder.file("store")));
    ASSERT_THAT(simulator.failure(), IsEmpty());
    (zel::test::failingFiles.*GetParam().step) = GetParam().call;
    const auto answer = client.send(2, json(R"({"rtsp-tcp-port": 5004})"));
    EXPECT_EQ(zel::test::failingFiles.*GetParam().step, 0);
    EXPECT_EQ(answer.code, GetParam().code);
    const std::string reason = answer.code < 0 ? client.lastError().text : text(answer.reply["aux-errors"]);
    EXPECT_THAT(reason, HasSubstr("Input/output error"));
    EXPECT_EQ(portOf(client), expected);
  }
  const SimulatorThread restarted(withStore(folder.file("store")));
  ASSERT_THAT(restarted.failure(), IsEmpty());
  EXPECT_EQ(portOf(client), expected);
}

INSTANTIATE_TEST_SUITE_P(Simulator, StoreThatFails,
                         testing::Values(FailingStep{"SyncOfTheFile", &FailingFiles::fsync, 1, refusal::kNotStored},
                                         FailingStep{"Rename", &FailingFiles::rename, 1, refusal::kNotStored},
                                         FailingStep{"SyncOfTheFolder", &FailingFiles::fsync, 2,
                                                     zel::sim::kStoredButNotSynced}),
                         [](const auto& row) { return std::string(row.param.name); });

// --- faults

const Json::Value kChange = json(R"({"rtsp-tcp-port": 5004})");

struct FaultRow {
  const char* rule;
  int code;           ///< what the client gets
  unsigned int port;  ///< what the board has afterwards
};
void PrintTo(const FaultRow& row, std::ostream* out) { *out << row.rule; }
class OrderedFault : public testing::TestWithParam<FaultRow> {};

TEST_P(OrderedFault, StrikesOnceAndLeavesAWorkingBoard) {
  const SimulatorThread simulator(with({GetParam().rule}));
  ASSERT_THAT(simulator.failure(), IsEmpty());
  zmq::context_t context;
  // Who gets no answer waits for it in full; who gets one is not hurried.
  const bool answered = GetParam().code != zel::status::kNoAnswer;
  TestClient struck(context, answered ? kSoon : std::chrono::milliseconds(1000));
  EXPECT_EQ(struck.send(2, kChange).code, GetParam().code);
  TestClient client(context, kSoon);
  EXPECT_EQ(portOf(client), GetParam().port);
  EXPECT_EQ(client.send(2, json(R"({"rtsp-tcp-port": 5006})")).code, 0);
  EXPECT_EQ(portOf(client), 5006U);
}

INSTANTIATE_TEST_SUITE_P(Simulator, OrderedFault,
                         testing::Values(FaultRow{"do=delay command=2 ms=50", 0, 5004},
                                         FaultRow{"do=silence command=2", zel::status::kNoAnswer, 8554},
                                         FaultRow{"do=refuse command=2 status=-77", -77, 8554},
                                         FaultRow{"do=late command=2 ms=3000", zel::status::kNoAnswer, 5004},
                                         FaultRow{"do=double command=2", 0, 5004},
                                         FaultRow{"do=garbage command=2", zel::status::kBadAnswer, 5004},
                                         FaultRow{"do=truncate command=2", zel::status::kBadAnswer, 5004},
                                         FaultRow{"do=oversize command=2", zel::status::kNoAnswer, 5004},
                                         FaultRow{"do=unknown-member command=2", 0, 5004},
                                         FaultRow{"do=wrong-type command=2", zel::status::kBadAnswer, 5004},
                                         FaultRow{"do=burst command=2 count=3", 0, 5004}));

TEST(Simulator, ServesOthersWhileARequestIsDelayed) {
  const SimulatorThread simulator(with({"do=delay command=3 ms=300"}));
  zmq::context_t context;
  TestClient impatient(context, std::chrono::milliseconds(50));
  EXPECT_EQ(impatient.send(3).code, zel::status::kNoAnswer);  // it is there, and waits
  TestClient other(context, kSoon);
  EXPECT_EQ(other.send(0).code, 0);
}

TEST(Simulator, SendsABurstBeforeTheAnswer) {
  const SimulatorThread simulator(with({"do=burst command=0 count=40"}));
  zmq::context_t context;
  Listener listener(context, {"1001"});
  TestClient client(context, kSoon);
  EXPECT_EQ(client.send(0).code, 0);
  int count = 0;
  EXPECT_TRUE(listener.waitFor([&](const std::string&, const Json::Value&) { return ++count == 40; }));
}

TEST(Simulator, TakesOrdersWhileItRuns) {
  SimulatorThread simulator;
  zmq::context_t context;
  TestClient client(context, kSoon);
  EXPECT_EQ(client.send(0).code, 0);
  EXPECT_THAT(simulator.misbehave("do=refuse command=0 status=-9"), IsEmpty());
  EXPECT_EQ(client.send(0).code, -9);
  EXPECT_EQ(client.send(0).code, 0);
  EXPECT_THAT(simulator.misbehave("do=dance"), HasSubstr("dance"));
}

}  // namespace
