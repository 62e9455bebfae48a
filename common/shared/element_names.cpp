#include "common/shared/element_names.h"

#include <algorithm>
#include <string_view>

namespace zel {

std::string nameOfElement(const Json::Value& element) {
  constexpr std::string_view kMembers[] = {"eth", "name", "ip"};
  if (!element.isObject()) return {};
  for (const std::string_view member : kMembers) {
    const Json::Value* const name = element.find(member.data(), member.data() + member.size());
    if (name != nullptr && name->isString()) return name->asString();
  }
  return {};
}

std::vector<std::string> namesOfElements(const Json::Value& list) {
  std::vector<std::string> names;
  for (const Json::Value& element : list) {
    names.push_back(nameOfElement(element));
    if (names.back().empty()) return {};
  }
  std::vector<std::string> sorted = names;
  std::sort(sorted.begin(), sorted.end());
  if (std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end()) return {};
  return names;
}

}  // namespace zel
