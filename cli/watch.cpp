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
#include "cli/following.h"
#include "cli/json_paths.h"
#include "cli/run_command.h"
#include "cli/suggest.h"
#include "cli/values.h"
#include "cli/view_counters.h"
#include "client/endpoints.h"
#include "client/zmq_utils.h"
#include "view/board_view.h"

namespace zel::ctl {

namespace {

/// What can be watched.
struct Watched {
  const char* name;
  std::optional<zel::Document> document;  ///< nothing: a notification without a document
  void (*read)(Daemon& daemon);           ///< asks for the document once, for the reason of a failure
};

template <class Record>
void readRecord(Daemon& daemon, const char* name) {
  daemon.record<Record>(name);
}

constexpr Watched kWatched[] = {
    {"stored", zel::Document::kStored, [](Daemon& daemon) { readRecord<SysParameters>(daemon, "stored"); }},
    {"dynamic", zel::Document::kDynamic, [](Daemon& daemon) { readRecord<SysParametersDynamic>(daemon, "dynamic"); }},
    {"whitelist", zel::Document::kWhitelist, [](Daemon& daemon) { daemon.whitelist(); }},
    {"reboot", std::nullopt, [](Daemon&) {}},
};

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
    print(event, text);
    ++printed_;
  }
  /// What is not a change of a document, so that it does not count.
  void print(Json::Value event, std::string text) {
    if (isDone()) return;
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
      std::string name = member;
      std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::toupper(c); });
      variables[name] = plain(event[member]);
    }
    const std::string failure = runInShell(command_, "SYSMGRCTL_", variables);
    if (!failure.empty()) note("the command of --exec failed: " + failure);
  }

  Output& output_;
  std::int64_t limit_;
  std::int64_t printed_ = 0;
  bool isTimed_;
  std::string command_;
};

/// How many changes are printed at most.
std::int64_t countOf(const Call& call) {
  constexpr std::int64_t kMost = 1000000000;
  if (!call.has("--count")) return std::numeric_limits<std::int64_t>::max();
  return valueFor("--count", [&call] { return parseNumber(call.word("--count"), 1, kMost); });
}

/// Reports what is wrong with the documents: the first at once, what follows together, once a second.
class Complaints {
 public:
  ~Complaints() { report(); }
  void add(const std::string& text) {
    ++count_;
    last_ = text;
    if (pause_.isOver()) report();
  }

 private:
  void report() {
    if (count_ == 0) return;
    note(count_ == 1 ? last_ : last_ + " (" + std::to_string(count_) + " such notices within a second)");
    count_ = 0;
    pause_ = Deadline(1);
  }

  unsigned long count_ = 0;  ///< of those that are not reported yet
  std::string last_;
  Deadline pause_{0};
};

/// Reports the counters of a view when they have changed, once a second at most.
class Counts {
 public:
  void report(const BoardView::Counters& counters) {
    if (!pause_.isOver()) return;
    pause_ = Deadline(1);
    const std::string now = textOf(counters);
    if (std::exchange(before_, now) != now) note("counted: " + now);
  }

 private:
  Deadline pause_{0};
  std::string before_;
};

/// Prints what a view of the board reports.
class Reporter {
 public:
  Reporter(Printer& printer, std::vector<Watched> watched, bool isVerbose)
      : printer_(printer),
        watched_(std::move(watched)),
        counts_(isVerbose ? std::make_optional<Counts>() : std::nullopt),
        view_(ZmqUtils::getInstance().getContext()) {
    constexpr std::chrono::seconds kInterval{5};
    constexpr std::chrono::seconds kAnswer{5};  // as long as other commands wait
    view_.setProbe(kInterval, kAnswer);
    view_.onChange([this](const BoardChange& change) { report(change); });
    view_.onRebootRequest([this] { reportReboot(); });
    view_.onResynchronised([this] {
      reportPresence();
      reportDaemon("resynchronised");
    });
    view_.onWrongType([this](zel::Document document, const std::string& text) {
      const Watched* const one = find(document);
      if (one != nullptr) complaints_.add(std::string("cannot read ") + queryOf(one->name).title + ": " + text);
    });
    openView(view_);
  }

  /// Waits until the documents are known. Only what changes from then on is printed.
  void begin(Call& call) {
    for (const Watched& one : watched_) one.read(call.daemon());
    while (!isKnown()) {
      if (call.deadline.isOver()) throw hasNotConnected() ? noPublisher() : timeIsOver(call.deadline);
      attend(view_, static_cast<long>(call.deadline.left().count()));
    }
  }

  /// Prints what comes within a while.
  /// @param ms  -1: no end
  void work(long ms) {
    constexpr long kSecond = 1000;
    const bool isShort = ms >= 0 && ms < kSecond;
    attend(view_, counts_ && !isShort ? kSecond : ms);
    reportPresence();
    if (counts_) counts_->report(view_.counters());
  }

 private:
  enum class Presence { kThere, kGone, kSilent };

  const Watched* find(zel::Document document) const {
    const auto isOf = [document](const Watched& one) { return one.document == document; };
    const auto found = std::find_if(watched_.begin(), watched_.end(), isOf);
    return found == watched_.end() ? nullptr : &*found;
  }

  bool isKnown() const {
    const auto isTold = [this](const Watched& one) {
      if (!one.document) return view_.counters().requestsDone > 0;  // the connection is made
      if (view_.isUnreadable(*one.document)) throw wrongType(one.name, "it is empty");
      return view_.confirmedAt(*one.document).has_value();
    };
    return std::all_of(watched_.begin(), watched_.end(), isTold);
  }

  /// The view sends its first requests when it is connected to the publisher.
  bool hasNotConnected() const {
    const BoardView::Counters& counters = view_.counters();
    return counters.requestsDone + counters.requestsRefused + counters.requestsNotSent +
               counters.requestsWithoutAnswer + counters.answersUnusable ==
           0;
  }

  static Failure noPublisher() {
    return {Exit::kNoDaemon, "no program accepts subscribers for notifications at " + notificationEndpoint(),
            "'sysmgrctl doctor' looks closer"};
  }

  void report(const BoardChange& change) {
    reportPresence();
    const bool isMissed = view_.counters().missed > std::exchange(missed_, view_.counters().missed);
    const Watched* const one = find(change.document);
    const bool isFirst = change.differences.front().before == Json::Value();
    if (one == nullptr || (isFirst && change.differences.front().path.empty())) return;
    Json::Value before;
    Json::Value now;
    for (const zel::Difference& difference : change.differences) {
      if (difference.before) before[difference.path] = *difference.before;
      if (difference.now) now[difference.path] = *difference.now;
    }
    forEachChange(before, now, [&](const std::string& path, const Json::Value* old, const Json::Value* next) {
      Json::Value event;
      event["event"] = one->name;
      event["key"] = path;
      if (old != nullptr) event["old"] = *old;
      if (next != nullptr) event["new"] = *next;
      if (isMissed) event["missed"] = true;
      printer_.change(event, std::string(one->name) + "  " + path + "  " + cellOrDash(old) + " -> " + cellOrDash(next) +
                                 (isMissed ? "  (no notification came)" : ""));
    });
  }

  static std::string cellOrDash(const Json::Value* value) { return value == nullptr ? "-" : cellOf(*value); }

  void reportReboot() {
    reportPresence();
    const auto isReboot = [](const Watched& one) { return !one.document; };
    const auto found = std::find_if(watched_.begin(), watched_.end(), isReboot);
    if (found == watched_.end()) return;
    Json::Value event;
    event["event"] = found->name;
    printer_.change(event, std::string(found->name) + "  requested");
  }

  /// Prints what the counters say about the daemon since the last call.
  void reportPresence() {
    using Counters = BoardView::Counters;
    const Counters before = std::exchange(seen_, view_.counters());
    const auto grew = [&](std::uint64_t Counters::*counter) { return seen_.*counter > before.*counter; };
    if (grew(&Counters::losses)) become(Presence::kGone);
    if (grew(&Counters::probesWithoutAnswer) && presence_ == Presence::kThere) become(Presence::kSilent);
    const bool isBack = presence_ == Presence::kGone     ? grew(&Counters::reconnections)
                        : presence_ == Presence::kSilent ? grew(&Counters::requestsDone)
                                                         : false;
    if (isBack) become(Presence::kThere);
    for (const Watched& one : watched_) {
      if (one.document) reportUnreadable(one, grew(&Counters::malformed));
    }
  }

  /// Reports a document that has become unreadable.
  /// @param isMalformed  otherwise the view reports the reason itself, a value of a wrong type
  void reportUnreadable(const Watched& one, bool isMalformed) {
    const bool isUnreadable = view_.isUnreadable(*one.document);
    if (std::exchange(unreadable_[*one.document], isUnreadable) || !isUnreadable || !isMalformed) return;
    complaints_.add(std::string("a notification is dropped: it does not hold ") + queryOf(one.name).title +
                    "; the daemon is asked instead");
  }

  void become(Presence presence) {
    if (std::exchange(presence_, presence) == presence) return;
    reportDaemon(presence == Presence::kThere ? "back" : presence == Presence::kGone ? "gone" : "silent");
  }

  void reportDaemon(const char* state) {
    Json::Value event;
    event["event"] = "daemon";
    event["state"] = state;
    printer_.print(event, std::string("daemon  ") + state);
  }

  Printer& printer_;
  std::vector<Watched> watched_;
  std::optional<Counts> counts_;
  BoardView view_;
  BoardView::Counters seen_;
  std::uint64_t missed_ = 0;
  Presence presence_ = Presence::kThere;  ///< the daemon has just answered
  std::map<zel::Document, bool> unreadable_;
  Complaints complaints_;
};

}  // namespace

Words watchableDocuments() {
  Words names;
  for (const Watched& one : kWatched) names.emplace_back(one.name);
  return names;
}

void runWatch(Call& call) {
  const EndOfFollowing end(call);
  if (end.timeOut()) call.output.endBy(*end.timeOut());
  Printer printer(call, countOf(call));
  Reporter reporter(printer, chosen(call.words("documents")), call.has("--verbose"));
  reporter.begin(call);
  note("watching; Ctrl-C ends it");
  while (!printer.isDone() && !end.hasCome()) reporter.work(end.left());
  if (printer.isDone() || !call.has("--count")) return;
  throw Failure(Exit::kTimeOut, "the time is over, and fewer than " + call.word("--count") + " changes have come");
}

}  // namespace zel::ctl
