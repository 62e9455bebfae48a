// The frames of an answer, as a hostile daemon sends them: a request never ends in anything but a status, a refused
// answer leaves the caller's value alone, and the client works on.
//
// The peer sits at an in-process endpoint, which a request reaches as it would reach TCP.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>
#include <zmq.hpp>

#include "common/client_json_api.h"
#include "common/status.h"
#include "fuzz/frames.h"

namespace {

constexpr char kAddress[] = "inproc://daemon";

class Client final : public ClientJsonApi {
 public:
  std::string getIpcConnectAddress() override { return kAddress; }
  int getClientTimeout() override { return 10000; }
};

/// Takes one request of two frames and answers it with the given ones.
void answer(zmq::socket_t& daemon, const std::vector<std::string>& frames) {
  std::vector<zmq::message_t> envelope;
  for (bool more = true; more;) {
    zmq::message_t part;
    if (!daemon.recv(part)) std::abort();
    more = part.more();
    envelope.push_back(std::move(part));
  }
  constexpr std::size_t kRequestFrames = 2;
  if (envelope.size() <= kRequestFrames) std::abort();
  for (std::size_t i = 0; i < envelope.size() - kRequestFrames; ++i) {
    daemon.send(envelope[i], zmq::send_flags::sndmore);
  }
  zel::fuzz::send(daemon, frames);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static zmq::context_t context;
  static zmq::socket_t daemon = [] {
    zmq::socket_t socket(context, zmq::socket_type::router);
    socket.set(zmq::sockopt::linger, 0);
    socket.bind(kAddress);
    return socket;
  }();
  static Client client;
  static const int ready = client.init(context);
  if (ready != 0) std::abort();

  const std::vector<std::string> frames = zel::fuzz::framesOf({reinterpret_cast<const char*>(data), size});
  std::thread peer([&frames] { answer(daemon, frames); });
  IpcMsg request(0);
  Json::Value reply("untouched");
  const int status = client.sendMessage(request, reply);
  peer.join();

  const bool untouched = reply == Json::Value("untouched");
  if (untouched ? status != zel::status::kBadAnswer : !reply.isObject()) std::abort();
  return 0;
}
