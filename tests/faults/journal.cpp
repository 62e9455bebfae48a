#include "tests/faults/journal.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace zel::test {

namespace {
[[noreturn]] void fail(const char* what) { throw std::system_error(errno, std::generic_category(), what); }
}  // namespace

Journal Journal::create() {
  const int descriptor = memfd_create("journal", 0);
  if (descriptor < 0) fail("memfd_create");
  if (ftruncate(descriptor, kTokens * sizeof(Count)) != 0) fail("ftruncate");
  return Journal(descriptor);
}

Journal Journal::inherit(int descriptor) { return Journal(descriptor); }

Journal::Journal(int descriptor) : descriptor_(descriptor) {
  void* const memory = mmap(nullptr, kTokens * sizeof(Count), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  if (memory == MAP_FAILED) fail("mmap");
  counts_ = static_cast<Count*>(memory);
}

}  // namespace zel::test
