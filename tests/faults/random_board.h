#pragma once

#include "tests/faults/random_record.h"

namespace zel::test {

/// The process of a small board, which misbehaves as the record says. Never returns.
[[noreturn]] void runRandomBoard(Record& record);

}  // namespace zel::test
