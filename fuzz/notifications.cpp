// The frames of a notification, as a hostile publisher sends them, up to the callbacks: nothing but JsonCpp's own
// exception leaves the subscriber, a malformed message is taken and reported, and nothing stays behind in the socket.
//
// The publisher sits at an in-process endpoint.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>
#include <zmq.hpp>

#include "common/logger.h"
#include "common/status.h"
#include "common/subscribe_json_client.h"
#include "fuzz/frames.h"
#include "subscriber/sysmgr_subscriber.h"

namespace {

constexpr char kAddress[] = "inproc://publisher";

void dispatch(std::string& topic, Json::Value& payload) {
  SysmgrSubscriber subscriber;
  try {
    const int result = subscriber.processNotification(topic, payload);
    if (result != 0 && result != zel::status::kUnknownTopic) std::abort();
  } catch (const Json::Exception&) {
    // a value of a type that does not convert
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Logger::getInstance()->setSink([](Logger::logDebugLevel_t, const std::string&) {});
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static zmq::context_t context;
  static zmq::socket_t publisher = [] {
    zmq::socket_t socket(context, zmq::socket_type::pub);
    socket.set(zmq::sockopt::linger, 0);
    socket.bind(kAddress);
    return socket;
  }();
  static SubscribeJsonClient client(context);
  static const bool subscribed = client.connect(kAddress) == 0 && client.subscribe("") == 0;
  if (!subscribed) std::abort();

  const std::vector<std::string> frames = zel::fuzz::framesOf({reinterpret_cast<const char*>(data), size});
  zel::fuzz::send(publisher, frames);
  std::string topic;
  int errorCode = 0;
  Json::Value payload;
  if (client.processEvent({}, topic, errorCode, payload) == 0) std::abort();
  if ((errorCode == zel::status::kBadNotificationFrames) != (frames.size() != 2)) std::abort();
  if (errorCode != 0 && !payload.isNull()) std::abort();
  if (errorCode == 0) dispatch(topic, payload);
  if (client.processEvent({}, topic, errorCode, payload) != 0) std::abort();
  return 0;
}
