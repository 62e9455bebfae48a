#pragma once

#include <gmock/gmock.h>

#include <chrono>
#include <ostream>
#include <string>
#include <utility>

#include "common/client_json_api.h"
#include "tests/support/scripted_daemon.h"
#include "tests/support/stopwatch.h"
#include "tests/support/wait_until.h"

namespace zel::test {

/// How much later than its time-out a request may end. It is what the API promises where the machine is not slowed
/// down.
constexpr std::chrono::milliseconds kOverrun{50 * kSlowdown};

/// What came of one request.
struct Outcome {
  int code;
  Json::Value reply;
  Elapsed took;
};

/// A client of the daemon with a short time-out of its own.
class TestClient : public ClientJsonApi {
 public:
  /// Short, but longer than an answer takes; under a sanitizer that is long.
  static constexpr std::chrono::milliseconds kTimeout{kSlowdown == 1 ? 300 : 1000};

  explicit TestClient(std::chrono::milliseconds timeout = kTimeout) : timeout_(timeout) {}
  /// With a context, and connected.
  explicit TestClient(zmq::context_t& context, std::chrono::milliseconds timeout = kTimeout) : timeout_(timeout) {
    EXPECT_EQ(init(context), 0);
  }

  std::string getIpcConnectAddress() override { return address; }
  int getClientTimeout() override { return static_cast<int>(timeout_.count()); }
  std::chrono::milliseconds timeout() const { return timeout_; }

  /// Sends a request. The reply holds "before" until something replaces it.
  Outcome send(unsigned int id, const Json::Value& body = Json::Value()) {
    Outcome outcome{0, "before", {}};
    IpcMsg message(id, body);
    outcome.took = timeOf([&] { outcome.code = sendMessage(message, outcome.reply); });
    return outcome;
  }

  /// Sends a request that is answered, however slow the machine is.
  Outcome ask(unsigned int id, const Json::Value& body = Json::Value()) {
    const auto timeout = std::exchange(timeout_, kSoon);
    Outcome outcome = send(id, body);
    timeout_ = timeout;
    return outcome;
  }

  ErrorReport lastError() {
    ErrorReport report;
    EXPECT_EQ(getLastErrorMessage(report), 0);
    return report;
  }

  std::string address = ScriptedDaemon::kEndpoint;

 private:
  std::chrono::milliseconds timeout_;
};

/// Expects that a request failed with one of the client's own codes, left the reply alone and is reported.
inline void expectFailure(TestClient& client, const Outcome& outcome, int code, const std::string& advice) {
  EXPECT_EQ(outcome.code, code);
  EXPECT_EQ(outcome.reply, Json::Value("before"));
  EXPECT_EQ(client.lastError().code, code);
  EXPECT_THAT(client.lastError().text, testing::HasSubstr(advice));
}

/// Expects that it took the whole time-out, and hardly more.
inline void expectTimedOut(const TestClient& client, const Outcome& outcome) {
  EXPECT_GE(outcome.took.wall, client.timeout() - std::chrono::milliseconds(1));
  EXPECT_LE(outcome.took.own, client.timeout() + kOverrun);
}

/// Expects that nothing was waited for.
inline void expectAtOnce(const Outcome& outcome) { EXPECT_LT(outcome.took.own, TestClient::kTimeout); }

}  // namespace zel::test
