// A program that uses a part of the library, the records of the interfaces, and has classes of its own under the names
// of other parts (own_helpers.cpp).

#include <gtest/gtest.h>
#include <json/value.h>

#include "tests/support/child_process.h"
#include "types/sysmgr_eth_types.h"

using zel::test::ChildProcess;

namespace {

constexpr uint32_t kAddress = 0xC0A80102;

Json::Value withAddress(const std::string& text) {
  Json::Value document;
  document["mode"] = EthMode::toText(EthMode::ETH_MODE_STATIC);
  document["static"]["ip"] = text;
  return document;
}

/// What a function makes the library log, on standard error.
std::string loggedBy(const std::function<int()>& body) {
  ChildProcess child = ChildProcess::call(body);
  EXPECT_EQ(child.wait(), 0);
  return child.errors();
}

TEST(OwnHelpers, DoNotWriteTheLibrarysAddresses) {
  EthIpV4Cfg cfg;
  cfg.mode.mode = EthMode::ETH_MODE_STATIC;
  cfg.ip = kAddress;
  Json::Value written;
  cfg.Serialize(written);
  EXPECT_EQ(written["static"]["ip"].asString(), "192.168.1.2");
}

TEST(OwnHelpers, DoNotReadTheLibrarysAddresses) {
  EthIpV4Cfg cfg;
  Json::Value document = withAddress("192.168.1.2");
  cfg.Deserialize(document);
  EXPECT_EQ(cfg.ip, kAddress);
}

TEST(OwnHelpers, DoNotLogForTheLibrary) {
  EXPECT_EQ(loggedBy([] {
              EthIpV4Cfg cfg;
              Json::Value document = withAddress("1.2.3");
              return cfg.Deserialize(document);
            }),
            "error: Error parsing IP [1.2.3]: invalid IP address\n");
  EXPECT_EQ(loggedBy([] {
              EthIpV4Cfg cfg;
              cfg.mode.mode = EthMode::ETH_MODE_STATIC;
              return cfg.validate() == -27 ? 0 : 1;
            }),
            "error: Interface IP cannot start with 0\n");
}

TEST(OwnHelpers, LeaveTheTypesOfRecordsToBeAskedFor) {
  EthIpV4Cfg cfg;
  IJsonSerializable* const record = &cfg;
  EXPECT_EQ(dynamic_cast<EthIpV4Cfg*>(record), &cfg);
  EXPECT_EQ(dynamic_cast<Vlan*>(record), nullptr);
}

}  // namespace
