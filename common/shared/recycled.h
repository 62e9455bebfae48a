#pragma once

#include <cstddef>
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
      if (free_ != nullptr) return std::exchange(free_, free_->next)->object;
    }
    return (new Block)->object;
  }
  static void giveBack(void* memory) noexcept {
    const ProcessLock lock(processMutex());
    Block* const block = reinterpret_cast<Block*>(memory);  // the object is its first member
    block->next = free_;
    free_ = block;
  }

 private:
  struct Block {
    alignas(T) unsigned char object[sizeof(T)];  ///< stays as the object has left it while the memory is free
    Block* next;
  };
  inline static Block* free_ = nullptr;
};

}  // namespace zel
