#pragma once

#include <cstdint>

// IPv4 addresses as numbers in host order, the first octet in the most significant byte.

namespace zel {

constexpr std::uint32_t firstOctet(std::uint32_t address) { return address >> 24; }

/// 224.0.0.0 to 239.255.255.255
constexpr bool isMulticast(std::uint32_t address) { return address >> 28 == 0xe; }

/// The mask of a prefix: 255.255.255.0 of 24.
/// @param bits  0 to 32
constexpr std::uint32_t maskOfPrefix(unsigned int bits) { return bits == 0 ? 0 : ~std::uint32_t{0} << (32 - bits); }

}  // namespace zel
