#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <string>

#include "tests/simulator/board_process.h"
#include "tests/simulator/temporary_folder.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using zel::test::ChildProcess;
using zel::test::kReady;
using zel::test::kSoon;
using zel::test::startBoard;
using zel::test::TemporaryFolder;

/// The service manager's end of the notification socket.
class ServiceManager {
 public:
  /// Binds the socket and names it in the environment of the processes that are started from now on.
  explicit ServiceManager(const std::string& name) : socket_(socket(AF_UNIX, SOCK_DGRAM, 0)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path, sizeof address.sun_path - 1);
    if (name[0] == '@') address.sun_path[0] = '\0';
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    EXPECT_EQ(bind(socket_, reinterpret_cast<const sockaddr*>(&address), size), 0);
    timeval limit = {};
    limit.tv_sec = std::chrono::duration_cast<std::chrono::seconds>(kSoon).count();
    setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    setenv("NOTIFY_SOCKET", name.c_str(), 1);
  }
  ~ServiceManager() {
    unsetenv("NOTIFY_SOCKET");
    close(socket_);
  }
  ServiceManager(const ServiceManager&) = delete;
  ServiceManager& operator=(const ServiceManager&) = delete;

  /// @return the next notification; empty when none came
  std::string next() const {
    char text[100];
    const ssize_t size = recv(socket_, text, sizeof text, 0);
    return {text, size < 0 ? 0 : static_cast<std::size_t>(size)};
  }
  bool hasMore() const {
    char byte;
    return recv(socket_, &byte, 1, MSG_DONTWAIT) >= 0;
  }

 private:
  int socket_;
};

bool takesConnections(std::uint16_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const int connection = socket(AF_INET, SOCK_STREAM, 0);
  const bool taken = connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  close(connection);
  return taken;
}

void expectReadyAndStopping(const std::string& name) {
  ServiceManager manager(name);
  ChildProcess board = startBoard({});
  EXPECT_EQ(manager.next(), "READY=1");
  EXPECT_TRUE(takesConnections(5556));
  EXPECT_TRUE(takesConnections(5575));
  board.signal(SIGTERM);
  EXPECT_EQ(manager.next(), "STOPPING=1");
  EXPECT_EQ(board.wait(), 0);
  EXPECT_THAT(board.errors(), IsEmpty());
}

TEST(SysmgrSimService, NotifiesItsManagerWhenBothPortsAreBoundAndWhenItStops) {
  const TemporaryFolder folder;
  expectReadyAndStopping(folder.file("notify"));
}

TEST(SysmgrSimService, NotifiesThroughAnAbstractSocket) {
  expectReadyAndStopping("@zel-notify-" + std::to_string(getpid()));
}

TEST(SysmgrSimService, IsNotReadyWhereAPortIsTaken) {
  const TemporaryFolder folder;
  ChildProcess first = startBoard({});
  ASSERT_TRUE(first.waitForOutput(kReady));
  ServiceManager manager(folder.file("notify"));
  ChildProcess second = startBoard({});
  EXPECT_EQ(second.wait(), 1);
  EXPECT_FALSE(manager.hasMore());
}

TEST(SysmgrSimService, ServesAllTheSameWhereItsManagerCannotBeNotified) {
  const TemporaryFolder folder;
  const std::string kUnusable[] = {folder.file("nobody"), "", std::string(200, 'x')};
  for (const std::string& name : kUnusable) {
    setenv("NOTIFY_SOCKET", name.c_str(), 1);
    ChildProcess board = startBoard({});
    EXPECT_TRUE(board.waitForOutput(kReady)) << name;
    board.signal(SIGTERM);
    EXPECT_EQ(board.wait(), 0) << name;
    EXPECT_THAT(board.errors(), HasSubstr("sysmgr-sim: the service manager was not notified: ")) << name;
  }
  unsetenv("NOTIFY_SOCKET");
}

}  // namespace
