#include "view/differences.h"

#include <algorithm>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "common/shared/element_names.h"

namespace zel {

namespace {

const Json::Value* member(const Json::Value& object, std::string_view name) {
  return object.find(name.data(), name.data() + name.size());
}

bool isStep(const std::string& name) { return !name.empty() && name.find('/') == std::string::npos; }

/// The elements of an array, by their names.
class Named {
 public:
  /// @return nothing when an element has no name of its own
  static std::optional<Named> of(const Json::Value& array) {
    std::optional<Named> elements(std::in_place);
    elements->names_ = namesOfElements(array);
    if (elements->names_.size() != array.size()) return {};
    auto element = array.begin();
    for (const std::string& name : elements->names_) {
      if (!isStep(name)) return {};
      elements->byName_.emplace(name, &*element++);
    }
    return elements;
  }

  /// In the order of the elements.
  const std::vector<std::string>& names() const { return names_; }
  /// Null when there is none.
  const Json::Value* find(const std::string& name) const {
    const auto found = byName_.find(name);
    return found == byName_.end() ? nullptr : found->second;
  }

 private:
  std::vector<std::string> names_;
  std::unordered_map<std::string, const Json::Value*> byName_;
};

class Comparison {
 public:
  std::vector<Difference> run(const Json::Value& before, const Json::Value& now) && {
    compare(before, now);
    return std::move(found_);
  }

 private:
  void compare(const Json::Value& before, const Json::Value& now) {
    if (before == now) return;
    if (before.isObject() && now.isObject() && hasSteps(before) && hasSteps(now)) return compareObjects(before, now);
    if (before.isArray() && now.isArray() && compareArrays(before, now)) return;
    found_.push_back({path_, before, now});
  }

  static bool hasSteps(const Json::Value& object) {
    const std::vector<std::string> names = object.getMemberNames();
    return std::all_of(names.begin(), names.end(), isStep);
  }

  void compareObjects(const Json::Value& before, const Json::Value& now) {
    for (const std::string& name : before.getMemberNames()) compareSteps(name, member(before, name), member(now, name));
    for (const std::string& name : now.getMemberNames()) {
      if (member(before, name) == nullptr) compareSteps(name, nullptr, member(now, name));
    }
  }

  /// @return false when the elements cannot be compared one by one
  bool compareArrays(const Json::Value& before, const Json::Value& now) {
    const std::optional<Named> old = Named::of(before);
    const std::optional<Named> next = Named::of(now);
    if (!old || !next || !isInOrder(*old, *next)) return false;
    for (const std::string& name : old->names()) compareSteps(name, old->find(name), next->find(name));
    for (const std::string& name : next->names()) {
      if (old->find(name) == nullptr) compareSteps(name, nullptr, next->find(name));
    }
    return true;
  }

  /// Whether the elements that stay are in the same order, and the new ones behind them.
  static bool isInOrder(const Named& old, const Named& next) {
    std::vector<std::string_view> kept;
    for (const std::string& name : old.names()) {
      if (next.find(name) != nullptr) kept.push_back(name);
    }
    return std::equal(kept.begin(), kept.end(), next.names().begin());  // each is one of `next`
  }

  void compareSteps(const std::string& name, const Json::Value* before, const Json::Value* now) {
    const std::size_t length = path_.size();
    path_ += (path_.empty() ? "" : "/") + name;
    if (before != nullptr && now != nullptr) {
      compare(*before, *now);
    } else if (before != nullptr) {
      found_.push_back({path_, *before, {}});
    } else {
      found_.push_back({path_, {}, *now});
    }
    path_.resize(length);
  }

  std::string path_;
  std::vector<Difference> found_;
};

}  // namespace

std::vector<Difference> differences(const Json::Value& before, const Json::Value& now) {
  return Comparison().run(before, now);
}

}  // namespace zel
