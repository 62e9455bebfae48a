#include "tests/support/failing_allocations.h"

#include <link.h>
#include <unwind.h>

#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace {

thread_local bool counting = false;
thread_local long untilFailure = 0;

/// Where libzmq's code lies.
struct Range {
  std::uintptr_t begin = 0;
  std::uintptr_t end = 0;
};

int findLibzmq(dl_phdr_info* object, std::size_t, void* result) {
  if (std::string_view(object->dlpi_name).find("libzmq.so") == std::string_view::npos) return 0;
  Range& range = *static_cast<Range*>(result);
  for (int i = 0; i < object->dlpi_phnum; ++i) {
    const ElfW(Phdr)& segment = object->dlpi_phdr[i];
    if (segment.p_type != PT_LOAD || (segment.p_flags & PF_X) == 0) continue;
    range.begin = object->dlpi_addr + segment.p_vaddr;
    range.end = range.begin + segment.p_memsz;
  }
  return 1;
}

const Range& libzmq() {
  static const Range range = [] {
    Range found;
    dl_iterate_phdr(findLibzmq, &found);
    return found;
  }();
  return range;
}

_Unwind_Reason_Code seeFrame(_Unwind_Context* frame, void* inLibzmq) {
  const std::uintptr_t address = _Unwind_GetIP(frame);
  if (address < libzmq().begin || address >= libzmq().end) return _URC_NO_REASON;
  *static_cast<bool*>(inLibzmq) = true;
  return _URC_END_OF_STACK;
}

/// The whole stack is looked at: libzmq allocates through the C++ library, too.
bool calledByLibzmq() {
  bool found = false;
  _Unwind_Backtrace(seeFrame, &found);
  return found;
}

bool failsNow() {
  if (!counting || untilFailure == 0) return false;
  counting = false;
  const bool ours = !calledByLibzmq();
  counting = true;
  return ours && --untilFailure == 0;
}

}  // namespace

void* operator new(std::size_t size) {
  void* const memory = failsNow() ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void* operator new(std::size_t size, const std::nothrow_t& /*unused*/) noexcept {
  return failsNow() ? nullptr : std::malloc(size == 0 ? 1 : size);
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace zel::test {

FailingAllocation::FailingAllocation(long number) {
  if (libzmq().end == 0) std::abort();  // else libzmq's own allocations would be taken for ours
  untilFailure = number;
  counting = true;
}

FailingAllocation::~FailingAllocation() { counting = false; }

bool FailingAllocation::happened() const { return untilFailure == 0; }

}  // namespace zel::test
