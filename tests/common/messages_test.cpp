// The small records around a request: the message, the report, the auxiliary messages, the line of a failed check.

#include <gmock/gmock.h>

#include <list>
#include <thread>
#include <vector>

#include "common/error_aux_msg.h"
#include "common/error_report.h"
#include "common/ipc_msg.h"
#include "common/shared/failed_check.h"
#include "tests/support/captured_log.h"
#include "tests/support/child_process.h"

using testing::ElementsAre;
using testing::IsEmpty;
using zel::test::CapturedLog;
using zel::test::ChildProcess;

TEST(IpcMsg, HasNoBodyUnlessOneIsGiven) {
  const IpcMsg message(12);
  EXPECT_EQ(message.getId(), 12u);
  EXPECT_TRUE(message.getBody().isNull());
}

TEST(IpcMsg, KeepsACopyOfTheBody) {
  Json::Value body;
  body["a"] = 1u;
  const IpcMsg message(4294967295u, body);
  body["a"] = 2u;
  EXPECT_EQ(message.getId(), 4294967295u);
  EXPECT_EQ(message.getBody()["a"], Json::Value(1u));
}

TEST(ErrorReport, IsEmptyAtFirst) {
  EXPECT_EQ(ErrorReport().code, 0);
  EXPECT_EQ(ErrorReport().text, "");
}

TEST(ErrorAuxMsg, CollectsFormattedMessagesInOrder) {
  ErrorAuxMsg* const store = ErrorAuxMsg::getInstance();
  EXPECT_EQ(ErrorAuxMsg::getInstance(), store);
  EXPECT_THAT(store->getMessages(), IsEmpty());
  store->addMessage("%s: gateway %d of %u", "primary", -1, 4294967295u);
  store->addMessage("100 %%");
  store->addMessage("%s", std::string(100'000, 'x').c_str());
  EXPECT_THAT(store->getMessages(),
              ElementsAre("primary: gateway -1 of 4294967295", "100 %", std::string(100'000, 'x')));
  store->clear();
  EXPECT_THAT(store->getMessages(), IsEmpty());
}

TEST(ErrorAuxMsg, LogsNothing) {
  const CapturedLog log;
  ErrorAuxMsg::getInstance()->addMessage("x");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(ErrorAuxMsg, TakesMessagesOfSeveralThreads) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([i] {
      for (int j = 0; j < 100; ++j) ErrorAuxMsg::getInstance()->addMessage("%d %d", i, j);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(ErrorAuxMsg::getInstance()->getMessages().size(), 400u);
}

TEST(ErrorAuxMsg, OutlivesEveryOtherStaticObject) {
  ChildProcess child = ChildProcess::call([] {
    struct Late {
      ~Late() {
        ErrorAuxMsg::getInstance()->addMessage("late");
        for (const std::string& message : ErrorAuxMsg::getInstance()->getMessages())
          std::printf("%s ", message.c_str());
        std::fflush(stdout);
      }
    };
    static Late late;
    ErrorAuxMsg::getInstance()->addMessage("early");
    return 0;
  });
  EXPECT_EQ(child.wait(), 0) << child.errors();
  EXPECT_EQ(child.output(), "early late ");
}

namespace {

struct Record {};

struct Holder {
  static int check(std::list<Record>& list, const std::string& text, int result);
};

int Holder::check(std::list<Record>&, const std::string&, int result) { return zel::checked(ZEL_HERE, result); }

}  // namespace

TEST(FailedCheck, CountsAPositiveResultAsSuccess) {
  const CapturedLog log;
  std::list<Record> list;
  for (const int result : {0, 1, 3, 2147483647}) EXPECT_EQ(Holder::check(list, "", result), 0);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(FailedCheck, LogsANegativeResultOnceAndReturnsIt) {
  std::list<Record> list;
  for (const int result : {-1, -5, -2147483647 - 1}) {
    const CapturedLog log;
    EXPECT_EQ(Holder::check(list, "", result), result);
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.texts(2).size(), 1u);
  }
}

TEST(FailedCheck, NamesTheLineOfTheCheck) {
  const CapturedLog log;
  const int line = __LINE__ + 1;
  zel::checked(ZEL_HERE, -3);
  ASSERT_EQ(log.texts(2).size(), 1u);
  EXPECT_THAT(log.texts(2)[0], testing::HasSubstr(")::" + std::to_string(line) + " Error Code -3"));
}

TEST(FailedCheck, SpellsASignatureInOneWayWhateverTheCompiler) {
  const std::pair<const char*, const char*> rows[] = {
      {"int A::f(Json::Value&)", "int A::f(Json::Value&)"},
      {"int A::f(Json::Value &)", "int A::f(Json::Value&)"},
      {"int A::f(Json::Value &, Json::Value &)", "int A::f(Json::Value&, Json::Value&)"},
      {"int A::f(std::__cxx11::list<B>&)", "int A::f(std::list<B>&)"},
      {"int A::f(std::list<B> &)", "int A::f(std::list<B>&)"},
      {"int A::f(uint32_t)", "int A::f(uint32_t)"},
  };
  for (const auto& [written, plain] : rows) EXPECT_EQ(zel::plainSignature(written), plain);
}
