#include "common/shared/format_text.h"

#include <cstdio>

namespace zel {

std::string joined(std::initializer_list<std::string_view> parts) {
  std::string text;
  for (const std::string_view part : parts) text += part;
  return text;
}

std::string listed(const std::vector<std::string>& texts, std::string_view between) {
  std::string list;
  for (const std::string& text : texts) {
    if (&text != &texts.front()) list += between;
    list += text;
  }
  return list;
}

std::string formatText(const char* format, va_list arguments) {
  va_list measured;
  va_copy(measured, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, measured);
  va_end(measured);
  if (length < 0) return format;  // nothing better can be shown of a text that does not format

  std::string text(static_cast<std::size_t>(length), '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, arguments);
  return text;
}

}  // namespace zel
