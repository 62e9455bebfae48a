#include "conformance/raw_connection.h"

#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include "common/shared/socket_parts.h"

namespace zel::conformance {

RawConnection::RawConnection(const std::string& endpoint) {
  const std::size_t host = endpoint.find("://") + 3;
  const std::size_t colon = endpoint.rfind(':');
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(endpoint.substr(host, colon - host).c_str(), endpoint.substr(colon + 1).c_str(), &hints, &found) !=
      0) {
    return;
  }
  descriptor_ = socket(found->ai_family, found->ai_socktype | SOCK_CLOEXEC, found->ai_protocol);
  if (descriptor_ >= 0 && connect(descriptor_, found->ai_addr, found->ai_addrlen) != 0) {
    close(descriptor_);
    descriptor_ = -1;
  }
  freeaddrinfo(found);
}

RawConnection::~RawConnection() {
  if (descriptor_ >= 0) close(descriptor_);
}

void RawConnection::write(const std::string& bytes) const {
  if (descriptor_ < 0) return;
  [[maybe_unused]] const ssize_t written = ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

RawDealer::RawDealer(zmq::context_t& context, const std::string& endpoint)
    : socket_(context, zmq::socket_type::dealer) {
  socket_.set(zmq::sockopt::linger, 0);
  socket_.connect(endpoint);
}

void RawDealer::send(const std::vector<std::string>& frames) {
  for (std::size_t i = 0; i < frames.size(); ++i) {
    const int flags = ZMQ_DONTWAIT | (i + 1 < frames.size() ? ZMQ_SNDMORE : 0);
    despiteSignals([&] { return zmq_send(socket_.handle(), frames[i].data(), frames[i].size(), flags); });
  }
}

bool RawDealer::receive(std::vector<std::string>& frames, Milliseconds limit) {
  frames.clear();
  if (!waitFor({socket_.handle(), 0, ZMQ_POLLIN, 0}, Clock::now() + limit)) return false;
  for (;;) {
    Frame frame;
    if (!frame.receiveNow(socket_.handle())) return false;
    frames.emplace_back(frame.text());
    if (!frame.more()) return true;
  }
}

bool RawDealer::exchange(const std::vector<std::string>& request, std::vector<std::string>& answer,
                         Milliseconds limit) {
  send(request);
  return receive(answer, limit);
}

}  // namespace zel::conformance
