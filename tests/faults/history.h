#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tests/faults/journal.h"

namespace zel::test {

/// Every call of a run and what came of it, to be compared with what the daemons say that they did.
class History {
 public:
  struct Call {
    std::uint32_t token;
    int status;
    bool ownAnswer;   ///< the answer was the one to this request; meaningless when there was none
    bool honestPeer;  ///< who listens may be slow or dying, but does not invent answers
    std::chrono::microseconds took;
    std::chrono::milliseconds limit;
    const char* fault;  ///< what was going on
  };

  void add(const Call& call) { calls_.push_back(call); }
  /// The client did not answer although a healthy daemon was there.
  void addDeadClient(const char* fault) { ++deadAfter_[fault]; }

  std::size_t calls() const { return calls_.size(); }

  /// Judges the run, and prints what it found.
  /// @return whether nothing is wrong
  bool judge(const Journal& journal) const;

 private:
  std::vector<Call> calls_;
  std::map<std::string, int> deadAfter_;
};

}  // namespace zel::test
