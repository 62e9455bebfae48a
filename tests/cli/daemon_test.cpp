#include "cli/daemon.h"

#include <gmock/gmock.h>

#include "cli/output.h"
#include "tests/support/json_of.h"
#include "tests/support/scripted_daemon.h"
#include "types/sysmgr_types.h"

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
  peer.answer(R"({"status": 0, "error": "", "aux-errors": [], "debug-info": {"two": 2}})");
  peer.answer(R"({"debug-info": {"two": 2}, "three": 3})");
  peer.answer(R"({"one": {"two": 2}})");
  peer.answer(R"({"gpio": {"gpio0": {}}})");
  const Deadline deadline(5);
  Daemon daemon(deadline);
  EXPECT_EQ(Output::asJson(daemon.get("debug")), R"({"two":2})");
  EXPECT_EQ(Output::asJson(daemon.get("debug")), R"({"debug-info":{"two":2},"three":3})");
  EXPECT_EQ(Output::asJson(daemon.get("debug")), R"({"one":{"two":2}})");
  EXPECT_EQ(Output::asJson(daemon.get("gpio")), R"({"gpio0":{}})");
}

/// What the daemon's answer to a query of the document makes of `get`.
std::string failureOf(const std::string& name, const char* answer) {
  test::ScriptedDaemon peer;
  peer.answer(answer);
  const Deadline deadline(5);
  Daemon daemon(deadline);
  try {
    daemon.get(name);
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), Exit::kBadAnswer);
    return failure.what();
  }
  return "";
}

TEST(Document, WithoutItsMemberInTheAnswerIsUnusable) {
  for (const char* answer : {"{}", R"({"stored": null})", R"({"status": 0, "dynamic": {}})"}) {
    EXPECT_EQ(failureOf("stored", answer), "cannot read the stored parameters: the answer has no \"stored\"");
  }
  EXPECT_EQ(failureOf("stored", R"({"stored": {}})"), "");
  EXPECT_EQ(failureOf("whitelist", "{}"), "cannot read the multicast whitelist: the answer has no \"white-list\"");
  EXPECT_EQ(failureOf("whitelist", R"({"white-list": null})"), "");
}

TEST(TypeError, NamesThePathOfTheValue) {
  const std::pair<const char*, const char*> rows[] = {
      {R"({"rtsp": {"eth-port": "all", "tcp-port": "x"}})", "rtsp/tcp-port"},
      {R"({"rtsp": {"tcp-port": [1]}, "sap": {"enable": true}})", "rtsp/tcp-port"},
      {R"({"nmos": "none"})", "nmos"},
      {R"({"ethipv4": [{"eth": "eth0", "mode": "DHCP"}, {"eth": "eth1", "static": {"ip": {}}}]})",
       "ethipv4/eth1/static/ip"},
  };
  for (const auto& [text, path] : rows) {
    try {
      Daemon::read<SysParameters>("stored", test::json(text));
      ADD_FAILURE() << text;
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.key(), path);
      EXPECT_THAT(failure.what(),
                  testing::StartsWith("cannot read the stored parameters: '" + std::string(path) + "' has"));
    }
  }
}

}  // namespace
}  // namespace zel::ctl
