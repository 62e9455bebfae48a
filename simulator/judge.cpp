#include "simulator/judge.h"

#include <cstdint>
#include <vector>

#include "common/ip_address.h"
#include "common/shared/format_text.h"
#include "common/shared/utf8.h"
#include "common/shared/wire_json.h"

namespace zel::sim {

namespace {

constexpr std::size_t kMostShown = 160;

std::string is(const std::string& name, const Json::Value& value) { return "\"" + name + "\" is " + shown(value); }

/// What an error text calls a member of an object; the object that is a whole body has no name.
std::string memberName(const std::string& object, const std::string& member) {
  return object.empty() ? member : object + "/" + member;
}

std::string rangeOf(const SettingRow& row) {
  return std::to_string(row.values.least) + " to " + std::to_string(row.values.most) + ".";
}

bool isWithin(std::int64_t number, const SettingRow& row) {
  return number >= row.values.least && number <= row.values.most;
}

Refusal judgeNumber(const std::string& name, const Json::Value& value, const SettingRow& row) {
  if (value.type() != Json::intValue && value.type() != Json::uintValue) return wrongType(name, value, "an integer");
  if (value.isInt64() && isWithin(value.asInt64(), row)) return {};
  return {refusal::kOutOfRange, is(name, value) + ", which is out of range: " + rangeOf(row)};
}

Refusal judgeText(const std::string& name, const Json::Value& value, const SettingRow& row) {
  if (!value.isString()) return wrongType(name, value, "a text");
  const std::string text = value.asString();
  if (text.find('\0') != std::string::npos) {
    return {refusal::kOutOfRange, is(name, value) + ", which holds a NUL character."};
  }
  if (isWithin(static_cast<std::int64_t>(text.size()), row)) return {};
  return {refusal::kOutOfRange,
          is(name, value) + ", a text of " + std::to_string(text.size()) + " bytes; it must have " + rangeOf(row)};
}

Refusal judgeChoice(const std::string& name, const Json::Value& value, const SettingRow& row) {
  if (!value.isString()) return wrongType(name, value, "a text");
  if (row.acceptsChoice(value.asString())) return {};
  const std::vector<const char*> choices = row.choices();
  return {refusal::kOutOfRange, is(name, value) + ", which is not a " + row.values.name + ": " +
                                    listed(std::vector<std::string>(choices.begin(), choices.end())) + "."};
}

}  // namespace

std::string shown(const Json::Value& value) {
  std::string text;
  const std::string why = writeWireJson(value, text);
  return why.empty() ? shortened(std::move(text), kMostShown) : "a value that cannot be shown: " + why;
}

std::string shownBytes(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes.substr(0, kMostShown + 1)) text += byte >= ' ' && byte <= '~' ? byte : '?';
  return shortened(std::move(text), kMostShown);
}

Refusal wrongType(const std::string& name, const Json::Value& value, const char* wanted) {
  return {refusal::kWrongType, is(name, value) + ", which is not " + wanted + "."};
}

Refusal unknownKey(const std::string& name, const Json::Value& value) {
  return {refusal::kUnknownKey, "\"" + name + "\" is not a known key (its value is " + shown(value) + ")."};
}

Refusal unknownMember(const std::string& object, const std::string& name, const Json::Value& value) {
  const std::string whole = memberName(object, name);
  if (name.find('/') == std::string::npos) return unknownKey(whole, value);
  Json::Value nested = value;
  for (std::size_t end = name.size(); end != std::string::npos;) {
    const std::size_t slash = end == 0 ? std::string::npos : name.rfind('/', end - 1);
    const std::size_t begin = slash == std::string::npos ? 0 : slash + 1;
    Json::Value outer;
    outer[name.substr(begin, end - begin)] = nested;
    nested = std::move(outer);
    end = slash;
  }
  return {refusal::kUnknownKey,
          "\"" + whole + "\" is a path, not the name of a member. As members it is " + shown(nested) + "."};
}

Refusal judge(const std::string& name, const Json::Value& value, const SettingRow& row) {
  switch (row.kind) {
    case SettingRow::Kind::kSwitch: return value.isBool() ? Refusal{} : wrongType(name, value, "a boolean");
    case SettingRow::Kind::kNumber: return judgeNumber(name, value, row);
    case SettingRow::Kind::kChoice: return judgeChoice(name, value, row);
    default: return judgeText(name, value, row);
  }
}

Refusal judgeShape(const std::string& name, const Json::Value& value, const Json::Value& reference) {
  if (reference.isObject()) {
    if (!value.isObject()) return wrongType(name, value, "an object");
    for (auto member = value.begin(); member != value.end(); ++member) {
      if (!reference.isMember(member.name())) return unknownMember(name, member.name(), *member);
      if (Refusal why = judgeShape(memberName(name, member.name()), *member, reference[member.name()])) return why;
    }
    return {};
  }
  if (reference.isArray()) {
    if (!value.isArray()) return wrongType(name, value, "an array");
    for (const Json::Value& element : value) {
      if (Refusal why = judgeShape(name, element, reference[0])) return why;
    }
    return {};
  }
  if (reference.isString()) return value.isString() ? Refusal{} : wrongType(name, value, "a text");
  if (reference.isBool()) return value.isBool() ? Refusal{} : wrongType(name, value, "a boolean");
  if (reference.isDouble() && !reference.isInt()) {
    return value.isNumeric() ? Refusal{} : wrongType(name, value, "a number");
  }
  return value.isInt() && value.type() != Json::realValue ? Refusal{} : wrongType(name, value, "an integer");
}

Refusal judgeAddress(const std::string& name, const Json::Value& value) {
  if (!value.isString()) return wrongType(name, value, "a text");
  const std::string text = value.asString();
  const bool isWhole = text.find('\0') == std::string::npos;  // IpAddress would read up to the NUL
  if (isWhole && IpAddress().setAddress(text) >= 0) return {};
  return {refusal::kInvalidAddress, is(name, value) + ", which is not an IPv4 address."};
}

}  // namespace zel::sim
