#pragma once

#include <gtest/gtest.h>

#include <new>
#include <optional>

namespace zel::test {

/// While it lives, one allocation of this thread fails. Only calls of operator new are counted, except those of
/// libzmq, which ends the process when an allocation of its own fails.
///
/// A program that uses this has to have failing_allocations.cpp among its sources, which replaces operator new.
class FailingAllocation {
 public:
  /// @param number  which allocation fails, from 1
  explicit FailingAllocation(long number);
  ~FailingAllocation();
  FailingAllocation(const FailingAllocation&) = delete;
  FailingAllocation& operator=(const FailingAllocation&) = delete;

  /// Whether the allocation has failed.
  bool happened() const;
};

/// Tries an operation with its first allocation failing, then with its second and so on, and once with none.
///
/// @param attempt  the operation, which returns a status
/// @param judge    is told the status, none where `std::bad_alloc` came out of the operation; leaves all as it was
/// @return how many allocations have failed
template <class Attempt, class Judge>
long failEachAllocation(Attempt attempt, Judge judge) {
  for (long number = 1;; ++number) {
    SCOPED_TRACE(testing::Message() << "allocation " << number << " failed");
    std::optional<int> status;
    bool happened = false;
    {
      const FailingAllocation failing(number);
      try {
        status = attempt();
      } catch (const std::bad_alloc&) {
        // as documented
      }
      happened = failing.happened();
    }
    judge(status);
    if (!happened) {
      EXPECT_EQ(status.value_or(-1) < 0, false);
      return number - 1;
    }
    if (testing::Test::HasFailure()) return number;
  }
}

}  // namespace zel::test
