#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <new>
#include <utility>

#include "common/shared/process_mutex.h"

// Header-only, so that the API's library needs nothing of libzelCommonTypes for it.

namespace zel {

/// Memory for objects of one type that is used again for the next object of the type and never given back.
///
/// At the end of the process a static object may be destroyed while another thread calls it. Its memory stays what it
/// was, so such a call finds the object ended instead of memory that something else uses.
///
/// A forked child has none of its parent's other threads, and what one of them was changing stays half changed. So the
/// child does not destroy an object of its parent's: the memory stays as it is.
template <class T>
class Recycled {
 public:
  static void* take() {
    Block* block = takeFree();
    if (block == nullptr) block = new Block;
    block->maker = getpid();
    return block->object;
  }
  static void giveBack(void* memory) noexcept { put(free_, blockOf(memory)); }

  /// Whether the object was made by the parent of this forked process.
  static bool isInherited(T* object) { return blockOf(object)->maker != getpid(); }

  /// Destroys an object and gives its memory back, unless the object is the parent's.
  static void destroy(T* object) noexcept {
    Block* const block = blockOf(object);
    if (isInherited(object)) return put(kept_, block);
    object->~T();
    put(free_, block);
  }

  /// Makes an object of the parent's anew, in its place.
  static void renew(T* object) {
    void* const memory = object;
    Block* const copy = new Block;
    std::memcpy(copy->object, memory, sizeof(T));
    put(kept_, copy);
    try {
      ::new (memory) T;
    } catch (...) {
      std::memcpy(memory, copy->object, sizeof(T));
      throw;
    }
    blockOf(memory)->maker = getpid();
  }

 private:
  struct Block {
    alignas(T) unsigned char object[sizeof(T)];  ///< stays as the object has left it while the memory is free
    Block* next;
    pid_t maker;  ///< the process that made the object
  };

  static Block* blockOf(void* object) { return reinterpret_cast<Block*>(object); }  // the object is its first member
  static Block* takeFree() {
    const ProcessLock lock(processMutex());
    return free_ == nullptr ? nullptr : std::exchange(free_, free_->next);
  }
  static void put(Block*& list, Block* block) noexcept {
    const ProcessLock lock(processMutex());
    block->next = list;
    list = block;
  }

  inline static Block* free_ = nullptr;
  /// The parent's objects that this child has not destroyed, or their bytes: a leak check finds here what they hold.
  inline static Block* kept_ = nullptr;
};

}  // namespace zel
