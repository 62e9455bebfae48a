// Requests to a daemon in a process of its own that is killed or frozen, and requests of a process in distress.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <iterator>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "common/client_json_api.h"
#include "common/error_aux_msg.h"
#include "common/logger.h"
#include "common/subscribe_json_client.h"
#include "tests/common/test_client.h"
#include "tests/support/daemon_process.h"
#include "tests/support/few_descriptors.h"

using std::chrono::milliseconds;
using testing::HasSubstr;
using zel::test::ChildProcess;
using zel::test::expectAtOnce;
using zel::test::expectFailure;
using zel::test::expectTimedOut;
using zel::test::FewDescriptors;
using zel::test::listen;
using zel::test::Outcome;
using zel::test::prepareDaemon;
using zel::test::ScriptedDaemon;
using zel::test::startDaemon;
using zel::test::TestClient;

namespace {

class DaemonFault : public testing::Test {
 protected:
  void expectWorkingWithANewDaemon() {
    listen(second_);
    EXPECT_EQ(client_.ask(19).code, 0) << client_.lastError().text;
  }

  // The processes first: they are made before there are threads.
  ChildProcess silent_ = prepareDaemon(zel::test::keepSilent);
  ChildProcess first_ = prepareDaemon();
  ChildProcess second_ = prepareDaemon();
  zmq::context_t context_;
  TestClient client_{context_};
};

}  // namespace

TEST_F(DaemonFault, KilledBeforeARequest) {
  listen(first_);
  EXPECT_EQ(client_.ask(1).code, 0);
  first_.kill();
  // The socket may see the end of the connection only after it took the request.
  const Outcome outcome = client_.send(3);
  EXPECT_THAT(outcome.code, testing::AnyOf(-102, -103));
  expectFailure(client_, outcome, outcome.code, "\"command 3\" was ");
  expectTimedOut(client_, outcome);

  const Outcome next = client_.send(3);
  expectFailure(client_, next, -102, "no daemon took it");
  expectTimedOut(client_, next);
  expectWorkingWithANewDaemon();
}

TEST_F(DaemonFault, KilledDuringARequest) {
  listen(silent_);
  auto request = std::async(std::launch::async, [this] { return client_.send(3); });
  ASSERT_TRUE(silent_.waitForOutput("request 3\n"));
  silent_.kill();
  const Outcome outcome = request.get();
  expectFailure(client_, outcome, -103, "The daemon may have acted on it");
  expectTimedOut(client_, outcome);
  expectWorkingWithANewDaemon();
}

TEST_F(DaemonFault, ARequestThatADeadDaemonTookIsNotSentAgain) {
  listen(silent_);
  TestClient patient(context_, TestClient::kTimeout * 3);
  auto request = std::async(std::launch::async, [&] { return patient.send(8); });
  ASSERT_TRUE(silent_.waitForOutput("request 8\n"));
  silent_.kill();
  listen(second_);
  EXPECT_EQ(request.get().code, -103);
  EXPECT_EQ(patient.ask(19).code, 0);
  ASSERT_TRUE(second_.waitForOutput("request 19\n"));
  EXPECT_THAT(second_.output(), testing::Not(HasSubstr("request 8")));
}

TEST_F(DaemonFault, KilledAfterARequestAndReplaced) {
  listen(first_);
  EXPECT_EQ(client_.ask(1).code, 0);
  first_.kill();
  listen(second_);
  // A request that is written before the end of the old connection is noticed is lost with it.
  EXPECT_THAT(client_.send(3).code, testing::AnyOf(0, -103));
  EXPECT_EQ(client_.ask(19).code, 0) << client_.lastError().text;
}

TEST_F(DaemonFault, FrozenAndThawed) {
  listen(first_);
  EXPECT_EQ(client_.ask(1).code, 0);
  first_.freeze();
  for (int round = 0; round < 2; ++round) {
    // The first request leaves on the connection that is there; a new one never shakes hands.
    const Outcome outcome = client_.send(3);
    expectFailure(client_, outcome, round == 0 ? -103 : -102,
                  round == 0 ? "may have acted on it" : "no daemon took it");
    expectTimedOut(client_, outcome);
  }
  first_.thaw();
  EXPECT_EQ(client_.ask(19).code, 0) << client_.lastError().text;
}

namespace {

std::size_t openDescriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

}  // namespace

class DescriptorFault : public testing::TestWithParam<unsigned int> {
 protected:
  void SetUp() override {
    if (zel::test::kSanitized) GTEST_SKIP() << "a sanitizer's own checks open a pipe, in any thread";
  }
};
INSTANTIATE_TEST_SUITE_P(Left, DescriptorFault, testing::Range(0u, 8u), testing::PrintToStringParamName());

TEST_P(DescriptorFault, InitFailsAndSucceedsLater) {
  const ScriptedDaemon daemon;
  zmq::context_t context;
  TestClient client;
  {
    const FewDescriptors few(GetParam());
    EXPECT_EQ(client.init(context), -101);
  }
  EXPECT_EQ(client.lastError().code, -101);
  EXPECT_EQ(client.lastError().text,
            "The client cannot open a connection to tcp://127.0.0.1:5556: too few file descriptors are left.");
  EXPECT_EQ(client.init(context), 0);
  EXPECT_EQ(client.ask(3).code, 0);
}

TEST_P(DescriptorFault, ARequestThatNeedsANewConnectionFailsAtOnceAndTheNextWorks) {
  ScriptedDaemon daemon;
  zmq::context_t context;
  TestClient client(context);
  EXPECT_EQ(client.ask(3).code, 0);
  daemon.answer("no JSON");
  const std::size_t connected = openDescriptors();
  EXPECT_EQ(client.send(3).code, -104);
  // ZeroMQ's thread closes the socket: its mailbox and, as the daemon is here too, both ends of the connection.
  ASSERT_TRUE(zel::test::waitUntil([&] { return openDescriptors() + 3 <= connected; }));
  {
    const FewDescriptors few(GetParam());
    const Outcome outcome = client.send(3);
    expectFailure(client, outcome, -101,
                  "\"command 3\" was not sent: no connection to tcp://127.0.0.1:5556 can be opened: too few file "
                  "descriptors are left.");
    expectAtOnce(outcome);
  }
  EXPECT_EQ(daemon.requestCount(), 2u);
  EXPECT_EQ(client.ask(3).code, 0) << client.lastError().text;
}

TEST(Descriptors, ARequestOnAnOpenConnectionNeedsNoDescriptor) {
  const ScriptedDaemon daemon;
  zmq::context_t context;
  TestClient client(context);
  EXPECT_EQ(client.ask(3).code, 0);
  const FewDescriptors few(0);
  EXPECT_EQ(client.ask(3).code, 0) << client.lastError().text;
}

TEST(Descriptors, EightAreEnoughForTheFirstUseOfAContext) {
  const ChildProcess daemon = startDaemon();
  for (unsigned int left = 8; left < 16; ++left) {
    zmq::context_t context;
    TestClient client;
    const FewDescriptors few(left);
    EXPECT_EQ(client.init(context), 0) << left;
    EXPECT_EQ(client.ask(3).code, 0) << left << ": " << client.lastError().text;
  }
}

TEST(Descriptors, AClientConnectsWhereThereIsNoFileToOpen) {
  const ChildProcess daemon = startDaemon();
  ChildProcess child = ChildProcess::call([] {
    char folder[] = "/tmp/zel-empty-XXXXXX";
    if (mkdtemp(folder) == nullptr || chroot(folder) != 0) return 77;
    rmdir(folder);
    zmq::context_t context;
    TestClient client(context);
    EXPECT_EQ(client.ask(3).code, 0) << client.lastError().text;
    std::fflush(nullptr);
    _exit(testing::Test::HasFailure() ? 1 : 0);  // the search for leaks would open files
    return 0;
  });
  const std::optional<int> status = child.wait();
  if (status == 77) GTEST_SKIP() << "to change the root needs a privilege";
  EXPECT_EQ(status, 0) << child.output() << child.errors();
}

/// What the threads of a busy process do, so that a fork finds every lock held at times.
void keepBusy(zmq::context_t& context, const std::atomic<bool>& stop) {
  while (!stop) {
    Logger::log(Logger::LEVEL_ERROR, "busy");
    ErrorAuxMsg::getInstance()->addMessage("busy");
    ErrorAuxMsg::getInstance()->clear();
    TestClient client(milliseconds(1));
    client.init(context);
    SubscribeJsonClient subscriber(context);
    PollFds fds;
    subscriber.getPollItems(fds);
    fds.poll(0);
  }
}

/// By hand, with more: ZEL_FORKS=20000.
TEST(Fork, AChildOfABusyParentNeverHangs) {
  if (zel::test::kSanitized) GTEST_SKIP() << "a sanitizer's own locks may be held at a fork";
  const char* const wished = std::getenv("ZEL_FORKS");
  const int forks = wished == nullptr ? 300 : std::atoi(wished);
  Logger::getInstance()->setSink([](auto, const std::string&) {});
  zmq::context_t context;
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) threads.emplace_back([&] { keepBusy(context, stop); });

  int hung = 0;
  for (int i = 0; i < forks; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      Logger::log(Logger::LEVEL_ERROR, "child");
      ErrorAuxMsg::getInstance()->addMessage("child");
      {
        zmq::context_t own;
        TestClient client(own, milliseconds(1));
        SubscribeJsonClient subscriber(own);
        subscriber.connect("tcp://127.0.0.1:5575");
      }
      std::exit(0);
    }
    int status = 0;
    if (zel::test::waitUntil([&] { return waitpid(child, &status, WNOHANG) == child; })) {
      EXPECT_EQ(status, 0);
      continue;
    }
    ++hung;
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
  }
  stop = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(hung, 0);
}

TEST(Fork, AClientOfTheParentIsNotUsableInTheChild) {
  const ScriptedDaemon daemon;
  zmq::context_t context;
  TestClient client(context);
  EXPECT_EQ(client.ask(1).code, 0);
  ChildProcess child = ChildProcess::call([&]() -> int {
    const Outcome outcome = client.send(3);
    expectFailure(client, outcome, -100, "Call init again, with a context of this process.");
    expectAtOnce(outcome);
    return 0;
  });
  EXPECT_EQ(child.wait(), 0) << child.output();
  EXPECT_EQ(client.ask(1).code, 0) << client.lastError().text;
  EXPECT_EQ(daemon.requestCount(), 2u);
}

/// A client whose process forks in a function of the application's that a request calls, before or behind its time-out.
class ForkingClient : public TestClient {
 public:
  using TestClient::TestClient;
  bool forksInTimeout = false;
  bool forksInDescription = false;
  pid_t child = -1;

  int getClientTimeout() override {
    if (std::exchange(forksInTimeout, false)) child = fork();
    return TestClient::getClientTimeout();
  }
  int getCommandDescription(unsigned int id, std::string& description) override {
    if (std::exchange(forksInDescription, false)) child = fork();
    return TestClient::getCommandDescription(id, description);
  }
};

void expectChildToEndWith(pid_t child, int expected) {
  int status = 0;
  EXPECT_TRUE(zel::test::waitUntil([&] { return waitpid(child, &status, WNOHANG) == child; }));
  kill(child, SIGKILL);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == expected) << status;
}

TEST(Fork, AChildReturnsFromTheRequestThatForkedIt) {
  const ScriptedDaemon daemon;
  zmq::context_t context;
  ForkingClient client(context);
  client.forksInTimeout = true;
  const Outcome outcome = client.send(3);
  if (client.child == 0) {
    const bool told =
        client.lastError().text.find("Call init again, with a context of this process.") != std::string::npos;
    _exit(outcome.code == -100 && told ? 0 : 1);
  }
  expectChildToEndWith(client.child, 0);
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(client.ask(1).code, 0) << client.lastError().text;
  EXPECT_EQ(daemon.requestCount(), 2u);
}

/// The child leaves the parent's socket alone.
TEST(Fork, AChildReturnsFromTheReportThatForkedIt) {
  zmq::context_t context;
  ForkingClient client(context, milliseconds(1));
  client.forksInDescription = true;
  const Outcome outcome = client.send(3);
  if (client.child == 0) _exit(outcome.code == -102 ? 0 : 1);
  expectChildToEndWith(client.child, 0);
  EXPECT_EQ(outcome.code, -102);
}

TEST(Fork, AClientWorksInTheChildAfterInitWithAContextOfItsOwn) {
  if (zel::test::kThreadSanitizer) GTEST_SKIP() << zel::test::kNoThreadsAfterFork;
  const ScriptedDaemon daemon;
  zmq::context_t context;
  TestClient client(context);
  EXPECT_EQ(client.ask(1).code, 0);
  ChildProcess child = ChildProcess::call([&]() -> int {
    {
      zmq::context_t own;
      EXPECT_EQ(client.init(own), 0);
      EXPECT_EQ(client.ask(3).code, 0) << client.lastError().text;
      TestClient another(own);
      EXPECT_EQ(another.ask(4).code, 0) << another.lastError().text;
      EXPECT_EQ(client.init(context), 0) << "closes the socket on the child's context";
    }
    return 0;
  });
  EXPECT_EQ(child.wait(), 0) << child.output();
  EXPECT_EQ(client.ask(1).code, 0) << client.lastError().text;
  EXPECT_EQ(daemon.requestCount(), 4u);
}
