// What a peer says over TCP, byte by byte, below the messages: to a subscriber that waits in its poll set, and to a
// client with a request. Whatever it was, both work on with the orderly peer that comes next.
//
// The first byte of the input says how the peer behaves, the rest is what it says. Each process has a network namespace
// of its own, so the library's own ports are free.

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <zmq.hpp>

#include "common/client_json_api.h"
#include "common/logger.h"
#include "common/poll_fds.h"
#include "common/status.h"
#include "subscriber/sysmgr_subscriber.h"
#include "tests/support/private_network.h"
#include "tests/support/raw_peer.h"
#include "tests/support/zmtp.h"

namespace {

using zel::test::RawPeer;
using zel::test::zmtp::Stream;
namespace zmtp = zel::test::zmtp;

/// The bits of the first byte.
enum Behaviour : unsigned int {
  kPublishes = 1,    ///< to a subscriber; else it answers a client's request
  kShakesHands = 2,  ///< as a ZeroMQ peer of the right type, and takes a client's request, before it says its bytes
  kHangsUp = 4,      ///< when it has said all
};

constexpr unsigned short kPublisherPort = 5575;
constexpr unsigned short kDaemonPort = 5556;

constexpr auto kLongEnough = std::chrono::seconds(20);  // to find the next peer, under sanitizers on a loaded machine

class Receiver final : public SysmgrSubscriber {
 public:
  int notifyStoredParametersUpdate(SysParameters& parameters) override {
    serialNumber = parameters.serialNumber;
    return 0;
  }
  std::string serialNumber;
};

void takeOne(Receiver& receiver, PollFds& fds) {
  try {
    if (receiver.processEvent(fds[0]) == 0) std::abort();  // it was ready
  } catch (const Json::Exception&) {
    // a value of a type that does not convert
  }
}

/// Until the number is there, or all that comes soon has been taken.
void takeAll(Receiver& receiver, PollFds& fds, const std::string& serialNumber, std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (receiver.serialNumber != serialNumber && std::chrono::steady_clock::now() < deadline) {
    if (fds.poll(limit.count()) > 0) takeOne(receiver, fds);
  }
}

void subscribeTo(const RawPeer::Script& hostile, zmq::context_t& context) {
  Receiver receiver;
  PollFds fds;
  if (receiver.subscribeAll() != zel::status::kSubscriberNotInitialized || receiver.getPollItems(fds) >= 0) {
    std::abort();
  }
  {
    const RawPeer peer(hostile, kPublisherPort);
    if (receiver.init(context) != 0 || receiver.subscribeAll() != 0 || receiver.getPollItems(fds) != 0) std::abort();
    takeAll(receiver, fds, "orderly", std::chrono::milliseconds(5));
  }
  if (receiver.unsubscribe(SysmgrPublisher::SYSMGR_REBOOT_REQUEST) != 0) std::abort();

  const RawPeer orderly(
      [](const Stream& stream) {
        zmtp::shakeHands(stream, "PUB");
        stream.write(zmtp::frame(zmtp::kMore, "1000") + zmtp::frame(0, R"({"serial-number":"orderly"})"));
      },
      kPublisherPort);
  takeAll(receiver, fds, "orderly", kLongEnough);
  if (receiver.serialNumber != "orderly") std::abort();
}

class Client final : public ClientJsonApi {
 public:
  std::string getIpcConnectAddress() override { return "tcp://127.0.0.1:" + std::to_string(kDaemonPort); }
  int getClientTimeout() override { return timeoutMs; }
  int timeoutMs = 20;
};

/// Asks, and judges what becomes of it.
int ask(Client& client) {
  IpcMsg request(1);
  Json::Value reply("untouched");
  const int status = client.sendMessage(request, reply);
  const bool untouched = reply == Json::Value("untouched");
  if (untouched ? status >= 0 : !reply.isObject()) std::abort();
  ErrorReport report;
  if (status < 0 && (client.getLastErrorMessage(report) != 0 || report.code != status)) std::abort();
  return status;
}

void requestFrom(const RawPeer::Script& hostile, zmq::context_t& context) {
  Client client;
  if (ask(client) != zel::status::kNotInitialized) std::abort();
  {
    const RawPeer peer(hostile, kDaemonPort);
    if (client.init(context) != 0) std::abort();
    ask(client);
  }
  client.timeoutMs = 5000;
  const RawPeer orderly(
      [](const Stream& stream) {
        std::string envelope;
        if (zmtp::takeRequest(stream, envelope)) stream.write(envelope + zmtp::frame(0, "{}"));
      },
      kDaemonPort);
  // A request that was written just as the hostile peer left goes unanswered.
  if (ask(client) != 0 && ask(client) != 0) std::abort();
}

}  // namespace

/// libzmq 4.3.4 sometimes never releases a message that is not complete when its socket is closed: docs/security.md has
/// the figures. What the library itself leaves behind is looked for by the tests, under the address sanitizer.
extern "C" const char* __lsan_default_suppressions() { return "leak:libzmq.so"; }

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const std::string why = zel::test::enterPrivateNetwork();
  if (!why.empty()) {
    std::fprintf(stderr, "SKIPPED: this system allows no network namespace (%s)\n", why.c_str());
    std::exit(0);
  }
  Logger::getInstance()->setLevel(Logger::LEVEL_TRACE);
  Logger::getInstance()->setSink([](Logger::logDebugLevel_t, const std::string&) {});
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const unsigned int behaviour = data[0];
  const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  zmq::context_t context;  // of this input alone: whatever the peer did, it ends

  const auto say = [&](const Stream& stream, const std::string& beforeIt) {
    stream.write(beforeIt + bytes);
    if ((behaviour & kHangsUp) != 0) stream.close();
  };
  const bool shakesHands = (behaviour & kShakesHands) != 0;
  if ((behaviour & kPublishes) != 0) {
    subscribeTo(
        [&](const Stream& stream) {
          if (!shakesHands || zmtp::shakeHands(stream, "PUB")) say(stream, "");
        },
        context);
  } else {
    requestFrom(
        [&](const Stream& stream) {
          std::string envelope;
          if (!shakesHands || zmtp::takeRequest(stream, envelope)) say(stream, envelope);
        },
        context);
  }
  return 0;
}
