#pragma once

#include <cstdint>

#include "tests/faults/history.h"

namespace zel::test {

// What the library takes of a process's memory and descriptors. Each prints its figures.

/// Hostile peers, one after the other, who send no large documents.
/// @return as the run is judged; wrong, too, where the figures are beyond their bounds
Verdict measureHostilePeers(unsigned long peers, std::uint32_t seed);
/// Requests of several kinds and the notifications that they cause, together so many.
/// @return whether the figures are within their bounds
bool measureEndurance(unsigned long exchanges);
/// A message of endlessly many frames, which nothing bounds but the time that is given to it. All of it has to be given
/// back.
/// @return whether it was
bool measureEndlessMessage(unsigned long seconds);

}  // namespace zel::test
