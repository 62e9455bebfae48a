#pragma once

#include <cstdint>

namespace zel::test {

/// A process in a daemon's place, on both of its ports, that breaks the protocol in ways that follow from the seed:
/// wrong greetings and handshakes, frames of any flags, lengths and numbers, floods, answers cut short, documents that
/// are none or as large as the limit, bytes flipped, resets, silence. Each connection is treated in its own way. No
/// message of many frames has more than a thousand of them.
///
/// Prints "ready" when it listens. Never returns but for an error.
/// @param large  whether documents up to the limit of a frame are among it: they take what they weigh, and more where
///               they are all small values
int runHostilePeer(std::uint32_t seed, bool large);

/// A process in a daemon's place that completes the handshake, and then sends one message whose frames never end; on
/// the port of the requests after a request has come. Prints "ready" when it listens. Never returns but for an error.
int runEndlessPeer();

}  // namespace zel::test
