// The end of a process in whatever state its clients are: at once, with the context closed after every socket.

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

#include "client/async_client.h"
#include "client/sysmgr_jsonApi.h"
#include "client/zmq_utils.h"
#include "common/logger.h"
#include "tests/support/daemon_process.h"
#include "tests/support/raw_peer.h"

using std::chrono::milliseconds;
using testing::EndsWith;
using testing::HasSubstr;
using zel::test::ChildProcess;
using zel::test::kSlowdown;
using zel::test::RawBehaviour;
using zel::test::RawPeer;
using zel::test::ScriptedDaemon;
using zel::test::startDaemon;

namespace {

// At its end a process under a sanitizer looks for leaks, or waits a second for races.
constexpr milliseconds kExitLimit{kSlowdown == 1 ? 100 : 2500};
constexpr const char* kClosing = "5 ZmqUtils: closing ZMQ context\n";

class Client : public SysMgrJsonClient {
 public:
  explicit Client(int timeoutMs = 50) : timeoutMs_(timeoutMs) {}
  int getClientTimeout() override { return timeoutMs_; }
  void connect() { EXPECT_EQ(init(ZmqUtils::getInstance().getContext()), 0); }
  int request() {
    Json::Value reply;
    return getBoardModel(reply);
  }

 private:
  int timeoutMs_;
};

void print(const std::string& line) {
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

/// Brings a process into the state, and expects it to end within the limit from there.
/// @return what the process wrote
std::string expectQuickExit(const std::function<void()>& state) {
  ChildProcess child = ChildProcess::call([&state] {
    Logger::getInstance()->setLevel(Logger::LEVEL_LIFECYCLE);
    Logger::getInstance()->setSink([](Logger::logDebugLevel_t level, const std::string& text) {
      if (level == Logger::LEVEL_LIFECYCLE) print(std::to_string(level) + " " + text);
    });
    state();
    print("leaving");
    return 0;
  });
  EXPECT_TRUE(child.waitForOutput("leaving\n"));
  const auto took = child.timeToEnd().own;
  EXPECT_EQ(child.wait(), 0) << child.errors();
  EXPECT_LE(took, kExitLimit);
  testing::Test::RecordProperty("exitUs", static_cast<int>(took.count()));
  return child.output();
}

/// A thread of the process waits in a request while the process ends.
void waitInAnotherThread() {
  static Client client(60'000);
  client.connect();
  static std::atomic<bool> asking{false};
  std::thread([] {
    asking = true;
    client.request();
  }).detach();
  zel::test::waitUntil([] { return asking.load(); });
  std::this_thread::sleep_for(milliseconds(20));  // most likely in the wait by now; right either way
}

}  // namespace

TEST(Exit, WithAClientThatWasNeverConnected) {
  EXPECT_THAT(expectQuickExit([] {
                static Client client;
                EXPECT_EQ(client.request(), -100);
              }),
              EndsWith("leaving\n"));
}

TEST(Exit, WithNobodyAtTheOtherEnd) {
  EXPECT_THAT(expectQuickExit([] {
                static Client client;
                client.connect();
              }),
              EndsWith(kClosing));
}

TEST(Exit, AfterARequestThatWasNotSent) {
  EXPECT_THAT(expectQuickExit([] {
                static Client client;
                client.connect();
                EXPECT_EQ(client.request(), -102);
              }),
              EndsWith(kClosing));
}

TEST(Exit, AfterAnAnsweredRequest) {
  const ChildProcess daemon = startDaemon();
  EXPECT_THAT(expectQuickExit([] {
                static Client client(5000);
                client.connect();
                EXPECT_EQ(client.request(), 0);
              }),
              EndsWith(kClosing));
}

TEST(Exit, AfterAnUnansweredRequest) {
  const ChildProcess daemon = startDaemon(zel::test::keepSilent);
  EXPECT_THAT(expectQuickExit([] {
                static Client client(500);
                client.connect();
                EXPECT_EQ(client.request(), -103);
              }),
              EndsWith(kClosing));
}

TEST(Exit, WithAFrozenDaemon) {
  const ChildProcess daemon = startDaemon();
  daemon.freeze();
  EXPECT_THAT(expectQuickExit([] {
                static Client client;
                client.connect();
                EXPECT_EQ(client.request(), -102);
              }),
              EndsWith(kClosing));
}

TEST(Exit, WithAPeerThatIsNoDaemon) {
  ChildProcess other = ChildProcess::call([]() -> int {
    const RawPeer peer(RawBehaviour::kGreetingThenSilence);
    print("listening");
    for (;;) pause();
  });
  ASSERT_TRUE(other.waitForOutput("listening\n"));
  EXPECT_THAT(expectQuickExit([] {
                static Client client;
                client.connect();
                EXPECT_EQ(client.request(), -102);
              }),
              EndsWith(kClosing));
}

TEST(Exit, WithAClientThatIsNeverDestroyed) {
  EXPECT_THAT(expectQuickExit([] {
                static Client& client = *new Client;
                client.connect();
              }),
              EndsWith(kClosing));
}

TEST(Exit, WithAClientOnTheStackOfTheThreadThatEndsTheProcess) {
  ChildProcess child = ChildProcess::call([]() -> int {
    Client client;
    client.connect();
    print("leaving");
    std::exit(0);
  });
  ASSERT_TRUE(child.waitForOutput("leaving\n"));
  EXPECT_LE(child.timeToEnd().own, kExitLimit);
  EXPECT_EQ(child.wait(), 0);
}

TEST(Exit, WithAStaticClientThatIsOlderThanTheContext) {
  EXPECT_THAT(expectQuickExit([] {
                static Client client;  // so it is destroyed after the context
                ZmqUtils::getInstance();
                client.connect();
                EXPECT_EQ(client.request(), -102);
              }),
              EndsWith(kClosing));
}

TEST(Exit, WithAStaticClientConnectedAgainAfterAReset) {
  EXPECT_THAT(expectQuickExit([] {
                static Client client;
                {
                  Client first;
                  first.connect();
                }
                ZmqUtils::getInstance().resetContext();
                client.connect();
              }),
              EndsWith(kClosing));
}

TEST(Exit, WithARequestInAnotherThreadAndNoDaemon) {
  EXPECT_THAT(expectQuickExit(waitInAnotherThread), EndsWith(kClosing));
}

TEST(Exit, WithARequestInAnotherThreadThatIsNotAnswered) {
  const ChildProcess daemon = startDaemon(zel::test::keepSilent);
  EXPECT_THAT(expectQuickExit(waitInAnotherThread), EndsWith(kClosing));
}

TEST(Exit, WithManyClientsInOtherThreads) {
  EXPECT_THAT(expectQuickExit([] {
                for (int i = 0; i < 8; ++i) {
                  std::thread([] {
                    Client client;
                    client.connect();
                    while (client.request() != -100) continue;
                  }).detach();
                }
                std::this_thread::sleep_for(milliseconds(70));  // some are in a request, some between two
              }),
              HasSubstr(kClosing));
}

TEST(Exit, WithACallInAnotherThreadThatReturnsLate) {
  class Slow : public Client {
   public:
    int getClientTimeout() override {
      std::this_thread::sleep_for(milliseconds(200));  // longer than the process waits for the thread
      return 60'000;
    }
  };
  ChildProcess child = ChildProcess::call([] {
    static Slow& client = *new Slow;  // not destroyed while it is in use
    client.connect();
    static std::atomic<bool> asking{false};
    std::thread([] {
      Json::Value request = std::nan("");  // refused before the socket is looked at
      Json::Value reply;
      asking = true;
      client.setSysMgrParameter(request, reply);
    }).detach();
    zel::test::waitUntil([] { return asking.load(); });
    std::this_thread::sleep_for(milliseconds(20));
    return 0;
  });
  EXPECT_EQ(child.wait(), 0) << child.errors();
}

TEST(Exit, AStaticClientIsOfNoUseAfterTheContextIsGone) {
  struct Late {
    Client client;
    ~Late() {
      print("late " + std::to_string(client.request()));
      ErrorReport report;
      client.getLastErrorMessage(report);
      print(report.text);
    }
  };
  const ChildProcess daemon = startDaemon();
  EXPECT_THAT(
      expectQuickExit([] {
        static Late late;
        ZmqUtils::getInstance();
        EXPECT_EQ(late.client.request(), -100);  // so the names of the commands are there, and younger
        late.client.connect();
      }),
      EndsWith(std::string(kClosing) + "late -100\n\"GET Board Model\" was not sent: the process is ending.\n"));
}

TEST(Exit, AStaticClientWorksUntilItsContextIsClosed) {
  struct Farewell {
    Client client{5000};
    Farewell() { client.connect(); }
    ~Farewell() { print("farewell " + std::to_string(store())); }
    int store() {
      Json::Value request;
      request["rtsp-tcp-port"] = 5004u;
      Json::Value reply;
      return client.setSysMgrParameter(request, reply);
    }
  };
  const ChildProcess daemon = startDaemon();
  EXPECT_THAT(expectQuickExit([] {
                static Farewell farewell;
                EXPECT_EQ(farewell.store(), 0);
              }),
              HasSubstr("farewell 0\n"));
}

namespace {

/// Sends a request in its destructor.
struct LastWords {
  Client client{5000};
  ~LastWords() { print("farewell " + std::to_string(client.request())); }
};

}  // namespace

TEST(Exit, AStaticClientThatIsConnectedLaterWorksUntilItsContextIsClosed) {
  const ChildProcess daemon = startDaemon();
  EXPECT_THAT(expectQuickExit([] {
                ZmqUtils::getInstance();
                static LastWords last;
                last.client.connect();
                EXPECT_EQ(last.client.request(), 0);
              }),
              EndsWith(std::string("farewell 0\n") + kClosing));
}

TEST(Exit, AStaticClientOlderThanAResetWorksUntilTheNewContextIsClosed) {
  const ChildProcess daemon = startDaemon();
  EXPECT_THAT(expectQuickExit([] {
                ZmqUtils::getInstance();
                static LastWords last;
                ZmqUtils::getInstance().resetContext();
                last.client.connect();
              }),
              EndsWith(std::string("farewell 0\n") + kClosing));
}

namespace {

bool connectsAtTheVeryEnd = false;

/// Runs when the exit handlers are over, and before the libraries are finalised.
__attribute__((destructor)) void connectAtTheVeryEnd() {
  if (!connectsAtTheVeryEnd) return;
  static Client* const client = new Client;
  client->connect();
}

}  // namespace

TEST(Exit, WithAContextThatIsMadeBehindTheExitHandlers) {
  EXPECT_THAT(expectQuickExit([] { connectsAtTheVeryEnd = true; }), EndsWith(kClosing));
}

/// The application's own static context, and two objects that send a request in their destructors: one that was made
/// before the first client was connected there, and one that was made after it.
TEST(Exit, AStaticObjectWorksWhereAClientWasConnectedBeforeIt) {
  struct Farewell {
    const char* name;
    Client client{5000};
    ~Farewell() { print(name + std::to_string(client.request())); }
  };
  const ChildProcess daemon = startDaemon();
  EXPECT_THAT(expectQuickExit([] {
                static zmq::context_t context;
                static Farewell before{"before "};
                static Client first;
                EXPECT_EQ(first.init(context), 0);
                static Farewell after{"after "};
                EXPECT_EQ(before.client.init(context), 0);
                EXPECT_EQ(after.client.init(context), 0);
              }),
              EndsWith("after 0\nbefore -100\n"));
}

TEST(Exit, WithAContextAtTheAddressOfAnEarlierOne) {
  /// Destroys its context at exit, and not before the exit handlers that were registered later.
  struct Holder {
    zmq::context_t* context;
    ~Holder() { delete context; }
  };
  expectQuickExit([] {
    auto* const first = new zmq::context_t;
    const void* const firstHandle = first->handle();
    {
      Client client;
      EXPECT_EQ(client.init(*first), 0);
    }
    delete first;
    // Until the allocator hands out the same addresses again.
    std::vector<zmq::context_t*> others;
    zmq::context_t* second = new zmq::context_t;
    for (int i = 0; i < 64 && (second != first || second->handle() != firstHandle); ++i) {
      others.push_back(second);
      second = new zmq::context_t;
    }
    for (const zmq::context_t* const other : others) delete other;
    static const Holder holder{second};
    static Client client;
    EXPECT_EQ(client.init(*second), 0);
  });
}

/// As by a thread that goes on while another one destroys the static objects: nothing is kept in what is destroyed.
TEST(Exit, LeavesADestroyedClientThatWasNeverConnectedAsItIs) {
  if (zel::test::kSanitized) GTEST_SKIP() << "the client is called after its destructor";
  alignas(Client) static unsigned char memory[sizeof(Client)];
  auto* const client = new (memory) Client;
  client->~Client();
  EXPECT_EQ(client->request(), -100);
  ErrorReport report;
  client->getLastErrorMessage(report);
  EXPECT_EQ(report.text, "");
}

/// Another thread of the parent runs the exit handlers, those of the library included, when the child is forked.
TEST(Exit, GoesOnInAChildThatWasForkedMeanwhile) {
  if (zel::test::kSanitized) GTEST_SKIP() << "a sanitizer's own locks may be held at a fork";
  const ScriptedDaemon daemon;
  static std::atomic<bool> exiting{false};
  static std::atomic<int> result{-1};
  ChildProcess process = ChildProcess::call([] {
    std::atexit([] {  // runs behind the library's handlers, which are registered later
      exiting = true;
      _exit(zel::test::waitUntil([] { return result >= 0; }) ? result.load() : 90);
    });
    static Client* const inherited = new Client;
    inherited->connect();
    std::thread([] {
      zel::test::waitUntil([] { return exiting.load(); });
      const pid_t child = fork();
      if (child == 0) {
        ZmqUtils::getInstance().resetContext();
        zmq::context_t& context = ZmqUtils::getInstance().getContext();
        Client own(5000);
        const bool blocking = own.init(context) == 0 && own.request() == 0;
        zel::AsyncClient queue(context);
        int status = -1;
        queue.submit(zel::requests::set(zel::settings::kSapEnable, true),
                     [&](const zel::Answer<void>& answer) { status = answer.status; });
        zel::test::waitUntil([&] { return queue.process() > 0; });
        ErrorReport report;
        const bool refused = inherited->request() == -100;
        inherited->getLastErrorMessage(report);
        const bool told = report.text.find("Call init again, with a context of this process.") != std::string::npos;
        _exit((blocking ? 0 : 1) + (status == 0 ? 0 : 2) + (refused && told ? 0 : 4));
      }
      int status = 0;
      waitpid(child, &status, 0);
      result = WIFEXITED(status) ? WEXITSTATUS(status) : 99;
    }).detach();
    return 0;
  });
  EXPECT_EQ(process.wait(), 0) << process.errors();
}

TEST(Exit, OfAForkedChildThatInheritsAClient) {
  if (zel::test::kSanitized)
    GTEST_SKIP() << "a sanitizer's checks at the end do not know which threads a forked child has";
  Client client;
  client.connect();
  const ScriptedDaemon daemon;
  expectQuickExit([] {});
  expectQuickExit([&client] {
    ZmqUtils::getInstance().resetContext();
    client.connect();
    EXPECT_EQ(client.request(), 0);
  });
  EXPECT_EQ(client.request(), 0);
}
