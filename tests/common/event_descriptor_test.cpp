#include "common/event_descriptor.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include "common/subscribe_json_client.h"
#include "tests/support/daemon_process.h"
#include "tests/support/raw_peer.h"
#include "tests/support/scripted_daemon.h"
#include "tests/support/wait_until.h"
#include "tests/support/zmtp.h"

namespace {

using std::chrono::milliseconds;
using zel::EventDescriptor;
using zel::test::kSoon;
using zel::test::PublisherFake;
using zel::test::RawPeer;

bool isReadable(const EventDescriptor& events, milliseconds within = milliseconds(0)) {
  pollfd watched{events.descriptor(), POLLIN, 0};
  return poll(&watched, 1, static_cast<int>(within.count())) == 1;
}

/// Runs until the loop's descriptor is silent.
void settle(EventDescriptor& events) {
  while (isReadable(events, milliseconds(20))) events.poll();
}

class WithASubscriber : public testing::Test {
 protected:
  WithASubscriber() {
    EXPECT_EQ(client.connect(PublisherFake::kEndpoint), 0);
    EXPECT_EQ(client.subscribe("1000"), 0);
    EXPECT_EQ(client.getPollItems(fds), 0);
  }

  /// Takes what there is. @return how many
  int takeAll() {
    std::string topic;
    int error = 0;
    Json::Value payload;
    int taken = 0;
    while (client.processEvent(fds[0], topic, error, payload) != 0) ++taken;
    return taken;
  }

  /// Runs an application's loop until so many notifications are taken.
  int takeUntil(int count, milliseconds within = kSoon) {
    const auto end = std::chrono::steady_clock::now() + within;
    int taken = 0;
    while (taken < count && std::chrono::steady_clock::now() < end) {
      if (!isReadable(events, milliseconds(100))) continue;
      events.poll();
      taken += takeAll();
    }
    return taken;
  }

  /// Publishes until the first notification has come. @return how many have
  int takeFirst(PublisherFake& publisher) {
    const auto end = std::chrono::steady_clock::now() + kSoon;
    int taken = 0;
    while (taken == 0 && std::chrono::steady_clock::now() < end) {
      publisher.publish("1000", "{}");
      taken = takeUntil(1, milliseconds(20));
    }
    return taken;
  }

  zmq::context_t context;
  SubscribeJsonClient client{context};
  PollFds fds;
  EventDescriptor events{fds};
};

/// The descriptor is shared with the child.
TEST_F(WithASubscriber, AForkedChildLeavesTheLoopOfItsParentAlone) {
  settle(events);
  const pid_t child = fork();
  if (child == 0) _exit(events.poll() == -1 ? 0 : 1);
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_FALSE(isReadable(events, milliseconds(50)));
  PublisherFake publisher;
  ASSERT_TRUE(publisher.waitForSubscription("1000"));
  publisher.publish("1000", "{}");
  EXPECT_EQ(takeUntil(1), 1);
}

TEST_F(WithASubscriber, IsSilentWhileNothingComes) {
  PublisherFake publisher;
  ASSERT_TRUE(publisher.waitForSubscription("1000"));
  settle(events);
  EXPECT_FALSE(isReadable(events, milliseconds(300)));
}

/// A loop that takes one notification a turn is woken up for the next one: ZeroMQ's own descriptor would not.
TEST_F(WithASubscriber, StaysReadableWhileNotificationsWait) {
  PublisherFake publisher;
  ASSERT_TRUE(publisher.waitForSubscription("1000"));
  for (int i = 0; i < 10; ++i) publisher.publish("1000", "{}");
  std::string topic;
  int error = 0;
  Json::Value payload;
  int taken = 0;
  while (taken < 10) {
    ASSERT_TRUE(isReadable(events, kSoon)) << taken << " taken";
    if (events.poll() > 0) taken += client.processEvent(fds[0], topic, error, payload);
  }
  settle(events);
  EXPECT_FALSE(isReadable(events));
}

TEST_F(WithASubscriber, LosesNoWakeUp) {
  PublisherFake publisher;
  ASSERT_TRUE(publisher.waitForSubscription("1000"));
  settle(events);
  for (int round = 0; round < 2000; ++round) {
    publisher.publish("1000", "{}");
    ASSERT_EQ(takeUntil(1), 1) << "round " << round;
  }
}

TEST_F(WithASubscriber, FollowsARestart) {
  for (int round = 0; round < 3; ++round) {
    PublisherFake publisher;
    EXPECT_GT(takeFirst(publisher), 0) << "round " << round;
  }
}

/// A peer that breaks the protocol ends the connection for good, and no ZMQ_FD tells: the descriptor does.
TEST_F(WithASubscriber, RenewsAConnectionThatBrokeForGood) {
  {
    RawPeer peer(
        [](const zel::test::zmtp::Stream& stream) {
          zel::test::zmtp::shakeHands(stream, "PUB");
          stream.write(zel::test::zmtp::longFrameHeader(0, 1ULL << 62));
          stream.discard();
        },
        5575);
    const auto end = std::chrono::steady_clock::now() + kSoon;
    while (peer.accepted() < 3 && std::chrono::steady_clock::now() < end) {
      if (isReadable(events, milliseconds(100))) events.poll();
    }
    EXPECT_GE(peer.accepted(), 3) << "it is connected anew again and again";
  }
  PublisherFake publisher;
  EXPECT_GT(takeFirst(publisher), 0);
}

TEST(EventDescriptorTest, WatchesDescriptorsOfTheApplication) {
  const int event = eventfd(0, EFD_CLOEXEC);
  PollFds fds;
  EventDescriptor events(fds);
  EXPECT_TRUE(isReadable(events)) << "at the beginning";
  EXPECT_EQ(events.poll(), 0);
  EXPECT_FALSE(isReadable(events));
  fds.add({nullptr, event, ZMQ_POLLIN, 0});
  EXPECT_EQ(events.poll(), 0) << "from now on it is watched";
  EXPECT_FALSE(isReadable(events));
  eventfd_write(event, 1);
  EXPECT_TRUE(isReadable(events, kSoon));
  EXPECT_EQ(events.poll(), 1);
  EXPECT_NE(fds[0].revents, 0);
  EXPECT_TRUE(isReadable(events)) << "as long as it is ready";
  eventfd_t value = 0;
  eventfd_read(event, &value);
  EXPECT_EQ(events.poll(), 0);
  EXPECT_FALSE(isReadable(events));
  close(event);
}

/// As a connection of the application's that is made anew: the number stays, and what it stands for does not.
TEST(EventDescriptorTest, WatchesADescriptorThatWasClosedAndOpenedAgain) {
  const int first = eventfd(0, EFD_CLOEXEC);
  PollFds fds;
  fds.add({nullptr, first, ZMQ_POLLIN, 0});
  EventDescriptor events(fds);
  settle(events);
  close(first);
  const int second = eventfd(0, EFD_CLOEXEC);
  ASSERT_EQ(second, first);
  EXPECT_EQ(events.poll(), 0);
  eventfd_write(second, 1);
  EXPECT_TRUE(isReadable(events, kSoon));
  close(second);
}

TEST(EventDescriptorTest, WatchesForWriting) {
  int pipe[2];
  ASSERT_EQ(::pipe(pipe), 0);
  PollFds fds;
  fds.add({nullptr, pipe[1], ZMQ_POLLOUT, 0});
  EventDescriptor events(fds);
  EXPECT_EQ(events.poll(), 1);
  EXPECT_EQ(fds[0].revents, ZMQ_POLLOUT);
  close(pipe[0]);
  close(pipe[1]);
}

}  // namespace
