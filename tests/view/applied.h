#pragma once

#include <json/value.h>

#include <algorithm>
#include <string>

#include "view/differences.h"

namespace zel::test {

/// The place in a document that a difference names; null when a part of the path is not there. The last step may be an
/// element that is to be added.
inline Json::Value* placeOf(Json::Value& document, const std::string& path, Json::Value** array = nullptr,
                            Json::ArrayIndex* index = nullptr) {
  if (path.empty()) return &document;
  Json::Value* place = &document;
  for (std::size_t begin = 0; begin <= path.size();) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    const std::string step = path.substr(begin, end - begin);
    if (place->isArray()) {
      Json::ArrayIndex at = 0;
      const auto isNamed = [&](const Json::Value& element) {
        for (const char* const name : {"name", "eth", "ip"}) {
          if (element.isMember(name)) return element[name] == Json::Value(step);
        }
        return false;
      };
      while (at < place->size() && !isNamed((*place)[at])) ++at;
      if (array != nullptr) {
        *array = place;
        *index = at;
      }
      place = &(*place)[at];
    } else {
      if (array != nullptr) *array = nullptr;
      place = &(*place)[step];
    }
    begin = end + 1;
  }
  return place;
}

/// Puts a difference into a document.
inline void apply(const zel::Difference& difference, Json::Value& document) {
  Json::Value* array = nullptr;
  Json::ArrayIndex index = 0;
  Json::Value* const place = placeOf(document, difference.path, &array, &index);
  if (difference.now) {
    *place = *difference.now;
  } else if (array != nullptr) {
    Json::Value removed;
    array->removeIndex(index, &removed);
  } else {
    const std::size_t slash = difference.path.rfind('/');
    Json::Value* const object =
        slash == std::string::npos ? &document : placeOf(document, difference.path.substr(0, slash));
    object->removeMember(difference.path.substr(slash == std::string::npos ? 0 : slash + 1));
  }
}

}  // namespace zel::test
