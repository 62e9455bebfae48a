#include <zmq.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>

#include "cli/command.h"
#include "cli/json_paths.h"
#include "cli/suggest.h"
#include "cli/values.h"
#include "client/zmq_utils.h"
#include "subscriber/sysmgr_subscriber.h"
#include "types/whitelist.h"

namespace zel::ctl {

namespace {

/// Follows the notifications and prints how each differs from what was known before.
class ChangePrinter final : public SysmgrSubscriber {
 public:
  ChangePrinter(Output& output, std::int64_t limit) : output_(output), limit_(limit) {}

  /// Takes a document as the one to compare with.
  void know(const std::string& event, const Json::Value& document) { known_[event] = document; }
  bool isDone() const { return printed_ >= limit_; }

  int notifyStoredParametersUpdate(SysParameters& stored) override { return compare("stored", stored); }
  int notifyDynamicInfoUpdate(SysParametersDynamic& dynamic) override { return compare("dynamic", dynamic); }
  int notifyRebootRequest() override {
    Json::Value line;
    line["event"] = "reboot";
    print(line, "reboot  requested");
    output_.flush();
    return 0;
  }
  int notifyMcastWhitelistUpdate(std::list<WhiteListEntry>& entries) override {
    WhiteListDb list;
    for (const WhiteListEntry& entry : entries) list.entries.emplace(entry.ip, entry);
    return compare("whitelist", list);
  }

 private:
  int compare(const std::string& event, const IJsonSerializable& record) {
    Json::Value document;
    record.Serialize(document);
    forEachChange(known_[event], document,
                  [&](const std::string& path, const Json::Value* before, const Json::Value* after) {
                    Json::Value line;
                    line["event"] = event;
                    line["key"] = path;
                    if (before != nullptr) line["old"] = *before;
                    if (after != nullptr) line["new"] = *after;
                    print(line, event + "  " + path + "  " + cellOrDash(before) + " -> " + cellOrDash(after));
                  });
    known_[event] = std::move(document);
    output_.flush();
    return 0;
  }

  static std::string cellOrDash(const Json::Value* value) { return value == nullptr ? "-" : cellOf(*value); }

  void print(const Json::Value& line, const std::string& text) {
    if (isDone()) return;
    ++printed_;
    output_.page(line, [&] { output_.line(text); });
  }

  Output& output_;
  std::int64_t limit_;
  std::int64_t printed_ = 0;
  std::map<std::string, Json::Value> known_;
};

/// A document that can be watched. What is known of it at the start is read from the daemon as a record, so that it has
/// the form in which the notifications come.
struct Watched {
  const char* name;
  SysmgrPublisher::sysmgr_notifications_t notification;
  void (*learn)(Daemon& daemon, ChangePrinter& printer);
};

void know(ChangePrinter& printer, const char* name, const IJsonSerializable& record) {
  Json::Value document;
  record.Serialize(document);
  printer.know(name, document);
}

template <class Record>
void learn(Daemon& daemon, ChangePrinter& printer, const char* name) {
  know(printer, name, daemon.record<Record>(name));
}

constexpr Watched kWatched[] = {
    {"stored", SysmgrPublisher::SYSMGR_STORED_PARAMETERS_UPDATE,
     [](Daemon& daemon, ChangePrinter& printer) { learn<SysParameters>(daemon, printer, "stored"); }},
    {"dynamic", SysmgrPublisher::SYSMGR_DYNAMIC_INFO_UPDATE,
     [](Daemon& daemon, ChangePrinter& printer) { learn<SysParametersDynamic>(daemon, printer, "dynamic"); }},
    {"whitelist", SysmgrPublisher::SYSMGR_MCAST_WHITELIST_UPDATE,
     [](Daemon& daemon, ChangePrinter& printer) {
       Json::Value list = daemon.whitelist();
       WhiteListDb entries;
       entries.Deserialize(list);
       know(printer, "whitelist", entries);
     }},
    {"reboot", SysmgrPublisher::SYSMGR_REBOOT_REQUEST, [](Daemon&, ChangePrinter&) {}},
};

/// The ones that were asked for, or all.
std::vector<Watched> chosen(const Words& names) {
  std::vector<Watched> watched(std::begin(kWatched), std::end(kWatched));
  if (names.empty()) return watched;
  const Words known = watchableDocuments();
  for (const std::string& name : names) {
    if (std::find(known.begin(), known.end(), name) == known.end()) {
      throw Failure(Exit::kNotFound, "'" + name + "' cannot be watched", didYouMean(name, known));
    }
  }
  const auto unwanted = [&names](const Watched& one) {
    return std::find(names.begin(), names.end(), one.name) == names.end();
  };
  watched.erase(std::remove_if(watched.begin(), watched.end(), unwanted), watched.end());
  return watched;
}

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

/// Reports the notifications that cannot be read: the first one at once, later ones together, once a second.
class Unreadable {
 public:
  ~Unreadable() { report(); }
  void add(const std::string& why) {
    ++count_;
    last_ = why;
    if (pause_.isOver()) report();
  }

 private:
  void report() {
    if (count_ == 0) return;
    note((count_ == 1 ? "a notification" : std::to_string(count_) + " notifications") + " cannot be read: " + last_);
    count_ = 0;
    pause_ = Deadline(1);
  }

  unsigned long count_ = 0;  ///< of those that are not reported yet
  std::string last_;
  Deadline pause_{0};
};

/// Takes one notification. One that cannot be read is reported, and the next may be better. @return whether one came
bool takeOne(ChangePrinter& printer, const zmq_pollitem_t& item, Unreadable& unreadable) {
  try {
    return printer.processEvent(item) != 0;
  } catch (const Json::Exception& mismatch) {
    unreadable.add(std::string("a value has the wrong type: ") + mismatch.what());
    return true;
  }
}

}  // namespace

Words watchableDocuments() {
  Words names;
  for (const Watched& one : kWatched) names.emplace_back(one.name);
  return names;
}

void runWatch(Call& call) {
  const std::vector<Watched> watched = chosen(call.words("documents"));
  const End end(call);
  ChangePrinter printer(call.output, countOf(call));
  int result = printer.init(ZmqUtils::getInstance().getContext());
  for (const Watched& one : watched) result = result < 0 ? result : printer.subscribe(one.notification);
  PollFds items;
  result = result < 0 ? result : printer.getPollItems(items);
  if (result < 0) throw Failure(Exit::kNoDaemon, "cannot subscribe to notifications (" + std::to_string(result) + ")");

  // Subscribed first and read then: no change falls between the two.
  for (const Watched& one : watched) one.learn(call.daemon(), printer);
  note("watching; Ctrl-C ends it");

  Unreadable unreadable;
  while (!printer.isDone() && !end.hasCome()) {
    if (takeOne(printer, items[0], unreadable)) continue;
    if (items.poll(end.left()) < 0) {
      throw Failure(Exit::kOther, std::string("cannot wait: ") + zmq_strerror(zmq_errno()));
    }
  }
}

}  // namespace zel::ctl
