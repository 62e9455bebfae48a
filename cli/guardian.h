#pragma once

#include <string>

#include "cli/configuration.h"
#include "cli/deadline.h"
#include "cli/words.h"

namespace zel::ctl {

// A change with --confirm has a guardian: a process of its own, in a session of its own, which brings the old values
// back unless `sysmgrctl confirm` comes in time. It listens at a socket in the abstract namespace of Unix sockets; at
// most one guardian for a daemon can have it. The old values are in its memory, and in a file for people in case
// the guardian is killed: $XDG_RUNTIME_DIR/sysmgrctl/pending-PID.conf, or in /run without that variable.

/// Starts the guardian of a change that is about to be made. Returns once it watches.
/// @param old      the values that come back
/// @param seconds  after which they do
/// @throws Failure, also when an earlier change waits for its confirmation
void startGuardian(const Configuration& old, double seconds);

/// An order to the guardian: keep the new values, or bring the old ones back now.
enum class Verdict { kConfirm, kUndo };

/// Sends an order to the guardian. Returns when the guardian has carried it out.
/// @throws Failure, also when there is no guardian, or when it has not carried the order out at the deadline
void tellGuardian(Verdict verdict, const Deadline& deadline);

/// The process of a guardian: `sysmgrctl --guard SECONDS ENDPOINT`. It reads the old values from standard input.
/// @return its exit status
int runGuardian(const Words& words);

}  // namespace zel::ctl
