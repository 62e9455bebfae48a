#pragma once

#include <string>
#include <string_view>
#include <vector>
#include <zmq.hpp>

namespace zel::fuzz {

/// Cuts an input into frames at each 0xff byte, which no UTF-8 text holds.
inline std::vector<std::string> framesOf(std::string_view input) {
  std::vector<std::string> frames(1);
  for (const char byte : input) {
    if (byte == '\xff') {
      frames.emplace_back();
    } else {
      frames.back() += byte;
    }
  }
  return frames;
}

inline void send(zmq::socket_t& socket, const std::vector<std::string>& frames) {
  for (std::size_t i = 0; i < frames.size(); ++i) {
    socket.send(zmq::buffer(frames[i]), i + 1 < frames.size() ? zmq::send_flags::sndmore : zmq::send_flags::none);
  }
}

}  // namespace zel::fuzz
