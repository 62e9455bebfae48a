#pragma once

#include <string>

#include "cli/words.h"

namespace zel::ctl {

/// The candidates that a mistyped word, in whatever case, may have meant, all of them equally likely; empty when there
/// are too many.
Words nearest(const std::string& typed, const Words& candidates);

/// "did you mean 'a' or 'b'?" over `nearest`; empty without candidates.
std::string didYouMean(const std::string& typed, const Words& candidates);

}  // namespace zel::ctl
