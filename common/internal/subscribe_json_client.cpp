#include "common/subscribe_json_client.h"

#include "common/shared/recycled.h"
#include "common/shared/subscription.h"
#include "common/shared/wire_json.h"
#include "common/status.h"

namespace status = zel::status;

class SubscribeJsonClient::Connection final : public zel::Subscription {
 public:
  explicit Connection(zmq::context_t& context) : Subscription(context, "SubscribeJsonClient") {}
  ~Connection() override { retire(); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  static void* operator new(std::size_t) { return zel::Recycled<Connection>::take(); }
  static void operator delete(void* memory) { zel::Recycled<Connection>::giveBack(memory); }
  void destroy() {
    retire();
    zel::Recycled<Connection>::destroy(this);
  }

  using Subscription::isInherited;

  /// Takes the next notification. @return 1, or 0 when there is none
  int takeDocument(std::string& topic, int& errorCode, Json::Value& payload) {
    zel::Frame frame;
    const std::optional<int> taken = take(topic, frame);
    if (!taken) return 0;
    errorCode = *taken == status::kOk ? read(frame, payload) : *taken;
    return 1;
  }

 private:
  int read(zel::Frame& frame, Json::Value& payload) {
    if (!frame.text().empty()) {
      return reader_.read(frame.text(), payload).empty() ? status::kOk : status::kBadNotificationJson;
    }
    payload = Json::Value();
    return status::kOk;
  }

  zel::WireJsonReader reader_;
};

// NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks): its memory is recycled
SubscribeJsonClient::SubscribeJsonClient(zmq::context_t& context) : connection_(new Connection(context)) {}

SubscribeJsonClient::~SubscribeJsonClient() { connection_->destroy(); }

int SubscribeJsonClient::connect(const std::string& address) {
  if (connection_->isInherited()) return status::kNotInitialized;
  return connection_->open(address) ? status::kOk : status::kCannotConnect;
}

int SubscribeJsonClient::subscribe(const std::string& topic) {
  return connection_->whileOpen([&] { return connection_->setFilter(ZMQ_SUBSCRIBE, topic); })
      .value_or(status::kNotInitialized);
}

int SubscribeJsonClient::unsubscribe(const std::string& topic) {
  return connection_->whileOpen([&] { return connection_->setFilter(ZMQ_UNSUBSCRIBE, topic); })
      .value_or(status::kNotInitialized);
}

int SubscribeJsonClient::getPollItems(PollFds& pollFds) {
  const auto add = [&] {
    pollFds.add({connection_->socket(), 0, ZMQ_POLLIN, 0});
    return status::kOk;
  };
  return connection_->whileOpen(add).value_or(status::kNotInitialized);
}

int SubscribeJsonClient::processEvent(const zmq_pollitem_t&, std::string& topic, int& errorCode, Json::Value& payload) {
  return connection_->whileOpen([&] { return connection_->takeDocument(topic, errorCode, payload); }).value_or(0);
}
