// Texts from elsewhere where they are read as addresses and where they are shown: an address means the same wherever it
// is read, and no text forges a line of the log or loses what it says there.

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "common/error_aux_msg.h"
#include "common/ip_address.h"
#include "common/logger.h"
#include "common/status.h"
#include "types/whitelist.h"

namespace {

void readAddress(const std::string& text) {
  constexpr uint32_t kBefore = 0xC0A80064;
  IpAddress address(kBefore);
  const int result = address.setAddress(text);
  if (result == 0 && !text.empty()) {
    if (address.toString() != text.c_str()) std::abort();  // one address has one text
  } else {
    if (result != (text.empty() ? 0 : zel::status::kInvalidAddress) || address != IpAddress(kBefore)) std::abort();
  }

  WhiteListEntry entry(kBefore, kBefore, 0, WhiteListEntry::WHITELIST_ENTRY_EMPTY);
  if (entry.setIp(text) != 1 || entry.setMask(text) != 1) std::abort();
  IpAddress ip;
  IpAddress mask;
  if (entry.getIp(ip) != 0 || entry.getMask(mask) != 0 || ip != address || mask < ip) std::abort();
  if (entry.getIpStr() != entry.getMaskStr()) std::abort();
  if (entry.setIp(~address.getAddress()) != 1 || entry.getIp() == entry.getMask()) std::abort();
}

/// What the default sink writes for a message.
std::string logged(Logger::logDebugLevel_t level, const std::string& text) {
  char* written = nullptr;
  std::size_t size = 0;
  std::FILE* const standardError = stderr;
  stderr = open_memstream(&written, &size);
  if (stderr == nullptr) std::abort();
  Logger::log(level, "%s", text.c_str());
  std::fclose(stderr);
  stderr = standardError;
  std::string line(written, size);
  std::free(written);
  return line;
}

/// The text of which the default sink made this one.
std::string unescaped(const std::string& shown) {
  std::string text;
  for (std::size_t i = 0; i < shown.size(); ++i) {
    if (shown[i] != '\\') {
      text += shown[i];
    } else if (shown.at(i + 1) == '\\') {
      text += shown[++i];
    } else {
      if (shown.at(i + 1) != 'x') std::abort();
      text += static_cast<char>(std::stoi(shown.substr(i + 2, 2), nullptr, 16));
      i += 3;
    }
  }
  return text;
}

void showInLog(int number, const std::string& text) {
  const auto level = static_cast<Logger::logDebugLevel_t>(number % 9);  // names and numbers without one
  const std::string line = logged(level, text);
  if (level > Logger::getInstance()->getLevel()) {
    if (!line.empty()) std::abort();
    return;
  }
  const std::size_t begin = line.find(": ") + 2;
  if (line.empty() || line.back() != '\n') std::abort();
  const std::string shown = line.substr(begin, line.size() - 1 - begin);
  for (const char byte : shown) {
    if (std::iscntrl(static_cast<unsigned char>(byte)) != 0) std::abort();
  }
  if (unescaped(shown) != text.c_str()) std::abort();
}

void keepMessage(const std::string& text) {
  ErrorAuxMsg& store = *ErrorAuxMsg::getInstance();
  store.addMessage("%s", text.c_str());
  if (store.getMessages() != std::vector<std::string>{text.c_str()}) std::abort();
  store.clear();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Logger::getInstance()->setLevel(Logger::LEVEL_TRACE);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  Logger::getInstance()->setSink({});
  showInLog(data[0], text);
  keepMessage(text);
  Logger::getInstance()->setSink([](Logger::logDebugLevel_t, const std::string&) {});
  readAddress(text);
  return 0;
}
