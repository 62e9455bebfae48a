#include "common/shared/wire_json.h"

#include <json/writer.h>
#include <simdjson.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cmath>
#include <iterator>
#include <thread>
#include <utility>

#include "common/shared/format_text.h"
#include "common/shared/utf8.h"

namespace zel {

namespace {

/// A reader keeps its buffers for documents up to this size; larger ones are rare and their buffers are given back.
constexpr std::size_t kKeptCapacity = std::size_t{256} * 1024;

std::string tooDeep() { return joined({"nested more than ", std::to_string(kMaxJsonDepth), " deep"}); }
std::string tooMany() { return joined({"more than ", std::to_string(kMaxJsonValues), " values"}); }
std::string tooLong() { return joined({"longer than ", std::to_string(kMaxFrameBytes), " bytes"}); }

using simdjson::dom::element;
using simdjson::dom::element_type;

/// Empty for success.
std::string message(simdjson::error_code error) { return error ? simdjson::error_message(error) : std::string(); }

/// The element's content, which is not an object and not an array.
Json::Value scalar(const element& from) {
  switch (from.type()) {
    case element_type::STRING: {
      const std::string_view text = from.get_string().value_unsafe();
      return {text.data(), text.data() + text.size()};
    }
    // A number that fits a signed integer becomes one, as with JsonCpp's own reader.
    case element_type::INT64: return Json::Int64{from.get_int64().value_unsafe()};
    case element_type::UINT64: return Json::UInt64{from.get_uint64().value_unsafe()};
    case element_type::DOUBLE: return from.get_double().value_unsafe();
    case element_type::BOOL: return from.get_bool().value_unsafe();
    default: return {};
  }
}

// simdjson keeps an object for each kind of processor and destroys it when the process ends. Only making a parser uses
// such an object, so only that has to stop in time: other threads go on reading with the parsers that they have.

std::atomic<bool> simdjsonIsGone{false};
std::atomic<int> parsersInTheMaking{0};

/// Counts the parsers that are being made.
class InTheMaking {
 public:
  InTheMaking() { ++parsersInTheMaking; }
  InTheMaking(const InTheMaking&) = delete;
  InTheMaking& operator=(const InTheMaking&) = delete;
  ~InTheMaking() { --parsersInTheMaking; }
};

/// simdjson's code for this processor. It is chosen here, since the choice that simdjson makes on its first use follows
/// the environment variable SIMDJSON_FORCE_IMPLEMENTATION.
struct ProcessorCode {
  const simdjson::implementation* best = simdjson::get_available_implementations().detect_best_supported();

  ProcessorCode() = default;
  ProcessorCode(const ProcessorCode&) = delete;
  ProcessorCode& operator=(const ProcessorCode&) = delete;
  /// Runs before simdjson destroys its objects, which are older than this one.
  ~ProcessorCode() {
    simdjsonIsGone = true;
    // Making a parser takes microseconds. The limit is for a thread that a fork left behind in the parent process.
    for (int left = 400; parsersInTheMaking > 0 && left > 0; --left) {
      std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
  }
};

const ProcessorCode& processorCode() {
  static const ProcessorCode code;
  return code;
}

// Made while the library is loaded, so it outlives the static objects of the application, which may read to their end.
[[maybe_unused]] const ProcessorCode& kLoaded = processorCode();

/// Makes the parser ready for a text of this size. @return empty, or why it cannot be used
std::string prepare(simdjson::dom::parser& parser, std::size_t size) {
  constexpr std::size_t kDepth = kMaxJsonDepth + 1;  // so that the limit is judged in one place, `build`
  auto& code = parser.implementation;
  if (code && code->max_depth() == kDepth && code->capacity() >= size) return {};
  if (code) return message(code->allocate(size, kDepth));
  const InTheMaking counted;
  if (simdjsonIsGone) return "the process is at its end";
  return message(processorCode().best->create_dom_parser_implementation(size, kDepth, code));
}

/// Builds the tree of a document.
class Builder {
 public:
  /// @param depth  how many objects and arrays contain the element
  /// @return empty, or why the document is refused
  std::string build(const element& from, unsigned int depth, Json::Value& value) {
    if (++values_ > kMaxJsonValues) return tooMany();
    if (from.is_object()) {
      return depth < kMaxJsonDepth ? buildObject(from.get_object().value_unsafe(), depth + 1, value) : tooDeep();
    }
    if (from.is_array()) {
      return depth < kMaxJsonDepth ? buildArray(from.get_array().value_unsafe(), depth + 1, value) : tooDeep();
    }
    value = scalar(from);
    return {};
  }

 private:
  std::string buildArray(const simdjson::dom::array& from, unsigned int depth, Json::Value& value) {
    value = Json::Value(Json::arrayValue);
    for (const element& item : from) {
      if (std::string why = build(item, depth, value.append(Json::Value())); !why.empty()) return why;
    }
    return {};
  }

  std::string buildObject(const simdjson::dom::object& from, unsigned int depth, Json::Value& value) {
    value = Json::Value(Json::objectValue);
    Json::ArrayIndex members = 0;
    for (const simdjson::dom::key_value_pair& member : from) {
      Json::Value* const place = value.demand(member.key.data(), member.key.data() + member.key.size());
      if (value.size() != ++members) return joined({"the name \"", member.key, "\" occurs twice in an object"});
      if (std::string why = build(member.value, depth, *place); !why.empty()) return why;
    }
    return {};
  }

  std::size_t values_ = 0;
};

/// Writes a document in one pass.
class TextWriter {
 public:
  explicit TextWriter(std::string& text) : text_(text) {}

  /// @param depth  how many objects and arrays contain the value
  /// @return empty, or why the value is refused. The length and the encoding are checked on the finished text.
  std::string write(const Json::Value& value, unsigned int depth) {
    if (++values_ > kMaxJsonValues) return tooMany();
    switch (value.type()) {
      case Json::nullValue: text_ += "null"; return {};
      case Json::booleanValue: text_ += value.asBool() ? "true" : "false"; return {};
      case Json::intValue: writeInteger(value.asInt64()); return {};
      case Json::uintValue: writeInteger(value.asUInt64()); return {};
      case Json::realValue:
        if (!std::isfinite(value.asDouble())) return "a number is not finite";
        text_ += Json::valueToString(value.asDouble());
        return {};
      case Json::stringValue: {
        const char* begin = nullptr;
        const char* end = nullptr;
        value.getString(&begin, &end);
        writeText(begin, end);
        return {};
      }
      default: break;
    }
    if (depth == kMaxJsonDepth) return tooDeep();
    return value.isObject() ? writeObject(value, depth + 1) : writeArray(value, depth + 1);
  }

 private:
  template <class Integer>
  void writeInteger(Integer number) {
    char digits[20];
    const auto end = std::to_chars(std::begin(digits), std::end(digits), number).ptr;
    text_.append(digits, end);
  }

  void writeText(const char* begin, const char* end) {
    text_ += '"';
    const auto isPlain = [](char c) { return static_cast<unsigned char>(c) >= 0x20 && c != '"' && c != '\\'; };
    for (;;) {
      const char* const special = std::find_if_not(begin, end, isPlain);
      text_.append(begin, special);
      if (special == end) break;
      writeEscaped(*special);
      begin = special + 1;
    }
    text_ += '"';
  }

  void writeEscaped(char c) {
    static constexpr std::string_view kShort = "\"\\\b\f\n\r\t";
    static constexpr char kLetters[] = "\"\\bfnrt";
    static constexpr char kHex[] = "0123456789abcdef";
    text_ += '\\';
    if (const auto place = kShort.find(c); place != std::string_view::npos) {
      text_ += kLetters[place];
    } else {
      text_.append("u00").append({kHex[c >> 4], kHex[c & 15]});
    }
  }

  std::string writeObject(const Json::Value& object, unsigned int depth) {
    char before = '{';
    for (auto member = object.begin(); member != object.end(); ++member) {
      text_ += std::exchange(before, ',');
      const char* end = nullptr;
      const char* const name = member.memberName(&end);
      writeText(name, end);
      text_ += ':';
      if (std::string why = write(*member, depth); !why.empty()) return why;
    }
    text_ += before == '{' ? "{}" : "}";
    return {};
  }

  std::string writeArray(const Json::Value& array, unsigned int depth) {
    text_ += '[';
    for (Json::ArrayIndex i = 0; i < array.size(); ++i) {  // not by iterators: JsonCpp's arrays may have gaps
      if (i > 0) text_ += ',';
      if (std::string why = write(array[i], depth); !why.empty()) return why;
    }
    text_ += ']';
    return {};
  }

  std::string& text_;
  std::size_t values_ = 0;
};

}  // namespace

struct WireJsonReader::State {
  simdjson::dom::parser parser{kKeptCapacity};

  std::string read(std::string_view text, Json::Value& value) {
    if (text.size() > kMaxFrameBytes) return tooLong();
    if (text.size() <= kKeptCapacity) return read(parser, text, value);
    simdjson::dom::parser large{kMaxFrameBytes};
    return read(large, text, value);
  }

 private:
  static std::string read(simdjson::dom::parser& parser, std::string_view text, Json::Value& value) {
    if (std::string why = prepare(parser, text.size()); !why.empty()) return why;
    element root;
    if (const auto error = parser.parse(text.data(), text.size()).get(root)) {
      return error == simdjson::DEPTH_ERROR ? tooDeep() : message(error);
    }
    Json::Value document;
    std::string why = Builder().build(root, 0, document);
    if (why.empty()) value.swap(document);
    return why;
  }
};

WireJsonReader::WireJsonReader() : state_(std::make_unique<State>()) {}
WireJsonReader::~WireJsonReader() = default;

std::string WireJsonReader::read(std::string_view text, Json::Value& value) { return state_->read(text, value); }

std::string writeWireJson(const Json::Value& value, std::string& text) {
  text.clear();
  std::string why = TextWriter(text).write(value, 0);
  if (why.empty() && text.size() > kMaxFrameBytes) why = tooLong();
  if (why.empty() && !isUtf8(text)) why = "a text is not UTF-8";
  if (!why.empty()) text.clear();
  return why;
}

}  // namespace zel
