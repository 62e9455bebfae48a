#include "tests/faults/faulty_daemon.h"

#include <cstdio>
#include <thread>
#include <utility>
#include <vector>
#include <zmq.hpp>

#include "client/sysmgr_jsonApi.h"
#include "common/wire_json.h"
#include "tests/faults/journal.h"

namespace zel::test {

namespace {

using Message = std::vector<std::string>;

Message receive(zmq::socket_t& socket) {
  Message frames;
  for (bool more = true; more;) {
    zmq::message_t frame;
    if (!socket.recv(frame)) continue;
    frames.push_back(frame.to_string());
    more = frame.more();
  }
  return frames;
}

void send(zmq::socket_t& socket, const Message& frames) {
  for (std::size_t i = 0; i < frames.size(); ++i) {
    socket.send(zmq::buffer(frames[i]), i + 1 < frames.size() ? zmq::send_flags::sndmore : zmq::send_flags::none);
  }
}

}  // namespace

std::string DaemonManners::text() const {
  return std::to_string(delayMs) + (doubled ? "d" : "-") + (shuffled ? "s" : "-");
}

DaemonManners DaemonManners::fromText(const std::string& text) {
  DaemonManners manners;
  manners.delayMs = std::stoi(text);
  manners.doubled = text.find('d') != std::string::npos;
  manners.shuffled = text.find('s') != std::string::npos;
  return manners;
}

int runFaultyDaemon(int journalDescriptor, const DaemonManners& manners) {
  Journal journal = Journal::inherit(journalDescriptor);
  zmq::context_t context;
  zmq::socket_t router(context, zmq::socket_type::router);
  router.set(zmq::sockopt::linger, 0);
  router.bind(SysMgrJsonClient().getIpcConnectAddress());
  std::printf("ready\n");
  std::fflush(stdout);

  WireJsonReader reader;
  std::vector<Message> waiting;
  for (;;) {
    // A held answer goes out after a while also when no request follows.
    zmq::pollitem_t item{router.handle(), 0, ZMQ_POLLIN, 0};
    const bool came = zmq::poll(&item, 1, std::chrono::milliseconds(waiting.empty() ? -1 : 20)) > 0;
    if (came) {
      Message frames = receive(router);
      Json::Value body;
      if (frames.size() < 3 || !reader.read(frames.back(), body).empty() || !body["token"].isUInt()) continue;
      journal.carriedOut(body["token"].asUInt());
      std::this_thread::sleep_for(std::chrono::milliseconds(manners.delayMs));
      frames.resize(frames.size() - 2);  // the envelope
      frames.push_back("{\"token\":" + body["token"].asString() + "}");
      waiting.push_back(std::move(frames));
    }
    if (manners.shuffled && came && waiting.size() < 2) continue;
    for (; !waiting.empty(); waiting.pop_back()) {
      send(router, waiting.back());
      if (manners.doubled) send(router, waiting.back());
    }
  }
}

}  // namespace zel::test
