#pragma once

#include <string>
#include <vector>

#include "conformance/check.h"

namespace zel::conformance {

/// What came of a check.
struct Result {
  const Check* check;
  std::vector<std::string> failures;
  std::string skipped;  ///< why it did not run; empty when it ran

  bool failed() const { return !failures.empty(); }
};

/// A run as it is reported.
struct Report {
  std::vector<Result> results;
  std::string stopped;                  ///< why the run ended before its end; empty when it did not
  std::vector<std::string> notPutBack;  ///< what is not as it was before the run
  double seconds = 0;

  std::size_t failures(const std::string& level) const;
  std::size_t skips() const;
};

/// For a person: what failed, with the sentence of docs/protocol.md.
std::string asText(const Report& report, bool all);
/// The Test Anything Protocol, version 13.
std::string asTap(const Report& report);
std::string asJson(const Report& report);

}  // namespace zel::conformance
