#pragma once

#include "conformance/report.h"

namespace zel::conformance {

/// Runs the checks that the options allow, and puts back what they have changed.
Report run(const std::vector<Check>& checks, const Options& options);

}  // namespace zel::conformance
