#pragma once

#include <json/value.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "../types/settings.h"
#include "../types/sysmgr_types.h"

/// @file
/// A virtual board for the tests of an application, in the process of the test:
///
/// @code
/// zel::sim::BackgroundSimulator board;                       // ready: the application's clients reach it
/// board.set(zel::settings::kRtspTcpPort, 5004);              // as if somebody had changed it on the board
/// board.setInterfaceAddress("eth0", "10.0.0.9");
/// board.misbehave("do=silence command=2");                   // the next change is not answered
/// board.away(std::chrono::seconds(3));                       // the daemon ends, and is back 3 s later
/// @endcode
///
/// It is the board of `sysmgr-sim`, with the same rules and faults. It is linked as a static library
/// (`find_package(zelSysMgrApi COMPONENTS simulator)`, target `zelSysMgrApi::simulator`): a test is built with the
/// version of the kit that it is written for. No binary interface is promised.

namespace zel::sim {

/// What a board starts with.
struct BoardOptions {
  std::string model = "ORVEN_AES67";  ///< the text of the board model
  Json::Value state;                  ///< a state document, or a piece of one; null: as the model leaves the factory
  std::string storeFile;  ///< keeps stored parameters and whitelist for the next board; empty: nothing is kept
  /// ZeroMQ endpoints: "tcp://127.0.0.1:*" takes a port that is free, "ipc:///PATH" a file. Empty: where the clients of
  /// this process connect, see client/endpoints.h.
  std::string requests;
  std::string notifications;
  std::chrono::milliseconds liveInterval{0};  ///< how often temperature, fan and interfaces move; 0: never
  /// Receives a line for each request and for what else happens; empty: no lines are made. The board calls it in its
  /// own thread and serves nothing meanwhile, so it must not call the board, and it must not throw.
  std::function<void(const std::string& line)> trace;
};

/// A board in a thread of its own.
///
/// A test may rely on this:
/// - The board is ready when the constructor returns, and has ended when the destructor returns: the endpoints are
/// free.
/// - A call returns when the board has done what it says. What it publishes is on its way then, as a notification of
/// the
///   daemon is; an application sees it when it processes its notifications.
/// - A request is carried out, stored, published and answered, in this order.
/// - A value is judged as one in a request is. A call that the board refuses throws and changes nothing.
/// - A stored value is published with command 1000, a dynamic value with 1001, a whitelist entry with 1004: the whole
///   document, as the daemon does.
/// - Nothing happens by itself, unless `liveInterval` or `away` says so.
/// - A duration of more than a year is a year.
/// - Several boards may be in one process, each with endpoints of its own.
///
/// What it shares with the application: the logger of the process (common/logger.h).
///
/// Threads: any, also several at once. It is not to be used after fork(2) in the child.
class BackgroundSimulator {
 public:
  /// A request that the board has served.
  struct Request {
    unsigned int command = 0;         ///< `SysMgrCommands::sysmgr_msg_t`
    Json::Value body;                 ///< null when there was none, or when it was not JSON
    int status = 0;                   ///< of the board's answer
    std::string fault;                ///< the fault that struck it; empty: none
    std::chrono::milliseconds at{0};  ///< since the board's start
  };

  /// @throws std::invalid_argument for a model or a state that there cannot be, std::runtime_error when it cannot
  /// listen
  ///         or when the store cannot be used; what() says why
  explicit BackgroundSimulator(const BoardOptions& options = {});
  ~BackgroundSimulator();
  BackgroundSimulator(const BackgroundSimulator&) = delete;
  BackgroundSimulator& operator=(const BackgroundSimulator&) = delete;

  /// Where the board listens: what `zel::useEndpoints` takes.
  const std::string& requestEndpoint() const;
  const std::string& notificationEndpoint() const;

  // --- the state

  /// Changes a stored value and publishes the stored parameters.
  /// @throws std::invalid_argument when the board refuses the value
  template <class T>
  void set(const StoredValue<T>& setting, const typename StoredValue<T>::Type& value) {
    setValue("stored", setting.path, setting.toJson(value));
  }
  /// A stored value, as the board has it now.
  template <class T>
  T get(const StoredValue<T>& setting) const {
    return setting.in(stored());
  }
  SysParameters stored() const;
  SysParametersDynamic dynamic() const;

  /// Changes a dynamic value and publishes the dynamic information.
  /// @param path  as `sysmgrctl get dynamic` shows it: "temperature/fpga", "eth-basics/eth0/ip-present"
  /// @throws std::invalid_argument when there is no such place or when the board refuses the value
  void setDynamic(const std::string& path, const Json::Value& value) { setValue("dynamic", path, value); }
  /// Gives an interface another address, as the kernel of the board would report it.
  /// @param address  dotted text; "0.0.0.0": the interface has no address
  /// @throws std::invalid_argument for an interface that the board does not have or a text that is not an address
  void setInterfaceAddress(const std::string& name, const std::string& address);
  /// Changes a value of any document and publishes what changes with it.
  /// @param document  "stored", "dynamic", "whitelist", "model", "info", "network", "gpio" or "modules"
  /// @param value     null removes an element of a list
  /// @throws std::invalid_argument when there is no such place or when the board refuses the value
  void setValue(const std::string& document, const std::string& path, const Json::Value& value);
  /// A document, as the board has it now. @throws std::invalid_argument when there is none of that name
  Json::Value document(const std::string& name) const;

  /// Publishes any message. @param payload  sent as it is, JSON or not
  void publish(unsigned int topic, const std::string& payload);

  // --- what was requested

  /// The last requests (at most 1000), the latest at the end.
  std::vector<Request> requests() const;
  void forgetRequests();
  /// Waits until a request with this command has been served since the start or since `forgetRequests`.
  /// @return whether there was one within the limit
  bool waitForRequest(unsigned int command, std::chrono::milliseconds limit = std::chrono::seconds(5)) const;

  /// Waits until a client has subscribed to a topic since the board began to listen: what is published from then on
  /// reaches it. A connection alone is not enough, its subscriptions follow a moment later; after an absence of the
  /// board they follow while the client processes its notifications, so a test that does so itself asks with a limit of
  /// 0.
  /// @param topic  `SysmgrPublisher::sysmgr_notifications_t`
  /// @return whether there was one within the limit
  bool waitForSubscription(unsigned int topic, std::chrono::milliseconds limit = std::chrono::seconds(5)) const;

  // --- faults

  /// Has the board misbehave, in the words of `sysmgr-sim --fault-rule`: "do=delay command=2 ms=500 times=3".
  /// @throws std::invalid_argument for a rule with a mistake, and for the faults that crash: `away` is for those
  void misbehave(const std::string& rule);
  /// Clears all rules.
  void behave();

  /// From now on requests wait, as those to a daemon that hangs. Notifications go on.
  void stopAnswering();
  /// Answers those that wait and those that come.
  void continueAnswering();
  /// Ends every connection; the clients connect again by themselves. As `stopListening` and `away` do, it leaves the
  /// clients up to 100 ms before that to fetch the last answer.
  void dropConnections();

  /// The daemon ends: nothing listens, and requests that wait are lost. When the call returns the clients have closed
  /// their connections (those of a frozen process excepted), so that their next requests wait for the daemon to be
  /// back.
  void stopListening();
  /// The daemon is back, at the same endpoints, with the state that it had.
  /// @throws std::runtime_error when it cannot listen again
  void startListening();
  /// `stopListening` now, and `startListening` later; returns when the daemon is away.
  void away(std::chrono::milliseconds duration);

 private:
  class Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace zel::sim
