#pragma once

#include <cstdarg>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace zel {

/// The parts one after the other.
std::string joined(std::initializer_list<std::string_view> parts);

/// The texts one after the other, with a separator between them.
std::string listed(const std::vector<std::string>& texts, std::string_view between = ", ");

/// The text that vprintf(3) would print.
__attribute__((format(printf, 1, 0))) std::string formatText(const char* format, va_list arguments);

/// Ends the walk over a function's variable arguments on every path out of it.
struct ArgumentsEnd {
  va_list& arguments;
  ~ArgumentsEnd() { va_end(arguments); }
};

}  // namespace zel
