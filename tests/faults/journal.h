#pragma once

#include <atomic>
#include <cstdint>
#include <new>

namespace zel::test {

/// What the daemons of a run have carried out, in memory that outlives each of them: a daemon that is killed takes
/// nothing of its record with it.
class Journal {
 public:
  static constexpr std::uint32_t kTokens = 1U << 20;

  /// A new journal; its descriptor is inherited by the programs that this process starts.
  static Journal create();
  /// The journal behind a descriptor that was inherited.
  static Journal inherit(int descriptor);

  int descriptor() const { return descriptor_; }
  void carriedOut(std::uint32_t token) { counts_[token].fetch_add(1); }
  unsigned timesCarriedOut(std::uint32_t token) const { return counts_[token].load(); }

 private:
  using Count = std::atomic<std::uint8_t>;
  static_assert(Count::is_always_lock_free, "the counts are shared between processes");
  explicit Journal(int descriptor);

  int descriptor_;
  Count* counts_;
};

}  // namespace zel::test
