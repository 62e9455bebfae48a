#pragma once

#include <chrono>
#include <string>
#include <thread>
#include <vector>
#include <zmq.hpp>

namespace zel::test {

/// The frames of a message.
using Frames = std::vector<std::string>;

/// Receives a message. @return its frames; none when the socket's time-out is over
inline Frames receiveFrames(zmq::socket_t& socket) {
  Frames frames;
  zmq::message_t frame;
  do {
    if (!socket.recv(frame)) break;
    frames.push_back(frame.to_string());
  } while (frame.more());
  return frames;
}

inline void sendFrames(zmq::socket_t& socket, const Frames& frames) {
  for (std::size_t i = 0; i < frames.size(); ++i) {
    socket.send(zmq::buffer(frames[i]), i + 1 < frames.size() ? zmq::send_flags::sndmore : zmq::send_flags::none);
  }
}

/// The frames of the answer to a request: the request's envelope, which is before its command and body, and the answer.
inline Frames answerTo(Frames request, const std::string& answer) {
  request.resize(request.size() - 2);
  request.push_back(answer);
  return request;
}

/// Binds the socket of a board that takes over from another process: for up to 5 s the kernel may still hold the port
/// for a process that was killed.
inline void bindAfterAnother(zmq::socket_t& socket, const char* endpoint) {
  for (int left = 5000;; --left) {
    try {
      return socket.bind(endpoint);
    } catch (const zmq::error_t&) {
      if (left == 0) throw;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
}

}  // namespace zel::test
