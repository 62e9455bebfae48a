#pragma once

#include <cstdint>
#include <string>

#include "cli/failure.h"
#include "cli/words.h"
#include "common/ip_address.h"
#include "types/sysmgr_eth_types.h"

namespace zel::ctl {

// Values as they are typed. Each function throws `Failure` for a text that is not such a value: "'x' is not ...".

/// A number from `least` to `most`.
std::int64_t parseNumber(const std::string& text, std::int64_t least, std::int64_t most);
/// A time in seconds, from a millisecond up; a fraction is allowed.
double parseSeconds(const std::string& text);
/// "on" or "off", or another word for them.
bool parseSwitch(const std::string& text);
/// The words for a switch that are offered.
Words switchWords();
/// One of the texts.
std::string parseChoice(const std::string& text, const Words& choices);

IpAddress parseAddress(const std::string& text);

/// An address with its network mask.
struct Network {
  IpAddress address;
  IpAddress mask;
};
/// From "ADDRESS/PREFIX" (or a mask behind the slash), or from an address and a mask. An empty mask is missing.
Network parseNetwork(const std::string& address, const std::string& mask = {});

/// How an interface configuration is typed as one word.
inline constexpr const char* kInterfaceForm = "NAME,dhcp or NAME,ADDRESS/PREFIX[,GATEWAY]";
EthIpV4Cfg parseInterface(const std::string& text);
/// The same of an interface with this name: "dhcp" or "ADDRESS/PREFIX[,GATEWAY]".
EthIpV4Cfg parseInterface(const std::string& name, const std::string& text);

// The opposite: values as they are typed.

/// "/24", or "/255.0.255.0" for a mask with gaps.
std::string typedMask(std::uint32_t mask);
/// "dhcp" or "ADDRESS/PREFIX[,GATEWAY]".
std::string typedText(const EthIpV4Cfg& config);

/// What `parse()` returns. A failure names the option or key that the value is for: "--count: 'x' is not ...".
template <class Parse>
auto valueFor(const std::string& name, const Parse& parse) {
  try {
    return parse();
  } catch (const Failure& failure) {
    throw Failure(failure.status(), name + ": " + failure.what(), failure.advice()).about(name);
  }
}

}  // namespace zel::ctl
