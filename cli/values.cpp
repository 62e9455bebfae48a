#include "cli/values.h"

#include <algorithm>

#include "cli/suggest.h"
#include "common/shared/format_text.h"
#include "common/shared/ipv4.h"
#include "common/shared/read_number.h"

namespace zel::ctl {

namespace {

constexpr const char* kDhcp = "dhcp";

const Words& onWords() {
  static const Words kWords = {"on", "true", "yes", "1"};
  return kWords;
}

const Words& offWords() {
  static const Words kWords = {"off", "false", "no", "0"};
  return kWords;
}

/// The parts between commas.
Words parted(const std::string& text) {
  Words parts(1);
  for (const char c : text) {
    if (c == ',') {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  return parts;
}

/// The mask behind a slash: "24", or "255.255.255.0".
IpAddress maskBehindSlash(const std::string& length) {
  if (length.find('.') != std::string::npos) return parseAddress(length);
  return IpAddress(maskOfPrefix(static_cast<unsigned int>(parseNumber(length, 0, 32))));
}

}  // namespace

std::int64_t parseNumber(const std::string& text, std::int64_t least, std::int64_t most) {
  const auto number = readNumber<std::int64_t>(text);
  if (number && *number >= least && *number <= most) return *number;
  throw usage("'" + text + "' is not a number from " + std::to_string(least) + " to " + std::to_string(most));
}

double parseSeconds(const std::string& text) {
  constexpr double kShortest = 0.001;
  constexpr double kLongest = 1000000;  // in milliseconds it still is an int
  const auto seconds = readNumber<double>(text);
  if (seconds && *seconds >= kShortest && *seconds <= kLongest) return *seconds;
  throw usage("'" + text + "' is not a number of seconds from 0.001 to 1000000");
}

bool parseSwitch(const std::string& text) {
  if (contains(onWords(), text)) return true;
  if (contains(offWords(), text)) return false;
  throw usage("'" + text + "' is neither on nor off");
}

Words switchWords() { return {onWords().front(), offWords().front()}; }

std::string parseChoice(const std::string& text, const Words& choices) {
  if (contains(choices, text)) return text;
  throw usage("'" + text + "' is not one of: " + listed(choices), didYouMean(text, choices));
}

IpAddress parseAddress(const std::string& text) {
  IpAddress address;
  if (text.empty() || address.setAddress(text) < 0) {
    throw usage("'" + text + "' is not an IPv4 address", "an address is four numbers from 0 to 255: 192.168.0.100");
  }
  return address;
}

Network parseNetwork(const std::string& address, const std::string& mask) {
  const std::size_t slash = address.find('/');
  const bool hasPrefix = slash != std::string::npos;
  if (hasPrefix && !mask.empty()) throw usage("the mask is given twice: as /PREFIX and by itself");
  const IpAddress parsed = parseAddress(address.substr(0, slash));
  if (hasPrefix) return {parsed, maskBehindSlash(address.substr(slash + 1))};
  if (mask.empty()) throw usage("the mask of " + address + " is missing", "write it as /PREFIX: " + address + "/24");
  return {parsed, parseAddress(mask)};
}

namespace {

/// @param whole  the text as failures show it
EthIpV4Cfg interfaceOf(const std::string& whole, const std::string& name, const std::string& text) {
  const Words parts = parted(text);
  const bool isDhcp = parts.size() == 1 && (text == kDhcp || text == "DHCP");
  const bool isStatic = parts.size() <= 2 && parts.front().find('/') != std::string::npos;
  if (name.empty() || !(isDhcp || isStatic)) {
    throw usage("'" + whole + "' is not an interface configuration", kInterfaceForm);
  }
  EthIpV4Cfg config;
  config.eth = name;
  config.mode.mode = isDhcp ? EthMode::ETH_MODE_DHCP : EthMode::ETH_MODE_STATIC;
  if (isDhcp) return config;
  const Network network = parseNetwork(parts.front());
  config.ip = network.address.getAddress();
  config.mask = network.mask.getAddress();
  if (parts.size() == 2) config.gw = parseAddress(parts[1]).getAddress();
  return config;
}

}  // namespace

EthIpV4Cfg parseInterface(const std::string& name, const std::string& text) { return interfaceOf(text, name, text); }

EthIpV4Cfg parseInterface(const std::string& text) {
  const std::size_t comma = std::min(text.find(','), text.size());
  return interfaceOf(text, text.substr(0, comma), text.substr(std::min(comma + 1, text.size())));
}

std::string typedMask(std::uint32_t mask) {
  unsigned int length = 0;
  while (length < 32 && (mask & (0x80000000U >> length)) != 0) ++length;
  return "/" + (mask == maskOfPrefix(length) ? std::to_string(length) : IpAddress(mask).toString());
}

std::string typedText(const EthIpV4Cfg& config) {
  if (config.mode.mode != EthMode::ETH_MODE_STATIC) return kDhcp;
  const std::string gateway = config.gw == 0 ? "" : "," + IpAddress(config.gw).toString();
  return IpAddress(config.ip).toString() + typedMask(config.mask) + gateway;
}

}  // namespace zel::ctl
