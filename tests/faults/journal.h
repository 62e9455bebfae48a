#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <vector>

#include "tests/faults/documents.h"

namespace zel::test {

/// What the daemons of a run have carried out and published, in memory that outlives each of them: a daemon that is
/// killed takes nothing of its record with it. It is their store, too: the next daemon goes on from there.
class Journal {
 public:
  static constexpr std::uint32_t kTokens = 1U << 20;

  /// A new journal; its descriptor is inherited by the programs that this process starts.
  static Journal create();
  /// The journal behind a descriptor that was inherited.
  static Journal inherit(int descriptor);

  int descriptor() const { return descriptor_; }

  void carriedOut(std::uint32_t token);
  unsigned timesCarriedOut(std::uint32_t token) const { return record_->carriedOut[token].load(); }

  /// The tokens in the order in which the daemons carried them out.
  std::vector<std::uint32_t> order() const;

  /// The number of the next document, which is then the state of its subject. To be called before it is published.
  std::uint32_t publish();
  /// How many documents were published; they are numbered from 1 on.
  std::uint32_t published() const { return record_->published.load(); }
  /// The number of the newest document about a subject; 0 when there is none.
  std::uint32_t newest(Subject subject) const { return record_->newest[static_cast<std::size_t>(subject)].load(); }

 private:
  struct Record {
    std::atomic<std::uint32_t> published;
    std::array<std::atomic<std::uint32_t>, kSubjects> newest;
    std::array<std::atomic<std::uint8_t>, kTokens> carriedOut;
    std::atomic<std::uint32_t> ordered;
    std::array<std::atomic<std::uint32_t>, kTokens> order;
  };
  static_assert(std::atomic<std::uint8_t>::is_always_lock_free && std::atomic<std::uint32_t>::is_always_lock_free,
                "the counts are shared between processes");
  explicit Journal(int descriptor);

  int descriptor_;
  Record* record_;
};

}  // namespace zel::test
