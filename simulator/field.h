#pragma once

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

#include "simulator/refusal.h"

namespace zel::sim {

/// A JSON value as an error text shows it: compact and not too long.
std::string shown(const Json::Value& value);
/// Bytes of unknown origin as an error text shows them: what is not printable ASCII becomes "?".
std::string shownBytes(std::string_view bytes);

Refusal wrongType(const std::string& name, const Json::Value& value, const char* wanted);
Refusal unknownKey(const std::string& name, const Json::Value& value);

/// The values that a number may have, or the lengths in bytes of a text.
struct Range {
  std::int64_t least;
  std::int64_t most;
};

/// A named value of a record: its type follows from its place, its judge is the range, or a function where it takes
/// more than that.
template <class Record>
struct Field {
  using Apply = Refusal (*)(const std::string& name, const Json::Value& value, Record& record);
  using Place = std::variant<bool Record::*, std::string Record::*, int Record::*, std::uint32_t Record::*,
                             std::uint16_t Record::*, Apply>;
  const char* name;
  Place place;
  Range range = {0, 0};
};

Refusal judgeFlag(const std::string& name, const Json::Value& value);
Refusal judgeText(const std::string& name, const Json::Value& value, Range range);
Refusal judgeNumber(const std::string& name, const Json::Value& value, Range range);

/// Sets a record's value, if it is one that the field takes; otherwise the record stays as it is.
/// @param name  what the error text calls the field
template <class Record>
Refusal assign(const Field<Record>& field, const std::string& name, const Json::Value& value, Record& record) {
  const auto set = [&](auto place) -> Refusal {
    using Place = decltype(place);
    if constexpr (std::is_same_v<Place, typename Field<Record>::Apply>) {
      return place(name, value, record);
    } else if constexpr (std::is_same_v<Place, bool Record::*>) {
      if (Refusal why = judgeFlag(name, value)) return why;
      record.*place = value.asBool();
    } else if constexpr (std::is_same_v<Place, std::string Record::*>) {
      if (Refusal why = judgeText(name, value, field.range)) return why;
      record.*place = value.asString();
    } else {
      if (Refusal why = judgeNumber(name, value, field.range)) return why;
      record.*place = static_cast<std::remove_reference_t<decltype(record.*place)>>(value.asInt64());
    }
    return {};
  };
  return std::visit(set, field.place);
}

/// Sets the values that an object holds, one after the other, up to the first that is refused.
template <class Record, std::size_t count>
Refusal assignMembers(const Field<Record> (&fields)[count], const std::string& name, const Json::Value& object,
                      Record& record) {
  if (!object.isObject()) return wrongType(name, object, "an object");
  for (auto member = object.begin(); member != object.end(); ++member) {
    const std::string memberName = name + "/" + member.name();
    const Field<Record>* known = nullptr;
    for (const Field<Record>& field : fields) {
      if (member.name() == field.name) known = &field;
    }
    if (known == nullptr) return unknownKey(memberName, *member);
    if (Refusal why = assign(*known, memberName, *member, record)) return why;
  }
  return {};
}

}  // namespace zel::sim
