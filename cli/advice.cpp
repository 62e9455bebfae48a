#include "cli/advice.h"

#include <algorithm>
#include <map>

#include "cli/output.h"
#include "cli/values.h"
#include "types/settings.h"

namespace zel::ctl {

namespace {

constexpr std::uint32_t kAll = 0xFFFFFFFF;

std::string dotted(std::uint32_t address) { return IpAddress(address).toString(); }
std::string range(std::uint32_t address, std::uint32_t mask) { return dotted(address & mask) + typedMask(mask); }

/// A mask whose ones do not stand together at its beginning.
bool hasGaps(std::uint32_t mask) { return (~mask & (~mask + 1)) != 0; }

/// A TCP port on which the board listens.
struct Port {
  const char* key;
  std::uint32_t (*of)(const SysParameters& stored);
  bool (*isUsed)(const SysParameters& stored);
};

template <const auto& row>
std::uint32_t portOf(const SysParameters& stored) {
  return static_cast<std::uint32_t>(row.in(stored));
}

bool always(const SysParameters&) { return true; }
bool withNmos(const SysParameters& stored) { return stored.nmos.enable; }

constexpr Port kPorts[] = {
    {settings::kRtspTcpPort.path, portOf<settings::kRtspTcpPort>, always},
    {settings::kEmberTcpPort.path, portOf<settings::kEmberTcpPort>, always},
    {settings::kAdvertTcpPort.path, portOf<settings::kAdvertTcpPort>, always},
    {settings::kNmosHttpSdpPort.path, portOf<settings::kNmosHttpSdpPort>, withNmos},
    {settings::kNmosNodePort.path, portOf<settings::kNmosNodePort>, withNmos},
};

}  // namespace

Words adviceOn(const EthIpV4Cfg& config) {
  Words advice;
  if (config.mode.mode != EthMode::ETH_MODE_STATIC || config.ip == 0) return advice;
  const std::string network = range(config.ip, config.mask);
  const std::uint32_t host = config.ip & ~config.mask;
  const bool hasHosts = (~config.mask & kAll) > 1;  // in a /31 and a /32 each address is a host's
  if (hasGaps(config.mask)) advice.push_back(dotted(config.mask) + " is a mask with gaps");
  if (hasHosts && host == 0)
    advice.push_back(dotted(config.ip) + " is the address of the network " + network + " itself");
  if (hasHosts && host == (~config.mask & kAll)) {
    advice.push_back(dotted(config.ip) + " is the broadcast address of the network " + network);
  }
  if (config.gw == 0) return advice;
  if (config.gw == config.ip) advice.push_back("the gateway " + dotted(config.gw) + " is the interface itself");
  if ((config.gw & config.mask) != (config.ip & config.mask)) {
    advice.push_back("the gateway " + dotted(config.gw) + " is not in the network " + network);
  }
  return advice;
}

Words adviceOn(const WhiteListEntry& entry) {
  Words advice;
  if (hasGaps(entry.mask)) advice.push_back(dotted(entry.mask) + " is a mask with gaps");
  if ((entry.ip & ~entry.mask) != 0) {
    advice.push_back(dotted(entry.ip) + typedMask(entry.mask) + " has bits behind its mask: the range is " +
                     range(entry.ip, entry.mask));
  }
  return advice;
}

std::vector<SharedPort> sharedPorts(const SysParameters& stored) {
  std::vector<SharedPort> shared;
  std::map<std::uint32_t, const char*> users;
  for (const Port& port : kPorts) {
    if (!port.isUsed(stored)) continue;
    const auto [user, isNew] = users.emplace(port.of(stored), port.key);
    if (!isNew) shared.push_back({user->second, port.key, user->first});
  }
  return shared;
}

bool isPortOfService(const std::string& key) {
  return std::any_of(std::begin(kPorts), std::end(kPorts), [&key](const Port& port) { return key == port.key; });
}

void noteSharedPorts(Daemon& daemon) {
  try {
    for (const SharedPort& shared : sharedPorts(daemon.record<SysParameters>("stored"))) {
      note(std::string(shared.key) + " and " + shared.other + " are both " + std::to_string(shared.port) + " now");
    }
  } catch (const Failure&) {
    return;
  }
}

}  // namespace zel::ctl
