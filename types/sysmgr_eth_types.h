#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "../common/json_serializable.h"

/// The VLAN tag of an interface (IEEE 802.1Q).
class ZEL_EXPORT Vlan : public IJsonSerializable {
 public:
  uint16_t id = 0;         ///< "id": VLAN identifier; 0: untagged
  uint8_t priority = 0;    ///< "priority": priority code point
  uint16_t tpid = 0x8100;  ///< "tpid": tag protocol identifier, host order

  void Serialize(Json::Value& root) const override;
  /// A missing key resets its member. A number is read as `int` and keeps as many low bits as the member has: an "id"
  /// of 70000 becomes 4464.
  int Deserialize(Json::Value& root) override;
};

/// How an interface gets its IPv4 address.
class ZEL_EXPORT EthMode : public IJsonSerializable {
 public:
  enum eth_mode_t : int {
    ETH_MODE_STATIC = 0,  ///< "static"
    ETH_MODE_DHCP = 1,    ///< "DHCP"
  };

  eth_mode_t mode = ETH_MODE_STATIC;  ///< "mode"

  /// The text of a mode; "Undefined" for a value outside the enumeration.
  static const char* toText(eth_mode_t mode);
  /// The mode of a text, letter case included; none for any other text.
  static std::optional<eth_mode_t> fromText(std::string_view text);

  void Serialize(Json::Value& root) const override;
  /// Takes the text from "mode", which is a string or an object with a "mode" of its own. Any other text, an empty or
  /// missing "mode" and every other JSON type leave the mode as it is. A missing "mode" becomes a null member of
  /// `root`.
  int Deserialize(Json::Value& root) override;
};

/// The stored IPv4 configuration of one network interface. All addresses in host order, the first octet in the most
/// significant byte: 127.0.0.1 is 0x7F000001.
class ZEL_EXPORT EthIpV4Cfg : public IJsonSerializable {
 public:
  std::string eth;             ///< "eth": interface name, "eth0" or "eth0.10"
  EthMode mode;                ///< "mode"
  uint32_t ip = 0;             ///< "static"/"ip", dotted text
  uint32_t mask = 0xFFFFFF00;  ///< "static"/"mask", dotted text
  uint32_t gw = 0;             ///< "static"/"gw", dotted text: default gateway; 0: none
  Vlan vlan;                   ///< not part of the JSON form, the equality or the order

  /// Writes "eth", "mode" and, in static mode only, "static".
  void Serialize(Json::Value& root) const override;
  /// A missing "eth" empties the name; "mode" is read as `EthMode::Deserialize` does. In static mode each address of
  /// "static" that is missing or empty stays as it is, and so does one whose text is no address, with "Error parsing IP
  /// [%s]: invalid IP address" logged at level 2. In DHCP mode the addresses are not touched.
  ///
  /// A "mode" that is looked for and missing becomes a null member of `root`; so does a "static".
  int Deserialize(Json::Value& root) override;

  /// Whether the configuration may be applied. Only static entries are checked, the first failure counts: an address or
  /// a gateway that starts with 0 or is multicast (a gateway of 0 is none), the address 127.0.0.1, the mask 0.0.0.0.
  ///
  /// @return 0; -27 (`zel::status::kInvalidAddress`), with the reason logged at level 2 and added to `ErrorAuxMsg`.
  int validate() const;

  /// Same name, same mode and, unless the mode is DHCP, same address, mask and gateway.
  bool operator==(const EthIpV4Cfg& other) const;
  bool operator!=(const EthIpV4Cfg& other) const { return !(*this == other); }
  /// The byte-wise order of the names: "eth0", "eth0.10", "eth1".
  bool operator<(const EthIpV4Cfg& other) const;
};
