#include "tests/faults/history.h"

#include <algorithm>
#include <cstdio>

#include "common/status.h"

namespace zel::test {

namespace {

namespace status = zel::status;

/// Whether the client promised that the request was and will not be carried out.
bool promisedNotSent(int result) {
  return result == status::kNotInitialized || result == status::kCannotConnect || result == status::kNotSent ||
         result == status::kBadRequest;
}

constexpr std::chrono::milliseconds kAllowedOverrun{50};

}  // namespace

bool History::judge(const Journal& journal) const {
  std::map<int, std::size_t> outcomes;
  std::size_t wrong = 0;
  std::size_t ghosts = 0;
  std::size_t twice = 0;
  std::size_t unanswered = 0;
  std::size_t late = 0;
  std::chrono::microseconds worst{0};

  for (const Call& call : calls_) {
    ++outcomes[std::min(call.status, 0)];
    const unsigned times = journal.timesCarriedOut(call.token);
    const auto overrun = call.took - std::chrono::microseconds(call.limit);
    const auto count = [&call](std::size_t& counter, const char* what) {
      if (++counter <= 5)
        std::printf("  %s: request %u during \"%s\" (%d)\n", what, call.token, call.fault, call.status);
    };
    if (call.honestPeer && call.status >= 0 && !call.ownAnswer) count(wrong, "another's answer");
    if (call.honestPeer && call.status >= 0 && times == 0) count(unanswered, "answered, but not carried out");
    if (promisedNotSent(call.status) && times > 0) count(ghosts, "reported as not sent, but carried out");
    if (times > 1) count(twice, "carried out twice");
    if (overrun > kAllowedOverrun) count(late, "over its time-out");
    worst = std::max(worst, overrun);
  }
  int dead = 0;
  for (const auto& [fault, times] : deadAfter_) {
    std::printf("  no answer from a healthy daemon after \"%s\": %d times\n", fault.c_str(), times);
    dead += times;
  }

  std::printf("%zu requests:", calls_.size());
  for (const auto& [result, times] : outcomes) std::printf(" %zu x %d", times, result);
  std::printf(
      "\nwrong answers %zu, answered but not carried out %zu, ghosts %zu, carried out twice %zu, dead clients %d, "
      "late %zu, worst overrun %.1f ms\n",
      wrong, unanswered, ghosts, twice, dead, late, static_cast<double>(worst.count()) / 1000);
  return wrong + unanswered + ghosts + twice + late == 0 && dead == 0;
}

}  // namespace zel::test
