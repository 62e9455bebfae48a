#include "subscriber/sysmgr_subscriber.h"

#include <memory>
#include <new>

#include "client/endpoints.h"
#include "common/shared/failed_check.h"
#include "common/shared/json_form.h"
#include "common/shared/recycled.h"
#include "common/status.h"
#include "common/subscribe_json_client.h"

using zel::checked;

namespace {

/// A static subscriber may be destroyed while another thread calls it.
using ClientMemory = zel::Recycled<SubscribeJsonClient>;

struct DestroyClient {
  void operator()(SubscribeJsonClient* client) const { ClientMemory::destroy(client); }
};
using Client = std::unique_ptr<SubscribeJsonClient, DestroyClient>;

Client makeClient(zmq::context_t& context) {
  void* const memory = ClientMemory::take();
  try {
    return Client(new (memory) SubscribeJsonClient(context));
  } catch (...) {
    ClientMemory::giveBack(memory);
    throw;
  }
}

int notInitialized(int result) {
  Logger::log(Logger::LEVEL_ERROR, "SysmgrSubscriber is not initialized yet.");
  return result;
}

int notOverridden(const char* callback) {
  Logger::log(Logger::LEVEL_PROGRESS,
              "SysmgrSubscriber: client subscribed to messages, but didn't override the callback %s.", callback);
  return zel::status::kOk;
}

}  // namespace

std::string SysmgrPublisher::topicOf(sysmgr_notifications_t notification) { return std::to_string(int(notification)); }

SysmgrSubscriber::SysmgrSubscriber() = default;

SysmgrSubscriber::~SysmgrSubscriber() { const Client destroyed(client_); }

int SysmgrSubscriber::notifyStoredParametersUpdate(SysParameters&) { return notOverridden(__func__); }
int SysmgrSubscriber::notifyDynamicInfoUpdate(SysParametersDynamic&) { return notOverridden(__func__); }
int SysmgrSubscriber::notifyRebootRequest() { return notOverridden(__func__); }
int SysmgrSubscriber::notifyMcastWhitelistUpdate(std::list<WhiteListEntry>&) { return notOverridden(__func__); }

int SysmgrSubscriber::init(zmq::context_t& context) {
  Client client = makeClient(context);
  const int result = client->connect(zel::notificationEndpoint());
  if (client_ != nullptr && ClientMemory::isInherited(client_)) ClientMemory::destroy(client_);
  client_ = client.release();  // an earlier one of this process stays as it is
  return checked(ZEL_HERE, result);
}

int SysmgrSubscriber::renewConnection() { return client_->connect(zel::notificationEndpoint()); }

int SysmgrSubscriber::subscribe(SysmgrPublisher::sysmgr_notifications_t notification) {
  if (client_ == nullptr) return notInitialized(zel::status::kSubscriberNotInitialized);
  return checked(ZEL_HERE, client_->subscribe(SysmgrPublisher::topicOf(notification)));
}

int SysmgrSubscriber::unsubscribe(SysmgrPublisher::sysmgr_notifications_t notification) {
  if (client_ == nullptr) return notInitialized(zel::status::kSubscriberNotInitialized);
  return checked(ZEL_HERE, client_->unsubscribe(SysmgrPublisher::topicOf(notification)));
}

int SysmgrSubscriber::subscribeAll() {
  for (const auto notification : SysmgrPublisher::kNotifications) {
    if (const int result = subscribe(notification); result < 0) return result;
  }
  return zel::status::kOk;
}

int SysmgrSubscriber::getPollItems(PollFds& pollFds) {
  if (client_ == nullptr) return notInitialized(zel::status::kSubscriberNotInitialized);
  return client_->getPollItems(pollFds);
}

int SysmgrSubscriber::processEvent(const zmq_pollitem_t& item) {
  if (client_ == nullptr) return notInitialized(0);  // to a poll loop, nothing was received
  std::string topic;
  int errorCode = 0;
  Json::Value payload;
  const int taken = client_->processEvent(item, topic, errorCode, payload);
  if (taken == 0) return 0;
  if (errorCode != 0) {
    Logger::log(Logger::LEVEL_ERROR, "SysmgrSubscriber: Error receiving message %d", errorCode);
  } else {
    processNotification(topic, payload);
  }
  return taken;
}

int SysmgrSubscriber::processNotification(std::string& topic, Json::Value& payload) {
  for (const auto notification : SysmgrPublisher::kNotifications) {
    if (topic == SysmgrPublisher::topicOf(notification)) return dispatch(notification, payload);
  }
  Logger::log(Logger::LEVEL_ERROR, "SysmgrSubscriber: filter [%s] is not recognized!", topic.c_str());
  return zel::status::kUnknownTopic;
}

int SysmgrSubscriber::dispatch(SysmgrPublisher::sysmgr_notifications_t notification, Json::Value& payload) {
  switch (notification) {
    case SysmgrPublisher::SYSMGR_STORED_PARAMETERS_UPDATE: {
      SysParameters parameters;
      parameters.Deserialize(payload);
      return notifyStoredParametersUpdate(parameters);
    }
    case SysmgrPublisher::SYSMGR_DYNAMIC_INFO_UPDATE: {
      SysParametersDynamic parameters;
      parameters.Deserialize(payload);
      return notifyDynamicInfoUpdate(parameters);
    }
    case SysmgrPublisher::SYSMGR_REBOOT_REQUEST: return notifyRebootRequest();
    case SysmgrPublisher::SYSMGR_MCAST_WHITELIST_UPDATE: {
      std::list<WhiteListEntry> entries;
      zel::appendRecords(payload[zel::kWhitelistMember], entries);
      return notifyMcastWhitelistUpdate(entries);
    }
  }
  return zel::status::kUnknownTopic;
}
