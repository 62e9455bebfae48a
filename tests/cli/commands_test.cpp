#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "cli/command.h"
#include "tests/support/fake_board.h"
#include "tests/support/scripted_daemon.h"
#include "tests/support/stopwatch.h"

// What the virtual board does not do; what it does is in the transcripts.

namespace zel::ctl {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

class WatchedBoard : public test::FakeBoard {
 public:
  WatchedBoard() {
    set(kStored, R"({"rtsp": {"tcp-port": 1}})");
    set(kDynamic, R"({"madi-lock": true})");
    set(kBoardModel, R"({"model": "KORVA"})");
    set(kWhitelist, "[]");
  }
  /// Until `watch stored` has asked once, and its view for each document twice.
  void waitForFollower() {
    publisher.waitForSubscription("1000");
    daemon.waitForRequests(1 + 2 * 4);
  }
};

TEST(Watch, ReportsANotificationThatCannotBeReadAndGoesOn) {
  WatchedBoard board;
  CaptureStdout();
  CaptureStderr();

  std::thread boardsSide([&] {
    board.waitForFollower();
    board.publisher.publish("1000", R"({"rtsp": {"tcp-port": ["many"]}})");
    board.daemon.waitForRequests(1 + 2 * 4 + 1);
    board.set(WatchedBoard::kStored, R"({"rtsp": {"tcp-port": 2}})");
    board.publisher.publish("1000", R"({"rtsp": {"tcp-port": 2}})");
  });
  Call call(*commandOf("watch"), {{"documents", {"stored"}}, {"--count", {"1"}}});
  runWatch(call);
  boardsSide.join();

  EXPECT_THAT(GetCapturedStdout(), "stored  rtsp/tcp-port  1 -> 2\n");
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("cannot read the stored parameters: "));
}

TEST(Watch, EndsInTimeUnderNotificationsThatDoNotStop) {
  WatchedBoard board;
  std::atomic<bool> ended{false};
  CaptureStderr();

  std::thread flood([&] {
    board.waitForFollower();
    const auto latest = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!ended && std::chrono::steady_clock::now() < latest) {
      for (int i = 0; i < 100; ++i) board.publisher.publish("1000", R"({"rtsp": {"tcp-port": ["many"]}})");
    }
  });
  const test::Stopwatch watch;
  Call call(*commandOf("watch"), {{"documents", {"stored"}}, {"--timeout", {"3"}}});
  runWatch(call);
  const std::chrono::microseconds took = watch.elapsed().own;
  ended = true;
  flood.join();

  EXPECT_LT(took, std::chrono::seconds(5));
  const std::string errors = GetCapturedStderr();
  EXPECT_THAT(errors, HasSubstr("\nsysmgrctl: cannot read the stored parameters: "));
  EXPECT_THAT(errors, ContainsRegex("sysmgrctl: .*[(][0-9]+ such notices within a second[)]\n"));
  EXPECT_LE(std::count(errors.begin(), errors.end(), '\n'), 2 + 5);
}

class WrongWhitelist : public testing::TestWithParam<const char*> {};

TEST_P(WrongWhitelist, IsAnUnusableAnswerToEveryCommand) {
  test::ScriptedDaemon daemon;
  daemon.onRequest([](const test::Request& request) -> std::vector<test::Answer> {
    if (request.id == "16") return {std::string(R"({"white-list": )") + GetParam() + "}"};
    return {R"({"stored": {"sap": {"enable": true}}, "dynamic": {"madi-lock": true},
                 "board-model": {"model": "KORVA"}, "systemInfo": {"version": "1"},
                 "network-stack-status": {"eth0": "up"}})"};
  });
  const test::PublisherFake publisher;
  for (const char* name : {"whitelist list", "status", "watch"}) {
    Call call(*commandOf(name), {{"--timeout", {"0.1"}}});
    try {
      commandOf(name)->run(call);
      ADD_FAILURE() << name;
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.status(), Exit::kBadAnswer) << name;
      EXPECT_THAT(failure.advice(), HasSubstr("sysmgrctl get whitelist")) << name;
    }
  }
  Call call(*commandOf("doctor"), {});
  try {
    runDoctor(call);
    ADD_FAILURE();
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), Exit::kBadAnswer);
  }
}

INSTANTIATE_TEST_SUITE_P(All, WrongWhitelist,
                         testing::Values("5", "true", R"("text")", "{}", R"({"ip": "239.0.0.1"})", "[5]", R"(["x"])",
                                         "[[]]", R"([{"enabled": "yes"}])", R"([{"ip": []}])",
                                         R"([{"mask": {"a": 1}}])"));

}  // namespace
}  // namespace zel::ctl
