#include "simulator/field.h"

#include "common/shared/wire_json.h"

namespace zel::sim {

namespace {

constexpr std::size_t kMostShown = 160;

std::string cut(std::string text) {
  if (text.size() <= kMostShown) return text;
  std::size_t end = kMostShown;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) --end;  // not within a character
  return text.substr(0, end) + "...";
}

std::string is(const std::string& name, const Json::Value& value) { return "\"" + name + "\" is " + shown(value); }

}  // namespace

std::string shown(const Json::Value& value) {
  std::string text;
  const std::string why = writeWireJson(value, text);
  return why.empty() ? cut(std::move(text)) : "a value that cannot be shown: " + why;
}

std::string shownBytes(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes.substr(0, kMostShown + 1)) text += byte >= ' ' && byte <= '~' ? byte : '?';
  return cut(std::move(text));
}

Refusal wrongType(const std::string& name, const Json::Value& value, const char* wanted) {
  return {refusal::kWrongType, is(name, value) + ", which is not " + wanted + "."};
}

Refusal unknownKey(const std::string& name, const Json::Value& value) {
  return {refusal::kUnknownKey, "\"" + name + "\" is no key that is known here (its value is " + shown(value) + ")."};
}

Refusal judgeFlag(const std::string& name, const Json::Value& value) {
  return value.isBool() ? Refusal{} : wrongType(name, value, "a boolean");
}

Refusal judgeText(const std::string& name, const Json::Value& value, Range range) {
  if (!value.isString()) return wrongType(name, value, "a text");
  const std::string text = value.asString();
  if (text.find('\0') != std::string::npos) {
    return {refusal::kOutOfRange, is(name, value) + ", which holds a NUL character."};
  }
  const auto length = static_cast<std::int64_t>(text.size());
  if (length >= range.least && length <= range.most) return {};
  return {refusal::kOutOfRange, is(name, value) + ", a text of " + std::to_string(length) + " bytes; it must have " +
                                    std::to_string(range.least) + " to " + std::to_string(range.most) + "."};
}

Refusal judgeNumber(const std::string& name, const Json::Value& value, Range range) {
  if (value.type() != Json::intValue && value.type() != Json::uintValue) {
    return wrongType(name, value, "an integer");
  }
  if (value.isInt64() && value.asInt64() >= range.least && value.asInt64() <= range.most) return {};
  return {refusal::kOutOfRange, is(name, value) + ", which is out of range: " + std::to_string(range.least) + " to " +
                                    std::to_string(range.most) + "."};
}

}  // namespace zel::sim
