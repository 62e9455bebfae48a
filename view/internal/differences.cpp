#include "view/differences.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "common/shared/element_names.h"

namespace zel {

namespace {

const Json::Value* member(const Json::Value& object, std::string_view name) {
  return object.find(name.data(), name.data() + name.size());
}

bool isStep(const std::string& name) { return !name.empty() && name.find('/') == std::string::npos; }

/// The elements of an array with their names, in their order.
using Named = std::vector<std::pair<std::string, const Json::Value*>>;

const Json::Value* find(const Named& elements, const std::string& name) {
  const auto found =
      std::find_if(elements.begin(), elements.end(), [&](const auto& element) { return element.first == name; });
  return found == elements.end() ? nullptr : found->second;
}

/// @return nothing when an element has no name of its own
std::optional<Named> named(const Json::Value& array) {
  std::vector<std::string> names = namesOfElements(array);
  if (names.size() != array.size() || !std::all_of(names.begin(), names.end(), isStep)) return {};
  Named elements;
  for (Json::ArrayIndex i = 0; i < array.size(); ++i) elements.emplace_back(std::move(names[i]), &array[i]);
  return elements;
}

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
    const std::optional<Named> old = named(before);
    const std::optional<Named> next = named(now);
    if (!old || !next || !isInOrder(*old, *next)) return false;
    for (const auto& [name, element] : *old) compareSteps(name, element, find(*next, name));
    for (const auto& [name, element] : *next) {
      if (find(*old, name) == nullptr) compareSteps(name, nullptr, element);
    }
    return true;
  }

  /// Whether the elements that stay are in the same order, and the new ones behind them.
  static bool isInOrder(const Named& old, const Named& next) {
    std::vector<std::string_view> kept;
    for (const auto& [name, element] : old) {
      if (find(next, name) != nullptr) kept.push_back(name);
    }
    const auto isSame = [](const std::string_view name, const auto& element) { return name == element.first; };
    return kept.size() <= next.size() && std::equal(kept.begin(), kept.end(), next.begin(), isSame);
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
