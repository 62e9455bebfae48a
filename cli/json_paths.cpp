#include "cli/json_paths.h"

#include <map>
#include <set>

namespace zel::ctl {

namespace {

/// The members that name an element of the daemon's lists: of interface configurations, interfaces, whitelist entries.
constexpr const char* kNameMembers[] = {"eth", "name", "ip"};

/// The names of a list's elements by this member; empty when one of them has none or has another's.
Words namesBy(const char* member, const Json::Value& list) {
  Words names;
  std::set<std::string> seen;
  for (const Json::Value& element : list) {
    const Json::Value name = element.isObject() ? element[member] : Json::Value();
    if (!name.isString() || name.asString().empty() || !seen.insert(name.asString()).second) return {};
    names.push_back(name.asString());
  }
  return names;
}

Words namesOf(const Json::Value& list) {
  for (const char* member : kNameMembers) {
    if (Words names = namesBy(member, list); !names.empty()) return names;
  }
  Words names;
  for (Json::ArrayIndex i = 0; i < list.size(); ++i) names.push_back(std::to_string(i));
  return names;
}

/// The steps that lead from a value to the values in it.
std::vector<Leaf> childrenOf(const Json::Value& value) {
  std::vector<Leaf> children;
  if (value.isObject()) {
    for (const std::string& name : value.getMemberNames()) children.emplace_back(name, value[name]);
  }
  if (value.isArray()) {
    const Words names = namesOf(value);
    for (Json::ArrayIndex i = 0; i < value.size(); ++i) children.emplace_back(names[i], value[i]);
  }
  return children;
}

std::string join(const std::string& path, const std::string& step) { return path.empty() ? step : path + "/" + step; }

template <class Visit>
void walk(const std::string& path, const Json::Value& value, const Visit& visit) {
  const std::vector<Leaf> children = childrenOf(value);
  visit(path, value, children.empty());
  for (const auto& [step, child] : children) walk(join(path, step), child, visit);
}

}  // namespace

std::vector<Leaf> leavesOf(const Json::Value& document) {
  std::vector<Leaf> leaves;
  walk("", document, [&leaves](const std::string& path, const Json::Value& value, bool isLeaf) {
    if (isLeaf && !path.empty()) leaves.emplace_back(path, value);
  });
  return leaves;
}

Words pathsOf(const Json::Value& document) {
  Words paths;
  walk("", document, [&paths](const std::string& path, const Json::Value&, bool) {
    if (!path.empty()) paths.push_back(path);
  });
  return paths;
}

std::optional<Json::Value> valueAt(const Json::Value& document, const std::string& path) {
  if (path.empty()) return document;
  if (path.front() == '/') return valueAt(document, path.substr(1));
  for (const auto& [step, child] : childrenOf(document)) {
    if (path == step) return child;
    // A name may hold a slash itself, so the steps are tried and not cut out of the path.
    if (path.compare(0, step.size() + 1, step + "/") != 0) continue;
    if (std::optional<Json::Value> found = valueAt(child, path.substr(step.size() + 1))) return found;
  }
  return std::nullopt;
}

std::vector<Change> changesBetween(const Json::Value& before, const Json::Value& after) {
  std::map<std::string, Change> changes;
  for (auto& [path, value] : leavesOf(before)) changes[path].before = value;
  for (auto& [path, value] : leavesOf(after)) changes[path].after = value;

  std::vector<Change> differing;
  for (auto& [path, change] : changes) {
    change.path = path;
    if (change.before != change.after) differing.push_back(change);
  }
  return differing;
}

}  // namespace zel::ctl
