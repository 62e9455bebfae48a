// The host's interfaces: chains as getifaddrs(3) makes them, of any entries in any order, and what is made of them.
// The input is read as a row of entries of 24 bytes: a kind, a name of at most 15 bytes, an address.

#include <linux/if_packet.h>
#include <netinet/in.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <list>
#include <string>
#include <vector>

#include "common/logger.h"
#include "net/internal/interface_chain.h"

namespace {

struct Entry {
  ifaddrs link{};
  std::array<char, 16> name{};
  union {
    sockaddr any;
    sockaddr_ll packet;
    sockaddr_in inet;
    sockaddr_in6 inet6;
  } address{};
};

constexpr std::size_t kNameBytes = 15;
constexpr std::size_t kAddressBytes = 8;
constexpr std::size_t kEntryBytes = 1 + kNameBytes + kAddressBytes;

void fill(Entry& entry, const std::uint8_t* data) {
  std::memcpy(entry.name.data(), data + 1, kNameBytes);
  entry.link.ifa_name = entry.name.data();
  const std::uint8_t* const address = data + 1 + kNameBytes;
  switch (data[0] % 4) {
    case 0: return;  // an interface without any address
    case 1:
      entry.address.packet.sll_family = AF_PACKET;
      entry.address.packet.sll_halen = data[0];
      std::memcpy(entry.address.packet.sll_addr, address, kAddressBytes);
      break;
    case 2:
      entry.address.inet.sin_family = AF_INET;
      std::memcpy(&entry.address.inet.sin_addr, address, sizeof entry.address.inet.sin_addr);
      break;
    default: entry.address.inet6.sin6_family = AF_INET6; break;
  }
  entry.link.ifa_addr = &entry.address.any;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Logger::getInstance()->setSink([](Logger::logDebugLevel_t, const std::string&) {});
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<Entry> entries(size / kEntryBytes);
  for (std::size_t i = 0; i < entries.size(); ++i) {
    fill(entries[i], data + i * kEntryBytes);
    if (i > 0) entries[i - 1].link.ifa_next = &entries[i].link;
  }
  const ifaddrs* const chain = entries.empty() ? nullptr : &entries.front().link;

  const std::list<EthBasicInfo> all = zel::linkLayerInterfaces(chain, true);
  const std::list<EthBasicInfo> withoutLoopback = zel::linkLayerInterfaces(chain, false);
  if (withoutLoopback.size() > all.size()) std::abort();
  for (EthBasicInfo info : all) {
    if (info.mac.size() != 12 || info.mac.find_first_not_of("0123456789abcdef") != std::string::npos) std::abort();
    EthBasicInfo found;
    if (!zel::readLinkLayer(chain, info.name, found) || found.name != info.name) std::abort();
    if (zel::readAddress(chain, info) != info.ipPresent || (!info.ipPresent && info.ip != 0)) std::abort();
  }
  return 0;
}
