// The scripts of a simulator: read as a whole, and tried on a board.

#include <cstdint>
#include <string_view>

#include "common/logger.h"
#include "simulator/script.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Logger::getInstance()->setSink([](Logger::logDebugLevel_t, const std::string&) {});
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zel::sim::Script script;
  if (!zel::sim::Script::parse({reinterpret_cast<const char*>(data), size}, script).empty()) return 0;
  script.tryOn(zel::sim::Board());
  return 0;
}
