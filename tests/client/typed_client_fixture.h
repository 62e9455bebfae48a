#pragma once

#include <gmock/gmock.h>

#include <string>
#include <zmq.hpp>

#include "client/sysmgr_client.h"
#include "tests/support/captured_log.h"
#include "tests/support/scripted_daemon.h"

namespace zel::test {

/// A client and the daemon that it talks to.
class WithTypedClient {
 public:
  WithTypedClient() { EXPECT_EQ(client_.init(context_), 0); }

 protected:
  /// The one request so far is this one.
  void expectRequest(const std::string& id, const std::string& body) const {
    ASSERT_EQ(daemon_.requestCount(), 1U);
    EXPECT_EQ(daemon_.lastRequest().id, id);
    EXPECT_EQ(daemon_.lastRequest().body, body);
  }

  /// The level-2 lines are those of two failed checks, that of the JSON operation first.
  void expectFailures(const std::string& jsonOperation, const std::string& operation, int code) const {
    EXPECT_THAT(log_.texts(Logger::LEVEL_ERROR),
                testing::ElementsAre(testing::MatchesRegex(checkLinePattern(jsonOperation, code)),
                                     testing::MatchesRegex(checkLinePattern(operation, code))));
  }

  ScriptedDaemon daemon_;
  zmq::context_t context_;
  SysMgrClient client_;
  CapturedLog log_;
};

}  // namespace zel::test
