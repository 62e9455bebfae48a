#include "net/eth_ip_utils.h"

#include <dirent.h>
#include <ifaddrs.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <memory>

#include "common/logger.h"
#include "net/internal/interface_chain.h"
#include "net/shared/host_interfaces.h"

// The priority puts it before the static objects of programs and libraries, which may make an EthIpUtils.
__attribute__((init_priority(101))) std::string dhcp_lease = "/var/lib/dhcp";

namespace {

struct FreeChain {
  void operator()(ifaddrs* chain) const { freeifaddrs(chain); }
};
using Chain = std::unique_ptr<ifaddrs, FreeChain>;

/// The host's interfaces as they are now; empty when getifaddrs(3) fails.
Chain enumerate() {
  ifaddrs* chain = nullptr;
  return Chain(getifaddrs(&chain) == 0 ? chain : nullptr);
}

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

/// One bit, not the file type: block devices and sockets have it too, and count as directories.
bool hasDirectoryBit(const struct stat& status) { return (status.st_mode & S_IFDIR) != 0; }

}  // namespace

std::list<EthBasicInfo> zel::hostInterfaces() { return addressedInterfaces(enumerate().get()); }

EthIpUtils::EthIpUtils() : leaseDirectory_(dhcp_lease) {}
EthIpUtils::~EthIpUtils() = default;

int EthIpUtils::get_eth_info(std::list<EthBasicInfo>& out, bool includeLoopback) {
  interfaces_ = zel::linkLayerInterfaces(enumerate().get(), includeLoopback);
  out = interfaces_;
  return 0;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): part of the binary interface
bool EthIpUtils::get_eth_info(EthBasicInfo& info, std::string name) {
  return zel::readLinkLayer(enumerate().get(), name, info);
}

bool EthIpUtils::get_ip_address(EthBasicInfo& info) { return zel::readAddress(enumerate().get(), info); }

int EthIpUtils::getDhcpLeaseFilenames(std::vector<std::string>& files, const std::string& dir) {
  Directory directory(opendir(dir.c_str()));
  if (directory == nullptr) return -1;

  while (const dirent* entry = readdir(directory.get())) {
    if (entry->d_name[0] == '.') continue;
    std::string path = dir + "/" + entry->d_name;
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || hasDirectoryBit(status)) continue;
    files.push_back(std::move(path));
  }
  return closedir(directory.release());
}

bool EthIpUtils::set_ip_mode(EthBasicInfo& info) {
  struct stat status {};
  if (stat(leaseDirectory_.c_str(), &status) != 0) {
    std::printf("cannot access %s\n", leaseDirectory_.c_str());
    return false;
  }
  if (!hasDirectoryBit(status)) {
    Logger::log(Logger::LEVEL_ERROR, "%s is not a directory\n", leaseDirectory_.c_str());
    return false;
  }
  std::vector<std::string> files;
  getDhcpLeaseFilenames(files, leaseDirectory_);
  return std::any_of(files.begin(), files.end(),
                     [&info](const std::string& path) { return path.find(info.name) != std::string::npos; });
}
