// What an asynchronous client does behind the exit handler of its context.

#include <gmock/gmock.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "client/async_client.h"
#include "client/zmq_utils.h"
#include "tests/support/child_process.h"
#include "tests/support/daemon_process.h"
#include "tests/support/wait_until.h"

namespace {

using namespace std::chrono_literals;
using zel::AsyncClient;

/// A static object that is made before the context, and so destroyed after it.
struct Late {
  AsyncClient* client = nullptr;
  std::vector<int> statuses;
  std::vector<int> expected;
  std::string text;  ///< of the first answer

  void submit() {
    client->submit(zel::requests::factoryReset(), [this](const zel::Answer<void>& answer) {
      statuses.push_back(answer.status);
      if (text.empty()) text = answer.text;
    });
  }
  ~Late() {
    client->process();
    submit();
    client->process();
    std::fputs(text.c_str(), stderr);
    _exit(statuses == expected && client->pending() == 0 ? 0 : 1);
  }
};

/// Submits two requests, runs the loop until nothing is due any more, and ends the process.
[[noreturn]] void exitWithTwoRequests(std::vector<int> expected) {
  static Late late;
  late.expected = std::move(expected);
  late.client = new AsyncClient(ZmqUtils::getInstance().getContext());
  late.submit();
  late.submit();
  pollfd watched{late.client->descriptor(), POLLIN, 0};
  for (int i = 0; i < 50 && poll(&watched, 1, 500) == 1; ++i) late.client->process();
  std::exit(2);
}

/// Sends a request in its destructor.
struct Farewell {
  const char* name;
  AsyncClient* client = nullptr;

  ~Farewell() {
    int status = 1;
    client->submit(zel::requests::factoryReset(),
                   [&status](const zel::Answer<void>& answer) { status = answer.status; });
    pollfd watched{client->descriptor(), POLLIN, 0};
    for (int i = 0; i < 100 && status == 1; ++i) {
      poll(&watched, 1, 50);
      client->process();
    }
    std::fprintf(stderr, "%s %d\n", name, status);
  }
};

/// Two such objects, one made before the first asynchronous client of the application's own context, and one after it.
[[noreturn]] void exitWithOwnContext() {
  static zmq::context_t context;
  static Farewell before{"before"};
  static const AsyncClient first(context);
  static Farewell after{"after"};
  before.client = new AsyncClient(context);
  after.client = new AsyncClient(context);
  std::exit(0);
}

TEST(AsyncClientAtExit, WorksInAStaticObjectThatIsYoungerThanTheFirstClient) {
  const zel::test::ChildProcess daemon = zel::test::startDaemon();
  EXPECT_EXIT(exitWithOwnContext(), testing::ExitedWithCode(0), "after 0\nbefore -100\n");
}

TEST(AsyncClientAtExit, IsNotHeldUpByACompletionInAnotherThread) {
  const zel::test::ChildProcess daemon = zel::test::startDaemon();
  zel::test::ChildProcess child = zel::test::ChildProcess::call([] {
    static AsyncClient& client = *new AsyncClient(ZmqUtils::getInstance().getContext());
    static std::atomic<bool> completing{false};
    std::thread([] {
      const auto complete = [](const zel::Answer<void>&) {
        completing = true;
        for (;;) pause();  // for the thread that ends the process, say
      };
      client.submit(zel::requests::factoryReset(), complete);
      while (client.pending() > 0) client.process();
    }).detach();
    zel::test::waitUntil([] { return completing.load(); });
    return 0;
  });
  EXPECT_EQ(child.wait(), 0);
}

TEST(AsyncClientBehindTheExitHandler, CompletesWhatWasNotSent) {
  EXPECT_EXIT(exitWithTwoRequests({-100, -100, -100}), testing::ExitedWithCode(0),
              "^\"Resets the configuration files to factory default\" was not sent: the process is ending.$");
}

TEST(AsyncClientBehindTheExitHandler, CompletesWhatWasSentAsNotAnswered) {
  const zel::test::ChildProcess daemon = zel::test::startDaemon(zel::test::keepSilent);
  EXPECT_EXIT(exitWithTwoRequests({-103, -100, -100}), testing::ExitedWithCode(0),
              "was sent to tcp://127.0.0.1:5556, but the process ends before its answer. The daemon may have acted");
}

}  // namespace
