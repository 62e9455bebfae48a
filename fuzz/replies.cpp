// The frames of an answer, as a hostile daemon sends them: a request never ends in anything but a status, a refused
// answer leaves the caller's value alone, and the client works on. The first frame is the request's body, too.
//
// The peer sits at an in-process endpoint, which a request reaches as it would reach TCP.

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <thread>
#include <utility>
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

/// What the next request is answered with. The request itself hands it over to the peer's thread.
std::vector<std::string>& answer() {
  static std::vector<std::string> frames;
  return frames;
}

/// Takes requests of two frames and answers each with the frames at hand.
[[noreturn]] void answerAll(zmq::socket_t daemon) {
  for (;;) {
    std::vector<zmq::message_t> envelope;
    for (bool more = true; more;) {
      zmq::message_t part;
      if (!daemon.recv(part)) std::abort();
      more = part.more();
      envelope.push_back(std::move(part));
    }
    constexpr std::size_t kRequestFrames = 2;
    if (envelope.size() <= kRequestFrames) std::abort();
    const std::vector<std::string> frames = std::move(answer());
    for (std::size_t i = 0; i < envelope.size() - kRequestFrames; ++i) {
      daemon.send(envelope[i], zmq::send_flags::sndmore);
    }
    zel::fuzz::send(daemon, frames);
    // Lets go of what the client has closed, which a socket in a hurry puts off.
    static_cast<void>(daemon.get(zmq::sockopt::events));
  }
}

/// A client of a daemon that answers until the process ends, so its context is never destroyed.
Client& connectedClient() {
  static zmq::context_t& context = *new zmq::context_t;
  static Client client;
  static const int ready = [] {
    zmq::socket_t daemon(context, zmq::socket_type::router);
    daemon.set(zmq::sockopt::linger, 0);
    daemon.bind(kAddress);
    std::thread(answerAll, std::move(daemon)).detach();
    return client.init(context);
  }();
  if (ready != 0) std::abort();
  return client;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Client& client = connectedClient();
  answer() = zel::fuzz::framesOf({reinterpret_cast<const char*>(data), size});
  IpcMsg request(0, Json::Value(answer().front()));
  Json::Value reply("untouched");
  const int status = client.sendMessage(request, reply);

  const bool untouched = reply == Json::Value("untouched");
  const bool refusedHere = status == zel::status::kBadAnswer || status == zel::status::kBadRequest;
  const bool outrun = status == zel::status::kCannotConnect;
  if (untouched ? !refusedHere && !outrun : !reply.isObject()) std::abort();
  // Each refused answer costs a socket, which a thread of libzmq's closes later: it may need time to catch up.
  if (outrun) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  ErrorReport report;
  if (status < 0 && (client.getLastErrorMessage(report) != 0 || report.code != status)) std::abort();
  return 0;
}
