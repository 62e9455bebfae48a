// Wire JSON from the start of a process to its very end, whatever the environment holds.

#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <thread>

#include "common/logger.h"
#include "common/shared/wire_json.h"
#include "tests/support/child_process.h"

using zel::WireJsonReader;
using zel::writeWireJson;
using zel::test::ChildProcess;

namespace {

constexpr char kText[] = R"({"name":"Grüße"})";
constexpr int kBroken = 7;

std::atomic<int> questions{0};  // for a variable of simdjson's

bool writesText() {
  Json::Value value;
  value["name"] = "Grüße";
  std::string text;
  return writeWireJson(value, text).empty() && text == kText;
}

bool readsText(WireJsonReader& reader) {
  Json::Value value;
  return reader.read(kText, value).empty() && value["name"] == "Grüße";
}

void (*lastAction)() = nullptr;
void runLastAction(int /*status*/, void* /*unused*/) {
  if (lastAction) lastAction();
}
/// Registered before any library is initialized, so `lastAction` runs when all libraries have destroyed their objects.
void registerLastAction() { on_exit(runLastAction, nullptr); }
__attribute__((section(".preinit_array"), used)) void (*const kBeforeLibraries)() = registerLastAction;

/// Never destroyed.
WireJsonReader& earlyReader() {
  static WireJsonReader* const reader = new WireJsonReader;
  return *reader;
}

}  // namespace

/// Stands in for the C library's: the dynamic linker lets every library of the process ask this one.
extern "C" __attribute__((visibility("default"))) char* getenv(const char* name) noexcept {
  const std::string_view wanted = name;
  if (wanted.rfind("SIMDJSON", 0) == 0) ++questions;
  for (char** entry = environ; entry && *entry; ++entry) {
    const std::string_view text = *entry;
    if (text.size() > wanted.size() && text[wanted.size()] == '=' && text.rfind(wanted, 0) == 0) {
      return *entry + wanted.size() + 1;
    }
  }
  return nullptr;
}

/// The value of SIMDJSON_FORCE_IMPLEMENTATION with which the tests of reader and writer run.
class WireJsonInEnvironment : public testing::TestWithParam<const char*> {};

TEST_P(WireJsonInEnvironment, ReadsAndWritesAsEver) {
  const std::string self = std::filesystem::read_symlink("/proc/self/exe");
  ChildProcess child = ChildProcess::run({"env", std::string("SIMDJSON_FORCE_IMPLEMENTATION=") + GetParam(), self,
                                          "--gtest_filter=WireJsonReaderTest.*:WriteWireJson.*:Logger.Escapes*"});
  EXPECT_EQ(child.wait(std::chrono::seconds(50)), 0) << child.output() << child.errors();
}

// Names of simdjson's for processors of all kinds: whatever this one is, there are some that it does not support.
INSTANTIATE_TEST_SUITE_P(, WireJsonInEnvironment,
                         testing::Values("fallback", "haswell", "icelake", "arm64", "garbage", ""),
                         [](const auto& test) {
                           const std::string name = test.param;
                           return name.empty() ? "empty" : name;
                         });

TEST(WireJsonInProcess, DoesNotAskTheEnvironment) {
  setenv("SIMDJSON_TEST", "asked", 1);
  ASSERT_STREQ(std::getenv("SIMDJSON_TEST"), "asked");
  ASSERT_EQ(questions, 1) << "the C library's own function was asked";
  EXPECT_TRUE(readsText(earlyReader()));
  EXPECT_TRUE(writesText());
  EXPECT_EQ(questions, 1);
}

TEST(WireJsonInProcess, WorksBehindAllStaticObjects) {
  ChildProcess child = ChildProcess::call([] {
    if (!readsText(earlyReader())) return kBroken;
    lastAction = [] {
      Logger::log(Logger::LEVEL_ERROR, "Grüße");
      if (!writesText() || !readsText(earlyReader())) _exit(kBroken);
    };
    return 0;
  });
  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(child.errors(), "error: Grüße\n");
}

TEST(WireJsonInProcess, RefusesANewReaderBehindAllStaticObjects) {
  ChildProcess child = ChildProcess::call([] {
    lastAction = [] {
      Json::Value value = 1;
      if (WireJsonReader().read(kText, value) != "the process is at its end" || value != 1) _exit(kBroken);
    };
    return 0;
  });
  EXPECT_EQ(child.wait(), 0);
}

TEST(WireJsonInProcess, WorksInOtherThreadsUntilTheProcessIsGone) {
  for (int i = 0; i < 10; ++i) {
    ChildProcess child = ChildProcess::call([] {
      std::atomic<int> started{0};
      for (int j = 0; j < 3; ++j) {
        std::thread([&started] {
          for (bool first = true;; first = false) {
            Json::Value value;
            WireJsonReader().read(kText, value);
            if (!writesText()) _exit(kBroken);
            if (first) ++started;
          }
        }).detach();
      }
      while (started < 3) std::this_thread::yield();
      return 0;
    });
    ASSERT_EQ(child.wait(), 0);
  }
}
