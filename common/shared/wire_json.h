#pragma once

#include <json/value.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace zel {

/// The most bytes that one frame of the wire holds, either way.
constexpr std::size_t kMaxFrameBytes = std::size_t{1024} * 1024;
/// The most levels of objects and arrays that a document of the wire nests.
constexpr unsigned int kMaxJsonDepth = 64;
/// The most values, objects and arrays included, that a document of the wire holds. A tree of them takes far more time
/// and memory than its text: without this limit one frame would take a tenth of a second and 60 MiB.
constexpr std::size_t kMaxJsonValues = 65536;

/// Reads the JSON text of one frame, strictly as RFC 8259 has it.
///
/// Refused besides text that is not JSON: bytes behind the document, a raw NUL, a byte order mark, comments, trailing
/// commas, special floats, numbers beyond a double or integers beyond 64 bits, invalid UTF-8, lone surrogates, a name
/// that occurs twice in one object, more than `kMaxJsonDepth` levels, `kMaxJsonValues` or `kMaxFrameBytes`. The escape
/// "\u0000" is legal and kept.
/// Threads: one caller at a time per reader.
class WireJsonReader {
 public:
  WireJsonReader();
  ~WireJsonReader();
  WireJsonReader(const WireJsonReader&) = delete;
  WireJsonReader& operator=(const WireJsonReader&) = delete;

  /// @param value  receives the document, with JsonCpp's own choice between signed and unsigned numbers; untouched
  ///               when the text is refused. What it held before is neither read nor kept.
  /// @return empty, or why the text is refused.
  std::string read(std::string_view text, Json::Value& value);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

/// Writes a value as compact JSON text: UTF-8, no blanks, no line breaks.
///
/// @param text  receives the text; empty when the value is refused.
/// @return empty, or why the value cannot be written: a number that is not finite, a text that is not UTF-8, more than
///         `kMaxJsonDepth` levels, `kMaxJsonValues` or `kMaxFrameBytes`.
std::string writeWireJson(const Json::Value& value, std::string& text);

}  // namespace zel
