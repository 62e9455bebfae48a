#include "tests/support/raw_peer.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <system_error>

#include "tests/support/wait_until.h"

using zel::test::kAllRawBehaviours;
using zel::test::RawBehaviour;
using zel::test::RawPeer;

namespace {

/// A plain TCP connection to the port of the peer.
class Connection {
 public:
  explicit Connection(std::chrono::milliseconds patience = std::chrono::milliseconds(200))
      : descriptor_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const timeval limit{patience.count() / 1000, patience.count() % 1000 * 1000};
    setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(5556);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    connected_ = connect(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  }
  ~Connection() { close(descriptor_); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  bool connected() const { return connected_; }
  /// The first bytes that come: none when the peer is silent or gone.
  std::string read() const {
    char buffer[64];
    const ssize_t count = recv(descriptor_, buffer, sizeof buffer, 0);
    return count > 0 ? std::string(buffer, static_cast<std::size_t>(count)) : std::string();
  }

 private:
  int descriptor_;
  bool connected_;
};

bool speaksFirst(RawBehaviour behaviour) {
  return behaviour != RawBehaviour::kNoAccept && behaviour != RawBehaviour::kSilentAccept &&
         behaviour != RawBehaviour::kReset;
}

}  // namespace

class EachRawPeer : public testing::TestWithParam<RawBehaviour> {};
INSTANTIATE_TEST_SUITE_P(Kinds, EachRawPeer, testing::ValuesIn(kAllRawBehaviours), testing::PrintToStringParamName());

TEST_P(EachRawPeer, AcceptsAndSpeaksAsItsKindSays) {
  RawPeer peer(GetParam());
  const Connection connection(std::chrono::milliseconds(speaksFirst(GetParam()) ? 30'000 : 200));
  EXPECT_TRUE(connection.connected());
  EXPECT_EQ(!connection.read().empty(), speaksFirst(GetParam()));
  EXPECT_EQ(peer.accepted(), GetParam() == RawBehaviour::kNoAccept ? 0 : 1);
}

TEST_P(EachRawPeer, FreesThePortAtItsEnd) {
  for (int round = 0; round < 2; ++round) {
    const RawPeer peer(GetParam());
    const Connection connection;
    EXPECT_TRUE(connection.connected());
    EXPECT_THROW(RawPeer{GetParam()}, std::system_error);
  }
}
