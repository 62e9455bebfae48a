#include "subscriber/sysmgr_subscriber.h"

#include <dlfcn.h>
#include <gmock/gmock.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "common/shared/wire_json.h"
#include "common/status.h"
#include "tests/support/captured_log.h"
#include "tests/support/leaks.h"
#include "tests/support/scripted_daemon.h"
#include "tests/support/wait_until.h"

/// The topics that are subscribed and dropped while this lives, in order; one may be refused.
static std::vector<std::string>* subscribed = nullptr;
static std::string refusedTopic;

/// Stands before libzmq's own function.
extern "C" int zmq_setsockopt(void* socket, int option, const void* value, std::size_t size) {
  static const auto own = reinterpret_cast<decltype(&zmq_setsockopt)>(dlsym(RTLD_NEXT, "zmq_setsockopt"));
  if (subscribed != nullptr && (option == ZMQ_SUBSCRIBE || option == ZMQ_UNSUBSCRIBE)) {
    const std::string topic(static_cast<const char*>(value), size);
    subscribed->push_back((option == ZMQ_SUBSCRIBE ? "+" : "-") + topic);
    if (topic == refusedTopic) return errno = EINVAL, -1;
  }
  return own(socket, option, value, size);
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using zel::test::CapturedLog;
using zel::test::checkLinePattern;
using zel::test::kSoon;
using zel::test::LogLine;
using zel::test::PublisherFake;

constexpr auto kStored = SysmgrPublisher::SYSMGR_STORED_PARAMETERS_UPDATE;
constexpr auto kDynamic = SysmgrPublisher::SYSMGR_DYNAMIC_INFO_UPDATE;
constexpr auto kReboot = SysmgrPublisher::SYSMGR_REBOOT_REQUEST;
constexpr auto kWhitelist = SysmgrPublisher::SYSMGR_MCAST_WHITELIST_UPDATE;

const LogLine kNotInitializedLine{2, "SysmgrSubscriber is not initialized yet."};

Json::Value json(const std::string& text) {
  Json::Value value;
  EXPECT_EQ(zel::WireJsonReader().read(text, value), "") << text;
  return value;
}

/// Records the callbacks.
class Recorder : public SysmgrSubscriber {
 public:
  int notifyStoredParametersUpdate(SysParameters& parameters) override { return came(stored, parameters); }
  int notifyDynamicInfoUpdate(SysParametersDynamic& parameters) override { return came(dynamic, parameters); }
  int notifyRebootRequest() override { return came(reboots, 1); }
  int notifyMcastWhitelistUpdate(std::list<WhiteListEntry>& entries) override { return came(whitelists, entries); }

  std::size_t count() const { return stored.size() + dynamic.size() + reboots.size() + whitelists.size(); }

  int result = 0;
  bool throws = false;
  std::vector<SysParameters> stored;
  std::vector<SysParametersDynamic> dynamic;
  std::vector<int> reboots;
  std::vector<std::list<WhiteListEntry>> whitelists;

 private:
  template <class Record>
  int came(std::vector<Record>& records, const Record& record) {
    if (throws) throw std::runtime_error("the application's own");
    records.push_back(record);
    return result;
  }
};

int feed(SysmgrSubscriber& subscriber, const std::string& topic, Json::Value payload) {
  std::string text = topic;
  return subscriber.processNotification(text, payload);
}

// ---- the topics

TEST(SysmgrPublisher, KnowsItsNotificationsInAscendingOrder) {
  EXPECT_EQ(kStored, 1000);
  EXPECT_EQ(kDynamic, 1001);
  EXPECT_EQ(kReboot, 1002);
  EXPECT_EQ(kWhitelist, 1004);
  EXPECT_THAT(SysmgrPublisher::kNotifications, ElementsAre(kStored, kDynamic, kReboot, kWhitelist));
  EXPECT_STREQ(SysmgrPublisher::kEndpoint, "tcp://127.0.0.1:5575");
  EXPECT_EQ(sizeof(SysmgrPublisher::sysmgr_notifications_t), 4u);
}

TEST(SysmgrPublisher, WritesATopicAsASignedDecimalNumber) {
  EXPECT_EQ(SysmgrPublisher::topicOf(kStored), "1000");
  EXPECT_EQ(SysmgrPublisher::topicOf(SysmgrPublisher::sysmgr_notifications_t(-7)), "-7");
}

#if defined(__x86_64__)
template <class Function>
std::ptrdiff_t slotOf(Function virtualFunction) {
  std::ptrdiff_t offset = 0;
  std::memcpy(&offset, &virtualFunction, sizeof offset);
  return (offset - 1) / std::ptrdiff_t(sizeof(void*));
}

TEST(SysmgrSubscriber, KeepsTheOrderOfItsVirtualOperations) {
  // The destructor takes the first two.
  EXPECT_EQ(slotOf(&SysmgrSubscriber::notifyStoredParametersUpdate), 2);
  EXPECT_EQ(slotOf(&SysmgrSubscriber::notifyDynamicInfoUpdate), 3);
  EXPECT_EQ(slotOf(&SysmgrSubscriber::notifyRebootRequest), 4);
  EXPECT_EQ(slotOf(&SysmgrSubscriber::notifyMcastWhitelistUpdate), 5);
}
#endif

// ---- before init

TEST(SysmgrSubscriber, RefusesEverythingBeforeInit) {
  CapturedLog log;
  Recorder subscriber;
  PollFds fds;
  EXPECT_EQ(subscriber.subscribe(kStored), -1);
  EXPECT_THAT(log.lines(), ElementsAre(kNotInitializedLine));
  EXPECT_EQ(subscriber.unsubscribe(kStored), -1);
  EXPECT_EQ(subscriber.subscribeAll(), -1);
  EXPECT_EQ(subscriber.getPollItems(fds), -1);
  EXPECT_TRUE(fds.empty());
  EXPECT_THAT(log.lines(),
              ElementsAre(kNotInitializedLine, kNotInitializedLine, kNotInitializedLine, kNotInitializedLine));
}

TEST(SysmgrSubscriber, HasReceivedNothingBeforeInit) {
  CapturedLog log;
  Recorder subscriber;
  EXPECT_EQ(subscriber.processEvent({}), 0);
  EXPECT_THAT(log.lines(), ElementsAre(kNotInitializedLine));
  EXPECT_EQ(subscriber.count(), 0u);
}

// ---- callbacks

TEST(SysmgrSubscriber, SaysThatACallbackIsNotOverridden) {
  const std::pair<const char*, const char*> callbacks[] = {{"1000", "notifyStoredParametersUpdate"},
                                                           {"1001", "notifyDynamicInfoUpdate"},
                                                           {"1002", "notifyRebootRequest"},
                                                           {"1004", "notifyMcastWhitelistUpdate"}};
  for (const auto& [topic, name] : callbacks) {
    CapturedLog log;
    SysmgrSubscriber subscriber;
    EXPECT_EQ(feed(subscriber, topic, Json::Value()), 0);
    const std::string text = std::string(
                                 "SysmgrSubscriber: client subscribed to messages, but didn't override the "
                                 "callback ") +
                             name + ".";
    EXPECT_THAT(log.lines(), ElementsAre(LogLine{6, text}));
  }
}

TEST(SysmgrSubscriber, TurnsThePayloadIntoStoredParameters) {
  Recorder subscriber;
  EXPECT_EQ(feed(subscriber, "1000", json(R"({"rtsp": {"eth-port": "eth3", "tcp-port": 5004}, "sap": {"enable": true},
                                             "bitstream": {"module": "SDI-TR04"}})")),
            0);
  ASSERT_EQ(subscriber.stored.size(), 1u);
  EXPECT_EQ(subscriber.count(), 1u);
  const SysParameters& stored = subscriber.stored[0];
  EXPECT_EQ(stored.rtspEthPort, "eth3");
  EXPECT_EQ(stored.rtspTcpPort, 5004u);
  EXPECT_TRUE(stored.sapEnable);
  EXPECT_EQ(stored.bitstream.type, BitstreamType::BITSTREAM_SDI_TR04);
  EXPECT_EQ(stored.ptpPath, "/etc/ptp/") << "the record's own rules for missing keys";
}

TEST(SysmgrSubscriber, BuildsEachRecordAnew) {
  Recorder subscriber;
  feed(subscriber, "1000", json(R"({"bitstream": {"module": "SDI-TR04"}})"));
  feed(subscriber, "1000", json("{}"));
  ASSERT_EQ(subscriber.stored.size(), 2u);
  EXPECT_EQ(subscriber.stored[1].bitstream.type, BitstreamType::BITSTREAM_NONE) << "what a new record keeps";
}

TEST(SysmgrSubscriber, TurnsThePayloadIntoDynamicParameters) {
  Recorder subscriber;
  EXPECT_EQ(feed(subscriber, "1001", json(R"({"chipid-name": "X", "eth-basics": [{"name": "eth0"}, {"name": "eth1"}],
                                             "fan-speed": {"main": 40}})")),
            0);
  ASSERT_EQ(subscriber.dynamic.size(), 1u);
  EXPECT_EQ(subscriber.count(), 1u);
  EXPECT_EQ(subscriber.dynamic[0].chipIdName, "X");
  EXPECT_EQ(subscriber.dynamic[0].ethBasics.size(), 2u);
  EXPECT_EQ(subscriber.dynamic[0].fanSpeed.main, 40);
  EXPECT_EQ(subscriber.dynamic[0].temperature.fpga, 65535);
}

TEST(SysmgrSubscriber, DoesNotReadThePayloadOfARebootRequest) {
  Recorder subscriber;
  for (const char* const payload : {"null", "{}", "[]", "[1, 2]", "\"now\"", "17"}) {
    EXPECT_EQ(feed(subscriber, "1002", json(std::string("[") + payload + "]")[0]), 0) << payload;
  }
  EXPECT_EQ(subscriber.reboots.size(), 6u);
  EXPECT_EQ(subscriber.count(), 6u);
}

TEST(SysmgrSubscriber, TurnsThePayloadIntoAWhitelist) {
  Recorder subscriber;
  EXPECT_EQ(feed(subscriber, "1004", json(R"({"white-list": [
      {"ip": "239.1.1.1", "mask": "255.255.255.0", "enabled": true}, {"ip": "232.0.0.0"}, {"ip": "239.1.1.1"}]})")),
            0);
  ASSERT_EQ(subscriber.whitelists.size(), 1u);
  EXPECT_EQ(subscriber.count(), 1u);
  std::vector<std::string> texts;
  for (const WhiteListEntry& entry : subscriber.whitelists[0]) {
    texts.push_back(entry.getIpStr() + "/" + entry.getMaskStr() + (entry.enabled ? " on" : " off"));
  }
  EXPECT_THAT(texts, ElementsAre("239.1.1.1/255.255.255.0 on", "232.0.0.0/0.0.0.0 off", "239.1.1.1/0.0.0.0 off"));
}

TEST(SysmgrSubscriber, HandsOverAnEmptyWhitelistWhenThereIsNone) {
  Recorder subscriber;
  for (const char* const payload :
       {"null", "{}", R"({"white-list": null})", R"({"white-list": []})", R"({"other": 1})"}) {
    EXPECT_EQ(feed(subscriber, "1004", json(std::string("[") + payload + "]")[0]), 0) << payload;
  }
  EXPECT_THAT(subscriber.whitelists, ElementsAre(IsEmpty(), IsEmpty(), IsEmpty(), IsEmpty(), IsEmpty()));
}

TEST(SysmgrSubscriber, PassesTheCallbacksResultBack) {
  CapturedLog log;
  Recorder subscriber;
  for (const int result : {-1234, 0, 77}) {
    subscriber.result = result;
    for (const char* const topic : {"1000", "1001", "1002", "1004"}) {
      EXPECT_EQ(feed(subscriber, topic, Json::Value()), result);
    }
  }
  EXPECT_EQ(log.texts(2), std::vector<std::string>());
}

TEST(SysmgrSubscriber, ComparesWholeTopics) {
  Recorder subscriber;
  for (const std::string& topic : {std::string("999"), std::string("1003"), std::string("1005"), std::string("10000"),
                                   std::string("100"), std::string("01000"), std::string("+1000"), std::string(" 1000"),
                                   std::string("1000 "), std::string("1e3"), std::string()}) {
    CapturedLog log;
    EXPECT_EQ(feed(subscriber, topic, Json::Value()), -11) << topic;
    EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "SysmgrSubscriber: filter [" + topic + "] is not recognized!"}));
  }
  EXPECT_EQ(feed(subscriber, std::string("1000\0x", 6), Json::Value()), -11);
  EXPECT_EQ(subscriber.count(), 0u);
  EXPECT_EQ(feed(subscriber, "1002", Json::Value()), 0);
}

TEST(SysmgrSubscriber, LetsTheExceptionOfAWrongTypeOut) {
  Recorder subscriber;
  const std::pair<const char*, const char*> wrong[] = {
      {"1000", "[1]"},
      {"1000", R"({"rtsp": {"tcp-port": "text"}})"},
      {"1001", R"({"temperature": {"fpga": {}}})"},
      {"1004", R"(["white-list"])"},
      {"1004", R"({"white-list": {"ip": "239.1.1.1"}})"},
      {"1004", R"({"white-list": [7]})"},
      {"1004", R"({"white-list": [{"enabled": "yes"}]})"},
  };
  for (const auto& [topic, payload] : wrong) {
    EXPECT_THROW(feed(subscriber, topic, json(payload)), Json::LogicError) << payload;
  }
  EXPECT_EQ(subscriber.count(), 0u);
  EXPECT_EQ(feed(subscriber, "1004", Json::Value()), 0);
}

// ---- connected

/// An application with a subscriber and a daemon's publisher.
class Connected : public testing::Test {
 protected:
  Connected() {
    EXPECT_EQ(subscriber.init(context), 0);
    EXPECT_EQ(subscriber.getPollItems(fds), 0);
  }
  /// Waits for one notification. @return the result of `processEvent`
  int next() {
    EXPECT_EQ(fds.poll(kSoon.count()), 1);
    return subscriber.processEvent(fds[0]);
  }
  void subscribeAndWait() {
    EXPECT_EQ(subscriber.subscribeAll(), 0);
    EXPECT_TRUE(publisher.waitForSubscription("1004"));
  }

  PublisherFake publisher;
  zmq::context_t context;
  Recorder subscriber;
  PollFds fds;
};

TEST_F(Connected, AddsOnePollItem) {
  EXPECT_EQ(fds.size(), 1u);
  EXPECT_EQ(fds[0].events, ZMQ_POLLIN);
}

TEST_F(Connected, SubscribesAndUnsubscribesByTopic) {
  EXPECT_EQ(subscriber.subscribe(kDynamic), 0);
  EXPECT_TRUE(publisher.waitForSubscription("1001"));
  EXPECT_EQ(subscriber.subscribe(SysmgrPublisher::sysmgr_notifications_t(-7)), 0);
  EXPECT_TRUE(publisher.waitForSubscription("-7"));
  EXPECT_EQ(subscriber.unsubscribe(kDynamic), 0);
  EXPECT_TRUE(publisher.waitForUnsubscription("1001"));
}

TEST_F(Connected, SubscribesToEverythingInAscendingOrder) {
  std::vector<std::string> topics;
  subscribed = &topics;
  EXPECT_EQ(subscriber.subscribeAll(), 0);
  subscribed = nullptr;
  EXPECT_THAT(topics, ElementsAre("+1000", "+1001", "+1002", "+1004"));
}

TEST_F(Connected, StopsAtTheFirstSubscriptionThatFails) {
  CapturedLog log;
  std::vector<std::string> topics;
  subscribed = &topics;
  refusedTopic = "1001";
  EXPECT_EQ(subscriber.subscribeAll(), zel::status::kCannotConnect);
  EXPECT_THAT(topics, ElementsAre("+1000", "+1001"));
  EXPECT_THAT(
      log.texts(2),
      ElementsAre(MatchesRegex(checkLinePattern(
          "int SysmgrSubscriber::subscribe(SysmgrPublisher::sysmgr_notifications_t)", zel::status::kCannotConnect))));
  EXPECT_EQ(log.lines().size(), 1u);
  subscribed = nullptr;
  ASSERT_TRUE(publisher.waitForSubscription("1000"));
  publisher.publish("1000", "{}");
  EXPECT_NE(next(), 0);
  EXPECT_EQ(subscriber.stored.size(), 1u);
}

TEST_F(Connected, LogsAnUnsubscriptionThatFails) {
  CapturedLog log;
  std::vector<std::string> topics;
  subscribed = &topics;
  refusedTopic = "1002";
  EXPECT_EQ(subscriber.unsubscribe(kReboot), zel::status::kCannotConnect);
  subscribed = nullptr;
  EXPECT_THAT(
      log.texts(2),
      ElementsAre(MatchesRegex(checkLinePattern(
          "int SysmgrSubscriber::unsubscribe(SysmgrPublisher::sysmgr_notifications_t)", zel::status::kCannotConnect))));
}

TEST_F(Connected, ReceivesEachNotification) {
  CapturedLog log;
  subscribeAndWait();
  publisher.publish("1000", R"({"rtsp": {"tcp-port": 5004}})");
  publisher.publish("1001", R"({"chipid-name": "X"})");
  publisher.publish("1002", "");
  publisher.publish("1004", R"({"white-list": [{"ip": "239.1.1.1"}]})");
  for (int i = 0; i < 4; ++i) EXPECT_NE(next(), 0);
  ASSERT_EQ(subscriber.count(), 4u);
  EXPECT_EQ(subscriber.stored.at(0).rtspTcpPort, 5004u);
  EXPECT_EQ(subscriber.dynamic.at(0).chipIdName, "X");
  EXPECT_EQ(subscriber.reboots.size(), 1u);
  EXPECT_EQ(subscriber.whitelists.at(0).size(), 1u);
  EXPECT_EQ(subscriber.processEvent(fds[0]), 0) << "there is no more";
  EXPECT_EQ(log.texts(2), std::vector<std::string>());
}

TEST_F(Connected, TakesOneNotificationACall) {
  subscribeAndWait();
  for (int i = 0; i < 3; ++i) publisher.publish("1002", "");
  EXPECT_NE(next(), 0);
  EXPECT_EQ(subscriber.reboots.size(), 1u);
}

TEST_F(Connected, DropsTheTopicThatIsUnsubscribed) {
  subscribeAndWait();
  EXPECT_EQ(subscriber.unsubscribe(kReboot), 0);
  ASSERT_TRUE(publisher.waitForUnsubscription("1002"));
  publisher.publish("1002", "");
  publisher.publish("1000", "");
  EXPECT_NE(next(), 0);
  EXPECT_EQ(subscriber.stored.size(), 1u);
  EXPECT_EQ(subscriber.count(), 1u);
}

TEST_F(Connected, DoesNotActOnACallbacksFailure) {
  CapturedLog log;
  subscribeAndWait();
  subscriber.result = -5;
  publisher.publish("1002", "");
  EXPECT_EQ(next(), 1);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(Connected, LogsAndDropsWhatIsMalformed) {
  subscribeAndWait();
  const std::pair<std::vector<std::string>, std::string> malformed[] = {
      {{"1002"}, "SysmgrSubscriber: Error receiving message -110"},
      {{"1002", "{}", "{}"}, "SysmgrSubscriber: Error receiving message -110"},
      {{"1002", "{\"a\": "}, "SysmgrSubscriber: Error receiving message -111"},
      {{"10000", "{}"}, "SysmgrSubscriber: filter [10000] is not recognized!"},
  };
  for (const auto& [frames, text] : malformed) {
    CapturedLog log;
    publisher.publish(frames);
    EXPECT_NE(next(), 0);
    EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, text}));
  }
  EXPECT_EQ(subscriber.count(), 0u);
  publisher.publish("1002", "");
  EXPECT_NE(next(), 0);
  EXPECT_EQ(subscriber.reboots.size(), 1u);
}

TEST_F(Connected, WorksOnAfterAnException) {
  subscribeAndWait();
  publisher.publish("1000", R"({"rtsp": {"tcp-port": "text"}})");
  publisher.publish("1002", "");
  publisher.publish("1002", "");
  ASSERT_EQ(fds.poll(kSoon.count()), 1);
  EXPECT_THROW(subscriber.processEvent(fds[0]), Json::LogicError);
  EXPECT_EQ(subscriber.count(), 0u);
  subscriber.throws = true;
  ASSERT_EQ(fds.poll(kSoon.count()), 1);
  EXPECT_THROW(subscriber.processEvent(fds[0]), std::runtime_error);
  subscriber.throws = false;
  EXPECT_NE(next(), 0);
  EXPECT_EQ(subscriber.reboots.size(), 1u) << "what threw counts as taken";
}

TEST_F(Connected, MaySubscribeInACallback) {
  class Subscribing : public SysmgrSubscriber {
   public:
    int notifyRebootRequest() override { return subscribe(kStored); }
    int notifyStoredParametersUpdate(SysParameters&) override { return ++stored; }
    int stored = 0;
  } subscribing;
  ASSERT_EQ(subscribing.init(context), 0);
  ASSERT_EQ(subscribing.subscribe(kReboot), 0);
  PollFds own;
  subscribing.getPollItems(own);
  ASSERT_TRUE(publisher.waitForSubscription("1002"));
  publisher.publish("1002", "");
  EXPECT_EQ(own.poll(kSoon.count()), 1);
  EXPECT_NE(subscribing.processEvent(own[0]), 0);
  ASSERT_TRUE(publisher.waitForSubscription("1000"));
  publisher.publish("1000", "");
  EXPECT_EQ(own.poll(kSoon.count()), 1);
  EXPECT_NE(subscribing.processEvent(own[0]), 0);
  EXPECT_EQ(subscribing.stored, 1);
}

TEST(SysmgrSubscriber, KeepsTheEarlierConnectionWhenItIsInitializedAgain) {
  const zel::test::LeaksOnPurpose leaks;
  static zmq::context_t context;  // the earlier connection lasts until the process ends
  PublisherFake publisher;
  Recorder subscriber;
  ASSERT_EQ(subscriber.init(context), 0);
  ASSERT_EQ(subscriber.subscribe(kReboot), 0);
  ASSERT_TRUE(publisher.waitForSubscription("1002"));

  EXPECT_EQ(subscriber.init(context), 0);
  EXPECT_EQ(subscriber.subscribe(kStored), 0);
  ASSERT_TRUE(publisher.waitForSubscription("1000"));
  EXPECT_EQ(publisher.subscriptions("1002"), 1u);
  publisher.publish("1002", "");
  publisher.publish("1000", "");
  PollFds fds;
  subscriber.getPollItems(fds);
  ASSERT_EQ(fds.poll(kSoon.count()), 1);
  EXPECT_NE(subscriber.processEvent(fds[0]), 0);
  EXPECT_EQ(subscriber.stored.size(), 1u);
  EXPECT_EQ(subscriber.count(), 1u) << "the topics are the earlier connection's";
}

TEST(SysmgrSubscriber, EndsItsSubscriptionsWithItself) {
  PublisherFake publisher;
  zmq::context_t context;
  {
    Recorder subscriber;
    ASSERT_EQ(subscriber.init(context), 0);
    ASSERT_EQ(subscriber.subscribeAll(), 0);
    ASSERT_TRUE(publisher.waitForSubscription("1004"));
  }
  EXPECT_TRUE(publisher.waitForUnsubscription("1004"));
}

TEST(SysmgrSubscriber, NeedsNoDaemonForInit) {
  CapturedLog log;
  zmq::context_t context;
  Recorder subscriber;
  EXPECT_EQ(subscriber.init(context), 0);
  EXPECT_EQ(subscriber.subscribeAll(), 0);
  EXPECT_THAT(log.lines(), IsEmpty());

  PublisherFake publisher;
  ASSERT_TRUE(publisher.waitForSubscription("1004"));
  publisher.publish("1002", "");
  PollFds fds;
  subscriber.getPollItems(fds);
  ASSERT_EQ(fds.poll(kSoon.count()), 1);
  EXPECT_NE(subscriber.processEvent(fds[0]), 0);
  EXPECT_EQ(subscriber.reboots.size(), 1u);
}

TEST(SysmgrSubscriber, StaysUnconnectedWhenInitFails) {
  CapturedLog log;
  zmq::context_t context;
  context.set(zmq::ctxopt::max_sockets, 1);
  Recorder subscriber;
  EXPECT_EQ(subscriber.init(context), zel::status::kCannotConnect);
  EXPECT_THAT(log.texts(2), ElementsAre(MatchesRegex(checkLinePattern("int SysmgrSubscriber::init(zmq::context_t&)",
                                                                      zel::status::kCannotConnect))));
  EXPECT_EQ(log.lines().size(), 1u);

  log.clear();
  PollFds fds;
  EXPECT_EQ(subscriber.getPollItems(fds), zel::status::kNotInitialized);
  EXPECT_TRUE(fds.empty());
  EXPECT_EQ(subscriber.processEvent({}), 0);
  EXPECT_THAT(log.lines(), IsEmpty()) << "there is a client, though not a connected one";
  EXPECT_EQ(subscriber.subscribe(kStored), zel::status::kNotInitialized);
  EXPECT_THAT(
      log.texts(2),
      ElementsAre(MatchesRegex(checkLinePattern(
          "int SysmgrSubscriber::subscribe(SysmgrPublisher::sysmgr_notifications_t)", zel::status::kNotInitialized))));
}

}  // namespace
