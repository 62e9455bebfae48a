#pragma once

#include <list>
#include <string>
#include <vector>

#include "../common/eth_basic_info.h"
#include "../common/export.h"

/// The directory in which the host's DHCP client keeps its lease files: "/var/lib/dhcp" before any user code runs, the
/// constructors of static objects included. A program may change it before it makes an `EthIpUtils`.
extern ZEL_EXPORT std::string dhcp_lease;

/// The host's own view of its network interfaces: which there are, their addresses, and which of them use DHCP.
///
/// Each call reads the system anew; the daemon is not asked. Threads: one caller at a time per object.
class ZEL_EXPORT EthIpUtils {
 public:
  /// Takes the lease directory from `dhcp_lease`; later changes of the global do not reach this object.
  EthIpUtils();
  ~EthIpUtils();

  /// Lists the interfaces that have a link layer, in the kernel's order, with name and MAC address only.
  ///
  /// @param out              replaced by the list; emptied when getifaddrs(3) fails
  /// @param includeLoopback  whether "lo" is listed
  /// @return 0
  int get_eth_info(std::list<EthBasicInfo>& out, bool includeLoopback);

  /// Fills the name and the MAC address of one interface, "lo" too; everything else in `info` stays.
  /// @return whether there is such an interface with a link layer; if not, `info` is untouched.
  bool get_eth_info(EthBasicInfo& info, std::string name);

  /// Fills the IPv4 address and the address-present flag of the interface that `info` names. Of several addresses the
  /// last in the kernel's order counts; without any they become 0 and false.
  ///
  /// An address that the system library cannot turn into text ends the process: "getnameinfo() failed: %s\n" on
  /// standard output, exit status 1.
  ///
  /// @return whether the interface has an IPv4 address
  bool get_ip_address(EthBasicInfo& info);

  /// Appends the full path ("DIR/NAME") of each file of a directory, in the directory's order.
  ///
  /// Left out are names that begin with ".", entries that cannot be examined (dangling links, missing rights) and those
  /// whose mode has the bit of a directory, 0x4000: directories, block devices and sockets.
  ///
  /// @return 0; -1 for a directory that cannot be opened, which adds nothing
  int getDhcpLeaseFilenames(std::vector<std::string>& files, const std::string& dir);

  /// Finds out how the interface that `info` names takes its address; `info` is not changed. It is DHCP when the path
  /// of a lease file holds the name anywhere: a lease file of "eth0.10" counts for "eth0" too, and so does a directory
  /// called like the interface.
  ///
  /// A lease directory that cannot be examined is reported on standard output, "cannot access %s\n"; one that is not
  /// a directory is logged at level 2, "%s is not a directory\n".
  ///
  /// @return true for DHCP; false for a static address, or when the lease directory cannot be read
  bool set_ip_mode(EthBasicInfo& info);

 private:
  std::list<EthBasicInfo> interfaces_;
  std::string leaseDirectory_;
};
