// The application with a board in the same process.

#include <gtest/gtest.h>

#include <chrono>

#include "address_watch.h"
#include "client/endpoints.h"
#include "client/zmq_utils.h"
#include "port_setting.h"
#include "simulator/background_simulator.h"

namespace {

using namespace std::chrono_literals;

constexpr unsigned int kDynamic = SysmgrPublisher::SYSMGR_DYNAMIC_INFO_UPDATE;

/// Ports that are free, so that the tests run side by side and beside a daemon of the machine.
zel::sim::BoardOptions onFreePorts() {
  zel::sim::BoardOptions options;
  options.requests = options.notifications = "tcp://127.0.0.1:*";
  return options;
}

class Application : public testing::Test {
 protected:
  Application() {
    zel::useEndpoints(board_.requestEndpoint(), board_.notificationEndpoint());
    client_.init(ZmqUtils::getInstance().getContext());
    watch_.init(ZmqUtils::getInstance().getContext());
    watch_.subscribeAll();
    watch_.getPollItems(fds_);
    board_.waitForSubscription(kDynamic);  // what the board publishes now comes
  }
  /// Runs the application's loop until something is so. @return whether it is within 5 s
  template <class Condition>
  bool runsUntil(Condition condition) {
    for (const auto end = std::chrono::steady_clock::now() + 5s; !condition();) {
      if (std::chrono::steady_clock::now() > end) return false;
      fds_.poll(50);
      watch_.processEvent(fds_[0]);
    }
    return true;
  }

  zel::sim::BackgroundSimulator board_{onFreePorts()};
  SysMgrClient client_;
  AddressWatch watch_{"eth0"};
  PollFds fds_;
};

TEST_F(Application, SeesThatEth0GetsAnotherAddress) {
  board_.setInterfaceAddress("eth0", "10.0.0.9");
  EXPECT_TRUE(runsUntil([&] { return watch_.address() == "10.0.0.9"; }));
}

TEST_F(Application, RaisesAnAlarmWhenPtpIsLost) {
  Json::Value lost;
  lost["error"] = true;
  board_.setValue("network", "ptp/state", "listening");
  board_.setValue("modules", "ptp", lost);
  EXPECT_TRUE(runsUntil([&] { return watch_.alarm(); }));

  board_.setValue("modules", "ptp/error", false);
  EXPECT_TRUE(runsUntil([&] { return !watch_.alarm(); }));
}

TEST_F(Application, WorksOnWhenTheDaemonWasAwayFor3Seconds) {
  board_.away(3s);
  PortOfTheBoard port(client_);
  EXPECT_EQ(setPortPatiently(port, 5004), 0);  // waits until the daemon is back
  EXPECT_EQ(board_.get(zel::settings::kRtspTcpPort), 5004U);

  EXPECT_TRUE(runsUntil([&] { return board_.waitForSubscription(kDynamic, 0s); }));  // the subscription is back, too
  board_.setInterfaceAddress("eth0", "10.0.0.9");
  EXPECT_TRUE(runsUntil([&] { return watch_.address() == "10.0.0.9"; }));
}

TEST_F(Application, DoesNotRepeatAChangeThatIsNotAnswered) {
  board_.misbehave("do=silence command=2");
  PortOfTheBoard port(client_);
  EXPECT_EQ(setPortPatiently(port, 5004), -103);
  EXPECT_EQ(board_.requests().size(), 1U);
}

}  // namespace
