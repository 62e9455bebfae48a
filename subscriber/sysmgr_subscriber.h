#pragma once

#include <json/value.h>

#include <list>
#include <string>
#include <zmq.hpp>

#include "../common/export.h"
#include "../common/poll_fds.h"
#include "../types/sysmgr_types.h"
#include "../types/whitelist.h"

class SubscribeJsonClient;

/// The daemon's notifications, as it publishes them.
class ZEL_EXPORT SysmgrPublisher {
 public:
  /// The daemon's publish endpoint, unless the program says otherwise (client/endpoints.h).
  static constexpr const char* kEndpoint = "tcp://127.0.0.1:5575";

  /// The kinds of notifications. The daemon's protocol fixes the values.
  enum sysmgr_notifications_t : int {
    SYSMGR_STORED_PARAMETERS_UPDATE = 1000,  ///< payload: the stored parameters, whole
    SYSMGR_DYNAMIC_INFO_UPDATE = 1001,       ///< payload: the dynamic information, whole
    SYSMGR_REBOOT_REQUEST = 1002,            ///< payload: not read
    SYSMGR_MCAST_WHITELIST_UPDATE = 1004,    ///< payload: {"white-list": [entry]}
  };
  /// All of them, in ascending order.
  static constexpr sysmgr_notifications_t kNotifications[] = {SYSMGR_STORED_PARAMETERS_UPDATE,
                                                              SYSMGR_DYNAMIC_INFO_UPDATE, SYSMGR_REBOOT_REQUEST,
                                                              SYSMGR_MCAST_WHITELIST_UPDATE};

  /// The topic of a notification on the wire, its value as decimal text.
  static std::string topicOf(sysmgr_notifications_t notification);
};

/// Receives the daemon's notifications and hands each to a callback as a record. To be derived from: applications
/// override the callbacks that they care about.
///
///     class Receiver : public SysmgrSubscriber {
///       int notifyRebootRequest() override;
///     };
///     receiver.init(ZmqUtils::getInstance().getContext());
///     receiver.subscribeAll();
///     receiver.getPollItems(fds);
///     while (running) {
///       fds.poll(1000);
///       while (receiver.processEvent(fds[0]) != 0) continue;
///     }
///
/// A notification that comes before the subscription has reached the daemon is not seen: fetch the state after
/// `subscribe` or `subscribeAll`, then nothing is missed in between. The same holds for what is published while there
/// is no connection, and for what exceeds the queue of 1000 notifications: after a long pause, fetch.
///
/// Loops that do not wait in `PollFds::poll`: see `SubscribeJsonClient` for what they have to do.
///
/// Before `init` each operation logs "SysmgrSubscriber is not initialized yet." at level 2 and returns -1, but
/// `processEvent` 0. Other failures are logged at level 2, "CHK(%s)::%d Error Code %d".
///
/// Threads: all of it in the thread that runs the poll loop; the callbacks run there, inside `processEvent`.
/// The order of the virtual operations is part of the binary interface.
class ZEL_EXPORT SysmgrSubscriber {
 public:
  /// Not connected yet.
  SysmgrSubscriber();
  virtual ~SysmgrSubscriber();
  SysmgrSubscriber(const SysmgrSubscriber&) = delete;
  SysmgrSubscriber& operator=(const SysmgrSubscriber&) = delete;

  /// Called with the stored parameters when one of them has changed. The record lives only during the call, and so for
  /// the callbacks below. What a callback returns is the result of `processNotification`, else nothing. Each of them
  /// logs at level 6, unless it is overridden, "SysmgrSubscriber: client subscribed to messages, but didn't override
  /// the callback %s." with its name, and returns 0.
  virtual int notifyStoredParametersUpdate(SysParameters& parameters);
  /// Called with the dynamic information when it has changed.
  virtual int notifyDynamicInfoUpdate(SysParametersDynamic& parameters);
  /// Called when the daemon asks for a restart of the board.
  virtual int notifyRebootRequest();
  /// Called with the whole multicast whitelist when it has changed; the callback copies what it keeps.
  virtual int notifyMcastWhitelistUpdate(std::list<WhiteListEntry>& entries);

  /// Connects to the daemon's publish endpoint. The daemon need not be there yet.
  ///
  /// Once per object: another call opens another connection without its topics, and the one before stays open, unread
  /// and unreachable, until the process ends. Only a forked child calls it again, with a context of its own.
  ///
  /// @param context  that of `ZmqUtils` as a rule
  /// @return 0, or the negative code of `SubscribeJsonClient::connect`.
  int init(zmq::context_t& context);

  /// Adds or drops one topic. What is subscribed n times is dropped by dropping it n times.
  /// @return 0, or the negative code of `SubscribeJsonClient`.
  int subscribe(SysmgrPublisher::sysmgr_notifications_t notification);
  int unsubscribe(SysmgrPublisher::sysmgr_notifications_t notification);
  /// Adds every topic, in ascending order.
  /// @return 0, or the code of the first that failed; the ones before it stay.
  int subscribeAll();

  /// Appends this subscriber's one item to the application's poll set. It stays valid as long as this object.
  /// @return 0, or the negative code of `SubscribeJsonClient`, which is not logged.
  int getPollItems(PollFds& pollFds);

  /// Takes one notification, if there is one, and runs its callback; waits as `SubscribeJsonClient` does. A malformed
  /// notification is dropped and logged at level 2, "SysmgrSubscriber: Error receiving message %d" with its code.
  ///
  /// JsonCpp's exceptions (a payload of a type that does not convert) and those of the callback leave this call: the
  /// notification counts as taken, and the subscriber can be used as before.
  ///
  /// @param item  the item of `getPollItems`; its `revents` need not be set.
  /// @return not 0 when a notification was taken, whatever became of it; 0 when there was none.
  int processEvent(const zmq_pollitem_t& item);

  /// Dispatches one notification, as `processEvent` does with what it has received.
  ///
  /// @param topic    compared whole with the known topics; any other is logged at level 2, "SysmgrSubscriber: filter
  ///                 [%s] is not recognized!"
  /// @param payload  missing keys may be added to it as null members
  /// @return what the callback returns, or -11 for an unknown topic.
  int processNotification(std::string& topic, Json::Value& payload);

 protected:
  /// Renews the connection, so that nothing is received that was published before this call: what waits unread is
  /// dropped. The subscriptions and the poll item stay.
  /// @return 0, or the negative code of `SubscribeJsonClient::connect`; not logged
  int renewConnection();

 private:
  int dispatch(SysmgrPublisher::sysmgr_notifications_t notification, Json::Value& payload);

  SubscribeJsonClient* client_ = nullptr;
};
