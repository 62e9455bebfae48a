#pragma once

#include <array>
#include <atomic>
#include <deque>
#include <list>
#include <map>
#include <optional>
#include <string>

#include "common/shared/recycled.h"
#include "common/shared/subscription.h"
#include "common/shared/wake_up.h"
#include "common/shared/wire_json.h"
#include "view/board_view.h"

namespace zel {

/// What a `BoardView` consists of: the subscription, a client for its requests, the documents, and what is to be told.
///
/// A fetched document counts only where no notification of its topic has come since the request was submitted, since
/// the answer comes on another connection and may be older or newer than the notification; on a connection without a
/// loss the newest notification is the daemon's state once it rests.
class BoardView::Follower final : public Subscription {
 public:
  Follower(zmq::context_t& context, const std::string& requests, const std::string& notifications);
  ~Follower() override { retire(); }
  Follower(const Follower&) = delete;
  Follower& operator=(const Follower&) = delete;
  static void* operator new(std::size_t) { return Recycled<Follower>::take(); }
  static void operator delete(void* memory) { Recycled<Follower>::giveBack(memory); }

  void destroy();
  int start();
  std::size_t process();
  void setProbe(std::chrono::milliseconds interval, std::chrono::milliseconds timeout);
  AsyncClient::Id change(const Request<void>& request, Document document, Holds holds, Written completion,
                         std::chrono::milliseconds timeout);
  bool cancel(AsyncClient::Id id);

  struct Listeners {
    std::map<Listener, std::function<void(BoardView::State, BoardView::State)>> state;
    std::map<Listener, std::function<void(const BoardChange&)>> change;
    std::map<Listener, std::function<void()>> resynchronised;
    std::map<Listener, std::function<void()>> rebootRequest;
    std::map<Listener, std::function<void(Document, const std::string&)>> wrongType;
  };
  /// Adds a callback to one of the maps of `listeners`.
  template <class Callbacks, class Callback>
  Listener add(Callbacks Listeners::*kind, Callback callback) {
    (listeners_.*kind).emplace(++lastListener_, std::move(callback));
    return lastListener_;
  }
  bool remove(Listener listener);

  /// What is known of one document.
  struct Known {
    Json::Value told;
    std::optional<Clock::time_point> confirmedAt;
    bool unreadable = false;

    bool isCurrent = false;      ///< told since the last handshake
    std::uint64_t notified = 0;  ///< notifications of its topic that have come
    std::uint64_t applied = 0;   ///< `notified` when the last of them was taken in
    std::string newest;          ///< the newest of them
    bool isWaiting = false;      ///< `newest` is not read yet
    std::string text;            ///< the notification that `told` was read from; empty: it was fetched

    std::uint64_t fetches = 0;  ///< fetches that were submitted
    std::uint64_t outdatedFetches =
        0;  ///< `fetches` at the last handshake, loss or refused notification: they tell what was before
    std::uint64_t countedFetches = 0;  ///< `fetches` of the last one that counted
    bool isFetching = false;
    bool fetchAgain = false;             ///< another fetch has to follow the one under way
    bool isProbe = false;                ///< the fetch under way is a probe
    std::uint64_t notifiedBefore = 0;    ///< `notified` when the fetch was submitted
    std::optional<Json::Value> fetched;  ///< an answer that waits for notifications that may overtake it
    Clock::time_point takeFetchedAt;
  };

  const Known& known(Document document) const { return known_[static_cast<std::size_t>(document)]; }
  BoardView::State state() const { return state_; }
  const Counters& counters() const { return counters_; }
  std::uint64_t generation() const { return generation_; }
  const BoardRecords& records() const { return records_; }
  /// Negative, too, where only the client for the changes of the board was made with too few descriptors.
  int wakeUpDescriptor() const { return writer_.descriptor() < 0 ? -1 : wakeUp_.descriptor(); }

 private:
  /// A change of the board that is not completed.
  struct Write {
    AsyncClient::Id id = 0;
    Document document;
    Holds holds;
    Written completion;
    std::chrono::milliseconds timeout;
    Clock::time_point deadline;
    std::uint64_t notifiedBefore = 0;
    bool mayHoldByChance = false;                 ///< the records held the value before: only a fetch can tell
    std::optional<Clock::time_point> answeredAt;  ///< the daemon has carried it out
    std::uint64_t fetchWanted = 0;                ///< the fetch that shows it; 0: none yet
  };
  class Turn;

  Known& entry(Document document) { return known_[static_cast<std::size_t>(document)]; }

  void processClients();
  void takeIn();
  void noteLink();
  void noteNotification(const std::string& topic, int error, std::string_view payload);
  bool step();
  bool tellState();
  BoardView::State judge() const;
  bool takeNotified(Document document);
  bool takeFetched(Document document);
  bool finishWrite();
  bool isShown(const Write& write) const;
  bool isOvertaken(std::list<Write>::const_iterator write) const;
  void fetchWhereNoNotificationCame(Write& write);
  void doWhatIsDue();
  void renewAfterOverflow();
  bool mayProbe() const;
  Clock::time_point nextProbe() const;
  void probe();

  void refuse(Document document);
  void accept(Document document, Json::Value&& told, bool mayHoldNull);
  void fetch(Document document, bool isProbe = false);
  bool mayFetch();
  void noteFetched(Document document, const Answer<Json::Value>& answer);
  void fetchAll();
  void makeFetcher();
  void outdateAll();
  static void outdate(Known& about);
  void count(int status);
  void heard();

  /// Adds calls of all listeners of a kind to those that are to be made.
  template <class Callbacks, class... Arguments>
  void tell(Callbacks Listeners::*kind, const Arguments&... arguments);
  void setWakeUp();
  void watchSockets();
  void closeSockets() noexcept override;

  zmq::context_t& context_;
  std::string requests_;
  std::string notifications_;
  WakeUp wakeUp_;
  int watchedSocket_ = -1;
  int watchedMonitor_ = -1;
  AsyncClient writer_;  ///< for the changes of the board
  /// For fetches: a write without an answer does not hold them up. Made anew with each connection, since a request to a
  /// daemon that is gone would hold up those to the next one.
  std::optional<AsyncClient> fetcher_;
  WireJsonReader reader_;

  BoardRecords records_;
  std::array<Known, 4> known_;
  BoardView::State state_ = BoardView::State::kConnecting;
  std::uint64_t generation_ = 0;
  Counters counters_;

  bool isStarted_ = false;
  unsigned int handshakesSeen_ = 0;
  unsigned int lossesSeen_ = 0;
  std::optional<Clock::time_point> fetchAllAt_;
  std::optional<Clock::time_point> retryAt_;

  Clock::time_point windowStart_;
  unsigned int inWindow_ = 0;  ///< notifications since then
  bool isDrained_ = true;      ///< none waited when they were taken the last time
  std::optional<Clock::time_point> overflowedAt_;
  Clock::time_point lastNotification_;

  std::chrono::milliseconds probeInterval_{5000};
  std::chrono::milliseconds probeTimeout_{1000};
  Clock::time_point lastHeard_ = Clock::now();
  std::size_t nextProbed_ = 0;
  Clock::time_point lookAgainAt_;      ///< when each document is fetched once more after a handshake
  std::size_t documentsToLookAt_ = 0;  ///< so many of them are left
  bool isFrozen_ = false;

  std::list<Write> writes_;
  Listeners listeners_;
  Listener lastListener_ = 0;
  /// Calls of callbacks that are to be made, with the listener that each belongs to; 0: a completion.
  std::deque<std::pair<Listener, std::function<void()>>> calls_;
  // The thread that ends the process destroys a static view while another one is in a callback.
  std::atomic<bool> isProcessing_{false};  ///< `process` runs
  std::atomic<bool> orphaned_{false};      ///< destroyed while `process` runs
};

}  // namespace zel
