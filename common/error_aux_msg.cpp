#include "common/error_aux_msg.h"

#include <mutex>
#include <new>

#include "common/format_text.h"

namespace {

struct Store {
  std::mutex mutex;
  std::vector<std::string> messages;
};

Store& store() {
  // In static storage and never destroyed: validations may run while the process ends.
  alignas(Store) static unsigned char storage[sizeof(Store)];
  static Store* const made = new (storage) Store;
  return *made;
}

}  // namespace

ErrorAuxMsg* ErrorAuxMsg::getInstance() {
  alignas(ErrorAuxMsg) static unsigned char storage[sizeof(ErrorAuxMsg)];
  static ErrorAuxMsg* const instance = new (storage) ErrorAuxMsg;
  return instance;
}

void ErrorAuxMsg::addMessage(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const zel::ArgumentsEnd end{arguments};
  std::string text = zel::formatText(format, arguments);

  const std::lock_guard<std::mutex> lock(store().mutex);
  store().messages.push_back(std::move(text));
}

std::vector<std::string> ErrorAuxMsg::getMessages() const {
  const std::lock_guard<std::mutex> lock(store().mutex);
  return store().messages;
}

void ErrorAuxMsg::clear() {
  const std::lock_guard<std::mutex> lock(store().mutex);
  store().messages.clear();
}
