#include "client/endpoints.h"

#include <gtest/gtest.h>
#include <poll.h>

#include "client/async_client.h"
#include "client/sysmgr_client.h"
#include "subscriber/sysmgr_subscriber.h"
#include "tests/support/scripted_daemon.h"
#include "tests/support/wait_until.h"

namespace {

using zel::test::PublisherFake;
using zel::test::ScriptedDaemon;

constexpr const char* kRequests = "tcp://127.0.0.1:15556";
constexpr const char* kNotifications = "tcp://127.0.0.1:15575";

TEST(Endpoints, AreTheFixedOnesUntilTheProgramSaysOthers) {
  EXPECT_EQ(zel::requestEndpoint(), ScriptedDaemon::kEndpoint);
  EXPECT_EQ(zel::notificationEndpoint(), PublisherFake::kEndpoint);
  zel::useEndpoints(kRequests, "");
  EXPECT_EQ(zel::requestEndpoint(), kRequests);
  EXPECT_EQ(zel::notificationEndpoint(), PublisherFake::kEndpoint);
  zel::useEndpoints("", kNotifications);
  EXPECT_EQ(zel::requestEndpoint(), ScriptedDaemon::kEndpoint);
  EXPECT_EQ(zel::notificationEndpoint(), kNotifications);
}

TEST(Endpoints, AClientTakesThemInItsInit) {
  ScriptedDaemon fixed;
  ScriptedDaemon other(kRequests);
  zmq::context_t context;
  SysMgrClient client;
  ASSERT_EQ(client.init(context), 0);
  zel::useEndpoints(kRequests, "");
  EXPECT_EQ(client.setSapSupport(true), 0);
  EXPECT_EQ(fixed.requestCount(), 1u) << "what is connected keeps its connection";
  ASSERT_EQ(client.init(context), 0);
  EXPECT_EQ(client.setSapSupport(true), 0);
  EXPECT_EQ(other.requestCount(), 1u);
  EXPECT_EQ(fixed.requestCount(), 1u);
}

TEST(Endpoints, AnAsyncClientTakesThemWhenItIsMade) {
  ScriptedDaemon other(kRequests);
  zel::useEndpoints(kRequests, "");
  zmq::context_t context;
  zel::AsyncClient client(context);
  zel::useEndpoints("", "");
  int status = -1;
  client.submit(zel::requests::factoryReset(), [&](const zel::Answer<void>& answer) { status = answer.status; });
  pollfd watched{client.descriptor(), POLLIN, 0};
  while (client.pending() > 0 && poll(&watched, 1, static_cast<int>(zel::test::kSoon.count())) == 1) client.process();
  EXPECT_EQ(status, 0);
  EXPECT_EQ(other.requestCount(), 1u);
}

TEST(Endpoints, ASubscriberTakesThemInItsInit) {
  PublisherFake other(kNotifications);
  zel::useEndpoints("", kNotifications);
  zmq::context_t context;
  SysmgrSubscriber subscriber;
  ASSERT_EQ(subscriber.init(context), 0);
  ASSERT_EQ(subscriber.subscribeAll(), 0);
  EXPECT_TRUE(other.waitForSubscription("1000"));
}

TEST(Endpoints, OneThatIsNotValidIsReportedByInit) {
  zel::useEndpoints("nowhere", "nowhere");
  zmq::context_t context;
  SysMgrClient client;
  EXPECT_EQ(client.init(context), -101);
  SysmgrSubscriber subscriber;
  EXPECT_EQ(subscriber.init(context), -101);
}

}  // namespace
