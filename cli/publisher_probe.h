#pragma once

#include "cli/deadline.h"

namespace zel::ctl {

/// Whether a publisher completes the handshake with a subscriber within half a second, or within half of the time that
/// is left when that is less.
bool publisherAccepts(const Deadline& deadline);

}  // namespace zel::ctl
