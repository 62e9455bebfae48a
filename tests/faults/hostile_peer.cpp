#include "tests/faults/hostile_peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <random>
#include <string>

#include "common/wire_json.h"
#include "tests/support/zmtp.h"

namespace zel::test {

namespace {

using namespace zmtp;

/// What a connection meets, drawn from the seed.
class Malice {
 public:
  explicit Malice(std::uint32_t seed) : random_(seed) {}

  void treat(int descriptor) {
    const Stream stream(descriptor);
    const bool good = send(stream, opening()) && send(stream, handshake());
    std::string envelope;
    if (good && oneIn(2)) awaitRequest(descriptor, envelope);
    for (unsigned i = below(6); i > 0; --i) {
      if (!send(stream, message(envelope))) break;
    }
    leave(descriptor);
  }

 private:
  unsigned below(unsigned limit) { return limit == 0 ? 0 : static_cast<unsigned>(random_()) % limit; }
  bool oneIn(unsigned chances) { return below(chances) == 0; }

  std::string bytes(std::size_t count) {
    std::string text(count, '\0');
    for (char& byte : text) byte = static_cast<char>(random_());
    return text;
  }

  /// Mostly as it is; sometimes with a bit flipped or cut short.
  std::string damaged(std::string text) {
    if (text.empty()) return text;
    if (oneIn(4)) {
      char& byte = text[below(static_cast<unsigned>(text.size()))];
      byte = static_cast<char>(static_cast<unsigned char>(byte) ^ (1U << below(8)));
    }
    if (oneIn(8)) text.resize(below(static_cast<unsigned>(text.size())));
    return text;
  }

  std::string opening() { return oneIn(6) ? bytes(below(200)) : damaged(greeting()); }

  std::string handshake() {
    static constexpr std::array<const char*, 8> kTypes = {"ROUTER", "REP", "PUB", "XPUB", "DEALER", "PULL", "", "X"};
    if (oneIn(10)) return frame(kCommand, bytes(below(200)));
    // The right types come often, or nothing behind the handshake would ever be tried.
    return damaged(ready(oneIn(3) ? kTypes[below(kTypes.size())] : kTypes[below(4)]));
  }

  void awaitRequest(int descriptor, std::string& envelope) {
    pollfd item{descriptor, POLLIN, 0};
    std::array<char, 4096> buffer{};
    ssize_t count = 0;
    // The READY command and then the request, whose first frame is the number of four bytes.
    for (int i = 0; i < 4 && poll(&item, 1, 100) > 0; ++i) {
      count = recv(descriptor, buffer.data(), buffer.size(), 0);
      if (count <= 0) return;
      const std::string came(buffer.data(), static_cast<std::size_t>(count));
      const std::size_t number = came.find(std::string("\x01\x04", 2));
      if (number == std::string::npos || number + 6 > came.size()) continue;
      envelope = came.substr(number, 6) + frame(kMore, "");
      return;
    }
  }

  std::string body() {
    static constexpr std::array<const char*, 10> kTexts = {
        "{}", "{\"token\":1}", "{\"status\":-5}", "[", "nul", "{\"a\":", "\"", "{\"token\":-}", "{\"a\":1}{", "1e999"};
    if (oneIn(4)) return bytes(below(255));
    if (oneIn(8)) return std::string(below(250), '[');
    return kTexts[below(kTexts.size())];
  }

  std::string message(const std::string& envelope) {
    const std::string head = oneIn(6) ? frame(kMore, bytes(below(9))) : envelope;
    switch (below(8)) {
      case 0: return head + damaged(longFrameHeader(static_cast<char>(below(8)), std::uint64_t{1} << below(63)));
      case 1: return head + longFrameHeader(0, kMaxFrameBytes + 1) + std::string(kMaxFrameBytes + 1, ' ');
      case 2: {
        std::string frames = head;
        for (unsigned i = below(2000); i > 0; --i) frames += frame(kMore, body());
        return frames + (oneIn(2) ? frame(0, body()) : "");
      }
      case 3: return damaged(head + frame(0, body()));
      case 4: return frame(0, body());
      case 5: return frame(static_cast<char>(below(256)), body());
      default: return head + frame(0, body());
    }
  }

  bool send(const Stream& stream, const std::string& text) { return text.empty() || stream.write(text); }

  void leave(int descriptor) {
    if (oneIn(3)) {
      const linger abort{1, 0};
      setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
    } else if (oneIn(2)) {
      pollfd item{descriptor, 0, 0};
      poll(&item, 1, 300);  // silence, until the other side goes
    }
    close(descriptor);
  }

  std::mt19937 random_;
};

}  // namespace

int runHostilePeer(std::uint32_t seed, unsigned short port) {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || listen(listener, 16) != 0) {
    std::perror("hostile peer");
    return 1;
  }
  std::printf("ready\n");
  std::fflush(stdout);
  for (std::uint32_t connection = 0;; ++connection) {
    const int descriptor = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (descriptor >= 0) Malice(seed * 2654435761U + connection).treat(descriptor);
  }
}

}  // namespace zel::test
