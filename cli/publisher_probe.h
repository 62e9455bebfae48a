#pragma once

#include "cli/deadline.h"

namespace zel::ctl {

/// Whether a publisher is there and shakes hands with a subscriber. Waits half a second for it, or half the time that
/// is left.
bool publisherAccepts(const Deadline& deadline);

}  // namespace zel::ctl
