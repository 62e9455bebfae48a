#include "common/error_aux_msg.h"

#include "common/shared/format_text.h"
#include "common/shared/no_destructor.h"
#include "common/shared/process_mutex.h"

namespace {

/// Guarded by `processMutex`.
std::vector<std::string>& messages() {
  static zel::NoDestructor<std::vector<std::string>> made;
  return *made;
}

[[maybe_unused]] const std::vector<std::string>& madeAtLoad = messages();

}  // namespace

ErrorAuxMsg* ErrorAuxMsg::getInstance() {
  static ErrorAuxMsg instance;  // has no state and no destructor to run
  return &instance;
}

void ErrorAuxMsg::addMessage(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const zel::ArgumentsEnd end{arguments};
  std::string text = zel::formatText(format, arguments);

  const zel::ProcessLock lock(zel::processMutex());
  messages().push_back(std::move(text));
}

std::vector<std::string> ErrorAuxMsg::getMessages() const {
  const zel::ProcessLock lock(zel::processMutex());
  return messages();
}

void ErrorAuxMsg::clear() {
  const zel::ProcessLock lock(zel::processMutex());
  messages().clear();
}
