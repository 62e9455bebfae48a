// A program that uses the cache alone, and has classes of its own under the names of the records that the cache holds
// and of the classes that it works with (own_helpers.cpp, own_records.cpp). Nothing here makes such an object.

#include <gtest/gtest.h>

#include "config/system_default_cfg.h"
#include "tests/support/fake_board.h"

namespace {

TEST(OwnRecords, StayOutOfTheCache) {
  zel::test::FakeBoard board;
  using zel::test::FakeBoard;
  board.set(FakeBoard::kStored, R"({"rtsp": {"tcp-port": 8555}, "board-model": {"model": "ORVEN_TESSA"},
      "ethipv4": [{"eth": "e1", "mode": "static", "static": {"ip": "10.0.0.1"}}]})");
  board.set(FakeBoard::kDynamic,
            R"({"eth-basics": [{"name": "e1", "ip": "10.0.0.1", "sfp-info": {"present": true}}]})");
  board.set(FakeBoard::kBoardModel, R"({"model": "ORVEN_TESSA"})");
  board.set(FakeBoard::kWhitelist, R"([{"ip": "239.0.0.1", "mask": "255.255.255.255"}])");

  SystemDefaultCfg& cache = SystemDefaultCfg::getInstance();
  EXPECT_TRUE(cache.isInitialized());
  unsigned int port = 0;
  EXPECT_EQ(cache.getRtspTcpPort(&port), 0);
  EXPECT_EQ(port, 8555U);
  EXPECT_EQ(cache.getMulticastWhiteList().size(), 1U);
  EXPECT_TRUE(cache.isLocalBoardIpAddr(IpAddress(0x0A000001)));
  EXPECT_EQ(cache.getClientReference().setRtspTcpPort(8556), 0);
  EXPECT_EQ(cache.init(), 0);
}

}  // namespace
