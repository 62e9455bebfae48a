#pragma once

#include <json/value.h>

#include <atomic>
#include <memory>

// Header-only, so that the API's library needs nothing of libzelCommonTypes for it.

namespace zel {

/// A value that outlives its use in a slot, for the next use: a document of the shape that was there last is read into
/// its tree instead of building one (`WireJsonReader`), which is what reading costs.
///
/// Who finds the slot empty, because another thread or an outer call is using its value, begins with a new one. What a
/// use leaves in the value does not matter to the next. Slots are static and what they hold last is never destroyed, so
/// they work while the process ends, too.
class KeptValue {
 public:
  using Slot = std::atomic<Json::Value*>;

  explicit KeptValue(Slot& slot) : slot_(slot), value_(slot.exchange(nullptr)) {
    if (!value_) value_ = std::make_unique<Json::Value>();
  }
  ~KeptValue() { delete slot_.exchange(value_.release()); }
  KeptValue(const KeptValue&) = delete;
  KeptValue& operator=(const KeptValue&) = delete;

  Json::Value& operator*() { return *value_; }

 private:
  Slot& slot_;
  std::unique_ptr<Json::Value> value_;
};

}  // namespace zel
