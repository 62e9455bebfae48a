#pragma once

#include <cstdint>
#include <string>

#include "export.h"

/// One IPv4 address, held in host byte order with the first octet in the most significant byte: 127.0.0.1 is
/// 0x7F000001.
class ZEL_EXPORT IpAddress {
 public:
  /// 0.0.0.0
  IpAddress() = default;
  explicit IpAddress(uint32_t hostOrder) : address_(hostOrder) {}

  uint32_t getAddress() const { return address_; }
  void setAddress(uint32_t hostOrder) { address_ = hostOrder; }

  /// Takes the address from its dotted text, as inet_pton(3) reads AF_INET.
  ///
  /// @param dotted  four decimal octets; an empty text is not parsed and leaves the value.
  /// @return 0, or -27 (`zel::status::kInvalidAddress`) for a text that is not an address: the old value stays, and
  ///         "Error parsing IP [%s]: invalid IP address" is logged at level 2.
  int setAddress(const std::string& dotted);

  /// The dotted text: "127.0.0.1".
  std::string toString() const;

  friend bool operator==(const IpAddress& a, const IpAddress& b) { return a.address_ == b.address_; }
  friend bool operator!=(const IpAddress& a, const IpAddress& b) { return !(a == b); }
  friend bool operator<(const IpAddress& a, const IpAddress& b) { return a.address_ < b.address_; }

 private:
  uint32_t address_ = 0;
};
