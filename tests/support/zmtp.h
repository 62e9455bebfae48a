#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// ZMTP 3.0, the protocol below ZeroMQ's sockets, by hand: for peers that break it. A greeting, a READY command, then
/// frames of a flag byte, a length and the bytes.
namespace zel::test::zmtp {

/// The peer's end of a connection. Every operation tells whether the connection is still good.
class Stream {
 public:
  explicit Stream(int descriptor) : descriptor_(descriptor) {}

  bool write(std::string_view bytes) const;
  bool read(std::size_t count, std::string& bytes) const;
  /// Takes what comes until the other side, or the end of the test, closes the connection.
  void discard() const;
  void close() const;

 private:
  int descriptor_;
};

constexpr char kMore = 1;
constexpr char kLongLength = 2;
constexpr char kCommand = 4;

std::string greeting();
/// A frame of up to 255 bytes.
std::string frame(char flags, const std::string& bytes);
std::string longFrameHeader(char flags, std::uint64_t size);
std::string ready(const std::string& socketType);
bool shakeHands(const Stream& stream, const std::string& socketType);
/// Reads the frames of one message, past the READY command.
/// @param first  receives the first frame: the number of the request
bool readRequest(const Stream& stream, std::string& first);
/// Takes a request and gives back the envelope of its answer, ready to be sent.
bool takeRequest(const Stream& stream, std::string& envelope);

}  // namespace zel::test::zmtp
