#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "client/sysmgr_jsonApi.h"
#include "config/system_default_cfg.h"
#include "tests/faults/async_driver.h"
#include "tests/faults/faulty_daemon.h"
#include "tests/faults/history.h"
#include "tests/faults/journal.h"
#include "tests/faults/wake_up_control.h"
#include "tests/support/child_process.h"

namespace zel::test {

/// Which client a run drives.
enum class ClientKind { kBlocking, kAsync };

/// One application, with a client, a subscriber and the cache, and beside it the daemon or the peer of the moment.
/// Whatever it does is entered in a history.
class Run {
 public:
  using milliseconds = std::chrono::milliseconds;
  static constexpr milliseconds kFaultyLimit{60};
  static constexpr milliseconds kHealthyLimit{2000};

  explicit Run(std::uint32_t seed, ClientKind kind = ClientKind::kBlocking);

  // The peer of the moment. At first it is a healthy daemon.

  void startDaemon(const DaemonManners& manners = {});
  void startHostilePeer(std::uint32_t seed, bool large = true);
  void kill() { peer_.reset(); }
  ChildProcess& peer() { return *peer_; }

  /// Names what goes on from here, for the record.
  void begin(const char* fault) { fault_ = fault; }

  /// What an application asks for while something may happen: one request of the blocking client. Of the asynchronous
  /// one some at once, and it cancels a few of them, before or after they are sent.
  void request();
  /// One request, until its end.
  /// @param wishes  what it asks for besides
  int call(milliseconds limit = kFaultyLimit, Json::Value wishes = Json::Value(Json::objectValue));
  /// Destroys an asynchronous client while requests wait, and makes a new one.
  void renewClient();
  /// Takes the notifications that come.
  void listen(milliseconds limit = milliseconds(0));

  /// Brings a healthy daemon back and checks that nothing has to be done for that: the very next request is answered,
  /// and subscriber and cache follow.
  void recover();
  /// Checks that what is published from here on arrives, and that the cache then shows the daemon's state.
  void expectFollowing();

  std::uint32_t requests() const { return token_; }
  Verdict judge() const { return history_.judge(); }

  unsigned below(unsigned limit) { return static_cast<unsigned>(random()) % limit; }
  std::mt19937 random;

 private:
  class Subscriber final : public SysmgrSubscriber {
   public:
    explicit Subscriber(Run& run) : run_(run) {}
    int notifyStoredParametersUpdate(SysParameters& parameters) override;
    int notifyDynamicInfoUpdate(SysParametersDynamic& parameters) override;
    int notifyRebootRequest() override;
    int notifyMcastWhitelistUpdate(std::list<WhiteListEntry>& entries) override;

   private:
    Run& run_;
  };

  void start(std::vector<std::string> arguments);
  void submit(milliseconds limit, Json::Value wishes = Json::Value(Json::objectValue));
  void noteEnd(const AsyncDriver::End& end);
  void step();
  void runLoop();
  void cancelAny();
  int note(Subject subject, std::uint32_t number);
  template <class Action>
  auto timed(const char* what, milliseconds limit, Action action);
  template <class Receiver>
  void drain(Receiver& receiver, const zmq_pollitem_t& item);
  void expectAnswer(bool mayBeLost, const Json::Value& wishes = Json::Value(Json::objectValue));
  /// @param newest  the number that grows while something comes
  bool listenUntil(const std::function<std::uint32_t()>& newest, const std::function<bool(std::uint32_t)>& arrived);
  std::uint32_t newestInCache() const;
  bool cacheShows(Subject subject) const;

  Journal journal_ = Journal::create();
  History history_{journal_};
  std::optional<WakeUpControl> control_;
  const char* fault_ = "start";
  bool honestPeer_ = true;
  bool honestSenders_ = true;  ///< of the notifications that may come
  std::uint32_t token_ = 0;

  SysMgrJsonClient client_;
  std::unique_ptr<AsyncDriver> async_;  ///< null: the blocking client is driven
  int lastStatus_ = 0;                  ///< of the request that has ended last
  Subscriber subscriber_{*this};
  SystemDefaultCfg* cache_ = nullptr;
  PollFds fds_;
  std::unique_ptr<ChildProcess> peer_;
};

}  // namespace zel::test
