#pragma once

#include <cstdint>
#include <limits>

#include "types/settings.h"

/// @file
/// The values of the daemon's documents that types/settings.h has no row for: the dynamic information, the board model,
/// an entry of the whitelist, an element of "ethipv4". docs/keys.md shows the rows, and the checks judge documents by
/// them.

namespace zel::conformance {

using Presence = SettingRow::Presence;

/// One value of a document.
struct DocumentRow {
  enum class Type {
    kBoolean,
    kInteger,   ///< signed, 32 bits
    kUnsigned,  ///< 32 bits
    kReal,
    kText,
    kAddress,  ///< an IPv4 address as dotted text
    kMac,      ///< 12 lower-case hexadecimal digits
    kChoice,   ///< one of the texts of `choice`
  };

  const char* path;  ///< "eth-basics[i]/ip"; [i] is each element of an array
  Type type;
  Presence presence = Presence::kAlways;  ///< inside an array: in each element
  const char* unit = "";
  const char* unknown = "";                         ///< what is sent where the value is not known; empty: always known
  const char* (*choice)(int enumerator) = nullptr;  ///< the texts of a choice, from 0 to `lastChoice`
  int lastChoice = 0;
};

namespace rows {

using Type = DocumentRow::Type;

inline constexpr auto kMode = [](int mode) { return EthMode::toText(static_cast<EthMode::eth_mode_t>(mode)); };
inline constexpr auto kModel = [](int model) {
  return BoardModelType::toText(static_cast<BoardModelType::board_models_t>(model));
};
inline constexpr auto kModule = [](int type) {
  return BitstreamType::toText(static_cast<BitstreamType::bitstream_t>(type));
};

/// Of the stored parameters.
inline constexpr DocumentRow kInterface[] = {
    {"ethipv4[i]/eth", Type::kText},
    {"ethipv4[i]/mode", Type::kChoice, Presence::kAlways, "", "", kMode, EthMode::ETH_MODE_DHCP},
    {"ethipv4[i]/static/gw", Type::kAddress, Presence::kWhenSet, "", "0.0.0.0"},
    {"ethipv4[i]/static/ip", Type::kAddress, Presence::kWhenSet},
    {"ethipv4[i]/static/mask", Type::kAddress, Presence::kWhenSet},
};

inline constexpr DocumentRow kDynamic[] = {
    {"chipid-name", Type::kText, Presence::kAlways, "", "\"\""},
    {"chipid-version", Type::kText, Presence::kAlways, "", "\"\""},
    {"errors[i]/code", Type::kInteger, Presence::kAlways, "", "-1"},
    {"errors[i]/description", Type::kText},
    {"eth-basics[i]/index", Type::kUnsigned},
    {"eth-basics[i]/ip", Type::kAddress, Presence::kAlways, "", "\"0.0.0.0\""},
    {"eth-basics[i]/ip-present", Type::kBoolean},
    {"eth-basics[i]/label", Type::kText, Presence::kAlways, "", "\"\""},
    {"eth-basics[i]/mac", Type::kMac},
    {"eth-basics[i]/name", Type::kText},
    {"eth-basics[i]/sfp-info/part_number", Type::kText, Presence::kWhenSet, "", "\"N/A\""},
    {"eth-basics[i]/sfp-info/present", Type::kBoolean},
    {"eth-basics[i]/sfp-info/rx_power", Type::kReal, Presence::kWhenSet, "dBm", "-1"},
    {"eth-basics[i]/sfp-info/temperature", Type::kReal, Presence::kWhenSet, "°C", "0"},
    {"eth-basics[i]/sfp-info/tx_power", Type::kReal, Presence::kWhenSet, "dBm", "-1"},
    {"eth-basics[i]/sfp-info/wavelength", Type::kInteger, Presence::kWhenSet, "nm", "-1"},
    {"fan-speed/main", Type::kInteger, Presence::kAlways, "1/min", "-1"},
    {"madi-lock", Type::kBoolean},
    {"temperature/fpga", Type::kInteger, Presence::kAlways, "°C", "65535"},
};

inline constexpr DocumentRow kBoardModel[] = {
    {"model", Type::kChoice, Presence::kAlways, "", "\"Undefined\"", kModel, BoardModelType::BOARD_MODEL_UNDEFINED},
    {"module", Type::kChoice, Presence::kAlways, "", "\"NA\"", kModule, BitstreamType::BITSTREAM_NONE},
};

inline constexpr DocumentRow kWhitelistEntry[] = {
    {"enabled", Type::kBoolean},
    {"ip", Type::kAddress},
    {"mask", Type::kAddress},
};

}  // namespace rows

}  // namespace zel::conformance
