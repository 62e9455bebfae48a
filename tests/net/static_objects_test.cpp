#include <gtest/gtest.h>

#include "net/eth_ip_utils.h"

namespace {

// Initialised before the static objects of the file that defines dhcp_lease: this file is linked first.
const std::string leaseDirectoryAtStart = dhcp_lease;
EthIpUtils utilsMadeAtStart;

TEST(DhcpLease, IsSetBeforeTheStaticObjectsOfAProgram) { EXPECT_EQ(leaseDirectoryAtStart, "/var/lib/dhcp"); }

TEST(EthIpUtils, WorksAsAStaticObject) {
  std::list<EthBasicInfo> interfaces;
  EXPECT_EQ(utilsMadeAtStart.get_eth_info(interfaces, true), 0);
}

}  // namespace
