// The programs of the guide, against the virtual board, as a reader runs them.

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <optional>
#include <string>
#include <vector>

#include "client/sysmgr_client.h"
#include "client/zmq_utils.h"
#include "tests/simulator/board_process.h"
#include "tests/support/child_process.h"
#include "tests/support/scripted_daemon.h"

namespace {

using testing::HasSubstr;
using zel::test::ChildProcess;
using zel::test::startBoard;

class GuideProgram : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(board_.waitForOutput(zel::test::kReady)); }

  int run(const std::vector<std::string>& command) {
    program_.emplace(ChildProcess::run(command));
    return program_->wait().value_or(-1);
  }
  std::string output() { return program_->output(); }
  std::string errors() { return program_->errors(); }

 private:
  ChildProcess board_ = startBoard({"--model", "ORVEN_AES67"});
  std::optional<ChildProcess> program_;
};

TEST_F(GuideProgram, FirstRequestStoresAPortAndReadsItBack) {
  EXPECT_EQ(run({ZEL_EXAMPLE_first_request}), 0) << errors();
  EXPECT_EQ(output(), "RTSP listens on port 5004\n");
}

TEST_F(GuideProgram, ChangeInterfaceStoresAnAddress) {
  EXPECT_EQ(run({ZEL_EXAMPLE_change_interface, "eth1", "192.168.0.7"}), 0) << errors();
  EXPECT_EQ(output(), "eth1 has the address 192.168.0.7\n");

  SysMgrClient client;
  ASSERT_EQ(client.init(ZmqUtils::getInstance().getContext()), 0);
  SysParameters stored;
  ASSERT_EQ(client.getStoredParameters(stored), 0);
  const EthIpV4Cfg& eth1 = *std::next(stored.ethIPv4Cfg.begin());
  EXPECT_EQ(eth1.eth, "eth1");
  EXPECT_EQ(IpAddress(eth1.ip).toString(), "192.168.0.7");
}

TEST_F(GuideProgram, ChangeInterfaceRefusesWhatIsNotThere) {
  EXPECT_EQ(run({ZEL_EXAMPLE_change_interface, "eth9", "192.168.0.7"}), 1);
  EXPECT_THAT(errors(), HasSubstr("no interface eth9"));
}

TEST_F(GuideProgram, ChangeInterfaceRefusesWhatIsNoAddressOfAnInterface) {
  EXPECT_EQ(run({ZEL_EXAMPLE_change_interface, "eth1", "192.168.0"}), 1);
  EXPECT_THAT(errors(), HasSubstr("Error parsing IP [192.168.0]"));
  EXPECT_EQ(run({ZEL_EXAMPLE_change_interface, "eth1", "239.1.1.1"}), 1);
  EXPECT_THAT(errors(), HasSubstr("Interface IP cannot be multicast"));
}

TEST_F(GuideProgram, FollowNotificationsShowsChangesUntilAReboot) {
  ChildProcess follower = ChildProcess::run({ZEL_EXAMPLE_follow_notifications});
  ASSERT_TRUE(follower.waitForOutput("following"));
  SysMgrClient client;
  ASSERT_EQ(client.init(ZmqUtils::getInstance().getContext()), 0);

  // The subscription takes a moment to arrive: what is changed before is not seen.
  const bool seen = zel::test::waitUntil([&] {
    client.setRtspTcpPort(5005);
    return follower.output().find("RTSP listens on port 5005\n") != std::string::npos;
  });
  EXPECT_TRUE(seen);
  EXPECT_EQ(client.addMcastWhitelist("239.1.1.0", "255.255.255.0", true), 0);
  EXPECT_TRUE(follower.waitForOutput("the whitelist has "));
  EXPECT_EQ(client.rebootDevice(), 0);
  EXPECT_EQ(follower.wait(), 0) << follower.errors();
  EXPECT_THAT(follower.output(), HasSubstr("the board is going to restart\n"));
}

// A document of the daemon's in which a value has a type that the record's member does not have.

class GuideProgramAndAWrongType : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(board_.waitForOutput(zel::test::kReady)); }

  /// Runs a program to its end and expects that it says what is wrong.
  static void expectRefusal(const std::vector<std::string>& command) {
    ChildProcess program = ChildProcess::run(command);
    EXPECT_EQ(program.wait(), 1) << program.errors();
    EXPECT_THAT(program.errors(), HasSubstr("of a wrong type"));
  }

 private:
  ChildProcess board_ = startBoard({"--fault-rule", "do=wrong-type command=0 member=stored/rtsp/tcp-port"});
};

TEST_F(GuideProgramAndAWrongType, ReadmeProgramSaysSo) { expectRefusal({ZEL_README_PROGRAM}); }
TEST_F(GuideProgramAndAWrongType, FirstRequestSaysSo) { expectRefusal({ZEL_EXAMPLE_first_request}); }
TEST_F(GuideProgramAndAWrongType, ChangeInterfaceSaysSo) {
  expectRefusal({ZEL_EXAMPLE_change_interface, "eth1", "192.168.0.7"});
}

TEST(FollowNotifications, GoesOnBehindAWrongType) {
  zel::test::PublisherFake publisher;
  ChildProcess follower = ChildProcess::run({ZEL_EXAMPLE_follow_notifications});
  ASSERT_TRUE(publisher.waitForSubscription("1004"));
  publisher.publish("1000", R"({"rtsp": {"tcp-port": ["text"]}})");
  publisher.publish("1000", R"({"rtsp": {"tcp-port": 5005}})");
  EXPECT_TRUE(follower.waitForOutput("RTSP listens on port 5005\n"));
  EXPECT_THAT(follower.errors(), HasSubstr("of a wrong type"));
}

TEST(FollowNotifications, EndsAtOnceOnSigterm) {
  ChildProcess follower = ChildProcess::run({ZEL_EXAMPLE_follow_notifications});
  ASSERT_TRUE(follower.waitForOutput("following"));
  follower.signal(SIGTERM);
  EXPECT_LT(follower.timeToEnd().own, std::chrono::milliseconds(300 * zel::test::kSlowdown));
}

}  // namespace
