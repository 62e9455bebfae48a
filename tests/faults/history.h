#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tests/faults/journal.h"

namespace zel::test {

/// What a run was; the program's exit status, too.
enum class Verdict {
  kRight = 0,
  kWrong = 1,
  kLate = 3,  ///< right, except that a wait took too long, perhaps since the machine was busy
};

/// Everything that happened to the client and the subscribers of a run, to be compared with what the daemons say that
/// they did.
class History {
 public:
  explicit History(const Journal& journal) : journal_(journal) {}

  // The ends of requests whose client was destroyed, beside the library's statuses.
  static constexpr int kDestroyedFirst = -10001;   ///< it may have been sent
  static constexpr int kDestroyedBehind = -10002;  ///< it waited behind another: not sent

  /// A request was submitted; the tokens count up.
  void addSubmission() { ++submissions_; }
  /// A request has ended.
  struct Call {
    std::uint32_t token;
    int status;
    bool ownAnswer;     ///< the answer was the one to this request; meaningless when there was none
    bool honestPeer;    ///< the peer is a daemon, perhaps slow or dying: its answers are never false
    const char* fault;  ///< what was going on
  };
  void add(const Call& call) { calls_.push_back(call); }

  /// Something that the library did, which may take so long.
  struct Wait {
    const char* what;
    std::chrono::microseconds took;
    std::chrono::milliseconds limit;
    std::chrono::microseconds controlLate;  ///< how late the control was woken meanwhile
    const char* fault;
  };
  void add(const Wait& wait);

  /// A notification was delivered.
  struct Notification {
    Subject subject;
    std::uint32_t number;  ///< 0: it has none, as no document of a daemon's
    bool honestPeer;
    const char* fault;
  };
  void add(const Notification& notification);

  /// The newest notification so far that came from a daemon; 0: none.
  std::uint32_t newest() const { return newest_; }

  /// What did not work although a healthy daemon was there.
  void addFailure(const std::string& what, const char* fault) { ++failures_[what + " after \"" + fault + '"']; }
  /// The first request after a hostile peer was written into the connection to that peer.
  void addLostRequest() { ++lost_; }
  /// The subscriber received again, so long after the daemon was back.
  void addReturn(std::chrono::microseconds time) { returns_.push_back(time); }

  /// Judges the run, and prints what it found.
  Verdict judge() const;

 private:
  /// How often something was wrong. The first few are printed where they happen.
  struct Wrong {
    std::size_t times = 0;
    bool countAndShow() { return ++times <= 5; }
  };
  struct Longest {
    std::chrono::microseconds overrun{0};
    std::chrono::microseconds controlLate{0};
    std::size_t times = 0;
    std::size_t unscheduled = 0;  ///< over the limit, but the control was as late
    Wrong late;
  };
  bool judgeCalls() const;
  bool judgeEnds() const;
  bool judgeOrder() const;
  bool judgeNotifications() const;
  bool judgeWaits() const;

  const Journal& journal_;
  std::size_t submissions_ = 0;
  std::vector<Call> calls_;
  std::map<std::string, Longest> waits_;
  std::map<std::string, int> failures_;
  std::vector<std::chrono::microseconds> returns_;
  std::size_t lost_ = 0;
  std::uint32_t newest_ = 0;
  std::size_t delivered_ = 0;
  std::size_t ofOthers_ = 0;
  Wrong notPublished_;
  Wrong disordered_;
};

}  // namespace zel::test
