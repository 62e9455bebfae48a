#pragma once

#include "tests/faults/run.h"

namespace zel::test {

/// Something that may happen to an application that is connected to a healthy daemon.
struct Fault {
  const char* name;
  void (*happens)(Run& run);
};

/// One of the faults, drawn by the run.
const Fault& anyFault(Run& run);

}  // namespace zel::test
