// The orders to misbehave that the simulator takes from its command line and from files.

#include <cstdint>
#include <string>

#include "simulator/fault.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zel::sim::FaultRule rule;
  zel::sim::FaultRule::parse(std::string(reinterpret_cast<const char*>(data), size), rule);
  return 0;
}
