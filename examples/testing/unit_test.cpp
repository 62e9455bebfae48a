// A subscriber without a daemon: a notification is handed to it as it would come from the wire.

#include <gtest/gtest.h>

#include "address_watch.h"

namespace {

TEST(AddressWatch, TakesTheAddressOfItsInterface) {
  AddressWatch watch("eth1");
  std::string topic = SysmgrPublisher::topicOf(SysmgrPublisher::SYSMGR_DYNAMIC_INFO_UPDATE);
  Json::Value payload;
  payload["eth-basics"][0]["name"] = "eth1";
  payload["eth-basics"][0]["ip"] = "10.0.0.9";

  EXPECT_EQ(watch.processNotification(topic, payload), 0);

  EXPECT_EQ(watch.address(), "10.0.0.9");
  EXPECT_FALSE(watch.alarm());
}

}  // namespace
