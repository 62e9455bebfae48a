#include "view/internal/follower.h"

#include <poll.h>
#include <sys/epoll.h>

#include <algorithm>
#include <tuple>
#include <utility>

#include "client/commands.h"
#include "common/shared/format_text.h"
#include "common/shared/json_form.h"
#include "common/shared/request_connection.h"
#include "common/status.h"
#include "subscriber/sysmgr_subscriber.h"

namespace zel {

namespace {

using namespace std::chrono_literals;

/// How many callbacks, and how many notifications, one call of `process` runs and takes at most.
constexpr std::size_t kShareOfCallbacks = 32;
constexpr int kShareOfNotifications = 500;

/// How long a fetched document waits for notifications that were published before the answer was made: they come on
/// another connection.
constexpr auto kGrace = 5ms;
/// How long a completion waits for the notification of its change before it has the document fetched.
constexpr auto kNotificationLimit = 20ms;
/// How long after a handshake the documents are looked at once more. Nothing tells a subscriber when the publisher has
/// seen its subscription, and a busy publisher may see it later than `kSubscribeTime`: what it published until then is
/// lost.
constexpr auto kCertainSubscribeTime = 250ms;
/// Until a fetch is tried again that got no answer, and one that the daemon refused or answered without the document.
constexpr auto kRetryInterval = 100ms;
constexpr auto kRefusedInterval = 1s;

/// So many notifications within the window, or without a moment in which none waited, may have filled a queue, here or
/// at the publisher: both hold 1000.
constexpr unsigned int kFullQueue = 900;
constexpr auto kWindow = 100ms;
/// The end of a burst that may have filled a queue: so long without a notification, or so long after its beginning.
constexpr auto kQuiet = 20ms;
constexpr auto kLongestBurst = 1000ms;

/// In the order in which they are fetched, each behind the answer of the one before. The board model, which has no
/// notification, comes first: by its answer the daemon has read what came before that request, the subscriptions too.
constexpr Document kDocuments[] = {Document::kBoardModel, Document::kStored, Document::kDynamic, Document::kWhitelist};

/// The query of a document, and its notification; 0: there is none.
struct Source {
  SysMgrCommands::sysmgr_msg_t command;
  int topic;
};

Source sourceOf(Document document) {
  switch (document) {
    case Document::kStored:
      return {SysMgrCommands::SYSMGR_GET_STORED_PARAMETERS, SysmgrPublisher::SYSMGR_STORED_PARAMETERS_UPDATE};
    case Document::kDynamic:
      return {SysMgrCommands::SYSMGR_GET_DYNAMIC_PARAMETERS, SysmgrPublisher::SYSMGR_DYNAMIC_INFO_UPDATE};
    case Document::kBoardModel: return {SysMgrCommands::SYSMGR_GET_BOARD_MODEL, 0};
    default: return {SysMgrCommands::SYSMGR_GET_MCAST_WHITELIST, SysmgrPublisher::SYSMGR_MCAST_WHITELIST_UPDATE};
  }
}

std::vector<std::string> allTopics() {
  std::vector<std::string> topics;
  for (const auto each : SysmgrPublisher::kNotifications) topics.push_back(SysmgrPublisher::topicOf(each));
  return topics;
}

/// The document in a notification's payload; null: there is none. A whole answer in its place is none.
Json::Value payloadOf(Document document, Json::Value&& notified) {
  const char* const member = findCommand(sourceOf(document).command)->payload;
  if (!notified.isObject()) return {};
  const bool isWrapped = notified.isMember(member);
  if (document != Document::kWhitelist) return isWrapped ? Json::Value() : std::move(notified);
  Json::Value entries;
  if (isWrapped) entries.swap(notified[member]);
  return isWrapped && entries.isNull() ? Json::Value(Json::arrayValue) : entries;
}

/// Whether a document has the shape that the daemon gives it.
bool hasShape(Document document, const Json::Value& told) {
  if (document == Document::kWhitelist) return told.isArray();
  return !told.isNull() && (document == Document::kBoardModel || (told.isObject() && !told.empty()));
}

bool holdsNull(const Json::Value& value) {
  if (!value.isObject() && !value.isArray()) return value.isNull();
  return std::any_of(value.begin(), value.end(), holdsNull);
}

/// Removes the members that are null, at every depth.
void removeNulls(Json::Value& value) {
  if (!holdsNull(value)) return;
  for (Json::Value& each : value) removeNulls(each);
  if (!value.isObject()) return;
  for (const std::string& name : value.getMemberNames()) {
    if (value[name].isNull()) value.removeMember(name);
  }
}

/// Reads records from a document that stays as it is. `Deserialize` inserts a null member where it finds none; to take
/// the nulls out of a document that had none is cheaper than to read a copy.
template <class Read>
void readKept(Json::Value& told, bool mayHoldNull, const Read& read) {
  if (mayHoldNull && holdsNull(told)) {
    Json::Value copy = told;
    read(copy);
  } else {
    read(told);
    removeNulls(told);
  }
}

template <class Record>
std::shared_ptr<const Record> read(Json::Value& told, bool mayHoldNull) {
  auto record = std::make_shared<Record>();
  readKept(told, mayHoldNull, [&record](Json::Value& document) { record->Deserialize(document); });
  return record;
}

/// A connection that is made to see whether it can be.
class Trial final : public RequestConnection {
 public:
  Trial() = default;
  ~Trial() override { retire(); }
  Trial(const Trial&) = delete;
  Trial& operator=(const Trial&) = delete;
};

/// The records with another version of one of them.
/// @param mayHoldNull  false: no value of the document is null
/// @throws Json::Exception  for a value that does not convert; `told` may have null members more then
BoardRecords withDocument(BoardRecords records, Document document, Json::Value& told, bool mayHoldNull) {
  switch (document) {
    case Document::kStored: records.stored = read<SysParameters>(told, mayHoldNull); break;
    case Document::kDynamic: records.dynamic = read<SysParametersDynamic>(told, mayHoldNull); break;
    case Document::kBoardModel: records.boardModel = read<BoardModel>(told, mayHoldNull); break;
    case Document::kWhitelist: {
      std::list<WhiteListEntry> entries;
      readKept(told, mayHoldNull, [&entries](Json::Value& array) { appendRecords(array, entries); });
      records.whitelist = std::make_shared<const std::list<WhiteListEntry>>(std::move(entries));
      break;
    }
  }
  return records;
}

}  // namespace

/// One call of `process`.
class BoardView::Follower::Turn {
 public:
  explicit Turn(Follower& follower) : follower_(follower), use_(std::in_place, follower) {
    works_ = bool(*use_) && !follower.isProcessing_ && follower.isStarted_;
    if (works_) follower.isProcessing_ = true;
  }
  ~Turn() {
    if (!works_) return;
    follower_.isProcessing_ = false;
    if (mayGoOn()) follower_.setWakeUp();
    const bool orphaned = follower_.orphaned_;
    use_.reset();
    if (orphaned) Recycled<Follower>::destroy(&follower_);
  }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;
  bool mayWork() const { return works_; }
  /// Whether no callback has destroyed the view, or forked the process and returned in the child, and no other thread
  /// has ended the process meanwhile.
  bool mayGoOn() const { return !follower_.orphaned_ && *use_; }

  void runNext() {
    const Interruption interruption(use_, follower_);
    const auto call = std::move(follower_.calls_.front().second);
    follower_.calls_.pop_front();
    call();
  }

 private:
  Follower& follower_;
  std::optional<Use> use_;
  bool works_;
};

BoardView::Follower::Follower(zmq::context_t& context, const std::string& requests, const std::string& notifications)
    : Subscription(context, "BoardView"),
      context_(context),
      requests_(requests),
      notifications_(notifications),
      writer_(context, requests),
      records_{std::make_shared<SysParameters>(), std::make_shared<SysParametersDynamic>(),
               std::make_shared<BoardModel>(), std::make_shared<std::list<WhiteListEntry>>()} {
  wakeUp_.watch(writer_.descriptor(), EPOLLIN);
  makeFetcher();
}

void BoardView::Follower::makeFetcher() {
  if (fetcher_) wakeUp_.forget(fetcher_->descriptor());
  fetcher_.emplace(context_, requests_);
  wakeUp_.watch(fetcher_->descriptor(), EPOLLIN);
  for (Known& each : known_) {
    each.isFetching = each.fetchAgain = false;
    each.fetched.reset();
  }
}

void BoardView::Follower::destroy() {
  retire();
  if (!isProcessing_ || Recycled<Follower>::isInherited(this)) {
    Recycled<Follower>::destroy(this);
  } else {
    orphaned_ = true;
  }
}

int BoardView::Follower::start() {
  if (isStarted_) return status::kOk;
  if (!attach(context_)) return status::kCannotConnect;
  const Use use(*this);  // a thread that ends the process waits until it is over, before it destroys the view
  if (!use) return status::kCannotConnect;
  // A client of the view tells of an address that is not valid when a request fails, not before.
  Trial trial;
  if (!trial.open(context_, requests_).empty()) return status::kCannotConnect;
  if (!openNow(notifications_, allTopics())) return status::kCannotConnect;
  isStarted_ = true;
  heard();
  setWakeUp();
  return status::kOk;
}

void BoardView::Follower::setProbe(std::chrono::milliseconds interval, std::chrono::milliseconds timeout) {
  probeInterval_ = std::min(interval, kLongestTime);
  probeTimeout_ = timeout > 0ms ? std::min(timeout, kLongestTime) : 1s;
  wakeUp_.now();
}

std::size_t BoardView::Follower::process() {
  Turn turn(*this);
  if (!turn.mayWork()) return 0;
  wakeUp_.settle();
  if (calls_.empty()) takeIn();
  std::size_t run = 0;
  do {
    while (!calls_.empty() && run < kShareOfCallbacks) {
      ++run;
      turn.runNext();
      if (!turn.mayGoOn()) return run;
    }
  } while (run < kShareOfCallbacks && step());
  return run;
}

// What comes in

/// Lets the clients work that have something to do.
void BoardView::Follower::processClients() {
  AsyncClient* const clients[] = {&writer_, &*fetcher_};
  pollfd watched[] = {{clients[0]->descriptor(), POLLIN, 0}, {clients[1]->descriptor(), POLLIN, 0}};
  poll(watched, std::size(watched), 0);
  for (std::size_t i = 0; i < std::size(clients); ++i) {
    const bool hasNoDescriptor = watched[i].fd < 0;
    if (watched[i].revents != 0 || hasNoDescriptor) clients[i]->process();
  }
}

void BoardView::Follower::takeIn() {
  processClients();
  std::string topic;
  for (int taken = 0; taken < kShareOfNotifications; ++taken) {
    Frame payload;
    const std::optional<int> result = socket() == nullptr ? std::nullopt : take(topic, payload);
    if (!result) {
      isDrained_ = true;
      break;
    }
    noteNotification(topic, *result, *result == status::kOk ? payload.text() : std::string_view());
  }
  if (!isDrained_ || socket() == nullptr) tendLink(true);  // otherwise `take` has, when it found nothing
  noteLink();
}

void BoardView::Follower::noteLink() {
  if (lossesSeen_ != losses()) {
    lossesSeen_ = losses();
    ++counters_.losses;
    fetchAllAt_.reset();
    outdateAll();
  }
  if (handshakesSeen_ == handshakes() || !isLinked()) return;
  if (handshakesSeen_ > 0) ++counters_.reconnections;
  handshakesSeen_ = handshakes();
  heard();
  isFrozen_ = false;
  outdateAll();
  makeFetcher();
  fetchAllAt_ = Clock::now() + kSubscribeTime;
  lookAgainAt_ = Clock::now() + kCertainSubscribeTime;
  documentsToLookAt_ = std::size(kDocuments);
}

void BoardView::Follower::heard() { lastHeard_ = Clock::now(); }

void BoardView::Follower::noteNotification(const std::string& topic, int error, std::string_view payload) {
  heard();
  ++counters_.notifications;
  lastNotification_ = lastHeard_;
  if (std::exchange(isDrained_, false) && lastHeard_ - windowStart_ > kWindow) {
    windowStart_ = lastHeard_;
    inWindow_ = 0;
  }
  if (++inWindow_ >= kFullQueue && !overflowedAt_) {
    overflowedAt_ = lastHeard_;
    ++counters_.overflows;
  }
  if (error == status::kOk && topic == SysmgrPublisher::topicOf(SysmgrPublisher::SYSMGR_REBOOT_REQUEST)) {
    return tell(&Listeners::rebootRequest);
  }
  for (const Document document : kDocuments) {
    const int own = sourceOf(document).topic;
    if (own == 0 || topic != std::to_string(own)) continue;
    Known& about = entry(document);
    ++about.notified;
    if (error != status::kOk) return refuse(document);
    if (std::exchange(about.isWaiting, true)) ++counters_.superseded;
    about.newest.assign(payload);
    return;
  }
  ++(error == status::kOk ? counters_.unknownTopics : counters_.malformed);
}

// What is made of it

/// Takes in one document, completes one write, or tells a new state. @return whether something was done
bool BoardView::Follower::step() {
  if (tellState()) return true;
  for (const Document document : kDocuments) {
    if (takeNotified(document) || takeFetched(document)) return true;
  }
  if (finishWrite()) return true;
  doWhatIsDue();
  return tellState();
}

BoardView::State BoardView::Follower::judge() const {
  using Quality = BoardView::State;
  const auto isGood = [](const Known& each) { return each.isCurrent && !each.unreadable; };
  const bool live = isLinked() && !isFrozen_ && !overflowedAt_ && std::all_of(known_.begin(), known_.end(), isGood);
  if (live) return Quality::kLive;
  return state_ == Quality::kConnecting ? Quality::kConnecting : Quality::kStale;
}

bool BoardView::Follower::tellState() {
  using Quality = BoardView::State;
  const Quality now = judge();
  if (now == state_) return false;
  const Quality before = std::exchange(state_, now);
  tell(&Listeners::state, before, now);
  if (before == Quality::kStale && now == Quality::kLive) {
    ++counters_.resynchronisations;
    tell(&Listeners::resynchronised);
  }
  return true;
}

bool BoardView::Follower::takeNotified(Document document) {
  Known& about = entry(document);
  if (!std::exchange(about.isWaiting, false)) return false;
  about.applied = about.notified;
  if (!about.text.empty() && about.newest == about.text && !about.unreadable) {
    about.confirmedAt = Clock::now();
    return true;
  }
  Json::Value notified;
  if (!about.newest.empty() && !reader_.read(about.newest, notified).empty()) notified = Json::Value();
  Json::Value told = payloadOf(document, std::move(notified));
  if (!hasShape(document, told)) {
    refuse(document);
    return true;
  }
  accept(document, std::move(told), about.newest.find("null") != std::string::npos);
  if (about.unreadable) {
    fetch(document);  // it may be the notification alone that cannot be read
  } else {
    about.text.swap(about.newest);
  }
  return true;
}

bool BoardView::Follower::takeFetched(Document document) {
  Known& about = entry(document);
  // Older notifications may come behind a burst for longer than the grace: the new connection decides.
  if (!about.fetched || overflowedAt_ || Clock::now() < about.takeFetchedAt) return false;
  Json::Value told = std::move(*about.fetched);
  about.fetched.reset();
  about.isFetching = false;
  const bool isCounted = about.notified == about.notifiedBefore || about.told == told;
  const std::uint64_t before = generation_;
  if (isCounted) {
    about.countedFetches = about.fetches;
    accept(document, std::move(told), true);
    if (about.isProbe && generation_ != before) ++counters_.missed;
  }
  about.isCurrent = isLinked() && about.fetches > about.outdatedFetches;
  if (std::exchange(about.fetchAgain, false)) fetch(document);
  return true;
}

/// Counts a notification that cannot be read, and fetches what it should have told.
void BoardView::Follower::refuse(Document document) {
  ++counters_.malformed;
  entry(document).unreadable = true;
  outdate(entry(document));  // a fetch that is under way may have been answered before
  fetch(document);
}

/// Takes in what the daemon told of a document. @param mayHoldNull  as `withDocument` has it
void BoardView::Follower::accept(Document document, Json::Value&& told, bool mayHoldNull) {
  Known& about = entry(document);
  if (about.confirmedAt && about.told == told) {
    about.confirmedAt = Clock::now();
    about.unreadable = false;
    return;
  }
  BoardRecords before = records_;
  try {
    records_ = withDocument(records_, document, told, mayHoldNull);
  } catch (const Json::Exception& wrongType) {
    ++counters_.wrongTypes;
    about.unreadable = true;
    outdate(about);
    retryAt_ = Clock::now() + std::max<Clock::duration>(probeInterval_, kRefusedInterval);
    return tell(&Listeners::wrongType, document, std::string(wrongType.what()));
  }
  ++generation_;
  ++counters_.changes;
  about.unreadable = false;
  about.confirmedAt = Clock::now();
  about.text.clear();
  std::swap(about.told, told);
  if (listeners_.change.empty()) return;
  tell(&Listeners::change, BoardChange{document, differences(told, about.told), std::move(before), records_});
}

// Fetches

void BoardView::Follower::fetch(Document document, bool isProbe) {
  Known& about = entry(document);
  if (about.isFetching) {
    about.fetchAgain = true;
    return;
  }
  about.isProbe = isProbe;
  about.notifiedBefore = about.notified;
  ++about.fetches;
  const auto read = [](Json::Value& answer, Json::Value& value) { value.swap(answer); };
  const auto note = [this, document](const Answer<Json::Value>& answer) { noteFetched(document, answer); };
  // The daemon has the time-out for each of the fetches that wait before this one.
  const auto timeout = probeTimeout_ * static_cast<std::int64_t>(fetcher_->pending() + 1);
  const Request<Json::Value> query{sourceOf(document).command, {}, read};
  about.isFetching = mayFetch() && fetcher_->submit(query, note, timeout) != 0;
  if (!about.isFetching) retryAt_ = Clock::now() + kRetryInterval;
}

/// Makes the client for fetches again where it was made with too few descriptors. @return whether it can be used
bool BoardView::Follower::mayFetch() {
  if (fetcher_->descriptor() < 0) makeFetcher();
  return fetcher_->descriptor() >= 0;
}

void BoardView::Follower::noteFetched(Document document, const Answer<Json::Value>& answer) {
  count(answer.status);
  Known& about = entry(document);
  const Json::Value* told = nullptr;
  if (answer.ok()) {
    const std::string_view member = findCommand(sourceOf(document).command)->payload;
    told = answer.value.find(member.data(), member.data() + member.size());
  }
  const bool isSilent = answer.status == status::kNotSent || answer.status == status::kNoAnswer;
  if (isSilent) {
    if (about.isProbe) ++counters_.probesWithoutAnswer;
    isFrozen_ = true;
  } else {
    heard();
    if (std::exchange(isFrozen_, false) && isLinked()) {
      outdateAll();
      fetchAllAt_ = Clock::now();
    }
  }
  const bool isEmptyWhitelist = document == Document::kWhitelist && told != nullptr && told->isNull();
  if (told != nullptr && (isEmptyWhitelist || hasShape(document, *told))) {
    about.fetched = isEmptyWhitelist ? Json::Value(Json::arrayValue) : *told;
    about.takeFetchedAt = Clock::now() + kGrace;
    return;
  }
  if (answer.ok()) ++counters_.malformed;
  about.isFetching = false;
  about.fetchAgain = false;
  if (answer.ok()) about.unreadable = true;
  retryAt_ = Clock::now() + (isSilent ? kRetryInterval : kRefusedInterval);
}

void BoardView::Follower::fetchAll() {
  for (const Document document : kDocuments) fetch(document);
}

/// Has the view stale until everything is fetched again.
void BoardView::Follower::outdateAll() {
  for (Known& each : known_) outdate(each);
}

/// What was fetched so far, or is being fetched, does not make the view live.
void BoardView::Follower::outdate(Known& about) {
  about.isCurrent = false;
  about.outdatedFetches = about.fetches;
}

void BoardView::Follower::count(int status) {
  if (status >= 0) {
    ++counters_.requestsDone;
  } else if (status == status::kNoAnswer) {
    ++counters_.requestsWithoutAnswer;
  } else if (status == status::kBadAnswer) {
    ++counters_.answersUnusable;
  } else if (status <= status::kNotInitialized && status >= status::kCancelled) {
    ++counters_.requestsNotSent;
  } else {
    ++counters_.requestsRefused;
  }
}

// Time

void BoardView::Follower::doWhatIsDue() {
  const Clock::time_point now = Clock::now();
  if (overflowedAt_) renewAfterOverflow();
  if (fetchAllAt_ && *fetchAllAt_ <= now) {
    fetchAllAt_.reset();
    fetchAll();
  }
  if (retryAt_ && *retryAt_ <= now) {
    retryAt_.reset();
    for (const Document document : kDocuments) {
      const Known& about = known(document);
      if (isLinked() && !fetchAllAt_ && !about.isFetching && (!about.isCurrent || about.unreadable)) fetch(document);
    }
  }
  probe();
}

/// Renews the connection when a burst is over: behind a full queue the newest notifications are lost, and older ones
/// may be on the way. A new connection is free of both.
void BoardView::Follower::renewAfterOverflow() {
  const Clock::time_point now = Clock::now();
  if (now < std::min<Clock::time_point>(lastNotification_ + kQuiet, *overflowedAt_ + kLongestBurst)) return;
  overflowedAt_.reset();
  inWindow_ = 0;
  for (Known& each : known_) each.isWaiting = false;
  outdateAll();
  fetchAllAt_.reset();
  renew();
}

bool BoardView::Follower::mayProbe() const {
  const auto isFetching = [](const Known& each) { return each.isFetching; };
  return probeInterval_ > 0ms && isLinked() && !fetchAllAt_ && fetcher_->descriptor() >= 0 &&
         std::none_of(known_.begin(), known_.end(), isFetching);
}

/// Each document once some time after a handshake, then one after the other when nothing was heard of the daemon for a
/// while. A frozen daemon is asked again at once, so that its return is noticed.
BoardView::Clock::time_point BoardView::Follower::nextProbe() const {
  if (isFrozen_) return Clock::time_point::min();  // at once
  const Clock::time_point idle = lastHeard_ + probeInterval_;
  return documentsToLookAt_ > 0 ? std::min(lookAgainAt_, idle) : idle;
}

void BoardView::Follower::probe() {
  if (!mayProbe() || Clock::now() < nextProbe()) return;
  if (documentsToLookAt_ > 0) --documentsToLookAt_;
  fetch(kDocuments[nextProbed_++ % std::size(kDocuments)], true);
}

// Writes

AsyncClient::Id BoardView::Follower::change(const Request<void>& request, Document document, Holds holds,
                                            Written completion, std::chrono::milliseconds timeout) {
  if (!isStarted_) return 0;
  timeout = timeout > 0ms ? std::min(timeout, kLongestTime) : AsyncClient::kDefaultTimeout;
  const auto write = writes_.emplace(writes_.end());
  write->mayHoldByChance = holds && holds(records_);
  write->document = document;
  write->holds = std::move(holds);
  write->completion = std::move(completion);
  write->timeout = timeout;
  write->deadline = Clock::now() + timeout;
  write->notifiedBefore = known(document).notified;
  const auto noteAnswer = [this, write](const Answer<void>& answer) {
    count(answer.status);
    if (answer.ok()) {
      heard();
      write->answeredAt = Clock::now();
      return;
    }
    if (write->completion) calls_.emplace_back(0, [completion = write->completion, answer] { completion(answer); });
    writes_.erase(write);
  };
  const AsyncClient::Id id = writer_.submit(request, noteAnswer, timeout);
  if (id == 0) {
    writes_.erase(write);
  } else {
    write->id = id;
  }
  return id;
}

bool BoardView::Follower::cancel(AsyncClient::Id id) { return writer_.cancel(id); }

/// Completes a write that the view shows, or whose time is over. @return whether there was one
bool BoardView::Follower::finishWrite() {
  for (auto write = writes_.begin(); write != writes_.end(); ++write) {
    if (!write->answeredAt) continue;
    Answer<void> answer;
    if (!isShown(*write) && !isOvertaken(write)) {
      fetchWhereNoNotificationCame(*write);
      if (Clock::now() < write->deadline) continue;
      answer.status = status::kNoAnswer;
      answer.text = joined({"the change was carried out, but the view could not read it back within ",
                            std::to_string(write->timeout.count()), " ms."});
    }
    if (write->completion) calls_.emplace_back(0, [completion = write->completion, answer] { completion(answer); });
    writes_.erase(write);
    return true;
  }
  return false;
}

bool BoardView::Follower::isShown(const Write& write) const {
  const Known& about = known(write.document);
  if (write.fetchWanted != 0 && about.countedFetches >= write.fetchWanted) return true;
  return write.holds && !write.mayHoldByChance && about.applied > write.notifiedBefore && write.holds(records_);
}

/// Whether the view shows a write that the daemon has carried out behind this one: where the notifications of both
/// wait, only that of the later one is read.
bool BoardView::Follower::isOvertaken(std::list<Write>::const_iterator write) const {
  const auto isLaterAndShown = [&](const Write& later) {
    return later.document == write->document && later.answeredAt && isShown(later);
  };
  return std::any_of(std::next(write), writes_.end(), isLaterAndShown);
}

void BoardView::Follower::fetchWhereNoNotificationCame(Write& write) {
  const Known& about = known(write.document);
  const bool isLost = write.fetchWanted != 0 && !about.isFetching;  // that fetch has failed, or did not count
  if (write.fetchWanted == 0 ? Clock::now() < *write.answeredAt + kNotificationLimit : !isLost) return;
  if (isLost && retryAt_) return;
  fetch(write.document);
  write.fetchWanted = about.fetches + (about.fetchAgain ? 1 : 0);
}

// Callbacks

template <class Callbacks, class... Arguments>
void BoardView::Follower::tell(Callbacks Listeners::*kind, const Arguments&... arguments) {
  // One copy of the arguments for all listeners.
  const auto shared = std::make_shared<const std::tuple<Arguments...>>(arguments...);
  for (const auto& [listener, callback] : listeners_.*kind) {
    calls_.emplace_back(listener, [callback = callback, shared] { std::apply(callback, *shared); });
  }
}

bool BoardView::Follower::remove(Listener listener) {
  const auto isOf = [listener](const auto& call) { return call.first == listener; };
  if (listener != 0) calls_.erase(std::remove_if(calls_.begin(), calls_.end(), isOf), calls_.end());
  return listeners_.state.erase(listener) + listeners_.change.erase(listener) +
             listeners_.resynchronised.erase(listener) + listeners_.rebootRequest.erase(listener) +
             listeners_.wrongType.erase(listener) >
         0;
}

// The descriptor

void BoardView::Follower::setWakeUp() {
  const auto at = [this](const std::optional<Clock::time_point>& time) {
    if (time) wakeUp_.at(*time);
  };
  at(tendLink(false));
  watchSockets();
  at(fetchAllAt_);
  at(retryAt_);
  if (overflowedAt_) at(lastNotification_ + kQuiet);
  for (const Known& each : known_) {
    if (each.fetched && !overflowedAt_) at(each.takeFetchedAt);
  }
  for (const Write& each : writes_) {
    if (each.answeredAt && each.fetchWanted == 0) at(*each.answeredAt + kNotificationLimit);
    if (each.answeredAt) at(each.deadline);
  }
  if (mayProbe()) at(nextProbe());
  const auto isWaiting = [](const Known& each) { return each.isWaiting; };
  // What comes above may have taken the sign of a message out of ZMQ_FD.
  if (!calls_.empty() || mayHoldMessages() || std::any_of(known_.begin(), known_.end(), isWaiting)) wakeUp_.now();
}

void BoardView::Follower::watchSockets() {
  if (descriptor() == watchedSocket_ && linkDescriptor() == watchedMonitor_) return;
  wakeUp_.forget(watchedSocket_);
  wakeUp_.forget(watchedMonitor_);
  wakeUp_.watch(watchedSocket_ = descriptor(), EPOLLIN);
  wakeUp_.watch(watchedMonitor_ = linkDescriptor(), EPOLLIN);
  wakeUp_.now();  // for what came before they were watched
}

void BoardView::Follower::closeSockets() noexcept {
  wakeUp_.forget(watchedSocket_);
  wakeUp_.forget(watchedMonitor_);
  watchedSocket_ = watchedMonitor_ = -1;
  Subscription::closeSockets();
}

}  // namespace zel
