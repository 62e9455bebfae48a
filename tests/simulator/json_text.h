#pragma once

#include <json/json.h>

#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>

namespace zel::test {

/// The value of a JSON text that a test is written with.
inline Json::Value json(const std::string& text) {
  Json::Value value;
  std::string errors;
  const Json::CharReaderBuilder builder;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  if (!reader->parse(text.data(), text.data() + text.size(), &value, &errors)) throw std::invalid_argument(errors);
  return value;
}

/// A value as it looks on the wire, where a number is neither signed nor unsigned.
inline std::string text(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, value);
}

/// The member at a path, "rtsp/tcp-port"; null where there is none.
inline Json::Value at(const Json::Value& document, const std::string& path) {
  const Json::Value* value = &document;
  std::istringstream steps(path);
  for (std::string step; std::getline(steps, step, '/');) {
    if (!value->isObject()) return {};
    value = &(*value)[step];
  }
  return *value;
}

}  // namespace zel::test
