#include "tests/faults/history.h"

#include <algorithm>
#include <cstdio>

#include "common/status.h"
#include "tests/support/wait_until.h"

namespace zel::test {

namespace {

namespace status = zel::status;
using std::chrono::microseconds;

/// Whether the client promised that the request was and will not be carried out.
bool promisedNotSent(int result) {
  return result == status::kNotInitialized || result == status::kCannotConnect || result == status::kNotSent ||
         result == status::kBadRequest || result == status::kCancelled || result == History::kDestroyedBehind;
}

/// Whether the daemon may carry the request out later than those behind it.
bool mayBeOvertaken(int result) { return result == status::kNoAnswer || result == History::kDestroyedFirst; }

constexpr std::chrono::milliseconds kAllowedOverrun{50 * kSlowdown};

double inMs(microseconds time) { return static_cast<double>(time.count()) / 1000; }

}  // namespace

void History::add(const Wait& wait) {
  Longest& longest = waits_[wait.what];
  const microseconds overrun = wait.took - microseconds(wait.limit);
  ++longest.times;
  longest.overrun = std::max(longest.overrun, overrun);
  longest.controlLate = std::max(longest.controlLate, wait.controlLate);
  if (overrun <= kAllowedOverrun) return;
  if (overrun - wait.controlLate <= kAllowedOverrun) {
    ++longest.unscheduled;
  } else if (longest.late.countAndShow()) {
    std::printf("  %s during \"%s\": %.1f ms over its limit of %d ms, the control %.1f ms late\n", wait.what,
                wait.fault, inMs(overrun), static_cast<int>(wait.limit.count()), inMs(wait.controlLate));
  }
}

void History::add(const Notification& notification) {
  ++delivered_;
  const std::uint32_t number = notification.number;
  if (number == 0 && !notification.honestPeer) {
    ++ofOthers_;
    return;
  }
  if (number == 0 || number > journal_.published() || subjectOf(number) != notification.subject) {
    if (notPublished_.countAndShow()) {
      std::printf("  delivered, but never published: number %u during \"%s\"\n", number, notification.fault);
    }
    return;
  }
  if (number <= newest_ && disordered_.countAndShow()) {
    std::printf("  delivered twice or out of order: number %u after %u during \"%s\"\n", number, newest_,
                notification.fault);
  }
  newest_ = std::max(newest_, number);
}

bool History::judgeCalls() const {
  std::map<int, std::size_t> outcomes;
  Wrong wrong;
  Wrong unanswered;
  Wrong ghosts;
  Wrong twice;
  for (const Call& call : calls_) {
    ++outcomes[std::min(call.status, 0)];
    const unsigned times = journal_.timesCarriedOut(call.token);
    const auto count = [&call](Wrong& kind, const char* what) {
      if (!kind.countAndShow()) return;
      std::printf("  %s: request %u during \"%s\" (%d)\n", what, call.token, call.fault, call.status);
    };
    if (call.honestPeer && call.status >= 0 && !call.ownAnswer) count(wrong, "another's answer");
    if (call.honestPeer && call.status >= 0 && times == 0) count(unanswered, "answered, but not carried out");
    if (promisedNotSent(call.status) && times > 0) count(ghosts, "reported as not sent, but carried out");
    if (times > 1) count(twice, "carried out twice");
  }
  std::printf("%zu requests:", calls_.size());
  for (const auto& [result, times] : outcomes) std::printf(" %zu x %d", times, result);
  std::printf("\nwrong answers %zu, answered but not carried out %zu, ghosts %zu, carried out twice %zu\n", wrong.times,
              unanswered.times, ghosts.times, twice.times);
  std::printf("requests lost behind what a hostile peer had sent: %zu\n", lost_);
  return wrong.times + unanswered.times + ghosts.times + twice.times == 0;
}

/// Each request ends once.
bool History::judgeEnds() const {
  std::vector<std::uint32_t> tokens;
  for (const Call& call : calls_) tokens.push_back(call.token);
  std::sort(tokens.begin(), tokens.end());
  const auto distinct = static_cast<std::size_t>(std::unique(tokens.begin(), tokens.end()) - tokens.begin());
  std::printf("%zu requests submitted: never ended %zu, ended again %zu\n", submissions_, submissions_ - distinct,
              calls_.size() - distinct);
  return submissions_ == distinct && calls_.size() == distinct;
}

/// The daemons see the requests in the order in which they were submitted.
bool History::judgeOrder() const {
  std::map<std::uint32_t, const Call*> calls;
  for (const Call& call : calls_) calls[call.token] = &call;
  Wrong overtaken;
  std::uint32_t newest = 0;
  for (const std::uint32_t token : journal_.order()) {
    const auto found = calls.find(token);
    if (token < newest && found != calls.end() && !mayBeOvertaken(found->second->status) && overtaken.countAndShow()) {
      std::printf("  carried out behind request %u: request %u during \"%s\" (%d)\n", newest, token,
                  found->second->fault, found->second->status);
    }
    newest = std::max(newest, token);
  }
  std::printf("carried out in another order than submitted %zu\n", overtaken.times);
  return overtaken.times == 0;
}

bool History::judgeNotifications() const {
  std::printf("%zu notifications, %zu of them from hostile peers: never published %zu, twice or out of order %zu\n",
              delivered_, ofOthers_, notPublished_.times, disordered_.times);
  if (!returns_.empty()) {
    std::vector<microseconds> times = returns_;
    std::sort(times.begin(), times.end());
    std::printf("received again after %zu returns: median %.1f ms, worst %.1f ms\n", times.size(),
                inMs(times[times.size() / 2]), inMs(times.back()));
  }
  return notPublished_.times + disordered_.times == 0;
}

bool History::judgeWaits() const {
  bool inTime = true;
  for (const auto& [what, longest] : waits_) {
    std::printf(
        "%s: %zu times, worst overrun %.1f ms (control at most %.1f ms late), over %d ms %zu, and %zu while this "
        "process was not scheduled\n",
        what.c_str(), longest.times, inMs(longest.overrun), inMs(longest.controlLate),
        static_cast<int>(kAllowedOverrun.count()), longest.late.times, longest.unscheduled);
    inTime = inTime && longest.late.times == 0;
  }
  return inTime;
}

Verdict History::judge() const {
  const bool ends = judgeEnds();
  const bool order = judgeOrder();
  const bool calls = judgeCalls();
  const bool notifications = judgeNotifications();
  const bool inTime = judgeWaits();
  int failures = 0;
  for (const auto& [what, times] : failures_) {
    std::printf("  %s: %d times\n", what.c_str(), times);
    failures += times;
  }
  std::printf("dead clients, dead subscribers, stale views: %d\n", failures);
  if (!ends || !order || !calls || !notifications || failures > 0) return Verdict::kWrong;
  return inTime ? Verdict::kRight : Verdict::kLate;
}

}  // namespace zel::test
