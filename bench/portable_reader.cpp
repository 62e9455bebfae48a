// Linked into a program, this takes the place of simdjson's choice of the code that it reads with: the same code runs
// on every x86-64 processor, so that counts of instructions can be compared.

#include <simdjson.h>

#include <cstdio>
#include <cstdlib>

namespace {

/// Ends the program as a failure where simdjson chose without asking this file, which then counted something else.
struct Choice {
  bool asked = false;
  ~Choice() {
    if (asked) return;
    std::fputs("portable_reader: simdjson chose by itself\n", stderr);
    std::_Exit(1);
  }
} choice;

}  // namespace

namespace simdjson::internal {

[[gnu::visibility("default")]] const implementation* available_implementation_list::detect_best_supported()
    const noexcept {
  choice.asked = true;
  const implementation* const common = (*this)["westmere"];
  return common != nullptr ? common : builtin_implementation();
}

}  // namespace simdjson::internal
