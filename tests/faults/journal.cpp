#include "tests/faults/journal.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace zel::test {

namespace {
[[noreturn]] void fail(const char* what) { throw std::system_error(errno, std::generic_category(), what); }
}  // namespace

Journal Journal::create() {
  const int descriptor = memfd_create("journal", 0);
  if (descriptor < 0) fail("memfd_create");
  if (ftruncate(descriptor, sizeof(Record)) != 0) fail("ftruncate");
  return Journal(descriptor);
}

Journal Journal::inherit(int descriptor) { return Journal(descriptor); }

Journal::Journal(int descriptor) : descriptor_(descriptor) {
  void* const memory = mmap(nullptr, sizeof(Record), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  if (memory == MAP_FAILED) fail("mmap");
  record_ = static_cast<Record*>(memory);
}

void Journal::carriedOut(std::uint32_t token) {
  record_->carriedOut[token].fetch_add(1);
  const std::uint32_t place = record_->ordered.fetch_add(1);
  if (place < kTokens) record_->order[place] = token;
}

std::vector<std::uint32_t> Journal::order() const {
  const auto* const begin = record_->order.begin();
  return {begin, begin + std::min(record_->ordered.load(), kTokens)};
}

std::uint32_t Journal::publish() {
  const std::uint32_t number = record_->published.fetch_add(1) + 1;
  record_->newest[static_cast<std::size_t>(subjectOf(number))] = number;
  return number;
}

}  // namespace zel::test
