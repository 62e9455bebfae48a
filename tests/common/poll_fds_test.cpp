#include "common/poll_fds.h"

#include <gmock/gmock.h>
#include <sys/eventfd.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <limits>
#include <thread>

#include "common/subscribe_json_client.h"
#include "tests/support/stopwatch.h"
#include "tests/support/wait_until.h"

namespace {

using namespace std::chrono_literals;
using zel::test::kSlowdown;
using zel::test::timeOf;

/// A descriptor that is ready when it is told to be.
class Event {
 public:
  Event() : descriptor_(eventfd(0, EFD_CLOEXEC)) {}
  ~Event() { close(descriptor_); }
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;
  void raise() const { eventfd_write(descriptor_, 1); }
  zmq_pollitem_t item() const { return {nullptr, descriptor_, ZMQ_POLLIN, 0}; }

 private:
  int descriptor_;
};

/// Sends this process a signal again and again while it lives.
class Signals {
 public:
  Signals() {
    struct sigaction action {};
    action.sa_handler = [](int) { ++count; };  // without SA_RESTART: system calls are interrupted
    sigaction(SIGALRM, &action, nullptr);
    const itimerval every{{0, 2000}, {0, 2000}};
    setitimer(ITIMER_REAL, &every, nullptr);
  }
  ~Signals() {
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
    signal(SIGALRM, SIG_IGN);
  }
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;
  static inline volatile std::sig_atomic_t count = 0;
};

TEST(PollFds, IsEmptyAtFirst) {
  PollFds fds;
  EXPECT_TRUE(fds.empty());
  EXPECT_EQ(fds.size(), 0u);
  EXPECT_EQ(fds.begin(), fds.end());
}

TEST(PollFds, KeepsItemsInTheOrderInWhichTheyWereAdded) {
  PollFds fds;
  fds.add({nullptr, 11, ZMQ_POLLIN, 0});
  fds.add({nullptr, 12, ZMQ_POLLOUT, 0});
  fds.add({nullptr, 11, ZMQ_POLLIN, 0});
  ASSERT_EQ(fds.size(), 3u);
  EXPECT_FALSE(fds.empty());
  EXPECT_EQ(fds[0].fd, 11);
  EXPECT_EQ(fds[1].fd, 12);
  EXPECT_EQ(fds[1].events, ZMQ_POLLOUT);
  EXPECT_EQ(fds[2].fd, 11);
  EXPECT_EQ(fds.data(), &fds[0]);
  EXPECT_EQ(fds.begin(), fds.data());
  EXPECT_EQ(fds.end() - fds.begin(), 3);
  const PollFds& constant = fds;
  EXPECT_EQ(constant.begin(), fds.data());
  EXPECT_EQ(constant.end(), fds.end());
  EXPECT_EQ(&constant[1], &fds[1]);
}

TEST(PollFds, TellsHowManyItemsAreReadyAndWhich) {
  const Event idle, first, second;
  PollFds fds;
  for (const Event* event : {&first, &idle, &second}) fds.add(event->item());
  first.raise();
  second.raise();
  EXPECT_EQ(fds.poll(-1), 2);
  EXPECT_EQ(fds[0].revents, ZMQ_POLLIN);
  EXPECT_EQ(fds[1].revents, 0);
  EXPECT_EQ(fds[2].revents, ZMQ_POLLIN);
}

TEST(PollFds, WaitsUntilTheTimeOut) {
  const Event idle;
  PollFds fds;
  fds.add(idle.item());
  fds[0].revents = ZMQ_POLLIN;
  int result = -1;
  const auto time = timeOf([&] { result = fds.poll(60); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(fds[0].revents, 0) << "what the poll before has left";
  EXPECT_GE(time.wall, 60ms);
  EXPECT_LT(time.own, 200ms * kSlowdown);
}

TEST(PollFds, WaitsWithoutEndForLongerThanTheClockCanCount) {
  for (const long timeout : {std::numeric_limits<long>::max(), std::numeric_limits<long>::max() / 1'000'000}) {
    const Event event;
    PollFds fds;
    fds.add(event.item());
    std::thread later([&event] {
      std::this_thread::sleep_for(30ms);
      event.raise();
    });
    int result = -1;
    EXPECT_GE(timeOf([&] { result = fds.poll(timeout); }).wall, 25ms) << timeout;
    EXPECT_EQ(result, 1) << timeout;
    later.join();
  }
}

TEST(PollFds, ReportsASubscriberThatIsDestroyed) {
  zmq::context_t context;
  PollFds fds;
  {
    SubscribeJsonClient client(context);
    ASSERT_EQ(client.connect("tcp://127.0.0.1:5575"), 0);
    ASSERT_EQ(client.getPollItems(fds), 0);
  }
  EXPECT_EQ(fds.poll(1000), -1);
  EXPECT_EQ(zmq_errno(), ETERM);
}

TEST(PollFds, OnlyLooksWithoutATimeOut) {
  const Event event;
  PollFds fds;
  fds.add(event.item());
  EXPECT_LT(timeOf([&] { EXPECT_EQ(fds.poll(0), 0); }).own, 50ms * kSlowdown);
  event.raise();
  EXPECT_EQ(fds.poll(0), 1);
}

TEST(PollFds, WaitsWithNothingInIt) {
  PollFds fds;
  int result = -1;
  EXPECT_GE(timeOf([&] { result = fds.poll(30); }).wall, 30ms);
  EXPECT_EQ(result, 0);
}

TEST(PollFds, WaitsOnUnderSignals) {
  const Event idle;
  PollFds fds;
  fds.add(idle.item());
  const Signals signals;
  int result = -1;
  const auto time = timeOf([&] { result = fds.poll(150); });
  EXPECT_EQ(result, 0);
  EXPECT_GE(time.wall, 150ms);
  EXPECT_LT(time.own, 300ms * kSlowdown);
  EXPECT_GT(Signals::count, 10);
}

TEST(PollFds, ReportsASocketThatIsClosed) {
  zmq::context_t context;
  void* const socket = zmq_socket(context.handle(), ZMQ_SUB);
  PollFds fds;
  fds.add({socket, 0, ZMQ_POLLIN, 0});
  zmq_close(socket);
  EXPECT_EQ(fds.poll(1000), -1);
  EXPECT_EQ(zmq_errno(), ENOTSOCK);
}

}  // namespace
