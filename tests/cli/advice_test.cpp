#include "cli/advice.h"

#include <gmock/gmock.h>

#include "cli/values.h"

namespace zel::ctl {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Words onInterface(const char* text) { return adviceOn(parseInterface("eth1", text)); }

Words onRange(const char* text) {
  const Network network = parseNetwork(text);
  WhiteListEntry entry;
  entry.ip = network.address.getAddress();
  entry.mask = network.mask.getAddress();
  return adviceOn(entry);
}

TEST(Advice, IsSilentAboutWhatIsUsual) {
  for (const char* text : {"dhcp", "192.168.0.100/24", "192.168.0.100/24,192.168.0.1", "10.0.0.0/31", "10.0.0.1/31",
                           "10.0.0.0/32", "10.0.0.1/8,10.255.255.254"}) {
    EXPECT_THAT(onInterface(text), IsEmpty()) << text;
  }
  for (const char* text : {"239.1.0.0/16", "239.1.2.3/32", "224.0.0.0/4"})
    EXPECT_THAT(onRange(text), IsEmpty()) << text;
}

TEST(Advice, NamesAddressesThatAreNotAHosts) {
  EXPECT_THAT(onInterface("10.1.2.0/24"), ElementsAre("10.1.2.0 is the address of the network 10.1.2.0/24 itself"));
  EXPECT_THAT(onInterface("10.1.3.255/23"),
              ElementsAre("10.1.3.255 is the broadcast address of the network 10.1.2.0/23"));
  EXPECT_THAT(onInterface("10.1.2.3/255.0.255.0"), ElementsAre("255.0.255.0 is a mask with gaps"));
}

TEST(Advice, NamesGatewaysThatCannotBeReached) {
  EXPECT_THAT(onInterface("10.1.2.3/24,10.1.3.1"),
              ElementsAre("the gateway 10.1.3.1 is not in the network 10.1.2.0/24"));
  EXPECT_THAT(onInterface("10.1.2.3/24,10.1.2.3"), ElementsAre("the gateway 10.1.2.3 is the interface itself"));
}

TEST(Advice, NamesBitsBehindTheMaskOfARange) {
  EXPECT_THAT(onRange("239.1.2.3/16"), ElementsAre("239.1.2.3/16 has bits behind its mask: the range is 239.1.0.0/16"));
  EXPECT_THAT(onRange("239.0.2.0/255.0.255.0"), ElementsAre("255.0.255.0 is a mask with gaps"));
}

TEST(Advice, NamesTwoServicesOnOnePort) {
  SysParameters stored;
  EXPECT_THAT(sharedPorts(stored), IsEmpty());
  stored.nmos.httpSdpPort = 9095;
  ASSERT_EQ(sharedPorts(stored).size(), 1U);
  EXPECT_STREQ(sharedPorts(stored).front().key, "ember/tcp-port");
  EXPECT_STREQ(sharedPorts(stored).front().other, "nmos/http-sdp-port");
  EXPECT_EQ(sharedPorts(stored).front().port, 9095U);
  stored.nmos.enable = false;
  EXPECT_THAT(sharedPorts(stored), IsEmpty());
}

}  // namespace
}  // namespace zel::ctl
