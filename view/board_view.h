#pragma once

#include <json/value.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>
#include <zmq.hpp>

#include "../client/async_client.h"
#include "../common/eth_basic_info.h"
#include "../common/export.h"
#include "../types/settings.h"
#include "../types/sysmgr_types.h"
#include "../types/whitelist.h"
#include "differences.h"

namespace zel {

/// The documents of a board.
enum class Document {
  kStored,      ///< the stored parameters
  kDynamic,     ///< the dynamic information
  kBoardModel,  ///< the model that the daemon reports
  kWhitelist,   ///< the multicast whitelist
};

/// One version of a board's documents, read into records with their defaults. A value: the records are never changed,
/// and an application may keep them and hand them to other threads.
struct BoardRecords {
  std::shared_ptr<const SysParameters> stored;
  std::shared_ptr<const SysParametersDynamic> dynamic;
  std::shared_ptr<const BoardModel> boardModel;
  std::shared_ptr<const std::list<WhiteListEntry>> whitelist;
};

/// A change of one document.
struct BoardChange {
  Document document;
  std::vector<Difference> differences;  ///< between the daemon's documents; never empty
  BoardRecords before;
  BoardRecords now;
};

/// A view of the board's configuration that follows the daemon by itself and says how good it is.
///
/// @code
/// zel::BoardView view(ZmqUtils::getInstance().getContext());
/// view.onChange(zel::settings::kRtspTcpPort, [](uint32_t before, uint32_t now) {...});
/// view.onState([](zel::BoardView::State before, zel::BoardView::State now) {...});
/// if (view.open() < 0) return 1;
/// pollfd watched{view.descriptor(), POLLIN, 0};
/// while (poll(&watched, 1, -1) >= 0) view.process();
/// @endcode
///
/// Nothing here waits. `process` does what is due: it subscribes to the daemon's notifications, fetches the four
/// documents once the connection is made, takes notifications, and fetches anew after every loss that it knows of: of
/// the connection, of a notification that was refused, of those behind a full queue. Where several notifications of one
/// topic wait, only the newest is read.
///
/// Records hold the daemon's values, with the defaults of types/ where the daemon gives none. Before the first fetch
/// they hold the defaults.
///
/// Callbacks run inside `process`, one after the other, in the order in which they were added; a change is told before
/// the next one is taken in. A callback may call everything here except `process`, and may destroy the view. An
/// exception of a callback leaves `process`: the callbacks behind it run in the next call. A value of a type that does
/// not convert is never an exception here: see `onWrongType`.
///
/// Threads: one at a time. A forked child may only destroy the view. The context has to outlive the view, except at the
/// end of the process, as for `AsyncClient`.
class ZEL_EXPORT BoardView {
 public:
  /// How good the view is.
  enum class State {
    kConnecting,  ///< it has never been live
    kLive,        ///< each document was fetched after the last handshake, and no loss is known since
    kStale,       ///< it was live before: the records hold the last that is known
  };

  /// What has happened since the view was made. Counted, not logged.
  struct Counters {
    std::uint64_t notifications = 0;       ///< taken off the connection, of all kinds
    std::uint64_t superseded = 0;          ///< not read, since a newer one of the same topic waited behind
    std::uint64_t malformed = 0;           ///< not two frames, or not a document within the limits of the wire
    std::uint64_t unknownTopics = 0;       ///< of topics that the daemon does not have
    std::uint64_t wrongTypes = 0;          ///< documents with a value that does not convert, notified or fetched
    std::uint64_t changes = 0;             ///< documents that were different
    std::uint64_t missed = 0;              ///< of these, found by a probe: no notification came
    std::uint64_t losses = 0;              ///< connections lost
    std::uint64_t overflows = 0;           ///< queues that may have been full
    std::uint64_t reconnections = 0;       ///< connections made anew, after a loss or an overflow
    std::uint64_t resynchronisations = 0;  ///< times that the view became live again
    std::uint64_t probesWithoutAnswer = 0;
    std::uint64_t requestsDone = 0;           ///< of all requests of the view: answered with success
    std::uint64_t requestsRefused = 0;        ///< refused by the daemon
    std::uint64_t requestsNotSent = 0;        ///< -100, -101, -102, -105, -106
    std::uint64_t requestsWithoutAnswer = 0;  ///< -103
    std::uint64_t answersUnusable = 0;        ///< -104
  };

  /// Names a callback for `remove`.
  using Listener = std::uint64_t;
  /// The completion of a write.
  using Written = std::function<void(const Answer<void>&)>;
  using Clock = std::chrono::steady_clock;

  /// Not connected yet.
  /// @param context  that of `ZmqUtils` as a rule
  /// @param requests, notifications  the daemon's endpoints
  explicit BoardView(zmq::context_t& context, const std::string& requests = requestEndpoint(),
                     const std::string& notifications = notificationEndpoint());
  ~BoardView();
  BoardView(const BoardView&) = delete;
  BoardView& operator=(const BoardView&) = delete;

  /// Begins to connect; the daemon need not be there. Once is enough.
  /// @return 0, or -101 when the socket cannot be opened, the address is not valid, or the process is at its end
  int open();
  /// The descriptor to watch: as `AsyncClient::descriptor`. -1 when there were too few descriptors to make the view,
  /// which is of no use then: make another one.
  int descriptor() const;
  /// Does what is due. Takes at most 500 notifications and runs at most 32 callbacks a call; when more is due, the
  /// descriptor stays readable. Never waits.
  /// @return the number of callbacks that were run
  std::size_t process();

  /// How often the daemon is asked when nothing was heard of it for so long, and how long it may take to answer: 5 s
  /// and 1 s. A frozen daemon is noticed only by that; one that takes longer for an answer counts as frozen. A probe
  /// fetches one document after the other, so it also finds changes that no notification told. The first four probes
  /// begin 250 ms after a handshake: a busy daemon may see the subscription later than it answers requests, and what it
  /// publishes in between is lost. An interval of 0 turns probes off.
  void setProbe(std::chrono::milliseconds interval, std::chrono::milliseconds timeout = std::chrono::seconds(1));

  /// @name What is known
  /// @{
  State state() const;
  /// Counts the changes: the same number means the same records.
  std::uint64_t generation() const;
  /// When the daemon last told a document, changed or not; nothing: never.
  std::optional<Clock::time_point> confirmedAt(Document document) const;
  /// Whether the last that the daemon told of a document could not be read; the record holds the one before.
  bool isUnreadable(Document document) const;
  const Counters& counters() const;

  BoardRecords records() const;
  const SysParameters& stored() const;
  const SysParametersDynamic& dynamic() const;
  const BoardModel& boardModel() const;
  const std::list<WhiteListEntry>& whitelist() const;
  /// A document as the daemon told it; null before the first fetch. The whitelist's is the array of its entries.
  const Json::Value& document(Document document) const;

  template <class T>
  const T& get(const StoredValue<T>& row) const {
    return row.in(stored());
  }
  /// Whether the daemon told the value of a row; otherwise its default stands in.
  bool isTold(const SettingRow& row) const;
  /// @}

  /// @name What changes
  /// @{
  Listener onState(std::function<void(State before, State now)> callback);
  Listener onChange(std::function<void(const BoardChange& change)> callback);
  /// The value of one row, when it has changed.
  template <class T>
  Listener onChange(
      const StoredValue<T>& row,
      std::function<void(const std::common_type_t<T>& before, const std::common_type_t<T>& now)> callback) {
    return onChange([row, callback = std::move(callback)](const BoardChange& change) {
      if (change.document != Document::kStored) return;
      const T& before = row.in(*change.before.stored);
      const T& now = row.in(*change.now.stored);
      if (row.toJson(before) != row.toJson(now)) callback(before, now);
    });
  }
  /// An interface of the dynamic information: address, label, SFP. Null: there is no interface of that name.
  Listener onInterfaceChange(const std::string& name,
                             std::function<void(const EthBasicInfo* before, const EthBasicInfo* now)> callback);
  /// An entry of the whitelist, by its address. Null: there is no such entry.
  Listener onWhitelistChange(std::function<void(const WhiteListEntry* before, const WhiteListEntry* now)> callback);
  /// The view is live again after a loss; the differences were told before.
  Listener onResynchronised(std::function<void()> callback);
  /// The daemon asks for a restart of the board.
  Listener onRebootRequest(std::function<void()> callback);
  /// A document holds a value of a type that does not convert. The record keeps the version before, the view is stale,
  /// and becomes live again with the next version of the document that can be read.
  Listener onWrongType(std::function<void(Document document, const std::string& text)> callback);
  /// Removes a callback. @return whether it was there
  bool remove(Listener listener);
  /// @}

  /// @name Changes of the board
  /// The completion runs when the view holds the daemon's answer: the notification of the change, or a fetch if none
  /// comes. So inside the completion and after it the view never shows the value from before. Status codes as those of
  /// `AsyncClient`; a refusal carries the daemon's text. -103 is also the status of a change that was carried out and
  /// could not be read back within the time-out. Completions of changes of one document that the daemon has carried out
  /// run in the order of those changes. Where the view held the value before the change, and where no notification
  /// comes within 20 ms of the answer, the document is fetched. A notification that comes later than that and was
  /// published before the change can show an older value for a moment, until the one of the change comes.
  ///
  /// These operations return the id of the request, 0 where nothing was submitted: before `open`, and where
  /// `AsyncClient::submit` returns 0. Its completion does not run then.
  /// @{
  template <class T>
  AsyncClient::Id set(const Setting<T>& row, const std::common_type_t<T>& value, Written completion = {},
                      std::chrono::milliseconds timeout = AsyncClient::kDefaultTimeout) {
    return change(requests::set(row, value), Document::kStored, holds(row, value), std::move(completion), timeout);
  }
  /// Sets one member of a block.
  template <class T>
  AsyncClient::Id setMember(const StoredValue<T>& row, const std::common_type_t<T>& value, Written completion = {},
                            std::chrono::milliseconds timeout = AsyncClient::kDefaultTimeout) {
    return change(requests::setMember(row, value), Document::kStored, holds(row, value), std::move(completion),
                  timeout);
  }
  /// Any other change of a document: `change(requests::addMcastWhitelist(entry), Document::kWhitelist, ...)`.
  AsyncClient::Id change(const Request<void>& request, Document document, Written completion = {},
                         std::chrono::milliseconds timeout = AsyncClient::kDefaultTimeout);
  /// As `AsyncClient::cancel`. A change that the daemon has carried out and the view does not show yet cannot be
  /// cancelled.
  bool cancel(AsyncClient::Id id);
  /// @}

 private:
  /// Whether records hold what a change has asked for; empty: only a fetch can tell.
  using Holds = std::function<bool(const BoardRecords&)>;

  template <class T>
  static Holds holds(const StoredValue<T>& row, const T& value) {
    return [row, wanted = row.toJson(value)](const BoardRecords& now) {
      return row.toJson(row.in(*now.stored)) == wanted;
    };
  }
  AsyncClient::Id change(const Request<void>& request, Document document, Holds holds, Written completion,
                         std::chrono::milliseconds timeout);

  class ZEL_HIDDEN Follower;
  Follower* const follower_;
};

}  // namespace zel
