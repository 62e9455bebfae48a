#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>

#include "tests/support/private_network.h"

namespace {
constexpr int kSkipped = 77;  // what ctest is told to report as skipped

/// Under ctest every network test gets its namespace; by hand too, unless it is only asked for the list of its tests.
bool wantsPrivateNetwork() { return std::getenv("ZEL_TEST_PRIVATE_NETWORK") != nullptr; }
}  // namespace

int main(int argc, char** argv) {
  if (wantsPrivateNetwork()) {
    const std::string why = zel::test::enterPrivateNetwork();
    if (!why.empty()) {
      std::printf("SKIPPED: this system allows no network namespace (%s)\n", why.c_str());
      return kSkipped;
    }
  }
  testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}
