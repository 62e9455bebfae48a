#include "tests/simulator/failing_files.h"

#include <dlfcn.h>

#include <cerrno>
#include <cstdio>

namespace zel::test {

FailingFiles failingFiles;

namespace {

bool fails(std::atomic<int>& left) {
  if (left == 0 || --left > 0) return false;
  errno = EIO;
  return true;
}

}  // namespace

}  // namespace zel::test

// The program's own functions stand before those of the C library.

extern "C" int fsync(int file) {
  static const auto own = reinterpret_cast<decltype(&fsync)>(dlsym(RTLD_NEXT, "fsync"));
  return zel::test::fails(zel::test::failingFiles.fsync) ? -1 : own(file);
}

extern "C" int rename(const char* from, const char* to) noexcept {
  static const auto own = reinterpret_cast<int (*)(const char*, const char*)>(dlsym(RTLD_NEXT, "rename"));
  return zel::test::fails(zel::test::failingFiles.rename) ? -1 : own(from, to);
}
