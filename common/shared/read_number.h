#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace zel {

/// Reads a text that is a number from its first character to its last, as std::from_chars reads it: decimal, without
/// blanks and without a plus sign.
/// @return nothing when the text is not such a number, or when its value is beyond the type
template <class Number>
std::optional<Number> readNumber(std::string_view text) {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || rest != end) return std::nullopt;
  return number;
}

}  // namespace zel
