#include "client/zmq_utils.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tests/support/captured_log.h"
#include "tests/support/child_process.h"
#include "tests/support/few_descriptors.h"

using testing::ElementsAre;
using testing::IsEmpty;
using zel::test::CapturedLog;
using zel::test::ChildProcess;
using zel::test::LogLine;
using zel::test::NoDescriptors;
using zel::test::waitUntil;

/// Whether libzmq is to refuse every option of a context.
static bool refusesOptions = false;

/// Stands before libzmq's own function.
extern "C" int zmq_ctx_set(void* context, int option, int value) {
  static const auto own = reinterpret_cast<decltype(&zmq_ctx_set)>(dlsym(RTLD_NEXT, "zmq_ctx_set"));
  if (!refusesOptions) return own(context, option, value);
  errno = EINVAL;
  return -1;
}

/// Whether libzmq is to take its time to make a context, and whether it is making one.
static std::atomic<bool> makesSlowly{false};
static std::atomic<bool> isMaking{false};

/// Stands before libzmq's own function.
extern "C" void* zmq_ctx_new() {
  static const auto own = reinterpret_cast<decltype(&zmq_ctx_new)>(dlsym(RTLD_NEXT, "zmq_ctx_new"));
  isMaking = true;
  if (makesSlowly) std::this_thread::sleep_for(std::chrono::milliseconds(100));
  void* const context = own();
  isMaking = false;
  return context;
}

namespace {

const LogLine kMade{5, "ZmqUtils: initializing ZMQ Context ..."};
const LogLine kReset{5, "ZmqUtils: reseting ZMQ Context ..."};

void expectOptions(zmq::context_t& context) {
  EXPECT_EQ(zmq_ctx_get(context.handle(), ZMQ_IO_THREADS), 1);
  EXPECT_EQ(zmq_ctx_get(context.handle(), ZMQ_MAX_SOCKETS), 1023);
}

/// Whether sockets can be opened on the context.
bool works(zmq::context_t& context) {
  zmq::socket_t a(context, zmq::socket_type::pair);
  zmq::socket_t b(context, zmq::socket_type::pair);
  a.bind("inproc://works");
  b.connect("inproc://works");
  a.send(zmq::str_buffer("x"), zmq::send_flags::none);
  zmq::message_t message;
  return b.recv(message).has_value();
}

void printLine(Logger::logDebugLevel_t level, const std::string& text) {
  std::printf("%d %s\n", static_cast<int>(level), text.c_str());
  std::fflush(stdout);
}

}  // namespace

class ZmqUtilsWithoutDescriptors : public testing::Test {
 protected:
  void SetUp() override {
    if (zel::test::kSanitized) GTEST_SKIP() << "a sanitizer's own checks open a pipe";
  }
};

TEST(ZmqUtils, MakesOneContextOnTheFirstUse) {
  const CapturedLog log;
  ZmqUtils& utils = ZmqUtils::getInstance();
  EXPECT_EQ(&ZmqUtils::getInstance(), &utils);
  EXPECT_EQ(&utils.getContext(), &utils.getContext());
  EXPECT_TRUE(works(utils.getContext()));
  EXPECT_THAT(log.lines(), ElementsAre(kMade));
}

TEST(ZmqUtils, MakesOneContextWhenThreadsUseItFirst) {
  const CapturedLog log;
  std::vector<ZmqUtils*> seen(8);
  std::atomic<bool> go{false};
  std::vector<std::thread> threads;
  for (ZmqUtils*& place : seen) {
    threads.emplace_back([&place, &go] {
      while (!go) continue;
      place = &ZmqUtils::getInstance();
    });
  }
  go = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(seen, testing::Each(&ZmqUtils::getInstance()));
  EXPECT_THAT(log.lines(), ElementsAre(kMade));
}

TEST(ZmqUtils, SetsOneThreadAndTheDefaultNumberOfSockets) {
  expectOptions(ZmqUtils::getInstance().getContext());
  ZmqUtils::getInstance().resetContext();
  expectOptions(ZmqUtils::getInstance().getContext());
}

TEST(ZmqUtils, WorksWhereAContextRefusesItsOptions) {
  refusesOptions = true;
  EXPECT_TRUE(works(ZmqUtils::getInstance().getContext()));
  ZmqUtils::getInstance().resetContext();
  EXPECT_TRUE(works(ZmqUtils::getInstance().getContext()));
}

TEST(ZmqUtils, ReplacesTheContextOnReset) {
  zmq::context_t& context = ZmqUtils::getInstance().getContext();
  // The new context may lie where the old one did: an option tells them apart.
  ASSERT_EQ(zmq_ctx_set(context.handle(), ZMQ_IPV6, 1), 0);
  const CapturedLog log;
  ZmqUtils::getInstance().resetContext();
  EXPECT_EQ(&ZmqUtils::getInstance().getContext(), &context);
  EXPECT_EQ(zmq_ctx_get(context.handle(), ZMQ_IPV6), 0);
  EXPECT_TRUE(works(context));
  EXPECT_THAT(log.lines(), ElementsAre(kReset));
}

TEST(ZmqUtils, WaitsOnResetUntilTheSocketsAreClosed) {
  zmq::context_t& context = ZmqUtils::getInstance().getContext();
  void* const socket = zmq_socket(context.handle(), ZMQ_PAIR);
  std::atomic<bool> isReset{false};
  std::thread resetting([&isReset] {
    ZmqUtils::getInstance().resetContext();
    isReset = true;
  });
  // The socket learns that its context ends; it is of no use then, but still open.
  ASSERT_TRUE(waitUntil([socket] { return zmq_send(socket, "", 0, ZMQ_DONTWAIT) < 0 && zmq_errno() == ETERM; }));
  EXPECT_FALSE(isReset);
  zmq_close(socket);
  resetting.join();
  EXPECT_TRUE(isReset);
  EXPECT_TRUE(works(context));
}

TEST_F(ZmqUtilsWithoutDescriptors, ThrowsWhenNoContextCanBeMadeAndTriesAgain) {
  const CapturedLog log;
  {
    const NoDescriptors none(1);
    try {
      ZmqUtils::getInstance();
      FAIL() << "nothing was thrown";
    } catch (const zmq::error_t& error) {
      EXPECT_EQ(error.num(), EMFILE);
      EXPECT_STREQ(error.what(), zmq_strerror(EMFILE));
    }
  }
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_TRUE(works(ZmqUtils::getInstance().getContext()));
  EXPECT_THAT(log.lines(), ElementsAre(kMade));
}

TEST_F(ZmqUtilsWithoutDescriptors, HasNoContextAfterAFailedResetUntilTheNext) {
  zmq::context_t& context = ZmqUtils::getInstance().getContext();
  const CapturedLog log;
  {
    const NoDescriptors none(1);
    EXPECT_THROW(ZmqUtils::getInstance().resetContext(), zmq::error_t);
    EXPECT_EQ(context.handle(), nullptr);
    EXPECT_THROW(ZmqUtils::getInstance().resetContext(), zmq::error_t);
  }
  ZmqUtils::getInstance().resetContext();
  EXPECT_TRUE(works(context));
  expectOptions(context);
  EXPECT_THAT(log.lines(), ElementsAre(kReset, kReset, kReset));
}

TEST(ZmqUtils, TriesAgainAfterLoggingThrew) {
  Logger::getInstance()->setLevel(Logger::LEVEL_LIFECYCLE);
  Logger::getInstance()->setSink([](auto, const std::string& text) { throw std::runtime_error(text); });
  EXPECT_THROW(ZmqUtils::getInstance(), std::runtime_error);
  const CapturedLog log;
  EXPECT_TRUE(works(ZmqUtils::getInstance().getContext()));
  EXPECT_THAT(log.lines(), ElementsAre(kMade));
}

TEST(ZmqUtils, ClosesTheContextOnceAtTheEndOfTheProcess) {
  ChildProcess child = ChildProcess::call([] {
    Logger::getInstance()->setLevel(Logger::LEVEL_TRACE);
    Logger::getInstance()->setSink(printLine);
    EXPECT_TRUE(works(ZmqUtils::getInstance().getContext()));
    return 0;
  });
  EXPECT_EQ(child.wait(), 0) << child.errors();
  EXPECT_EQ(child.output(), "5 ZmqUtils: initializing ZMQ Context ...\n5 ZmqUtils: closing ZMQ context\n");
}

TEST_F(ZmqUtilsWithoutDescriptors, ClosesAtTheEndAfterAFailedReset) {
  ChildProcess child = ChildProcess::call([] {
    ZmqUtils::getInstance();
    const NoDescriptors none(1);
    EXPECT_THROW(ZmqUtils::getInstance().resetContext(), zmq::error_t);
    Logger::getInstance()->setLevel(Logger::LEVEL_TRACE);
    Logger::getInstance()->setSink(printLine);
    return 0;
  });
  EXPECT_EQ(child.wait(), 0) << child.errors();
  EXPECT_EQ(child.output(), "5 ZmqUtils: closing ZMQ context\n");
}

TEST(ZmqUtils, IsNotThereUnlessItIsUsed) {
  ChildProcess child = ChildProcess::call([] {
    Logger::getInstance()->setLevel(Logger::LEVEL_TRACE);
    Logger::getInstance()->setSink(printLine);
    return 0;
  });
  EXPECT_EQ(child.wait(), 0) << child.errors();
  EXPECT_EQ(child.output(), "");
}

TEST(ZmqUtils, EndsTheProcessWhenTheLastLineCannotBeLogged) {
  ChildProcess child = ChildProcess::call([] {
    ZmqUtils::getInstance();
    Logger::getInstance()->setLevel(Logger::LEVEL_LIFECYCLE);
    Logger::getInstance()->setSink([](auto, const std::string&) { throw std::runtime_error("full"); });
    return 0;
  });
  EXPECT_EQ(child.wait(), -SIGABRT);
}

/// libzmq and its libraries have locks of their own: a child that inherited one locked could never make a context.
TEST(ZmqUtils, NoChildIsForkedWhileAContextIsMade) {
  if (zel::test::kThreadSanitizer) GTEST_SKIP() << zel::test::kNoThreadsAfterFork;
  const auto expectNotMaking = [] {
    ASSERT_TRUE(waitUntil([] { return isMaking.load(); }));
    const pid_t child = fork();
    if (child == 0) _exit(isMaking ? 1 : 0);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  };
  makesSlowly = true;
  std::thread first([] { ZmqUtils::getInstance(); });
  expectNotMaking();
  first.join();
  std::thread again([] { ZmqUtils::getInstance().resetContext(); });
  expectNotMaking();
  again.join();
  makesSlowly = false;
}

TEST(ZmqUtils, LeavesTheParentsContextAloneInAForkedChild) {
  if (zel::test::kThreadSanitizer) GTEST_SKIP() << zel::test::kNoThreadsAfterFork;
  zmq::context_t& context = ZmqUtils::getInstance().getContext();
  zmq::socket_t open(context, zmq::socket_type::pair);  // the end of the context would wait for it
  // A lock of the sanitizer's that a thread of the context holds while it starts would stay locked in the child.
  if (zel::test::kAddressSanitizer) std::this_thread::sleep_for(std::chrono::milliseconds(500));
  ChildProcess untouched = ChildProcess::call([] { return 0; });
  EXPECT_EQ(untouched.wait(), 0) << untouched.errors();
  ChildProcess reset = ChildProcess::call([&context] {
    ZmqUtils::getInstance().resetContext();
    return works(context) ? 0 : 1;
  });
  EXPECT_EQ(reset.wait(), 0) << reset.errors();
  EXPECT_TRUE(works(context));
}
