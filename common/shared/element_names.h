#pragma once

#include <json/value.h>

#include <string>
#include <vector>

namespace zel {

/// The name of an element in one of the daemon's lists: the text of its member "eth" (interface configurations), "name"
/// (interfaces) or "ip" (whitelist entries), the first that it has. Empty: it has none.
std::string nameOfElement(const Json::Value& element);

/// The names of the elements of a list, in their order. Empty when an element has none, or the name of another.
std::vector<std::string> namesOfElements(const Json::Value& list);

}  // namespace zel
