#pragma once

#include <cstdint>

namespace zel::test {

/// A process in a daemon's place that breaks the protocol in ways that follow from the seed: wrong greetings and
/// handshakes, frames of any flags and lengths, answers cut short, bytes flipped, resets, silence. Each connection is
/// treated in its own way; none sends more than a few MiB.
/// Prints "ready" when it listens. Never returns but for an error.
int runHostilePeer(std::uint32_t seed, unsigned short port);

}  // namespace zel::test
