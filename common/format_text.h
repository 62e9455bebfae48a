#pragma once

#include <cstdarg>
#include <string>

namespace zel {

/// What vprintf(3) would print.
__attribute__((format(printf, 1, 0))) std::string formatText(const char* format, va_list arguments);

/// Ends the walk over a function's variable arguments on every path out of it.
struct ArgumentsEnd {
  va_list& arguments;
  ~ArgumentsEnd() { va_end(arguments); }
};

}  // namespace zel
