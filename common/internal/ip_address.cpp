#include "common/ip_address.h"

#include <arpa/inet.h>

#include "common/logger.h"
#include "common/status.h"

int IpAddress::setAddress(const std::string& dotted) {
  if (dotted.empty()) return zel::status::kOk;

  in_addr parsed{};
  if (inet_pton(AF_INET, dotted.c_str(), &parsed) != 1) {
    Logger::log(Logger::LEVEL_ERROR, "Error parsing IP [%s]: invalid IP address", dotted.c_str());
    return zel::status::kInvalidAddress;
  }
  address_ = ntohl(parsed.s_addr);
  return zel::status::kOk;
}

std::string IpAddress::toString() const {
  const in_addr address{htonl(address_)};
  char text[INET_ADDRSTRLEN];
  // Cannot fail: the family is known and the buffer holds the longest text. inet_ntoa would share one buffer.
  return inet_ntop(AF_INET, &address, text, sizeof text);
}
