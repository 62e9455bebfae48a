#pragma once

#include <json/value.h>

#include <string>
#include <zmq.hpp>

#include "export.h"
#include "poll_fds.h"

/// A subscriber: receives what a publisher of JSON documents sends over ZeroMQ.
///
/// On the wire a notification is two frames, the topic and the payload as JSON (an empty frame is null). A frame is at
/// most 1 MiB, JSON nests at most 64 deep and holds at most 65536 values. ZeroMQ matches topics by prefix: a subscriber
/// of "1000" gets "10000" too, and has to compare the topic. At most 1000 notifications wait unread here; the ones
/// behind them are lost, first here and then at the publisher.
///
/// A publisher that is not there yet, that restarts or freezes, or that breaks the connection by a message over the
/// limit, is followed without help: the subscriptions live on and the poll item stays valid. What it publishes while
/// there is no connection is lost. The loss of a connection is one line at level 6.
///
/// This takes a little work now and then, done in the application's thread. An application that waits in
/// `PollFds::poll` has it done there. One with a loop of its own (zmq_poll(3), or epoll(7) on the socket's `ZMQ_FD`)
/// calls `processEvent` until it returns 0, whenever it is woken and whenever its wait times out, with a time-out of
/// 1 s or the delay that it bears: a connection that is gone for good never makes the socket ready. With epoll the
/// calls have to go on until 0 for another reason, too: `ZMQ_FD` is edge-triggered, so it does not become readable for
/// messages that have arrived before.
///
/// Threads: all operations, and the poll, in one thread. A child made by fork(2) has to make a client of its own, on a
/// context of its own; here the operations return -100 and 0. The context has to outlive the client, except at
/// the end of the process: a client in static storage is disconnected before the context is destroyed.
class ZEL_EXPORT SubscribeJsonClient {
 public:
  /// Not connected yet.
  explicit SubscribeJsonClient(zmq::context_t& context);
  virtual ~SubscribeJsonClient();
  SubscribeJsonClient(const SubscribeJsonClient&) = delete;
  SubscribeJsonClient& operator=(const SubscribeJsonClient&) = delete;

  /// Connects to the publisher's endpoint.
  ///
  /// Returns when the connection to a publisher that is there can be used, after about a millisecond and 200 ms at
  /// most; at once when nobody listens. So what is fetched after `subscribe` has no gap to the first notification.
  /// The publisher need not be there yet.
  ///
  /// May be called again, with the same address or another one: the connection is made anew, and the subscriptions and
  /// the poll item stay. What waited unread in the old connection is dropped, also in the publisher and on the way:
  /// only what is published from then on is received. When something was dropped, it is one line at level 6.
  ///
  /// @return 0, or -101 when the socket cannot be opened, the address is not valid, or the process is at its end: the
  ///         client is not connected then, and its subscriptions are gone. -100 in a forked child whose parent
  ///         connected the client.
  int connect(const std::string& address);

  /// Adds or drops a topic. What is subscribed n times is dropped by dropping it n times; to drop what is not there
  /// does nothing.
  /// @return 0; -100 before `connect`; -101 when the socket refuses it.
  int subscribe(const std::string& topic);
  int unsubscribe(const std::string& topic);

  /// Appends this client's one item, its socket with `ZMQ_POLLIN`, to the poll set.
  /// @return 0, or -100 before `connect`: nothing is appended.
  int getPollItems(PollFds& pollFds);

  /// Takes one notification if there is one; never waits for one. Where it renews a lost connection it waits for the
  /// end of the old one, 11 ms at most.
  ///
  /// @param item       the item of `getPollItems`; its `revents` need not be set.
  /// @param topic      receives the first frame, also of a malformed notification.
  /// @param errorCode  receives 0, or why the notification is dropped: -110 it does not have exactly two frames, -111
  ///                   its payload is not JSON within the limits.
  /// @param payload    receives the document; untouched when the notification is malformed.
  /// @return 1 when a notification was taken; 0 when there was none: the output parameters are untouched then.
  int processEvent(const zmq_pollitem_t& item, std::string& topic, int& errorCode, Json::Value& payload);

 private:
  class Connection;
  Connection* const connection_;
};
