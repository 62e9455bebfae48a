#pragma once

#include <cstdint>

namespace zel::test {

// What the library takes of a process's memory and descriptors. Each prints its figures.
// @return whether they are within their bounds

/// Hostile peers, one after the other, who send no large documents.
bool measureHostilePeers(unsigned long peers, std::uint32_t seed);
/// Requests of several kinds and the notifications that they cause, together so many.
bool measureEndurance(unsigned long exchanges);
/// A message of endlessly many frames, which nothing bounds but the time that is given to it. All of it has to be given
/// back.
bool measureEndlessMessage(unsigned long seconds);

}  // namespace zel::test
