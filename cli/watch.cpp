#include <zmq.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <limits>
#include <map>
#include <optional>

#include "cli/command.h"
#include "cli/json_paths.h"
#include "cli/publisher_probe.h"
#include "cli/run_command.h"
#include "cli/suggest.h"
#include "cli/values.h"
#include "client/endpoints.h"
#include "client/zmq_utils.h"
#include "common/status.h"
#include "common/subscribe_json_client.h"
#include "subscriber/sysmgr_subscriber.h"
#include "types/whitelist.h"

namespace zel::ctl {

namespace {

/// A document that can be watched.
struct Watched {
  const char* name;
  SysmgrPublisher::sysmgr_notifications_t notification;
  /// The document as its record writes it, so that an answer and a notification can be compared. Null: a notification
  /// without a document.
  Json::Value (*asRecord)(const std::string& name, const Json::Value& document);
};

/// @throws Failure for a document in which the record knows no key, such as an empty one or one inside another member:
///         to the record it would be that of a factory
template <class Record>
Json::Value writtenBy(const std::string& name, const Json::Value& document) {
  Json::Value written;
  Daemon::read<Record>(name, document).Serialize(written);
  const Words members = document.isObject() ? document.getMemberNames() : Words();
  const auto isKnown = [&written](const std::string& member) { return written.isMember(member); };
  if (std::any_of(members.begin(), members.end(), isKnown)) return written;
  throw Failure(Exit::kBadAnswer, std::string("cannot read ") + documentOf(name).what + ": none of its keys is known");
}

Json::Value writtenList(const std::string& name, const Json::Value& list) {
  if (!list.isArray() && !list.isNull()) throw wrongType(name, "it is not a list");
  Json::Value entries = list;
  WhiteListDb db;
  reading(name, entries, [&db](Json::Value& value) { db.Deserialize(value); });
  Json::Value written;
  db.Serialize(written);
  return written;
}

constexpr Watched kWatched[] = {
    {"stored", SysmgrPublisher::SYSMGR_STORED_PARAMETERS_UPDATE, writtenBy<SysParameters>},
    {"dynamic", SysmgrPublisher::SYSMGR_DYNAMIC_INFO_UPDATE, writtenBy<SysParametersDynamic>},
    {"whitelist", SysmgrPublisher::SYSMGR_MCAST_WHITELIST_UPDATE, writtenList},
    {"reboot", SysmgrPublisher::SYSMGR_REBOOT_REQUEST, nullptr},
};

/// The document in the payload of a notification.
const Json::Value& documentIn(const Watched& watched, const Json::Value& payload) {
  if (watched.notification != SysmgrPublisher::SYSMGR_MCAST_WHITELIST_UPDATE) return payload;
  if (payload.isObject() && payload.isMember(kWhitelistMember)) return payload[kWhitelistMember];
  throw wrongType(watched.name, std::string("it has no \"") + kWhitelistMember + "\"");
}

/// The ones that were asked for, or all.
std::vector<Watched> chosen(const Words& names) {
  std::vector<Watched> watched(std::begin(kWatched), std::end(kWatched));
  if (names.empty()) return watched;
  const Words known = watchableDocuments();
  for (const std::string& name : names) {
    if (contains(known, name)) continue;
    throw Failure(Exit::kNotFound, "'" + name + "' cannot be watched", didYouMean(name, known));
  }
  const auto unwanted = [&names](const Watched& one) { return !contains(names, one.name); };
  watched.erase(std::remove_if(watched.begin(), watched.end(), unwanted), watched.end());
  return watched;
}

/// Now, as ISO 8601 has it: "2026-11-22T06:15:02.123+00:00".
std::string timeStamp() {
  using std::chrono::duration_cast;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const auto milliseconds = duration_cast<std::chrono::milliseconds>(now).count();
  const std::time_t seconds = milliseconds / 1000;
  std::tm local{};
  localtime_r(&seconds, &local);
  char day[32];
  char zone[8];
  std::strftime(day, sizeof day, "%Y-%m-%dT%H:%M:%S", &local);
  std::strftime(zone, sizeof zone, "%z", &local);
  char text[64];
  std::snprintf(text, sizeof text, "%s.%03d%.3s:%s", day, static_cast<int>(milliseconds % 1000), zone, zone + 3);
  return text;
}

/// A value for a program: a text as it is, anything else as JSON.
std::string plain(const Json::Value& value) { return value.isString() ? value.asString() : Output::asJson(value); }

/// Prints changes and runs the command that was given for them.
class Printer {
 public:
  Printer(Call& call, std::int64_t limit)
      : output_(call.output), limit_(limit), isTimed_(call.has("--time")), command_(call.word("--exec")) {}

  bool isDone() const { return printed_ >= limit_; }

  void change(const Json::Value& event, const std::string& text) {
    if (isDone()) return;
    ++printed_;
    print(event, text);
  }
  /// What is not a change of a document, so that it does not count.
  void print(Json::Value event, std::string text) {
    if (isTimed_) {
      event["time"] = timeStamp();
      text.insert(0, event["time"].asString() + "  ");
    }
    output_.page(event, [&] { output_.line(text); });
    output_.flush();
    if (!command_.empty()) run(event);
  }

 private:
  /// The members of the event are variables of the command's environment: SYSMGRCTL_EVENT, ...
  void run(const Json::Value& event) const {
    std::map<std::string, std::string> variables;
    for (const std::string& member : event.getMemberNames()) {
      std::string name = "SYSMGRCTL_" + member;
      std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::toupper(c); });
      variables[name] = plain(event[member]);
    }
    const std::string failure = runInShell(command_, variables);
    if (!failure.empty()) note("the command of --exec failed: " + failure);
  }

  Output& output_;
  std::int64_t limit_;
  std::int64_t printed_ = 0;
  bool isTimed_;
  std::string command_;
};

/// What is known of the documents. A new document is compared with the one before it.
class Known {
 public:
  Known(Printer& printer, std::vector<Watched> watched) : printer_(printer), watched_(std::move(watched)) {}

  /// Reads all documents. The first time nothing is printed; later on the differences are.
  void readAll(Daemon& daemon) {
    for (const Watched& one : watched_) {
      if (one.asRecord != nullptr) take(one, daemon.get(one.name));
    }
  }

  void takeNotification(const std::string& topic, const Json::Value& payload) {
    for (const Watched& one : watched_) {
      if (topic != SysmgrPublisher::topicOf(one.notification)) continue;
      if (one.asRecord != nullptr) return take(one, documentIn(one, payload));
      Json::Value event;
      event["event"] = one.name;
      printer_.change(event, std::string(one.name) + "  requested");
    }
  }

  const std::vector<Watched>& watched() const { return watched_; }

 private:
  void take(const Watched& watched, const Json::Value& document) {
    Json::Value written = watched.asRecord(watched.name, document);
    const auto known = documents_.find(watched.name);
    if (known != documents_.end()) print(watched.name, known->second, written);
    documents_[watched.name] = std::move(written);
  }

  void print(const std::string& name, const Json::Value& old, const Json::Value& now) {
    forEachChange(old, now, [&](const std::string& path, const Json::Value* before, const Json::Value* after) {
      Json::Value event;
      event["event"] = name;
      event["key"] = path;
      if (before != nullptr) event["old"] = *before;
      if (after != nullptr) event["new"] = *after;
      printer_.change(event, name + "  " + path + "  " + cellOrDash(before) + " -> " + cellOrDash(after));
    });
  }

  static std::string cellOrDash(const Json::Value* value) { return value == nullptr ? "-" : cellOf(*value); }

  Printer& printer_;
  std::vector<Watched> watched_;
  std::map<std::string, Json::Value> documents_;
};

/// How many changes are printed at most.
std::int64_t countOf(const Call& call) {
  constexpr std::int64_t kMost = 1000000000;
  if (!call.has("--count")) return std::numeric_limits<std::int64_t>::max();
  return valueFor("--count", [&call] { return parseNumber(call.word("--count"), 1, kMost); });
}

/// When watching ends: regularly by --timeout, early by --wait, which bounds this command as it does any other.
class End {
 public:
  explicit End(Call& call) : call_(call) {
    if (!call.has("--timeout")) return;
    timeOut_.emplace(valueFor("--timeout", [&call] { return parseSeconds(call.word("--timeout")); }));
    call.output.endBy(*timeOut_);
  }

  /// @return whether the time-out is over
  /// @throws Failure when that is too early
  bool hasCome() const {
    if (call_.has("--wait") && call_.deadline.isOver()) throw timeIsOver(call_.deadline);
    if (!timeOut_ || !timeOut_->isOver()) return false;
    if (!call_.has("--count")) return true;
    throw Failure(Exit::kTimeOut, "the time is over, and fewer than " + call_.word("--count") + " changes have come");
  }

  /// ms; -1: for ever
  long left() const {
    long left = timeOut_ ? static_cast<long>(timeOut_->left().count()) : -1;
    if (!call_.has("--wait")) return left;
    const auto whole = static_cast<long>(call_.deadline.left().count());
    return left < 0 ? whole : std::min(left, whole);
  }

 private:
  const Call& call_;
  std::optional<Deadline> timeOut_;
};

/// Reports the notifications that cannot be used: the first one at once, later ones together, once a second.
class Unusable {
 public:
  ~Unusable() { report(); }
  void add(const std::string& why) {
    ++count_;
    last_ = why;
    if (pause_.isOver()) report();
  }

 private:
  void report() {
    if (count_ == 0) return;
    const std::string which =
        count_ == 1 ? "a notification is dropped: " : std::to_string(count_) + " notifications are dropped: ";
    note(which + last_);
    count_ = 0;
    pause_ = Deadline(1);
  }

  unsigned long count_ = 0;  ///< of those that are not reported yet
  std::string last_;
  Deadline pause_{0};
};

const char* textOf(int errorCode) {
  return errorCode == status::kBadNotificationJson ? "its payload is not JSON within the limits"
                                                   : "it does not have two frames";
}

/// The connection to the publisher, and what comes over it.
class Follower {
 public:
  Follower(Known& known, Printer& printer)
      : known_(known), printer_(printer), client_(ZmqUtils::getInstance().getContext()) {
    int result = client_.connect(notificationEndpoint());
    for (const Watched& one : known.watched()) {
      result = result < 0 ? result : client_.subscribe(SysmgrPublisher::topicOf(one.notification));
    }
    result = result < 0 ? result : client_.getPollItems(items_);
    if (result < 0) {
      throw Failure(Exit::kNoDaemon, "cannot subscribe to notifications (" + std::to_string(result) + ")")
          .withCode(result);
    }
    if (monitor_.item().socket != nullptr) items_.add(monitor_.item());
  }

  /// Takes one notification or one change of the connection. @return whether there was one
  bool takeOne() {
    std::string topic;
    int errorCode = 0;
    Json::Value payload;
    if (client_.processEvent(items_[0], topic, errorCode, payload) == 0) return takePresence();
    try {
      if (errorCode != 0) throw Failure(Exit::kBadAnswer, textOf(errorCode));
      known_.takeNotification(topic, payload);
    } catch (const Failure& failure) {
      unusable_.add(failure.what());
    }
    return true;
  }

  void wait(long milliseconds) {
    if (items_.poll(milliseconds) >= 0) return;
    throw Failure(Exit::kOther, std::string("cannot wait: ") + zmq_strerror(zmq_errno()));
  }

 private:
  bool takePresence() {
    const std::optional<bool> isThere = monitor_.nextChange();
    if (!isThere) return false;
    if (*isThere == isThere_) return true;
    isThere_ = *isThere;
    Json::Value event;
    event["event"] = "daemon";
    event["state"] = isThere_ ? "back" : "gone";
    printer_.print(event, "daemon  " + event["state"].asString());
    if (isThere_) readAgain();
    return true;
  }

  /// Prints what changed while the daemon was away.
  void readAgain() {
    constexpr double kSeconds = 5;
    const Deadline deadline(kSeconds);
    try {
      Daemon daemon(deadline);
      known_.readAll(daemon);
    } catch (const Failure& failure) {
      note(failure.what());
    }
  }

  Known& known_;
  Printer& printer_;
  SubscribeJsonClient client_;
  PublisherMonitor monitor_;
  PollFds items_;
  Unusable unusable_;
  bool isThere_ = true;  ///< the daemon has just answered
};

}  // namespace

Words watchableDocuments() {
  Words names;
  for (const Watched& one : kWatched) names.emplace_back(one.name);
  return names;
}

void runWatch(Call& call) {
  const End end(call);
  Printer printer(call, countOf(call));
  Known known(printer, chosen(call.words("documents")));
  Follower follower(known, printer);
  // Subscribed first and read then: no change falls between the two.
  known.readAll(call.daemon());
  note("watching; Ctrl-C ends it");
  while (!printer.isDone() && !end.hasCome()) {
    if (!follower.takeOne()) follower.wait(end.left());
  }
}

}  // namespace zel::ctl
