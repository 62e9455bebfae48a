#pragma once

#include <string>

#include "common/logger.h"

// Header-only, so that the API's library needs nothing of libzelCommonTypes but the logger.

namespace zel {

/// The place of a check: the function's signature as the compiler writes it, and the line.
struct CodeLocation {
  const char* signature;
  int line;
};

/// The signature in one spelling, whatever the compiler: "int A::f(std::list<B>&)".
inline std::string plainSignature(const char* prettyFunction) {
  std::string text = prettyFunction;
  const auto eraseAll = [&text](const std::string& piece, std::size_t length) {
    for (std::size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at)) text.erase(at, length);
  };
  eraseAll("__cxx11::", 9);  // g++ names the inline namespace of its library
  eraseAll(" &", 1);         // clang sets the reference apart
  return text;
}

/// Logs a negative result with the place of its check and returns it; a positive one counts as success and becomes 0.
inline int checked(CodeLocation here, int result) {
  if (result >= 0) return 0;
  Logger::log(Logger::LEVEL_ERROR, "CHK(%s)::%d Error Code %d", plainSignature(here.signature).c_str(), here.line,
              result);
  return result;
}

}  // namespace zel

/// This function and line, for `zel::checked`.
#define ZEL_HERE (::zel::CodeLocation{__PRETTY_FUNCTION__, __LINE__})
