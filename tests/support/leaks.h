#pragma once

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZEL_LEAK_CHECK
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define ZEL_LEAK_CHECK
#endif
#ifdef ZEL_LEAK_CHECK
#include <sanitizer/lsan_interface.h>
#endif

namespace zel::test {

/// What is allocated while this lives may stay: the code under test gives it up on purpose.
class LeaksOnPurpose {
 public:
#ifdef ZEL_LEAK_CHECK
  LeaksOnPurpose() { __lsan_disable(); }
  ~LeaksOnPurpose() { __lsan_enable(); }
#else
  LeaksOnPurpose() {}  // NOLINT(modernize-use-equals-default): else it counts as unused
#endif
  LeaksOnPurpose(const LeaksOnPurpose&) = delete;
  LeaksOnPurpose& operator=(const LeaksOnPurpose&) = delete;
};

}  // namespace zel::test
