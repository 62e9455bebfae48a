#include "client/async_client.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "client/sysmgr_client.h"
#include "client/zmq_utils.h"
#include "tests/support/captured_log.h"
#include "tests/support/daemon_process.h"
#include "tests/support/descriptor_loop.h"
#include "tests/support/few_descriptors.h"
#include "tests/support/interrupted_calls.h"
#include "tests/support/private_network.h"
#include "tests/support/raw_peer.h"
#include "tests/support/scripted_daemon.h"
#include "tests/support/stopwatch.h"
#include "tests/support/wait_until.h"

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using zel::AsyncClient;
using zel::test::CapturedLog;
using zel::test::ChildProcess;
using zel::test::FewDescriptors;
using zel::test::keepSilent;
using zel::test::kSlowdown;
using zel::test::kSoon;
using zel::test::RawBehaviour;
using zel::test::RawPeer;
using zel::test::ScriptedDaemon;
using zel::test::startDaemon;
namespace requests = zel::requests;
namespace settings = zel::settings;

/// A time-out that a test waits for.
constexpr milliseconds kShort{100 * kSlowdown};

/// An application's loop: watches the one descriptor, and calls `process` when it is readable.
class AsyncClientTest : public testing::Test {
 protected:
  bool isReadable(milliseconds within = milliseconds(0)) const { return zel::test::isReadable(*client, within); }
  template <class Condition>
  bool runUntil(Condition holds, milliseconds within = kSoon) {
    return zel::test::runUntil(*client, holds, within);
  }

  /// Has a daemon connected, so that the next request is sent at once.
  void awaitConnection() {
    submitSet(0);
    ASSERT_TRUE(runUntil([&] { return !ends.empty(); }));
    ends.clear();
  }

  /// A completion that notes the status and the text in `ends`.
  std::function<void(const zel::Answer<void>&)> noteEnd() {
    return [this](const zel::Answer<void>& answer) { ends.emplace_back(answer.status, answer.text); };
  }

  AsyncClient::Id submitSet(unsigned int port, milliseconds timeout = AsyncClient::kDefaultTimeout) {
    return client->submit(requests::set(settings::kRtspTcpPort, port), noteEnd(), timeout);
  }

  std::vector<int> statuses() const {
    std::vector<int> all;
    for (const auto& [status, text] : ends) all.push_back(status);
    return all;
  }

  zmq::context_t context;
  std::unique_ptr<AsyncClient> client = std::make_unique<AsyncClient>(context);
  std::vector<std::pair<int, std::string>> ends;
};

/// The process is forked before there are threads.
struct DaemonProcess {
  ChildProcess daemon = startDaemon();
};
class BesideADaemonProcess : protected DaemonProcess, public AsyncClientTest {};

TEST_F(AsyncClientTest, CarriesOutARequest) {
  ScriptedDaemon daemon;
  daemon.answer(R"({"stored": {"rtsp": {"tcp-port": 5004}}})");
  unsigned int port = 0;
  EXPECT_NE(client->submit(requests::storedParameters(),
                           [&](const zel::Answer<SysParameters>& answer) {
                             EXPECT_EQ(answer.status, 0);
                             EXPECT_TRUE(answer.ok());
                             EXPECT_EQ(answer.text, "");
                             port = answer.value.rtspTcpPort;
                           }),
            0u);
  EXPECT_EQ(client->pending(), 1u);
  EXPECT_TRUE(runUntil([&] { return port != 0; }));
  EXPECT_EQ(port, 5004u);
  EXPECT_EQ(client->pending(), 0u);
  EXPECT_EQ(daemon.lastRequest().id, "0");
  EXPECT_EQ(daemon.lastRequest().body, "");
}

TEST_F(AsyncClientTest, CarriesOutRequestsInTheOrderOfTheirSubmission) {
  ScriptedDaemon daemon;
  for (unsigned int port = 1; port <= 100; ++port) submitSet(port);
  EXPECT_EQ(client->pending(), 100u);
  ASSERT_TRUE(runUntil([&] { return ends.size() == 100; }));
  ASSERT_EQ(daemon.requestCount(), 100u);
  for (unsigned int port = 1; port <= 100; ++port) {
    EXPECT_EQ(daemon.requests()[port - 1].body, "{\"rtsp-tcp-port\":" + std::to_string(port) + "}");
  }
}

/// The loop needs nothing but the descriptor: it is not readable while there is nothing to do.
TEST_F(AsyncClientTest, IsNotReadableWhileTheDaemonThinks) {
  ScriptedDaemon daemon;
  daemon.onRequest(keepSilent);
  submitSet(1);
  ASSERT_TRUE(runUntil([&] { return daemon.requestCount() == 1; }));
  while (isReadable(milliseconds(100))) client->process();  // so late, the timer of the sending may come
  EXPECT_FALSE(isReadable(milliseconds(200)));
  EXPECT_EQ(client->process(), 0u);
}

TEST_F(AsyncClientTest, IsNotReadableAfterTheConnectionEndedIdly) {
  std::optional<ScriptedDaemon> daemon(std::in_place);
  submitSet(1);
  ASSERT_TRUE(runUntil([&] { return !ends.empty(); }));
  daemon.reset();
  // libzmq tries to connect again and again. What that leaves in the socket's mailbox is taken out by each `process`.
  const auto end = std::chrono::steady_clock::now() + milliseconds(300);
  int calls = 0;
  while (std::chrono::steady_clock::now() < end) {
    if (isReadable(milliseconds(50))) {
      client->process();
      ++calls;
    }
  }
  EXPECT_LT(calls, 100);
}

TEST_F(AsyncClientTest, CompletesNothingInsideSubmitAndCancel) {
  Json::Value nested;
  for (int depth = 0; depth < 70; ++depth) nested["x"] = Json::Value(nested);
  const auto refused = client->submit(requests::setGpioConfiguration(nested), noteEnd());
  EXPECT_NE(refused, 0u);
  const auto waiting = submitSet(1);
  EXPECT_TRUE(client->cancel(waiting));
  EXPECT_THAT(ends, IsEmpty());
  EXPECT_TRUE(isReadable());
  EXPECT_EQ(client->process(), 2u);
  EXPECT_THAT(statuses(), ElementsAre(-105, -106));
  EXPECT_THAT(ends[0].second, HasSubstr("\"SET gpio configuration\" was not sent: its body cannot be written as JSON"));
  EXPECT_EQ(ends[1].second, "\"SET stored parameters\" was not sent: it was cancelled.");
}

TEST_F(AsyncClientTest, TellsARefusal) {
  ScriptedDaemon daemon;
  daemon.answer(R"({"status": -5, "error": "out of range", "aux-errors": ["1 to 65535"]})");
  daemon.answer(R"({"status": 3})");
  submitSet(0);
  submitSet(1);
  ASSERT_TRUE(runUntil([&] { return ends.size() == 2; }));
  EXPECT_THAT(ends, ElementsAre(std::pair(-5, std::string("out of range (1 to 65535)")), std::pair(0, std::string())));
}

TEST_F(AsyncClientTest, ARefusalKeepsTheConnection) {
  ScriptedDaemon daemon;
  daemon.answer(R"({"status": -5})");
  submitSet(0);
  submitSet(1);
  ASSERT_TRUE(runUntil([&] { return ends.size() == 2; }));
  EXPECT_EQ(daemon.requests()[1].peer, daemon.requests()[0].peer);
}

TEST_F(AsyncClientTest, WithNobodyThereARequestIsNotSent) {
  const auto start = std::chrono::steady_clock::now();
  submitSet(1, kShort);
  submitSet(2, kShort);
  ASSERT_TRUE(runUntil([&] { return ends.size() == 2; }));
  EXPECT_GE(std::chrono::steady_clock::now() - start, kShort);
  EXPECT_LT(std::chrono::steady_clock::now() - start, kShort + milliseconds(50 * kSlowdown));
  EXPECT_THAT(statuses(), ElementsAre(-102, -102));
  EXPECT_EQ(ends[0].second,
            "\"SET stored parameters\" was not sent: no daemon took it at tcp://127.0.0.1:5556 within " +
                std::to_string(kShort.count()) + " ms. Is the system manager running?");
  ScriptedDaemon daemon;
  submitSet(3);
  ASSERT_TRUE(runUntil([&] { return ends.size() == 3; }));
  EXPECT_EQ(ends[2].first, 0);
  EXPECT_THAT(daemon.requestCount(), 1u) << "what was given up never leaves";
}

TEST_F(AsyncClientTest, GivesUpWhatIsNotAnswered) {
  ScriptedDaemon daemon;
  awaitConnection();
  daemon.answerWith({});
  submitSet(1, kShort);
  submitSet(2);
  ASSERT_TRUE(runUntil([&] { return ends.size() == 2; }));
  EXPECT_THAT(statuses(), ElementsAre(-103, 0));
  EXPECT_EQ(ends[0].second, "\"SET stored parameters\" was sent to tcp://127.0.0.1:5556, but no answer came within " +
                                std::to_string(kShort.count()) +
                                " ms. The daemon may have acted on it: read the state back before you repeat it.");
}

/// A request whose time is over while it waits behind another was not sent, and never is.
TEST_F(AsyncClientTest, NeverSendsWhatWasLateBehindAnother) {
  ScriptedDaemon daemon;
  daemon.answer(zel::test::Answer("{}").after(3 * kShort));
  submitSet(1);
  submitSet(2, kShort);
  submitSet(3);
  ASSERT_TRUE(runUntil([&] { return ends.size() == 3; }));
  EXPECT_THAT(statuses(), ElementsAre(-102, 0, 0));
  ASSERT_EQ(daemon.requestCount(), 2u);
  EXPECT_EQ(daemon.requests()[1].body, R"({"rtsp-tcp-port":3})");
}

/// The loop was busy, not the daemon: the answer is there when it looks.
TEST_F(AsyncClientTest, TakesAnAnswerThatCameInTimeToALateLoop) {
  ScriptedDaemon daemon;
  awaitConnection();
  submitSet(1, kShort);
  ASSERT_TRUE(daemon.waitForRequests(2));
  std::this_thread::sleep_for(2 * kShort);
  ASSERT_TRUE(runUntil([&] { return !ends.empty(); }));
  EXPECT_THAT(statuses(), ElementsAre(0));
}

/// A call ends as many as it runs completions of. Those that are left are not sent, although a daemon is there now.
TEST_F(AsyncClientTest, EndsManyLateRequestsInManyCalls) {
  constexpr std::size_t kMany = 20'000;
  for (std::size_t i = 0; i < kMany; ++i) submitSet(1, milliseconds(1));
  std::this_thread::sleep_for(milliseconds(2));
  ScriptedDaemon daemon;
  auto longest = std::chrono::microseconds(0);
  while (client->pending() > 0) {
    std::size_t run = 0;
    longest = std::max(longest, zel::test::processorTimeOf([&] { run = client->process(); }));
    ASSERT_LE(run, 32u);
    ASSERT_TRUE(client->pending() == 0 || isReadable());
  }
  EXPECT_LT(longest, milliseconds(5 * kSlowdown));
  EXPECT_THAT(statuses(), testing::AllOf(testing::SizeIs(kMany), testing::Each(-102)));
  submitSet(2);
  ASSERT_TRUE(runUntil([&] { return ends.size() > kMany; }));
  EXPECT_EQ(ends.back().first, 0);
  EXPECT_EQ(daemon.requestCount(), 1u);
}

TEST_F(AsyncClientTest, CancelsWhatWaits) {
  ScriptedDaemon daemon;
  daemon.answer(zel::test::Answer("{}").after(kShort));
  submitSet(1);
  const auto second = submitSet(2);
  submitSet(3);
  EXPECT_TRUE(client->cancel(second));
  EXPECT_FALSE(client->cancel(second)) << "once";
  EXPECT_FALSE(client->cancel(12345));
  EXPECT_EQ(client->pending(), 3u);
  ASSERT_TRUE(runUntil([&] { return ends.size() == 3; }));
  EXPECT_THAT(statuses(), ElementsAre(-106, 0, 0));
  ASSERT_EQ(daemon.requestCount(), 2u);
  EXPECT_EQ(daemon.requests()[1].body, R"({"rtsp-tcp-port":3})");
}

/// The daemon may carry a sent request out: the next one waits for its answer all the same, so that the order holds.
TEST_F(AsyncClientTest, CancelsWhatWasSent) {
  ScriptedDaemon daemon;
  daemon.answer(zel::test::Answer("{}").after(milliseconds(1000)));
  const auto first = submitSet(1);
  ASSERT_TRUE(runUntil([&] { return daemon.requestCount() == 1; }));
  submitSet(2);
  EXPECT_TRUE(client->cancel(first));
  EXPECT_FALSE(client->cancel(first));
  EXPECT_EQ(client->pending(), 2u);
  EXPECT_EQ(client->process(), 1u);
  EXPECT_THAT(statuses(), ElementsAre(-103));
  EXPECT_EQ(ends[0].second,
            "\"SET stored parameters\" was cancelled after it was sent to tcp://127.0.0.1:5556. The daemon "
            "may have acted on it: read the state back before you repeat it.");
  EXPECT_EQ(client->pending(), 1u);
  EXPECT_EQ(daemon.requestCount(), 1u);
  ASSERT_TRUE(runUntil([&] { return ends.size() == 2; }));
  EXPECT_EQ(ends[1].first, 0);
  EXPECT_EQ(daemon.requests()[1].peer, daemon.requests()[0].peer) << "the connection is kept";
}

TEST_F(AsyncClientTest, ACancelledRequestHoldsTheQueueNoLongerThanItsTimeOut) {
  ScriptedDaemon daemon;
  awaitConnection();
  daemon.answerWith({});
  const auto first = submitSet(1, kShort);
  client->cancel(first);
  submitSet(2);
  ASSERT_TRUE(runUntil([&] { return ends.size() == 2; }));
  EXPECT_THAT(statuses(), ElementsAre(-103, 0));
}

TEST_F(AsyncClientTest, AnAnswerWithAValueOfAWrongTypeIsUnusable) {
  ScriptedDaemon daemon;
  daemon.answer(R"({"stored": {"rtsp": {"tcp-port": "many"}}})");
  daemon.answer("nonsense");
  int status = 0;
  std::string text;
  const auto note = [&](const zel::Answer<SysParameters>& answer) {
    status = answer.status;
    text = answer.text;
    EXPECT_EQ(answer.value.rtspTcpPort, SysParameters().rtspTcpPort) << "nothing is half read";
  };
  client->submit(requests::storedParameters(), note);
  ASSERT_TRUE(runUntil([&] { return status != 0; }));
  EXPECT_EQ(status, -104);
  EXPECT_THAT(text, HasSubstr("\"GET Stored parameters\" was answered, but the answer cannot be used: "));
  status = 0;
  client->submit(requests::storedParameters(), note);
  ASSERT_TRUE(runUntil([&] { return status != 0; }));
  EXPECT_EQ(status, -104);
}

TEST_F(AsyncClientTest, RunsAShareOfWhatIsDueAndStaysReadable) {
  for (int i = 0; i < 100; ++i) client->cancel(submitSet(1));
  EXPECT_EQ(client->process(), 32u);
  EXPECT_EQ(client->pending(), 68u);
  EXPECT_TRUE(isReadable());
  EXPECT_EQ(client->process() + client->process(), 64u);
  EXPECT_EQ(client->process(), 4u);
  EXPECT_EQ(client->process(), 0u);
  EXPECT_EQ(ends.size(), 100u);
}

TEST_F(AsyncClientTest, ACompletionMaySubmitAndCancel) {
  ScriptedDaemon daemon;
  AsyncClient::Id cancelled = 0;
  client->submit(requests::set(settings::kSapEnable, true), [&](const zel::Answer<void>& answer) {
    ends.emplace_back(answer.status, answer.text);
    EXPECT_EQ(client->process(), 0u) << "a call inside a completion does nothing";
    submitSet(7);
    EXPECT_TRUE(client->cancel(cancelled));
  });
  cancelled = submitSet(6);
  ASSERT_TRUE(runUntil([&] { return ends.size() == 3; }));
  EXPECT_THAT(statuses(), testing::UnorderedElementsAre(0, -106, 0));
  ASSERT_EQ(daemon.requestCount(), 2u);
  EXPECT_EQ(daemon.requests()[1].body, R"({"rtsp-tcp-port":7})");
}

TEST_F(AsyncClientTest, ACompletionMayDestroyTheClient) {
  ScriptedDaemon daemon;
  bool run = false;
  client->submit(requests::set(settings::kSapEnable, true), [&](const zel::Answer<void>&) {
    run = true;
    client.reset();
  });
  submitSet(2);
  pollfd watched{client->descriptor(), POLLIN, 0};
  while (!run && poll(&watched, 1, static_cast<int>(kSoon.count())) == 1) client->process();
  EXPECT_TRUE(run);
  EXPECT_EQ(client, nullptr);
  EXPECT_THAT(ends, IsEmpty());
  EXPECT_EQ(daemon.requestCount(), 1u);
}

TEST_F(AsyncClientTest, AnExceptionOfACompletionLeavesProcess) {
  client->cancel(client->submit(requests::set(settings::kSapEnable, true),
                                [](const zel::Answer<void>&) { throw std::runtime_error("mine"); }));
  client->cancel(submitSet(2));
  EXPECT_THROW(client->process(), std::runtime_error);
  EXPECT_TRUE(isReadable()) << "the completion behind it is due";
  EXPECT_EQ(client->process(), 1u);
  EXPECT_THAT(statuses(), ElementsAre(-106));
  ScriptedDaemon daemon;
  submitSet(3);
  ASSERT_TRUE(runUntil([&] { return ends.size() == 2; }));
  EXPECT_EQ(ends[1].first, 0);
}

TEST_F(AsyncClientTest, ToDestroyItCompletesNothingAndFreesTheCompletions) {
  ScriptedDaemon daemon;
  daemon.onRequest(keepSilent);
  const auto held = std::make_shared<int>(1);
  for (int i = 0; i < 3; ++i) {
    client->submit(requests::factoryReset(), [held](const zel::Answer<void>&) { FAIL() << "must not run"; });
  }
  client->cancel(2);
  EXPECT_EQ(held.use_count(), 4);
  client.reset();
  EXPECT_EQ(held.use_count(), 1);
}

TEST_F(AsyncClientTest, AnEmptyCompletionIsAllowed) {
  ScriptedDaemon daemon;
  client->submit(requests::rebootDevice(), {});
  client->submit(requests::boardModel(), {});
  EXPECT_TRUE(runUntil([&] { return client->pending() == 0; }));
  EXPECT_EQ(daemon.requestCount(), 2u);
}

TEST_F(AsyncClientTest, LogsNothingAboutAFailure) {
  CapturedLog log;
  submitSet(1, milliseconds(1));
  ASSERT_TRUE(runUntil([&] { return !ends.empty(); }));
  EXPECT_THAT(log.texts(Logger::LEVEL_ERROR), IsEmpty());
}

TEST_F(AsyncClientTest, ATimeOutOfZeroIsTheDefault) {
  ScriptedDaemon daemon;
  daemon.answer(zel::test::Answer("{}").after(milliseconds(50)));
  submitSet(1, milliseconds(0));
  submitSet(2, milliseconds(-5));
  ASSERT_TRUE(runUntil([&] { return ends.size() == 2; }));
  EXPECT_THAT(statuses(), ElementsAre(0, 0));
}

TEST_F(AsyncClientTest, ATimeOutBeyondTheClockIsALongOne) {
  ScriptedDaemon daemon;
  submitSet(1, milliseconds::max());
  ASSERT_TRUE(runUntil([&] { return !ends.empty(); }));
  EXPECT_THAT(statuses(), ElementsAre(0));
}

TEST_F(AsyncClientTest, FollowsARestartOfTheDaemon) {
  for (int round = 0; round < 5; ++round) {
    ScriptedDaemon daemon;
    // What is written into a connection that is just dying is lost, and nobody can tell.
    ASSERT_TRUE(zel::test::waitUntil([] { return !zel::test::isDeadConnectionOpen(); }));
    ends.clear();
    submitSet(1);
    submitSet(2);
    ASSERT_TRUE(runUntil([&] { return ends.size() == 2; }));
    EXPECT_THAT(statuses(), ElementsAre(0, 0)) << "round " << round;
  }
}

TEST_F(AsyncClientTest, SendsWhatWaitsOnceADaemonIsThere) {
  submitSet(1);
  while (isReadable(milliseconds(100))) client->process();
  ScriptedDaemon daemon;
  ASSERT_TRUE(runUntil([&] { return !ends.empty(); }));
  EXPECT_THAT(statuses(), ElementsAre(0));
}

/// A peer that breaks the protocol leaves the socket deaf for good: it is made anew.
TEST_F(AsyncClientTest, WorksAgainAfterAPeerThatIsNotADaemon) {
  for (const RawBehaviour behaviour : zel::test::kAllRawBehaviours) {
    {
      RawPeer peer(behaviour);
      ends.clear();
      submitSet(1, kShort);
      ASSERT_TRUE(runUntil([&] { return !ends.empty(); })) << behaviour;
      EXPECT_THAT(statuses(), ElementsAre(testing::AnyOf(-102, -103))) << behaviour;
    }
    ScriptedDaemon daemon;
    ends.clear();
    submitSet(2);
    ASSERT_TRUE(runUntil([&] { return !ends.empty(); })) << behaviour;
    EXPECT_THAT(statuses(), ElementsAre(0)) << behaviour;
  }
}

/// An idle connection that broke for good is given 50 ms to come back, then it is made anew within the same request.
TEST_F(AsyncClientTest, RenewsADeafSocketWithinARequest) {
  {
    RawPeer peer(RawBehaviour::kWrongSocketType);
    ASSERT_TRUE(zel::test::waitUntil([&] { return peer.accepted() > 0; }));
    std::this_thread::sleep_for(milliseconds(50 * kSlowdown));
  }
  ScriptedDaemon daemon;
  submitSet(1);
  ASSERT_TRUE(runUntil([&] { return !ends.empty(); }));
  EXPECT_THAT(statuses(), ElementsAre(0));
}

/// An application that cancels sooner than a socket that takes nothing is made anew.
TEST_F(AsyncClientTest, RenewsADeafSocketWhereRequestsAreCancelledSoon) {
  {
    RawPeer peer(RawBehaviour::kWrongSocketType);
    ASSERT_TRUE(zel::test::waitUntil([&] { return peer.accepted() > 0; }));
    std::this_thread::sleep_for(milliseconds(50 * kSlowdown));
  }
  ScriptedDaemon daemon;
  for (int attempt = 0; attempt < 20 && daemon.requestCount() == 0; ++attempt) {
    const auto id = submitSet(1);
    runUntil([] { return false; }, milliseconds(30));
    client->cancel(id);
  }
  EXPECT_EQ(daemon.requestCount(), 1u);
}

TEST_F(BesideADaemonProcess, NoCallTakesLong) {
  daemon.freeze();
  auto longest = std::chrono::microseconds(0);
  const auto measure = [&](auto action) { longest = std::max(longest, zel::test::timeOf(action).own); };
  for (int i = 0; i < 200; ++i) {
    AsyncClient::Id id = 0;
    measure([&] { id = submitSet(1, milliseconds(i % 20)); });
    measure([&] { client->process(); });
    if (i % 7 == 0) measure([&] { client->cancel(id); });
    if (i == 100) daemon.kill();
    std::this_thread::sleep_for(milliseconds(1));
  }
  EXPECT_TRUE(runUntil([&] {
    measure([&] { client->process(); });
    return client->pending() == 0 || ends.size() >= 190;
  }));
  EXPECT_LT(longest, milliseconds(5 * kSlowdown));
}

TEST_F(AsyncClientTest, InAForkedChildItCompletesNothing) {
  ScriptedDaemon daemon;
  daemon.answer(zel::test::Answer("{}").after(kShort));
  submitSet(1);
  const pid_t child = fork();
  if (child == 0) {
    bool right = submitSet(2) == 0 && client->process() == 0 && !client->cancel(1);
    client.reset();
    right = right && ends.empty();
    _exit(right ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  ASSERT_TRUE(runUntil([&] { return !ends.empty(); }));
  EXPECT_THAT(statuses(), ElementsAre(0));
  EXPECT_EQ(daemon.requestCount(), 1u);
}

/// Another thread of the parent may have been changing the client, and the child does not have that thread.
TEST_F(AsyncClientTest, AForkedChildThatDestroysItLeavesItAsItWas) {
  auto held = std::make_shared<int>();
  const std::weak_ptr<int> kept = held;
  client->submit(requests::set(settings::kSapEnable, true), [held](const zel::Answer<void>&) {});
  held.reset();
  const int descriptor = client->descriptor();
  const pid_t child = fork();
  if (child == 0) {
    client.reset();
    _exit(!kept.expired() && fcntl(descriptor, F_GETFD) >= 0 ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  client.reset();
  EXPECT_TRUE(kept.expired());
}

/// The child returns from the completion that has forked it: what is due belongs to the parent.
TEST_F(AsyncClientTest, AChildThatACompletionForkedCompletesNothing) {
  pid_t child = -1;
  client->cancel(
      client->submit(requests::set(settings::kSapEnable, true), [&](const zel::Answer<void>&) { child = fork(); }));
  client->cancel(submitSet(2));
  const std::size_t run = client->process();
  if (child == 0) {
    client.reset();
    _exit(run == 1 && ends.empty() ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_EQ(run, 2u);
  EXPECT_THAT(statuses(), ElementsAre(-106));
}

/// Signals that come at the wrong instants hold a request up no longer than they last.
TEST_F(BesideADaemonProcess, SendsDespiteSignals) {
  awaitConnection();
  zel::test::interruptedCalls.everySecond = true;
  // Less than the time after which a connection that takes nothing is made anew.
  for (int i = 0; i < 20; ++i) submitSet(2, milliseconds(40));
  EXPECT_TRUE(runUntil([&] { return ends.size() == 20; }));
  zel::test::interruptedCalls.everySecond = false;
  EXPECT_THAT(statuses(), testing::Contains(0));
}

/// To open a socket takes a while, so that one call opens one at most.
TEST_F(AsyncClientTest, OpensOneSocketInACall) {
  client = std::make_unique<AsyncClient>(context, "nowhere");
  client->submit(requests::factoryReset(), [this](const zel::Answer<void>&) {
    for (int i = 0; i < 5; ++i) submitSet(1);
  });
  while (client->pending() > 0) {
    ASSERT_TRUE(isReadable());
    EXPECT_EQ(client->process(), 1u);
  }
  EXPECT_THAT(statuses(), ElementsAre(-101, -101, -101, -101, -101));
}

TEST_F(AsyncClientTest, WithoutADescriptorEachRequestFails) {
  client.reset();
  {
    const FewDescriptors none(0);
    client = std::make_unique<AsyncClient>(context);
  }
  EXPECT_EQ(client->descriptor(), -1);
  ScriptedDaemon daemon;
  submitSet(1);
  EXPECT_EQ(client->process(), 1u);
  EXPECT_THAT(statuses(), ElementsAre(-101));
  EXPECT_EQ(daemon.requestCount(), 0u);
}

TEST_F(AsyncClientTest, ReportsAnEndpointThatIsNotValid) {
  client = std::make_unique<AsyncClient>(context, "nowhere");
  submitSet(1);
  ASSERT_TRUE(runUntil([&] { return !ends.empty(); }));
  EXPECT_THAT(statuses(), ElementsAre(-101));
  EXPECT_EQ(ends[0].second,
            "\"SET stored parameters\" was not sent: no connection to nowhere can be opened: Invalid argument.");
}

TEST(AsyncClientAtExit, AStaticClientEndsWithTheProcess) {
  EXPECT_EXIT(
      {
        static AsyncClient unanswered(ZmqUtils::getInstance().getContext());
        unanswered.submit(requests::factoryReset(), [](const zel::Answer<void>&) { _exit(9); });
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
}

/// Calls a static client after its destruction, in a thread that nobody has stopped.
struct CallLater {
  AsyncClient* client = nullptr;
  ~CallLater() {
    bool refused = false;
    std::thread([&] {
      refused = client->submit(requests::factoryReset(), {}) == 0 && !client->cancel(1) && client->process() == 0 &&
                client->pending() == 0;
    }).join();
    if (!refused) _exit(9);
  }
};

TEST(AsyncClientAtExit, ADestroyedStaticClientRefusesEachCallOfAnotherThread) {
  if (zel::test::kAddressSanitizer) {
    GTEST_SKIP() << "the thread calls an object after its destructor, which the sanitizer reports, rightly";
  }
  EXPECT_EXIT(
      {
        static CallLater later;
        static AsyncClient client(ZmqUtils::getInstance().getContext());
        later.client = &client;
        client.submit(requests::factoryReset(), {});
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
}

/// Makes a client in a thread that nobody has stopped, when the process is at its end.
struct MakeLater {
  zmq::context_t& context;
  ~MakeLater() {
    std::string text;
    std::thread([&] {
      AsyncClient client(context);
      client.submit(requests::factoryReset(), [&](const zel::Answer<void>& answer) { text = answer.text; });
      client.process();
    }).join();
    if (text != "\"Resets the configuration files to factory default\" was not sent: the process is ending.") _exit(9);
  }
};

TEST(AsyncClientAtExit, ANewClientReportsTheEnd) {
  EXPECT_EXIT(
      {
        static zmq::context_t context;
        static const MakeLater later{context};
        static const AsyncClient client(context);
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
}

TEST(Requests, SetMemberSendsItAlone) {
  EXPECT_EQ(requests::setMember(settings::kNmosNodePort, 8080).body["nmos"]["node-port"], 8080);
  EXPECT_EQ(requests::setMember(settings::kNmosNodePort, 8080).body["nmos"].size(), 1u);
  EXPECT_EQ(requests::setMember(settings::kVideoTimingMode, VideoTimingParameters::TIMING_MODE_2059).command,
            SysMgrCommands::SYSMGR_SET_PARAMETER);
  EXPECT_TRUE(requests::setMember(settings::kSerialNumber, "1").body.isNull());
}

TEST(Requests, IdentifyHasACommandOfItsOwn) {
  EXPECT_EQ(requests::set(settings::kIdentifyEnable, true).command, SysMgrCommands::SYSMGR_SET_IDENTIFY_LEDS);
  EXPECT_EQ(requests::set(settings::kSapEnable, true).command, SysMgrCommands::SYSMGR_SET_PARAMETER);
}

TEST(TypedClient, HasATimeOutOfItsOwn) {
  zmq::context_t context;
  SysMgrClient client;
  client.init(context);
  EXPECT_TRUE(client.setTimeout(kShort));
  const auto took = zel::test::timeOf([&] { EXPECT_EQ(client.setSapSupport(true), -102); });
  EXPECT_GE(took.wall, kShort);
  EXPECT_LT(took.own, kShort + milliseconds(50 * kSlowdown));
  ErrorReport report;
  client.getLastErrorMessage(report);
  EXPECT_THAT(report.text, HasSubstr(" within " + std::to_string(kShort.count()) + " ms"));
}

TEST(TypedClient, ATimeOutOfZeroOrLessIsTheDefault) {
  SysMgrJsonClient client;
  EXPECT_EQ(client.getClientTimeout(), 5000);
  zel::setTimeout(client, milliseconds(7));
  EXPECT_EQ(client.getClientTimeout(), 7);
  zel::setTimeout(client, milliseconds(-1));
  EXPECT_EQ(client.getClientTimeout(), 5000);
  zel::setTimeout(client, std::chrono::hours(24 * 365));
  EXPECT_EQ(client.getClientTimeout(), std::numeric_limits<int>::max());
}

}  // namespace
