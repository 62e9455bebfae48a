#include "tests/support/zmtp.h"

#include <sys/socket.h>

namespace zel::test::zmtp {

using namespace std::string_literals;

bool Stream::write(std::string_view bytes) const {
  while (!bytes.empty()) {
    const ssize_t count = send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

bool Stream::read(std::size_t count, std::string& bytes) const {
  bytes.resize(count);
  return count == 0 || recv(descriptor_, bytes.data(), count, MSG_WAITALL) == static_cast<ssize_t>(count);
}

void Stream::discard() const {
  char buffer[4096];
  while (recv(descriptor_, buffer, sizeof buffer, 0) > 0) continue;
}

void Stream::close() const { shutdown(descriptor_, SHUT_RDWR); }

std::string greeting() {
  return "\xff\0\0\0\0\0\0\0\1\x7f"s + "\3\0"s + "NULL"s + std::string(16, '\0') + std::string(32, '\0');
}

std::string frame(char flags, const std::string& bytes) {
  return std::string{flags, static_cast<char>(bytes.size())} + bytes;
}

std::string longFrameHeader(char flags, std::uint64_t size) {
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

bool readRequest(const Stream& stream, std::string& first) {
  first.clear();
  for (std::string head, bytes;;) {
    if (!stream.read(2, head) || !stream.read(static_cast<unsigned char>(head[1]), bytes)) return false;
    if ((head[0] & kCommand) != 0) continue;
    if (first.empty()) first = bytes;
    if ((head[0] & kMore) == 0) return true;
  }
}

bool takeRequest(const Stream& stream, std::string& envelope) {
  std::string number;
  if (!shakeHands(stream, "ROUTER") || !readRequest(stream, number)) return false;
  envelope = frame(kMore, number) + frame(kMore, "");
  return true;
}

}  // namespace zel::test::zmtp
