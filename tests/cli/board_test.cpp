#include <gmock/gmock.h>

#include <thread>

#include "cli/command.h"
#include "tests/support/scripted_daemon.h"

// What the virtual board does not do; what it does is in the transcripts.

namespace zel::ctl {
namespace {

using testing::HasSubstr;
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

TEST(Watch, ReportsANotificationThatCannotBeReadAndGoesOn) {
  test::ScriptedDaemon daemon;
  daemon.answer(R"({"stored": {"rtsp": {"tcp-port": 1}}})");
  test::PublisherFake publisher;
  CaptureStdout();
  CaptureStderr();

  std::thread daemonsSide([&] {
    publisher.waitForSubscription("1000");
    daemon.waitForRequests(1);
    publisher.publish("1000", R"({"rtsp": {"tcp-port": ["many"]}})");
    publisher.publish("1000", R"({"rtsp": {"tcp-port": 2}})");
  });
  Call call(*commandOf("watch"), {}, {{"DOCUMENT", {"stored"}}, {"--count", {"1"}}});
  runWatch(call);
  daemonsSide.join();

  EXPECT_THAT(GetCapturedStdout(), "stored  rtsp/tcp-port  1 -> 2\n");
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("a notification cannot be read: a value has the wrong type"));
}

TEST(Remark, OfTheDaemonGoesToStandardErrorWithItsControlCharactersEscaped) {
  test::ScriptedDaemon daemon;
  daemon.answer(R"({"status": 3, "error": "after a \u001b[2Jrestart", "systemInfo": {"name": "x"}})");
  const Deadline deadline(5);
  Board board(deadline);
  CaptureStderr();
  EXPECT_EQ(board.get("info")["name"].asString(), "x");
  EXPECT_EQ(GetCapturedStderr(), "sysmgrctl: the daemon remarks: after a \\x1b[2Jrestart\n");
}

TEST(Document, OfTheDaemonsOwnLayoutLosesTheFramesOfAnAnswer) {
  test::ScriptedDaemon daemon;
  daemon.answer(R"({"status": 0, "error": "", "aux-errors": [], "one": {"two": 2}})");
  daemon.answer(R"({"one": {"two": 2}, "three": 3})");
  const Deadline deadline(5);
  Board board(deadline);
  EXPECT_EQ(Output::asJson(board.get("debug")), R"({"two":2})");
  EXPECT_EQ(Output::asJson(board.get("debug")), R"({"one":{"two":2},"three":3})");
}

TEST(Cell, EscapesWhatCouldSteerATerminal) {
  EXPECT_EQ(cellOf("a\tb\x7f\xc2\x9b"
                   "1mÜ"),
            "a\\x09b\\x7f\\x9b1mÜ");
}

TEST(Cell, ShowsADecimalNumberAsItCame) {
  EXPECT_EQ(cellOf(41.2F), "41.2");
  EXPECT_EQ(Output::asJson(41.2), "41.2");
}

}  // namespace
}  // namespace zel::ctl
