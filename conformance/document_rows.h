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
  const char* meaning;
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
    {"ethipv4[i]/eth", "name of the interface, as the kernel has it", Type::kText},
    {"ethipv4[i]/mode", "how the interface gets its address", Type::kChoice, Presence::kAlways, "", "", kMode,
     EthMode::ETH_MODE_DHCP},
    {"ethipv4[i]/static/gw", "default gateway; 0.0.0.0 is none", Type::kAddress, Presence::kWhenSet, "", "\"0.0.0.0\""},
    {"ethipv4[i]/static/ip", "address", Type::kAddress, Presence::kWhenSet},
    {"ethipv4[i]/static/mask", "network mask", Type::kAddress, Presence::kWhenSet},
};

inline constexpr DocumentRow kDynamic[] = {
    {"chipid-name", "name of the FPGA", Type::kText, Presence::kAlways, "", "\"\""},
    {"chipid-version", "version of the FPGA", Type::kText, Presence::kAlways, "", "\"\""},
    {"errors[i]/code", "number of the error, the daemon's own", Type::kInteger, Presence::kAlways, "", "-1"},
    {"errors[i]/description", "the error, for a person", Type::kText},
    {"eth-basics[i]/index", "number of the interface, the daemon's own", Type::kUnsigned},
    {"eth-basics[i]/ip", "address of the running interface", Type::kAddress, Presence::kAlways, "", "\"0.0.0.0\""},
    {"eth-basics[i]/ip-present", "whether the interface has an address now", Type::kBoolean},
    {"eth-basics[i]/label", "name of the port, for a person", Type::kText, Presence::kAlways, "", "\"\""},
    {"eth-basics[i]/mac", "MAC address", Type::kMac, Presence::kAlways, "", "\"000000000000\""},
    {"eth-basics[i]/name", "name of the interface, as in ethipv4", Type::kText},
    {"eth-basics[i]/sfp-info/part_number", "part number of the SFP module", Type::kText, Presence::kWhenSet, "",
     "\"N/A\""},
    {"eth-basics[i]/sfp-info/present", "whether an SFP module is plugged in", Type::kBoolean},
    {"eth-basics[i]/sfp-info/rx_power", "optical power received", Type::kReal, Presence::kWhenSet, "dBm", "-1"},
    {"eth-basics[i]/sfp-info/temperature", "temperature of the SFP module", Type::kReal, Presence::kWhenSet, "°C", "0"},
    {"eth-basics[i]/sfp-info/tx_power", "optical power sent", Type::kReal, Presence::kWhenSet, "dBm", "-1"},
    {"eth-basics[i]/sfp-info/wavelength", "wavelength", Type::kInteger, Presence::kWhenSet, "nm", "-1"},
    {"fan-speed/main", "speed of the main fan", Type::kInteger, Presence::kAlways, "1/min", "-1"},
    {"madi-lock", "whether the MADI input is locked", Type::kBoolean},
    {"temperature/fpga", "temperature of the FPGA", Type::kInteger, Presence::kAlways, "°C", "65535"},
};

inline constexpr DocumentRow kBoardModel[] = {
    {"model", "board model; another one than these is not known to the readers", Type::kChoice, Presence::kAlways, "",
     "\"Undefined\"", kModel, BoardModelType::BOARD_MODEL_UNDEFINED},
    {"module", "FPGA bitstream that runs", Type::kChoice, Presence::kAlways, "", "\"NA\"", kModule,
     BitstreamType::BITSTREAM_NONE},
};

inline constexpr DocumentRow kWhitelistEntry[] = {
    {"enabled", "whether the range is in force", Type::kBoolean},
    {"ip", "multicast address of the range", Type::kAddress},
    {"mask", "mask of the range", Type::kAddress},
};

}  // namespace rows

}  // namespace zel::conformance
