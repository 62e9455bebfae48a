#include "common/subscribe_json_client.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <optional>
#include <thread>
#include <vector>

#include "common/shared/wire_json.h"
#include "common/status.h"
#include "tests/support/captured_log.h"
#include "tests/support/child_process.h"
#include "tests/support/interrupted_calls.h"
#include "tests/support/raw_peer.h"
#include "tests/support/scripted_daemon.h"
#include "tests/support/stopwatch.h"
#include "tests/support/wait_until.h"
#include "tests/support/zmtp.h"

/// What the library is to set as ZMQ_RECONNECT_IVL instead of its own choice.
static std::optional<int> reconnectInterval;

/// Sets it while it lives.
class ReconnectsAfter {
 public:
  explicit ReconnectsAfter(int ms) { reconnectInterval = ms; }
  ~ReconnectsAfter() { reconnectInterval.reset(); }
  ReconnectsAfter(const ReconnectsAfter&) = delete;
  ReconnectsAfter& operator=(const ReconnectsAfter&) = delete;
};

/// Stands before libzmq's own function.
extern "C" int zmq_setsockopt(void* socket, int option, const void* value, std::size_t size) {
  static const auto own = reinterpret_cast<decltype(&zmq_setsockopt)>(dlsym(RTLD_NEXT, "zmq_setsockopt"));
  if (option == ZMQ_RECONNECT_IVL && reconnectInterval) value = &*reconnectInterval;
  return own(socket, option, value, size);
}

namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using zel::test::CapturedLog;
using zel::test::ChildProcess;
using zel::test::interruptedCalls;
using zel::test::kSlowdown;
using zel::test::kSoon;
using zel::test::LogLine;
using zel::test::PublisherFake;
using zel::test::RawBehaviour;
using zel::test::RawPeer;
using zel::test::Stopwatch;
using zel::test::timeOf;
using zel::test::waitUntil;
using zel::test::zmtp::frame;
using zel::test::zmtp::greeting;
using zel::test::zmtp::kMore;
using zel::test::zmtp::longFrameHeader;
using zel::test::zmtp::readRequest;
using zel::test::zmtp::ready;
using zel::test::zmtp::shakeHands;
using zel::test::zmtp::Stream;

const char* const kAddress = PublisherFake::kEndpoint;
constexpr unsigned short kPort = 5575;
constexpr std::uint64_t kEndless = std::uint64_t{1} << 62;
/// How long after a loss the library has something to do.
constexpr auto kRevival = 60ms;
const LogLine kLost{Logger::LEVEL_PROGRESS,
                    "SubscribeJsonClient: lost the connection to tcp://127.0.0.1:5575, connecting again"};

struct Notification {
  std::string topic;
  int errorCode;
  Json::Value payload;
};

/// An application with one subscriber, which waits in its poll set.
class Application {
 public:
  /// @param policy  how libzmq's thread is scheduled
  explicit Application(const std::string& topic = "1", int policy = SCHED_OTHER) : client(context) {
    zmq_ctx_set(context.handle(), ZMQ_THREAD_SCHED_POLICY, policy);
    EXPECT_EQ(client.connect(kAddress), 0);
    EXPECT_EQ(client.subscribe(topic), 0);
    EXPECT_EQ(client.getPollItems(fds), 0);
  }

  /// @return the notification that is there already
  std::optional<Notification> take() {
    Notification taken{"untouched", 77, "untouched"};
    if (client.processEvent(fds[0], taken.topic, taken.errorCode, taken.payload) == 0) return {};
    return taken;
  }
  /// @return the next notification, when one comes soon
  std::optional<Notification> next(std::chrono::milliseconds limit = kSoon) {
    if (auto taken = take()) return taken;
    return fds.poll(static_cast<long>(limit.count())) > 0 ? take() : std::nullopt;
  }
  /// @return the topic of the next notification that is in order
  std::string nextTopic() {
    const auto taken = next();
    return taken && taken->errorCode == 0 ? taken->topic : "none";
  }
  /// Whether the publisher's notifications arrive, soon.
  bool follows(PublisherFake& publisher, std::chrono::milliseconds limit = kSoon) {
    const std::string topic = "1call" + std::to_string(++calls_);  // what earlier calls have left does not count
    const Stopwatch stopwatch(getpid());
    while (stopwatch.elapsed().own < limit) {
      publisher.publish(topic, "");
      const auto taken = next(1ms);
      if (taken && taken->topic == topic) return true;
    }
    return false;
  }

  zmq::context_t context;
  SubscribeJsonClient client;
  PollFds fds;

 private:
  int calls_ = 0;
};

/// Keeps this thread, and those that it starts, on one processor while it lives.
class OneProcessor {
 public:
  OneProcessor() {
    sched_getaffinity(0, sizeof before_, &before_);
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu(), &one);
    sched_setaffinity(0, sizeof one, &one);
  }
  ~OneProcessor() { sched_setaffinity(0, sizeof before_, &before_); }
  OneProcessor(const OneProcessor&) = delete;
  OneProcessor& operator=(const OneProcessor&) = delete;

 private:
  cpu_set_t before_{};
};

/// Publishes "1after" as soon as the subscriber's connection has ended and is there again.
std::thread publishOnceRenewed(PublisherFake& publisher) {
  return std::thread([&publisher] {
    publisher.waitForUnsubscription("1");
    publisher.waitForSubscription("1");
    publisher.publish("1after", "");
  });
}

std::string overSize() { return '"' + std::string(zel::kMaxFrameBytes, 'x') + '"'; }

// ---- connect

TEST(SubscribeJsonClient, ReturnsAtOnceWhenNobodyListens) {
  zmq::context_t context;
  SubscribeJsonClient client(context);
  int result = -1;
  EXPECT_LT(timeOf([&] { result = client.connect(kAddress); }).own, 50ms * kSlowdown);
  EXPECT_EQ(result, 0);
}

TEST(SubscribeJsonClient, ReturnsSoonWhenAPublisherIsThere) {
  const PublisherFake publisher;
  zmq::context_t context;
  SubscribeJsonClient client(context);
  int result = -1;
  EXPECT_LT(timeOf([&] { result = client.connect(kAddress); }).own, 100ms * kSlowdown);
  EXPECT_EQ(result, 0);
}

TEST(SubscribeJsonClient, IsNotKeptFromConnectingBySignals) {
  const PublisherFake publisher;
  zmq::context_t context;
  SubscribeJsonClient client(context);
  interruptedCalls.connect = 3;
  interruptedCalls.monitor = 3;
  EXPECT_EQ(client.connect(kAddress), 0);
  EXPECT_EQ(interruptedCalls.connect, 0);
  EXPECT_EQ(interruptedCalls.monitor, 0);
}

TEST(SubscribeJsonClient, WaitsALimitedTimeForAPeerThatSaysNothing) {
  const RawPeer peer(RawBehaviour::kSilentAccept, kPort);
  zmq::context_t context;
  SubscribeJsonClient client(context);
  int result = -1;
  const auto time = timeOf([&] { result = client.connect(kAddress); });
  EXPECT_EQ(result, 0);
  EXPECT_GE(time.wall, 190ms) << "it is the handshake that counts, not the connection";
  EXPECT_LT(time.own, 300ms * kSlowdown);
}

TEST(SubscribeJsonClient, RefusesAnAddressThatIsNone) {
  zmq::context_t context;
  for (const char* const address : {"", "127.0.0.1:5575", "tcp://127.0.0.1", "http://x:1"}) {
    SubscribeJsonClient client(context);
    PollFds fds;
    EXPECT_EQ(client.connect(address), zel::status::kCannotConnect) << address;
    EXPECT_EQ(client.getPollItems(fds), zel::status::kNotInitialized) << address;
  }
}

TEST(SubscribeJsonClient, ReportsThatNoSocketIsLeft) {
  zmq::context_t context;
  context.set(zmq::ctxopt::max_sockets, 1);
  SubscribeJsonClient client(context);
  EXPECT_EQ(client.connect(kAddress), zel::status::kCannotConnect);
}

TEST(SubscribeJsonClient, KeepsItsSubscriptionsAndItsPollItemWhenItConnectsAgain) {
  PublisherFake publisher;
  Application application("1000");
  ASSERT_TRUE(publisher.waitForSubscription("1000"));

  EXPECT_EQ(application.client.connect(kAddress), 0);
  EXPECT_TRUE(waitUntil([&] {
    publisher.publish("1000", "7");
    return application.take().has_value();
  }));
}

TEST(SubscribeJsonClient, ReceivesNothingFromBeforeItConnectedAgain) {
  PublisherFake publisher;
  Application application("1000");
  ASSERT_TRUE(publisher.waitForSubscription("1000"));
  CapturedLog log;
  // More than wait here: the rest is in the connection and in the publisher.
  for (int i = 0; i < 5000; ++i) publisher.publish("1000", "1");
  ASSERT_TRUE(application.next().has_value());
  ASSERT_EQ(application.fds.poll(kSoon.count()), 1);

  EXPECT_EQ(application.client.connect(kAddress), 0);
  EXPECT_THAT(log.texts(Logger::LEVEL_PROGRESS),
              ElementsAre("SubscribeJsonClient: dropped the unread notifications of the connection to "s + kAddress));
  std::optional<Notification> taken;
  ASSERT_TRUE(waitUntil([&] {
    publisher.publish("1000", "2");
    taken = application.take();
    return taken.has_value();
  }));
  EXPECT_EQ(taken->payload, Json::Value(2));
}

TEST(SubscribeJsonClient, LogsNothingWhenItConnectsAgainAndNothingWaited) {
  PublisherFake publisher;
  Application application("1000");
  ASSERT_TRUE(publisher.waitForSubscription("1000"));
  CapturedLog log;
  EXPECT_EQ(application.client.connect(kAddress), 0);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(SubscribeJsonClient, MayConnectAgainToAnotherAddress) {
  const std::string other = "tcp://127.0.0.1:5599";
  PublisherFake publisher;
  PublisherFake second(other);
  Application application("1000");
  ASSERT_TRUE(publisher.waitForSubscription("1000"));

  EXPECT_EQ(application.client.connect(other), 0);
  EXPECT_TRUE(publisher.waitForUnsubscription("1000"));
  ASSERT_TRUE(second.waitForSubscription("1000"));
  second.publish("1000", "");
  EXPECT_TRUE(waitUntil([&] { return application.take().has_value(); }));
}

TEST(SubscribeJsonClient, DoesNothingBeforeItIsConnected) {
  zmq::context_t context;
  SubscribeJsonClient client(context);
  PollFds fds;
  EXPECT_EQ(client.subscribe("1"), zel::status::kNotInitialized);
  EXPECT_EQ(client.unsubscribe("1"), zel::status::kNotInitialized);
  EXPECT_EQ(client.getPollItems(fds), zel::status::kNotInitialized);
  EXPECT_TRUE(fds.empty());
  std::string topic = "untouched";
  int errorCode = 77;
  Json::Value payload = "untouched";
  EXPECT_EQ(client.processEvent({}, topic, errorCode, payload), 0);
  EXPECT_EQ(topic, "untouched");
  EXPECT_EQ(errorCode, 77);
  EXPECT_EQ(payload, Json::Value("untouched"));
}

TEST(SubscribeJsonClient, AddsItsSocketToThePollSet) {
  zmq::context_t context;
  SubscribeJsonClient client(context);
  ASSERT_EQ(client.connect(kAddress), 0);
  PollFds fds;
  fds.add({nullptr, 0, ZMQ_POLLIN, 0});
  EXPECT_EQ(client.getPollItems(fds), 0);
  ASSERT_EQ(fds.size(), 2u);
  EXPECT_NE(fds[1].socket, nullptr);
  EXPECT_EQ(fds[1].events, ZMQ_POLLIN);
  EXPECT_EQ(fds[1].revents, 0);
  int type = 0;
  std::size_t size = sizeof type;
  EXPECT_EQ(zmq_getsockopt(fds[1].socket, ZMQ_TYPE, &type, &size), 0);
  EXPECT_EQ(type, ZMQ_SUB);
}

// ---- notifications

TEST(SubscribeJsonClient, MayBeMadeUsedAndDestroyedBesideThoseOfOtherThreads) {
  PublisherFake publisher;
  constexpr int kRounds = 100;
  std::atomic<int> followed{0};
  std::atomic<int> atWork{4};
  std::vector<std::thread> threads(static_cast<std::size_t>(atWork));
  for (std::thread& thread : threads) {
    thread = std::thread([&] {
      for (int i = 0; i < kRounds; ++i) followed += Application().nextTopic() == "1000" ? 1 : 0;
      --atWork;
    });
  }
  while (atWork > 0) {
    publisher.publish("1000", "");
    std::this_thread::sleep_for(1ms);
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(followed, kRounds * static_cast<int>(threads.size()));
}

TEST(SubscribeJsonClient, TakesOneNotificationACall) {
  PublisherFake publisher;
  Application application;
  ASSERT_TRUE(publisher.waitForSubscription("1"));
  publisher.publish("1000", R"({"a": 1, "b": 18446744073709551615})");
  publisher.publish("1001", "");
  publisher.publish("1002", "[]");

  const auto first = application.next();
  ASSERT_TRUE(first);
  EXPECT_EQ(first->topic, "1000");
  EXPECT_EQ(first->errorCode, 0);
  EXPECT_EQ(first->payload["a"], Json::Value(1));
  EXPECT_EQ(first->payload["b"], Json::Value(Json::UInt64(18446744073709551615u)));
  const auto second = application.next();
  ASSERT_TRUE(second);
  EXPECT_EQ(second->topic, "1001");
  EXPECT_EQ(second->errorCode, 0);
  EXPECT_EQ(second->payload, Json::Value()) << "an empty frame is null";
  const auto third = application.next();
  ASSERT_TRUE(third);
  EXPECT_EQ(third->topic, "1002");
  EXPECT_EQ(third->payload, Json::Value(Json::arrayValue));
}

TEST(SubscribeJsonClient, ReturnsZeroAtOnceAndTouchesNothingWhenNothingIsThere) {
  const PublisherFake publisher;
  Application application;
  std::string topic = "untouched";
  int errorCode = 77;
  Json::Value payload = "untouched";
  EXPECT_LT(
      timeOf([&] { EXPECT_EQ(application.client.processEvent(application.fds[0], topic, errorCode, payload), 0); }).own,
      50ms * kSlowdown);
  EXPECT_EQ(topic, "untouched");
  EXPECT_EQ(errorCode, 77);
  EXPECT_EQ(payload, Json::Value("untouched"));
}

TEST(SubscribeJsonClient, IsToldLongerTopicsToo) {
  PublisherFake publisher;
  Application application("1000");
  ASSERT_TRUE(publisher.waitForSubscription("1000"));
  for (const char* const topic : {"999", "100", "10000", "1000x"}) publisher.publish(topic, "");
  publisher.publish(std::string("1000\0x", 6), "");
  EXPECT_EQ(application.nextTopic(), "10000");
  EXPECT_EQ(application.nextTopic(), "1000x");
  EXPECT_EQ(application.nextTopic(), std::string("1000\0x", 6));
}

TEST(SubscribeJsonClient, DropsATopic) {
  PublisherFake publisher;
  Application application("1000");
  EXPECT_EQ(application.client.subscribe("1001"), 0);
  ASSERT_TRUE(publisher.waitForSubscription("1000"));
  ASSERT_TRUE(publisher.waitForSubscription("1001"));
  EXPECT_EQ(application.client.unsubscribe("1000"), 0);
  EXPECT_TRUE(publisher.waitForUnsubscription("1000"));
  publisher.publish("1000", "");
  publisher.publish("1001", "");
  EXPECT_EQ(application.nextTopic(), "1001");
}

TEST(SubscribeJsonClient, DropsATopicAsOftenAsItWasAdded) {
  PublisherFake publisher;
  Application application("1000");
  EXPECT_EQ(application.client.subscribe("1000"), 0);
  ASSERT_TRUE(publisher.waitForSubscription("1000"));
  EXPECT_EQ(application.client.unsubscribe("never added"), 0);
  EXPECT_EQ(application.client.unsubscribe("1000"), 0);
  publisher.publish("1000", "");
  EXPECT_EQ(application.nextTopic(), "1000");
  EXPECT_EQ(application.client.unsubscribe("1000"), 0);
  EXPECT_TRUE(publisher.waitForUnsubscription("1000"));
}

// ---- malformed notifications

TEST(SubscribeJsonClient, ReportsAWrongNumberOfFramesAndTakesThemAll) {
  PublisherFake publisher;
  Application application;
  ASSERT_TRUE(publisher.waitForSubscription("1"));
  const std::vector<std::vector<std::string>> wrong = {
      {"1000"}, {"1000{}"}, {"1000", "{}", ""}, {"1001", "{}", "{}", "{}"}, std::vector<std::string>(1000, "1000")};
  for (const std::vector<std::string>& frames : wrong) {
    SCOPED_TRACE(std::to_string(frames.size()) + " frames");
    publisher.publish(frames);
    publisher.publish("1000", "5");

    const auto refused = application.next();
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->topic, frames.front());
    EXPECT_EQ(refused->errorCode, zel::status::kBadNotificationFrames);
    EXPECT_EQ(refused->payload, Json::Value("untouched"));
    const auto right = application.next();
    ASSERT_TRUE(right);
    EXPECT_EQ(right->errorCode, 0);
    EXPECT_EQ(right->payload, Json::Value(5));
  }
}

TEST(SubscribeJsonClient, ReportsAPayloadThatIsNoJsonAndLeavesTheCallersAlone) {
  PublisherFake publisher;
  Application application;
  ASSERT_TRUE(publisher.waitForSubscription("1"));
  const std::string wrong[] = {"{",
                               "{\"a\": 1} x",
                               "{\"a\": 1, \"a\": 2}",
                               "{\"a\": NaN}",
                               "{\"a\": -}",
                               "// no\n{}",
                               "\"\xff\"",
                               std::string("{}\0", 3),
                               " ",
                               std::string(65, '[') + std::string(65, ']')};
  for (const std::string& text : wrong) {
    SCOPED_TRACE(text);
    publisher.publish("1000", text);
    publisher.publish("1001", "{}");

    const auto refused = application.next();
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->topic, "1000");
    EXPECT_EQ(refused->errorCode, zel::status::kBadNotificationJson);
    EXPECT_EQ(refused->payload, Json::Value("untouched"));
    EXPECT_EQ(application.nextTopic(), "1001");
  }
}

// ---- a publisher that comes, goes and misbehaves

TEST(SubscribeJsonClient, FollowsAPublisherThatStartsLater) {
  CapturedLog log;
  Application application;
  PublisherFake publisher;
  EXPECT_TRUE(application.follows(publisher));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(SubscribeJsonClient, FollowsAPublisherThatRestarts) {
  std::optional<PublisherFake> publisher(std::in_place);
  Application application;
  ASSERT_TRUE(application.follows(*publisher));
  for (const long absent : {0, 30, 60, 90, 120}) {
    CapturedLog log;
    publisher.reset();
    application.fds.poll(absent);
    publisher.emplace();
    EXPECT_TRUE(application.follows(*publisher, 250ms * kSlowdown));
    EXPECT_THAT(log.lines(), ElementsAre(kLost));
  }
}

TEST(SubscribeJsonClient, KeepsItsPollItemWhenThePublisherRestarts) {
  std::optional<PublisherFake> publisher(std::in_place);
  Application application;
  ASSERT_TRUE(application.follows(*publisher));
  publisher->publish("1big", overSize());
  EXPECT_TRUE(application.follows(*publisher));
  publisher.reset();
  publisher.emplace();
  EXPECT_TRUE(application.follows(*publisher));
  PollFds fds;
  application.client.getPollItems(fds);
  EXPECT_EQ(fds[0].socket, application.fds[0].socket);
}

TEST(SubscribeJsonClient, DeliversWhatAPublisherSentBeforeItsEnd) {
  std::optional<PublisherFake> publisher(std::in_place);
  Application application;
  ASSERT_TRUE(publisher->waitForSubscription("1"));
  publisher->publish("1last", "");
  ASSERT_GT(application.fds.poll(kSoon.count()), 0);
  publisher.reset();
  const PublisherFake next;
  for (int round = 0; round < 20; ++round) {
    EXPECT_EQ(application.fds.poll(0), 1);
    std::this_thread::sleep_for(10ms);
  }
  EXPECT_EQ(application.nextTopic(), "1last");
}

TEST(SubscribeJsonClient, IsRevivedAfterAMessageOverTheLimit) {
  PublisherFake publisher;
  Application application;
  ASSERT_TRUE(publisher.waitForSubscription("1"));
  CapturedLog log;
  publisher.publish("1before", "");
  publisher.publish("1big", overSize());
  ASSERT_GT(application.fds.poll(kSoon.count()), 0);
  EXPECT_TRUE(publisher.waitForUnsubscription("1")) << "libzmq breaks the connection";
  for (int round = 0; round < 10; ++round) {
    EXPECT_EQ(application.fds.poll(0), 1) << "and what came before waits still";
    std::this_thread::sleep_for(10ms);
  }
  EXPECT_EQ(application.nextTopic(), "1before");
  EXPECT_TRUE(application.follows(publisher, 250ms * kSlowdown));
  EXPECT_THAT(log.lines(), ElementsAre(kLost));
}

TEST(SubscribeJsonClient, IsRevivedByAPollThatReturnsOnlyWhenSomethingIsThere) {
  PublisherFake publisher;
  Application application;
  ASSERT_TRUE(publisher.waitForSubscription("1"));
  publisher.publish("1big", overSize());
  std::thread later = publishOnceRenewed(publisher);
  EXPECT_EQ(application.fds.poll(kSoon.count()), 1);
  EXPECT_EQ(application.nextTopic(), "1after");
  later.join();
}

TEST(SubscribeJsonClient, IsRevivedByCallsOfProcessEvent) {
  PublisherFake publisher;
  Application application;
  ASSERT_TRUE(publisher.waitForSubscription("1"));
  EXPECT_EQ(application.fds.poll(0), 0) << "a wait before does not keep the calls from it";
  publisher.publish("1big", overSize());
  EXPECT_TRUE(publisher.waitForUnsubscription("1"));
  EXPECT_TRUE(waitUntil([&] {
    EXPECT_FALSE(application.take().has_value());
    return publisher.subscriptions("1") == 1;
  }));
}

TEST(SubscribeJsonClient, IsRevivedThoughSignalsInterruptTheCallsThatDoIt) {
  for (std::atomic<int>* calls :
       {&interruptedCalls.disconnect, &interruptedCalls.connect, &interruptedCalls.askForEvents}) {
    PublisherFake publisher;
    Application application;
    ASSERT_TRUE(publisher.waitForSubscription("1"));
    CapturedLog log;
    publisher.publish("1big", overSize());
    ASSERT_TRUE(waitUntil([&] { return application.fds.poll(0) == 0 && !log.lines().empty(); }));
    *calls = 3;
    std::thread later = publishOnceRenewed(publisher);
    EXPECT_EQ(application.fds.poll(kSoon.count()), 1);
    EXPECT_EQ(application.nextTopic(), "1after");
    EXPECT_EQ(*calls, 0);
    later.join();
  }
}

/// A publisher breaks the connection; the library, faster than libzmq, gives it up for a new one, which a violation of
/// the protocol ends for good.
/// @return whether the old one succeeds once more behind that
bool oldConnectionSucceedsBehindTheEndOfTheNewOne() {
  const OneProcessor oneProcessor;  // libzmq's thread has to wait until the application does
  const ReconnectsAfter reconnectsAfter(100);
  std::atomic<int> connections{0};
  std::atomic<bool> connectedAgain{false};
  const RawPeer peer(
      [&](const Stream& stream) {
        const int number = ++connections;
        std::string subscription;
        if (!shakeHands(stream, "PUB")) return;
        switch (number) {
          case 1:  // asks whether somebody listens, and subscribes to nothing
          case 2:  // libzmq would connect again, but the library does so before
            if (readRequest(stream, subscription)) stream.close();
            return;
          case 3:  // the new one, which libzmq gives up for good
            if (readRequest(stream, subscription)) stream.write(longFrameHeader(0, kEndless));
            break;
          default: connectedAgain = true;  // while the application does something else
        }
        stream.discard();
      },
      kPort);
  CapturedLog log;
  Application application("1", SCHED_IDLE);
  EXPECT_TRUE(waitUntil([&] {
    EXPECT_FALSE(application.take());
    return !log.lines().empty();
  }));
  std::this_thread::sleep_for(kRevival);
  EXPECT_FALSE(application.take());
  return waitUntil([&] { return connectedAgain.load(); }, 500ms);
}

TEST(SubscribeJsonClient, EndsTheOldConnectionBeforeItMakesANewOne) {
  bool succeeds = true;  // a busy machine may keep libzmq's thread from ending it in time
  for (int attempt = 0; attempt < 3 && succeeds; ++attempt) succeeds = oldConnectionSucceedsBehindTheEndOfTheNewOne();
  EXPECT_FALSE(succeeds);
}

TEST(SubscribeJsonClient, LeavesAConnectionAloneThatLibzmqHasRenewed) {
  const ReconnectsAfter reconnectsAfter(100);
  const auto serve = [](const Stream& stream) {
    shakeHands(stream, "PUB");
    stream.discard();
  };
  std::optional<RawPeer> peer(std::in_place, serve, kPort);
  Application application;
  const auto restart = [&] {
    peer.reset();
    peer.emplace(serve, kPort);
  };
  restart();
  ASSERT_TRUE(waitUntil([&] {
    application.fds.poll(1);
    return peer->accepted() == 1;
  })) << "by the library";

  for (const bool lossIsKnown : {false, true}) {
    CapturedLog log;
    restart();
    if (lossIsKnown) {
      ASSERT_TRUE(waitUntil([&] {
        EXPECT_FALSE(application.take());
        return !log.lines().empty();
      }));
    }
    ASSERT_TRUE(waitUntil([&] { return peer->accepted() == 1; })) << "by libzmq, while the application sleeps";
    std::this_thread::sleep_for(20ms);
    for (int turn = 0; turn < 10; ++turn) application.fds.poll(20);
    EXPECT_EQ(peer->accepted(), 1) << lossIsKnown;
  }
}

TEST(SubscribeJsonClient, IsRevivedWhereTheConnectionBreaksAsItIsMade) {
  std::atomic<int> connections{0};
  const RawPeer peer(
      [&](const Stream& stream) {
        std::string bytes;
        if (++connections > 2) {
          if (!shakeHands(stream, "PUB") || !readRequest(stream, bytes)) return;
          stream.write(frame(kMore, "1after") + frame(0, ""));
        } else if (stream.write(greeting()) && stream.read(greeting().size(), bytes)) {
          stream.write(ready("PUB") + longFrameHeader(0, kEndless));  // at once: the success and the end of it
        }
        stream.discard();
      },
      kPort);
  Application application;
  EXPECT_EQ(application.fds.poll(kSoon.count()), 1);
  EXPECT_EQ(application.nextTopic(), "1after");
}

TEST(SubscribeJsonClient, CannotBeWaitedForInAForkedChild) {
  PublisherFake publisher;
  Application application;
  ASSERT_TRUE(publisher.waitForSubscription("1"));
  ChildProcess child = ChildProcess::call([&]() -> int {
    for (const long timeout : {0L, -1L}) {
      application.fds[0].revents = ZMQ_POLLIN;
      errno = 0;
      EXPECT_EQ(application.fds.poll(timeout), -1);
      EXPECT_EQ(zmq_errno(), ETERM);
      EXPECT_EQ(application.fds[0].revents, 0);
    }
    EXPECT_FALSE(application.take().has_value());
    return 0;
  });
  EXPECT_EQ(child.wait(), 0) << child.output();
  EXPECT_TRUE(application.follows(publisher));
}

TEST(SubscribeJsonClient, MakesItsDescriptorReadyWhenTheConnectionIsGoneForGood) {
  PublisherFake publisher;
  Application application;
  ASSERT_TRUE(publisher.waitForSubscription("1"));
  int descriptor = -1;
  std::size_t size = sizeof descriptor;
  ASSERT_EQ(zmq_getsockopt(application.fds[0].socket, ZMQ_FD, &descriptor, &size), 0);
  while (application.take()) continue;

  publisher.publish("1big", overSize());
  zmq_pollitem_t item{nullptr, descriptor, ZMQ_POLLIN, 0};
  EXPECT_EQ(zmq_poll(&item, 1, kSoon.count()), 1);
}

class OtherPeer : public testing::TestWithParam<RawBehaviour> {};

TEST_P(OtherPeer, IsBorneUntilThePublisherIsThere) {
  CapturedLog log;
  std::optional<RawPeer> peer(std::in_place, GetParam(), kPort);
  Application application;
  EXPECT_EQ(application.fds.poll(300), 0) << "it wakes nobody";
  EXPECT_LT(peer->accepted(), 25) << "and is not besieged";
  peer.reset();
  PublisherFake publisher;
  EXPECT_TRUE(application.follows(publisher, 250ms * kSlowdown));
  EXPECT_LE(log.lines().size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(SubscribeJsonClient, OtherPeer, testing::ValuesIn(zel::test::kAllRawBehaviours),
                         [](const auto& behaviour) { return testing::PrintToString(behaviour.param); });

TEST(SubscribeJsonClient, FollowsAPublisherThatWasFrozen) {
  ChildProcess daemon = ChildProcess::call([] {
    PublisherFake publisher;
    for (;;) {
      publisher.publish("1", "");
      std::this_thread::sleep_for(1ms);
    }
    return 0;
  });
  CapturedLog log;
  Application application;
  ASSERT_EQ(application.nextTopic(), "1");
  daemon.freeze();
  while (application.next(50ms)) continue;
  daemon.thaw();
  EXPECT_EQ(application.nextTopic(), "1");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(SubscribeJsonClient, KeepsTheConnectionWhileTheApplicationPausesWithAFullQueue) {
  PublisherFake publisher;
  Application application;
  ASSERT_TRUE(publisher.waitForSubscription("1"));
  CapturedLog log;
  for (int count = 0; count < 5000; ++count) publisher.publish("1", "");
  std::this_thread::sleep_for(3500ms);  // more than libzmq's heartbeats, at the shortest that makes sense, would bear
  while (application.next(100ms)) continue;
  EXPECT_TRUE(application.follows(publisher));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(SubscribeJsonClient, SurvivesAFullQueueOfAPeerOfTheOldestProtocol) {
  // In ZMTP 1.0: a length that counts the flags, too, the flags, the bytes.
  using namespace std::string_literals;
  std::string flood = "\1\0"s;  // the identity, an empty one
  for (int i = 0; i < 1500; ++i) flood += "\5\1"s + "1000" + "\3\0{}"s;
  std::atomic<int> connections{0};
  RawPeer peer(
      [&](const zel::test::zmtp::Stream& stream) {
        if (++connections <= 2)
          stream.write(flood);  // the one that asks whether somebody listens, and the one that stays
        stream.discard();
      },
      kPort);
  Application application;
  std::this_thread::sleep_for(1200ms);  // more than a handshake may take
  int taken = 0;
  while (application.next(100ms)) ++taken;
  EXPECT_GT(taken, 1000);
}

/// The most memory that the process has had in use.
long peakMiB() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss / 1024;
}

// libzmq has something to tell about the connection while its client is being destroyed.
TEST(SubscribeJsonClient, LeavesTheContextAliveWhenItsConnectionBreaksAsItIsDestroyed) {
  static zmq::context_t& context = *new zmq::context_t;  // one that does not work any more cannot be destroyed
  std::atomic<bool> over{false};
  const auto hangUp = [&over](const Stream& stream) {
    if (!shakeHands(stream, "PUB")) return;
    while (!over) std::this_thread::yield();
    stream.close();
  };
  int failures = 0;
  for (int i = 0; i < 300 && failures < 3; ++i) {
    over = false;
    const RawPeer peer(hangUp, kPort);
    SubscribeJsonClient client(context);
    if (timeOf([&] { client.connect(kAddress); }).own > 190ms) ++failures;
    over = true;
    // The moment that matters comes after some tens of microseconds: all around it are tried.
    const auto moment = std::chrono::steady_clock::now() + (i % 50) * 4us;
    while (std::chrono::steady_clock::now() < moment) continue;
  }
  PublisherFake publisher;
  SubscribeJsonClient client(context);
  client.connect(kAddress);
  client.subscribe("1");
  EXPECT_TRUE(publisher.waitForSubscription("1"));
}

TEST(SubscribeJsonClient, DropsAFloodBeyondItsQueueAndFollowsOn) {
  PublisherFake publisher;
  Application application;
  ASSERT_TRUE(publisher.waitForSubscription("1"));
  const std::string payload = '"' + std::string(10000, 'x') + '"';
  const long before = peakMiB();
  for (int count = 0; count < 20000; ++count) publisher.publish("1", payload);
  int taken = 0;
  while (application.next(100ms)) ++taken;
  EXPECT_GE(taken, 1000);
  EXPECT_LT(taken, 10000) << "200 MB were sent";
  EXPECT_LT(peakMiB() - before, 64 * kSlowdown) << "the publisher's queue in this process included";
  EXPECT_TRUE(application.follows(publisher));
}

TEST(SubscribeJsonClient, DoesNotStopTheOtherSocketsOfTheContextWhileTheApplicationSleeps) {
  const ReconnectsAfter reconnectsAfter(1);
  const RawPeer peer(RawBehaviour::kReset, kPort);
  Application application;
  ASSERT_TRUE(waitUntil([&] { return peer.accepted() > 1500; }, 9 * kSoon))
      << "more events than a queue holds by default";

  PublisherFake other("tcp://127.0.0.1:5574");
  SubscribeJsonClient client(application.context);
  ASSERT_EQ(client.connect("tcp://127.0.0.1:5574"), 0);
  ASSERT_EQ(client.subscribe("1"), 0);
  EXPECT_TRUE(other.waitForSubscription("1"));
}

// ---- the process

TEST(SubscribeJsonClient, IsLeftAloneInAForkedChild) {
  PublisherFake publisher;
  Application application;
  ASSERT_TRUE(publisher.waitForSubscription("1"));
  ChildProcess child = ChildProcess::call([&] {
    PollFds fds;
    const bool refused = application.client.subscribe("2") == zel::status::kNotInitialized &&
                         application.client.unsubscribe("1") == zel::status::kNotInitialized &&
                         application.client.connect("tcp://127.0.0.1:5575") == zel::status::kNotInitialized &&
                         application.client.getPollItems(fds) == zel::status::kNotInitialized && !application.take();
    return refused ? 0 : 1;
  });
  EXPECT_EQ(child.wait(), 0) << child.errors();
  EXPECT_TRUE(application.follows(publisher));
}

/// As in an application that makes its objects, and then becomes a daemon.
TEST(SubscribeJsonClient, IsConnectedInAForkedChildWhoseParentHasNotConnectedIt) {
  if (zel::test::kThreadSanitizer) GTEST_SKIP() << zel::test::kNoThreadsAfterFork;
  PublisherFake publisher;
  zmq::context_t context;
  SubscribeJsonClient client(context);
  ChildProcess child = ChildProcess::call([&] {
    context = zmq::context_t();
    PollFds fds;
    EXPECT_EQ(client.connect(kAddress), 0);
    EXPECT_EQ(client.subscribe("3"), 0);
    EXPECT_EQ(client.getPollItems(fds), 0);
    EXPECT_GT(fds.poll(kSoon.count()), 0);
    return 0;
  });
  EXPECT_TRUE(publisher.waitForSubscription("3"));
  publisher.publish("3", "");
  EXPECT_EQ(child.wait(), 0) << child.errors();
}

TEST(SubscribeJsonClient, WorksInAForkedChildThatMakesItsOwn) {
  if (zel::test::kThreadSanitizer) GTEST_SKIP() << zel::test::kNoThreadsAfterFork;
  PublisherFake publisher;
  Application application;
  ASSERT_TRUE(publisher.waitForSubscription("1"));
  ChildProcess child = ChildProcess::call([] {
    Application own("3");
    return own.nextTopic() == "3" ? 0 : 1;
  });
  EXPECT_TRUE(publisher.waitForSubscription("3"));
  publisher.publish("3", "");
  EXPECT_EQ(child.wait(), 0) << child.errors();
  EXPECT_TRUE(application.follows(publisher));
}

/// How long a process takes to end after `body`, which its other thread may still run.
std::chrono::microseconds endOf(const std::function<void()>& body) {
  ChildProcess child = ChildProcess::call([&] {
    body();
    std::puts("ends");
    std::fflush(stdout);
    return 0;
  });
  EXPECT_TRUE(child.waitForOutput("ends"));
  const auto took = child.timeToEnd().own;
  EXPECT_EQ(child.wait(), 0);
  return took;
}

TEST(SubscribeJsonClient, DoesNotHoldUpTheEndOfTheProcess) {
  const auto connected = [] {
    static std::optional<SubscribeJsonClient> client;  // destroyed after the context, since it was made before
    static zmq::context_t context;
    client.emplace(context);
    client->connect(kAddress);
    client->subscribe("1");
  };
  EXPECT_LT(endOf(connected), 100ms * kSlowdown);
  ChildProcess daemon = ChildProcess::call([] {
    PublisherFake publisher;
    publisher.waitForSubscription("1");
    std::puts("there");
    std::fflush(stdout);
    return std::this_thread::sleep_for(1h), 0;
  });
  EXPECT_LT(endOf(connected), 100ms * kSlowdown);
}

TEST(SubscribeJsonClient, DoesNotHoldUpTheEndOfTheProcessWhileAThreadWaits) {
  const auto waiting = [] {
    static zmq::context_t context;
    // Never destroyed: the thread uses them to the very end.
    static auto* const client = new SubscribeJsonClient(context);
    static auto* const fds = new PollFds;
    client->connect(kAddress);
    client->getPollItems(*fds);
    static std::atomic<bool> waits{false};
    std::thread([] {
      waits = true;
      while (fds->poll(-1) >= 0) continue;
    }).detach();
    waitUntil([] { return waits.load(); });
    std::this_thread::sleep_for(5ms);  // as a rule it is in the poll by then; either way the process has to end
  };
  EXPECT_LT(endOf(waiting), 150ms * kSlowdown);
}

}  // namespace
