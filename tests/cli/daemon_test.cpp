#include "cli/daemon.h"

#include <gmock/gmock.h>

#include "cli/output.h"
#include "tests/support/scripted_daemon.h"

namespace zel::ctl {
namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

TEST(Remark, OfTheDaemonGoesToStandardErrorWithItsControlCharactersEscaped) {
  test::ScriptedDaemon peer;
  peer.answer(R"({"status": 3, "error": "after a \u001b[2Jrestart", "systemInfo": {"name": "x"}})");
  const Deadline deadline(5);
  Daemon daemon(deadline);
  CaptureStderr();
  EXPECT_EQ(daemon.get("info")["name"].asString(), "x");
  EXPECT_EQ(GetCapturedStderr(), "sysmgrctl: the daemon remarks: after a \\x1b[2Jrestart\n");
}

TEST(Document, OfTheDaemonsOwnLayoutLosesTheFramesOfAnAnswer) {
  test::ScriptedDaemon peer;
  peer.answer(R"({"status": 0, "error": "", "aux-errors": [], "one": {"two": 2}})");
  peer.answer(R"({"one": {"two": 2}, "three": 3})");
  const Deadline deadline(5);
  Daemon daemon(deadline);
  EXPECT_EQ(Output::asJson(daemon.get("debug")), R"({"two":2})");
  EXPECT_EQ(Output::asJson(daemon.get("debug")), R"({"one":{"two":2},"three":3})");
}

}  // namespace
}  // namespace zel::ctl
