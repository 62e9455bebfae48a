#include "tests/faults/hostile_peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <functional>
#include <random>
#include <string>
#include <thread>

#include "common/shared/wire_json.h"
#include "tests/support/zmtp.h"

namespace zel::test {

namespace {

using namespace std::string_literals;
using namespace zmtp;

enum class Role { kDaemon, kPublisher };
struct Port {
  Role role;
  unsigned short number;
};
constexpr Port kPorts[] = {{Role::kDaemon, 5556}, {Role::kPublisher, 5575}};

/// What a connection meets, drawn from the seed.
class Malice {
 public:
  Malice(Role role, std::uint32_t seed, bool large) : role_(role), random_(seed), large_(large) {}

  void treat(int descriptor) {
    const Stream stream(descriptor);
    const bool good = send(stream, opening()) && send(stream, handshake());
    if (good && role_ == Role::kDaemon && oneIn(2)) awaitRequest(descriptor);
    for (unsigned i = below(6); i > 0; --i) {
      if (!send(stream, message())) break;
    }
    leave(descriptor);
  }

 private:
  unsigned below(unsigned limit) { return limit == 0 ? 0 : static_cast<unsigned>(random_()) % limit; }
  bool oneIn(unsigned chances) { return below(chances) == 0; }
  template <class List>
  auto anyOf(const List& list) -> decltype(list[0]) {
    return list[below(static_cast<unsigned>(std::size(list)))];
  }

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
    static constexpr const char* kTypes[] = {"ROUTER", "REP", "PUB", "XPUB", "DEALER", "PULL", "", "X"};
    static constexpr const char* kRight[][2] = {{"ROUTER", "REP"}, {"PUB", "XPUB"}};
    if (oneIn(10)) return frame(kCommand, bytes(below(200)));
    // The right types come often, or nothing behind the handshake would ever be tried.
    return damaged(ready(oneIn(4) ? anyOf(kTypes) : anyOf(kRight[static_cast<int>(role_)])));
  }

  void awaitRequest(int descriptor) {
    pollfd item{descriptor, POLLIN, 0};
    std::array<char, 4096> buffer{};
    ssize_t count = 0;
    // The READY command and then the request, whose first frame is the number of four bytes.
    for (int i = 0; i < 4 && poll(&item, 1, 100) > 0; ++i) {
      count = recv(descriptor, buffer.data(), buffer.size(), 0);
      if (count <= 0) return;
      const std::string came(buffer.data(), static_cast<std::size_t>(count));
      const std::size_t number = came.find("\x01\x04"s);
      if (number == std::string::npos || number + 6 > came.size()) continue;
      envelope_ = came.substr(number, 6) + frame(kMore, "");
      return;
    }
  }

  std::string body() {
    static constexpr const char* kTexts[] = {"{}",
                                             "{\"token\":1}",
                                             "{\"status\":-5}",
                                             "[",
                                             "nul",
                                             "{\"a\":",
                                             "\"",
                                             "null",
                                             "{\"token\":-}",
                                             "{\"a\":1}{",
                                             "1e999",
                                             "[[1]]",
                                             "{\"white-list\":1}",
                                             "",
                                             "{\"eth-basics\":[{\"index\":\"x\"}]}",
                                             "{\"cfg\":{\"cfg-file-path\":[]}}"};
    if (oneIn(4)) return bytes(below(255));
    if (oneIn(8)) return std::string(below(250), '[');
    return anyOf(kTexts);
  }

  /// Nothing but JSON, up to the limit of a frame.
  std::string largeDocument() {
    const std::size_t size = 2 + below(static_cast<unsigned>(kMaxFrameBytes) - 1);
    if (oneIn(2)) return '"' + std::string(size - 2, 'x') + '"';
    std::string numbers(size / 2 * 2 - 1, '0');
    for (std::size_t i = 1; i < numbers.size(); i += 2) numbers[i] = ',';
    return size < 4 ? "[]" : '[' + numbers.substr(2) + ']';
  }

  static std::string longFrame(const std::string& text) { return longFrameHeader(0, text.size()) + text; }

  std::string head() {
    static const std::string kTopics[] = {"1000", "1001", "1002", "1004", "10000", "1000\0x"s, "1000{}", "999", ""};
    if (oneIn(6)) return frame(kMore, bytes(below(9)));
    return role_ == Role::kDaemon ? envelope_ : frame(kMore, anyOf(kTopics));
  }

  std::string flood() {
    const std::string one = head() + frame(0, body());
    std::string all;
    for (unsigned i = below(6000); i > 0; --i) all += one;
    return all;
  }

  std::string message() {
    switch (below(11)) {
      case 0: return head() + damaged(longFrameHeader(static_cast<char>(below(8)), std::uint64_t{1} << below(63)));
      case 1: return head() + longFrame(std::string(kMaxFrameBytes + 1, ' '));
      case 2: {
        std::string frames = head();
        for (unsigned i = below(1000); i > 0; --i) frames += frame(kMore, body());
        return frames + (oneIn(2) ? frame(0, body()) : "");
      }
      case 3: return damaged(head() + frame(0, body()));
      case 4: return frame(0, body());
      case 5: return frame(static_cast<char>(below(256)), body());
      case 6: return head() + frame(kMore, body()) + frame(0, body());
      case 7: return head() + (large_ ? longFrame(largeDocument()) : frame(0, body()));
      case 8: return flood();
      default: return head() + frame(0, body());
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

  Role role_;
  std::mt19937 random_;
  bool large_;
  std::string envelope_;
};

/// @return negative when there is no listener
int listenOn(unsigned short port) {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return -1;
  return listen(listener, 16) == 0 ? listener : -1;
}

/// Has each connection treated in a thread of its own, without an end.
/// @param treat  takes the role, the number of the connection and its descriptor
int acceptAll(const std::function<void(Role, std::uint32_t, int)>& treat) {
  pollfd listeners[std::size(kPorts)];
  for (std::size_t i = 0; i < std::size(kPorts); ++i) {
    listeners[i] = {listenOn(kPorts[i].number), POLLIN, 0};
    if (listeners[i].fd >= 0) continue;
    std::perror("hostile peer");
    return 1;
  }
  std::printf("ready\n");
  std::fflush(stdout);
  for (std::uint32_t connection = 0;;) {
    poll(listeners, std::size(listeners), -1);
    for (std::size_t i = 0; i < std::size(kPorts); ++i) {
      if (listeners[i].revents == 0) continue;
      const int descriptor = accept4(listeners[i].fd, nullptr, nullptr, SOCK_CLOEXEC);
      if (descriptor >= 0) std::thread(treat, kPorts[i].role, connection++, descriptor).detach();
    }
  }
}

}  // namespace

int runHostilePeer(std::uint32_t seed, bool large) {
  return acceptAll([seed, large](Role role, std::uint32_t connection, int descriptor) {
    Malice(role, seed * 2654435761U + connection, large).treat(descriptor);
  });
}

int runEndlessPeer() {
  return acceptAll([](Role role, std::uint32_t, int descriptor) {
    const Stream stream(descriptor);
    std::string head = frame(kMore, "1000");
    bool good = role == Role::kPublisher ? shakeHands(stream, "PUB") : takeRequest(stream, head);
    good = good && stream.write(head);
    std::string more;
    for (int i = 0; i < 10000; ++i) more += frame(kMore, "");
    while (good) good = stream.write(more);
    close(descriptor);
  });
}

}  // namespace zel::test
