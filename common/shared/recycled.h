#pragma once

#include <cstddef>
#include <new>
#include <utility>

#include "common/shared/process_mutex.h"

// Header-only, so that the API's library needs nothing of libzelCommonTypes for it.

namespace zel {

/// Memory for objects of one type that is used again for the next object of the type and never given back.
///
/// At the end of the process a static object may be destroyed while another thread calls it. Its memory stays what it
/// was, so such a call finds the object ended instead of memory that something else uses.
template <class T>
class Recycled {
 public:
  static void* take() {
    {
      const ProcessLock lock(processMutex());
      if (free_ != nullptr) return std::exchange(free_, free_->next);
    }
    return ::operator new(sizeof(T));
  }
  static void giveBack(void* memory) noexcept {
    const ProcessLock lock(processMutex());
    free_ = new (memory) Link{free_};
  }

 private:
  /// What lies in the first bytes of the memory while it is free. The others stay as the object has left them.
  struct Link {
    Link* next;
  };
  static_assert(sizeof(T) >= sizeof(Link) && alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);

  inline static Link* free_ = nullptr;
};

}  // namespace zel
