#include "tests/faults/process_figures.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace zel::test {

namespace {

long fromStatus(const std::string& name) {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    long size = 0;
    if (word == name && status >> size) return size;
  }
  return 0;
}

}  // namespace

long residentKiB() { return fromStatus("VmRSS:"); }
long peakKiB() { return fromStatus("VmHWM:"); }

void forgetPeak() {
  constexpr const char* kForgetThePeak = "5";  // see proc(5)
  std::ofstream("/proc/self/clear_refs") << kForgetThePeak;
}

long openDescriptors() {
  long count = 0;
  for ([[maybe_unused]] const auto& each : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
  return count;
}

int nextDescriptor() {
  const int next = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(next);
  return next;
}

}  // namespace zel::test
