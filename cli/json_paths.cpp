#include "cli/json_paths.h"

#include <cstddef>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "common/shared/element_names.h"

namespace zel::ctl {

namespace {

constexpr std::size_t kLongestTyped = 200;  ///< bytes of a path that is offered or suggested

Words namesOf(const Json::Value& list) {
  Words names = namesOfElements(list);
  if (!names.empty()) return names;
  for (Json::ArrayIndex i = 0; i < list.size(); ++i) names.push_back(std::to_string(i));
  return names;
}

/// The steps that lead from a value to the values in it, in the document's order.
using Steps = std::vector<std::pair<std::string, const Json::Value*>>;
Steps stepsOf(const Json::Value& value) {
  Steps steps;
  if (value.isObject()) {
    for (auto member = value.begin(); member != value.end(); ++member) steps.emplace_back(member.name(), &*member);
  }
  if (value.isArray()) {
    Words names = namesOf(value);
    for (Json::ArrayIndex i = 0; i < value.size(); ++i) steps.emplace_back(std::move(names[i]), &value[i]);
  }
  return steps;
}

bool isLeaf(const Json::Value& value) { return value.empty() || !(value.isObject() || value.isArray()); }

/// A path that grows by a step as long as this lives.
class Longer {
 public:
  Longer(std::string& path, const std::string& step) : path_(path), size_(path.size()) {
    if (!path.empty()) path += '/';
    path += step;
  }
  ~Longer() { path_.resize(size_); }
  Longer(const Longer&) = delete;
  Longer& operator=(const Longer&) = delete;

 private:
  std::string& path_;
  std::size_t size_;
};

/// Visits everything in the value; what is deeper only where the visitor returns true.
template <class Visit>
void walk(std::string& path, const Json::Value& value, const Visit& visit) {
  for (const auto& [step, child] : stepsOf(value)) {
    const Longer longer(path, step);
    if (visit(path, *child)) walk(path, *child, visit);
  }
}

}  // namespace

void forEachLeaf(const Json::Value& document,
                 const std::function<void(const std::string& path, const Json::Value& value)>& visit) {
  std::string path;
  walk(path, document, [&visit](const std::string& at, const Json::Value& value) {
    if (!isLeaf(value)) return true;
    visit(at, value);
    return false;
  });
}

Words pathsOf(const Json::Value& document) {
  Words paths;
  std::string path;
  walk(path, document, [&paths](const std::string& at, const Json::Value&) {
    if (at.size() > kLongestTyped) return false;
    paths.push_back(at);
    return true;
  });
  return paths;
}

const Json::Value* valueAt(const Json::Value& document, const std::string& path) {
  if (path.empty()) return &document;
  if (path.front() == '/') return valueAt(document, path.substr(1));
  for (const auto& [step, child] : stepsOf(document)) {
    if (path == step) return child;
    // A name may hold a slash itself, so the steps are tried and not cut out of the path.
    if (path.compare(0, step.size(), step) != 0 || path[step.size()] != '/') continue;
    if (const Json::Value* const found = valueAt(*child, path.substr(step.size() + 1))) return found;
  }
  return nullptr;
}

namespace {

/// The way from the top of a document to a value: the members' names; nothing where the step goes into a list.
using Way = std::vector<std::optional<std::string>>;

/// The value inside objects and lists that hold nothing else.
Json::Value alone(const Way& way, Json::Value value) {
  for (auto step = way.rbegin(); step != way.rend(); ++step) {
    Json::Value outer;
    if (*step) {
      outer[**step] = std::move(value);
    } else {
      outer.append(std::move(value));
    }
    value = std::move(outer);
  }
  return value;
}

}  // namespace

std::string pathOfFault(const Json::Value& document, const std::function<bool(Json::Value& part)>& fails) {
  std::string path;
  Way way;
  const Json::Value* place = &document;
  while (place != nullptr) {
    const Json::Value* const outer = std::exchange(place, nullptr);
    Json::Value empty = alone(way, Json::Value(outer->type()));
    if (fails(empty)) break;
    for (const auto& [step, child] : stepsOf(*outer)) {
      way.push_back(outer->isArray() ? std::nullopt : std::optional(step));
      Json::Value part = alone(way, *child);
      if (fails(part)) {
        path += (path.empty() ? "" : "/") + step;
        place = child;
        break;
      }
      way.pop_back();
    }
  }
  return path;
}

namespace {

template <class Visit>
void compare(std::string& path, const Json::Value& before, const Json::Value& after, const Visit& visit) {
  std::map<std::string, std::pair<const Json::Value*, const Json::Value*>> steps;
  for (const auto& [step, child] : stepsOf(before)) steps[step].first = child;
  for (const auto& [step, child] : stepsOf(after)) steps[step].second = child;
  for (const auto& [step, children] : steps) {
    const auto& [old, now] = children;
    const Longer longer(path, step);
    const Json::Value* const oldLeaf = old != nullptr && isLeaf(*old) ? old : nullptr;
    const Json::Value* const newLeaf = now != nullptr && isLeaf(*now) ? now : nullptr;
    const bool same = oldLeaf != nullptr && newLeaf != nullptr ? *oldLeaf == *newLeaf : oldLeaf == newLeaf;
    if (!same) visit(path, oldLeaf, newLeaf);
    const Json::Value& none = Json::Value::nullSingleton();
    compare(path, old == nullptr ? none : *old, now == nullptr ? none : *now, visit);
  }
}

}  // namespace

void forEachChange(
    const Json::Value& before, const Json::Value& after,
    const std::function<void(const std::string& path, const Json::Value* before, const Json::Value* after)>& visit) {
  std::string path;
  compare(path, before, after, visit);
}

}  // namespace zel::ctl
