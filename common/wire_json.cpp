#include "common/wire_json.h"

#include <json/writer.h>
#include <simdjson.h>

#include <cmath>
#include <sstream>

namespace zel {

namespace {

/// A reader keeps its buffers for documents up to this size; larger ones are rare and their buffers are given back.
constexpr std::size_t kKeptCapacity = std::size_t{256} * 1024;

const std::string kTooDeep = "nested more than " + std::to_string(kMaxJsonDepth) + " deep";
const std::string kTooLong = "longer than " + std::to_string(kMaxFrameBytes) + " bytes";

std::string fill(const simdjson::dom::element& element, unsigned int depth, Json::Value& value);

std::string fillArray(const simdjson::dom::array& array, unsigned int depth, Json::Value& value) {
  value = Json::Value(Json::arrayValue);
  for (const simdjson::dom::element& item : array) {
    if (std::string why = fill(item, depth, value.append(Json::Value())); !why.empty()) return why;
  }
  return {};
}

std::string fillObject(const simdjson::dom::object& object, unsigned int depth, Json::Value& value) {
  value = Json::Value(Json::objectValue);
  Json::ArrayIndex members = 0;
  for (const simdjson::dom::key_value_pair& member : object) {
    Json::Value* const place = value.demand(member.key.data(), member.key.data() + member.key.size());
    if (value.size() != ++members) return "the name \"" + std::string(member.key) + "\" stands twice in an object";
    if (std::string why = fill(member.value, depth, *place); !why.empty()) return why;
  }
  return {};
}

/// @param depth  how many objects and arrays stand around the element
std::string fill(const simdjson::dom::element& element, unsigned int depth, Json::Value& value) {
  using simdjson::dom::element_type;
  switch (element.type()) {
    case element_type::OBJECT:
      return depth < kMaxJsonDepth ? fillObject(element.get_object().value_unsafe(), depth + 1, value) : kTooDeep;
    case element_type::ARRAY:
      return depth < kMaxJsonDepth ? fillArray(element.get_array().value_unsafe(), depth + 1, value) : kTooDeep;
    case element_type::STRING: {
      const std::string_view text = element.get_string().value_unsafe();
      value = Json::Value(text.data(), text.data() + text.size());
      return {};
    }
    // JsonCpp's own reader takes what fits a signed number as signed: so does this one.
    case element_type::INT64: value = Json::Value(Json::Int64(element.get_int64().value_unsafe())); return {};
    case element_type::UINT64: value = Json::Value(Json::UInt64(element.get_uint64().value_unsafe())); return {};
    case element_type::DOUBLE: value = Json::Value(element.get_double().value_unsafe()); return {};
    case element_type::BOOL: value = Json::Value(element.get_bool().value_unsafe()); return {};
    case element_type::NULL_VALUE: value = Json::Value(); return {};
  }
  return "of an unknown type";
}

/// Why a value cannot travel, but for its length and its encoding, which the text tells.
std::string unwritable(const Json::Value& value, unsigned int depth) {
  if (value.type() == Json::realValue && !std::isfinite(value.asDouble())) return "a number is not finite";
  if (!value.isObject() && !value.isArray()) return {};
  if (depth == kMaxJsonDepth) return kTooDeep;
  for (const Json::Value& member : value) {
    if (std::string why = unwritable(member, depth + 1); !why.empty()) return why;
  }
  return {};
}

}  // namespace

struct WireJsonReader::State {
  simdjson::dom::parser parser{kKeptCapacity};
};

WireJsonReader::WireJsonReader() : state_(std::make_unique<State>()) {}
WireJsonReader::~WireJsonReader() = default;

std::string WireJsonReader::read(std::string_view text, Json::Value& value) {
  if (text.size() > kMaxFrameBytes) return kTooLong;

  simdjson::dom::parser large{kMaxFrameBytes};
  simdjson::dom::parser& parser = text.size() > kKeptCapacity ? large : state_->parser;
  if (parser.max_depth() <= kMaxJsonDepth || parser.capacity() < text.size()) {
    // One level more than is allowed, so that the limit is judged in one place, `fill`.
    if (const auto error = parser.allocate(text.size(), kMaxJsonDepth + 1)) return simdjson::error_message(error);
  }
  simdjson::dom::element root;
  if (const auto error = parser.parse(text.data(), text.size()).get(root)) {
    return error == simdjson::DEPTH_ERROR ? kTooDeep : simdjson::error_message(error);
  }
  Json::Value document;
  std::string why = fill(root, 0, document);
  if (why.empty()) value.swap(document);
  return why;
}

struct WireJsonWriter::State {
  std::ostringstream stream;
  std::unique_ptr<Json::StreamWriter> writer;
};

WireJsonWriter::WireJsonWriter() : state_(std::make_unique<State>()) {
  Json::StreamWriterBuilder settings;
  settings["indentation"] = "";
  settings["commentStyle"] = "None";
  settings["emitUTF8"] = true;
  state_->writer.reset(settings.newStreamWriter());
}
WireJsonWriter::~WireJsonWriter() = default;

std::string WireJsonWriter::write(const Json::Value& value, std::string& text) {
  text.clear();
  if (std::string why = unwritable(value, 0); !why.empty()) return why;

  state_->stream.str({});
  state_->writer->write(value, &state_->stream);
  std::string written = state_->stream.str();
  if (written.size() > kMaxFrameBytes) return kTooLong;
  if (!simdjson::validate_utf8(written)) return "a text is not UTF-8";
  text = std::move(written);
  return {};
}

}  // namespace zel
