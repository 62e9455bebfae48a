#include "tests/support/raw_peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <random>
#include <string_view>
#include <system_error>

namespace zel::test {

namespace {

using namespace std::string_literals;

/// The peer's end of a connection. Every operation tells whether the connection is still good.
class Stream {
 public:
  explicit Stream(int descriptor) : descriptor_(descriptor) {}

  bool write(std::string_view bytes) const {
    while (!bytes.empty()) {
      const ssize_t count = send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (count <= 0) return false;
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
  }

  bool read(std::size_t count, std::string& bytes) const {
    bytes.resize(count);
    return count == 0 || recv(descriptor_, bytes.data(), count, MSG_WAITALL) == static_cast<ssize_t>(count);
  }

  /// Takes what comes until the other side, or the end of the test, closes the connection.
  void discard() const {
    char buffer[4096];
    while (recv(descriptor_, buffer, sizeof buffer, 0) > 0) continue;
  }

 private:
  int descriptor_;
};

// ZMTP 3.0, the protocol below ZeroMQ's sockets: a greeting, a READY command, then frames of a flag byte, a length and
// the bytes.

constexpr char kMore = 1;
constexpr char kLongLength = 2;
constexpr char kCommand = 4;

std::string greeting() {
  return "\xff\0\0\0\0\0\0\0\1\x7f"s + "\3\0"s + "NULL"s + std::string(16, '\0') + std::string(32, '\0');
}

std::string frame(char flags, const std::string& bytes) {
  return std::string{flags, static_cast<char>(bytes.size())} + bytes;
}

std::string longFrameHeader(char flags, std::size_t size) {
  std::string header(1, static_cast<char>(flags | kLongLength));
  for (int shift = 56; shift >= 0; shift -= 8) header += static_cast<char>(size >> shift & 0xff);
  return header;
}

std::string ready(const std::string& socketType) {
  return frame(kCommand, "\5READY\xbSocket-Type"s + "\0\0\0"s + static_cast<char>(socketType.size()) + socketType);
}

bool shakeHands(const Stream& stream, const std::string& socketType) {
  std::string theirs;
  return stream.write(greeting()) && stream.read(greeting().size(), theirs) && stream.write(ready(socketType));
}

/// Reads the frames of one message, past the READY command.
/// @param first  receives the first frame: the number of the request
bool readRequest(const Stream& stream, std::string& first) {
  first.clear();
  for (std::string head, bytes;;) {
    if (!stream.read(2, head) || !stream.read(static_cast<unsigned char>(head[1]), bytes)) return false;
    if ((head[0] & kCommand) != 0) continue;
    if (first.empty()) first = bytes;
    if ((head[0] & kMore) == 0) return true;
  }
}

/// Takes a request and gives back the envelope of its answer, ready to be sent.
bool takeRequest(const Stream& stream, std::string& envelope) {
  std::string number;
  if (!shakeHands(stream, "ROUTER") || !readRequest(stream, number)) return false;
  envelope = frame(kMore, number) + frame(kMore, "");
  return true;
}

std::string randomBytes(std::size_t count) {
  std::mt19937 generator(20260101);  // always the same: a failure can be seen again
  std::string bytes(count, '\0');
  for (char& byte : bytes) byte = static_cast<char>(generator());
  bytes[0] = '\x42';  // 0xff would begin a greeting
  return bytes;
}

void behave(RawBehaviour behaviour, const Stream& stream) {
  std::string envelope;
  switch (behaviour) {
    case RawBehaviour::kNoAccept:
    case RawBehaviour::kReset:
    case RawBehaviour::kSilentAccept: break;
    case RawBehaviour::kRandomBytes: stream.write(randomBytes(512)); break;
    case RawBehaviour::kHttpAnswer:
      stream.write("HTTP/1.1 400 Bad Request\r\nContent-Type: text/plain\r\nContent-Length: 12\r\n\r\nBad Request\n");
      break;
    case RawBehaviour::kGreetingThenSilence: stream.write(greeting()); break;
    case RawBehaviour::kWrongSocketType: shakeHands(stream, "PUB"); break;
    case RawBehaviour::kHugeFrameLength:
      if (takeRequest(stream, envelope)) stream.write(envelope + longFrameHeader(0, std::size_t{1} << 62) + "x");
      break;
    case RawBehaviour::kOverSizeFrame: {
      constexpr std::size_t kSize = 1024 * 1024 + 1;
      if (takeRequest(stream, envelope)) stream.write(envelope + longFrameHeader(0, kSize) + std::string(kSize, ' '));
      break;
    }
    case RawBehaviour::kEndlessFrames: {
      bool good = takeRequest(stream, envelope) && stream.write(envelope);
      const std::string more = frame(kMore, "{}");
      while (good) good = stream.write(more);
      break;
    }
  }
  stream.discard();
}

}  // namespace

std::ostream& operator<<(std::ostream& out, RawBehaviour behaviour) {
  switch (behaviour) {
    case RawBehaviour::kNoAccept: return out << "NoAccept";
    case RawBehaviour::kSilentAccept: return out << "SilentAccept";
    case RawBehaviour::kReset: return out << "Reset";
    case RawBehaviour::kRandomBytes: return out << "RandomBytes";
    case RawBehaviour::kHttpAnswer: return out << "HttpAnswer";
    case RawBehaviour::kGreetingThenSilence: return out << "GreetingThenSilence";
    case RawBehaviour::kWrongSocketType: return out << "WrongSocketType";
    case RawBehaviour::kHugeFrameLength: return out << "HugeFrameLength";
    case RawBehaviour::kOverSizeFrame: return out << "OverSizeFrame";
    case RawBehaviour::kEndlessFrames: return out << "EndlessFrames";
  }
  return out << "?";
}

RawPeer::RawPeer(RawBehaviour behaviour, unsigned short port)
    : behaviour_(behaviour), listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  constexpr int kOn = 1;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &kOn, sizeof kOn);
  if (bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || listen(listener_, 16) != 0) {
    const std::error_code error(errno, std::generic_category());
    close(listener_);
    throw std::system_error(error, "listen");
  }
  if (behaviour_ != RawBehaviour::kNoAccept) thread_ = std::thread([this] { acceptAll(); });
}

RawPeer::~RawPeer() {
  shutdown(listener_, SHUT_RDWR);
  if (thread_.joinable()) thread_.join();
  close(listener_);
  for (Connection& connection : connections_) {
    shutdown(connection.descriptor, SHUT_RDWR);
    connection.thread.join();
    close(connection.descriptor);
  }
}

void RawPeer::acceptAll() {
  for (;;) {
    const int descriptor = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (descriptor < 0) return;
    ++accepted_;
    if (behaviour_ == RawBehaviour::kReset) {
      const linger now{1, 0};
      setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &now, sizeof now);
      close(descriptor);
      continue;
    }
    connections_.push_back({descriptor, std::thread([this, descriptor] { behave(behaviour_, Stream(descriptor)); })});
  }
}

}  // namespace zel::test
