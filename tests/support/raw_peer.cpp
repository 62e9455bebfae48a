#include "tests/support/raw_peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <random>
#include <string>
#include <system_error>
#include <utility>

#include "tests/support/zmtp.h"

namespace zel::test {

namespace {

using namespace zmtp;

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
      if (takeRequest(stream, envelope)) stream.write(envelope + longFrameHeader(0, std::uint64_t{1} << 62) + "x");
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

RawPeer::RawPeer(unsigned short port) : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
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
}

RawPeer::RawPeer(RawBehaviour behaviour, unsigned short port) : RawPeer(port) {
  if (behaviour == RawBehaviour::kNoAccept) return;
  if (behaviour != RawBehaviour::kReset) {
    script_ = [behaviour](const Stream& stream) { behave(behaviour, stream); };
  }
  thread_ = std::thread([this] { acceptAll(); });
}

RawPeer::RawPeer(Script script, unsigned short port) : RawPeer(port) {
  script_ = std::move(script);
  thread_ = std::thread([this] { acceptAll(); });
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
    if (!script_) {
      const linger now{1, 0};
      setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &now, sizeof now);
      close(descriptor);
      continue;
    }
    connections_.push_back({descriptor, std::thread([this, descriptor] { script_(Stream(descriptor)); })});
  }
}

}  // namespace zel::test
