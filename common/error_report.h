#pragma once

#include <string>

/// The last failure of a client.
struct ErrorReport {
  int code = 0;      ///< the status that the failed operation returned; 0: no failure yet
  std::string text;  ///< what failed and what to do about it; a refusal carries the daemon's own words
};
