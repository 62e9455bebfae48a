#include "common/link_keeper.h"

#include <map>
#include <mutex>
#include <new>

namespace zel {

namespace {

struct Registry {
  std::mutex mutex;
  std::map<const void*, LinkKeeper*> keepers;
};

Registry& registry() {
  // In static storage and never destroyed: subscribers in static storage need it at the end of the process.
  alignas(Registry) static unsigned char storage[sizeof(Registry)];
  static Registry* const made = new (storage) Registry;
  return *made;
}

}  // namespace

LinkKeeper* LinkKeeper::of(const void* socket) {
  const std::lock_guard<std::mutex> lock(registry().mutex);
  const auto found = registry().keepers.find(socket);
  return found == registry().keepers.end() ? nullptr : found->second;
}

LinkKeeper::~LinkKeeper() { keepLinkOf(nullptr); }

void LinkKeeper::keepLinkOf(const void* socket) {
  const std::lock_guard<std::mutex> lock(registry().mutex);
  auto& keepers = registry().keepers;
  for (auto it = keepers.begin(); it != keepers.end();) it = it->second == this ? keepers.erase(it) : std::next(it);
  if (socket != nullptr) keepers[socket] = this;
}

}  // namespace zel
