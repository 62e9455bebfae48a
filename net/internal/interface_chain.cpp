#include "net/internal/interface_chain.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netpacket/packet.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <unordered_map>

#include "common/ip_address.h"

namespace zel {

namespace {

constexpr char kLoopback[] = "lo";
constexpr std::size_t kMacBytes = 6;

bool isOfFamily(const ifaddrs& entry, int family) {
  return entry.ifa_addr != nullptr && entry.ifa_addr->sa_family == family;
}

std::string macText(const sockaddr* linkLayer) {
  sockaddr_ll link;
  std::memcpy(&link, linkLayer, sizeof link);

  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < kMacBytes; ++i) {
    text += kDigits[link.sll_addr[i] >> 4];
    text += kDigits[link.sll_addr[i] & 0xF];
  }
  return text;
}

}  // namespace

std::list<EthBasicInfo> linkLayerInterfaces(const ifaddrs* chain, bool includeLoopback) {
  std::list<EthBasicInfo> interfaces;
  for (const ifaddrs* entry = chain; entry != nullptr; entry = entry->ifa_next) {
    if (!isOfFamily(*entry, AF_PACKET)) continue;
    if (!includeLoopback && std::strcmp(entry->ifa_name, kLoopback) == 0) continue;
    EthBasicInfo& info = interfaces.emplace_back();
    info.name = entry->ifa_name;
    info.mac = macText(entry->ifa_addr);
  }
  return interfaces;
}

bool readLinkLayer(const ifaddrs* chain, const std::string& name, EthBasicInfo& info) {
  for (const ifaddrs* entry = chain; entry != nullptr; entry = entry->ifa_next) {
    if (!isOfFamily(*entry, AF_PACKET) || name != entry->ifa_name) continue;
    info.name = name;
    info.mac = macText(entry->ifa_addr);
    return true;
  }
  return false;
}

bool readAddress(const ifaddrs* chain, EthBasicInfo& info) {
  bool found = false;
  for (const ifaddrs* entry = chain; entry != nullptr; entry = entry->ifa_next) {
    if (!isOfFamily(*entry, AF_INET) || info.name != entry->ifa_name) continue;
    takeAddress(entry->ifa_addr, sizeof(sockaddr_in), info);
    found = true;
  }
  if (!found) {
    info.ip = 0;
    info.ipPresent = false;
  }
  return found;
}

std::list<EthBasicInfo> addressedInterfaces(const ifaddrs* chain) {
  std::list<EthBasicInfo> interfaces = linkLayerInterfaces(chain, false);
  std::unordered_map<std::string_view, EthBasicInfo*> byName;
  for (EthBasicInfo& info : interfaces) byName.emplace(info.name, &info);
  for (const ifaddrs* entry = chain; entry != nullptr; entry = entry->ifa_next) {
    if (!isOfFamily(*entry, AF_INET)) continue;
    const auto found = byName.find(entry->ifa_name);
    if (found != byName.end()) takeAddress(entry->ifa_addr, sizeof(sockaddr_in), *found->second);
  }
  return interfaces;
}

void takeAddress(const sockaddr* address, socklen_t length, EthBasicInfo& info) {
  char host[NI_MAXHOST];
  const int error = getnameinfo(address, length, host, sizeof host, nullptr, 0, NI_NUMERICHOST);
  if (error != 0) {
    std::printf("getnameinfo() failed: %s\n", gai_strerror(error));
    std::exit(EXIT_FAILURE);  // on purpose, see EthIpUtils::get_ip_address: callers do not handle it
  }
  IpAddress parsed(info.ip);
  static_cast<void>(parsed.setAddress(std::string(host)));  // logs a text that is no address and keeps the value
  info.ip = parsed.getAddress();
  info.ipPresent = true;
}

}  // namespace zel
