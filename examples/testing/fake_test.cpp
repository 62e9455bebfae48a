// A typed call without a daemon: a mock in place of the client.

#include <gmock/gmock.h>

#include "port_setting.h"

namespace {

using testing::Return;

class MockPort : public PortSetting {
 public:
  MOCK_METHOD(int, set, (uint32_t port), (override));
};

TEST(SetPortPatiently, RepeatsARequestThatNobodyTook) {
  MockPort port;
  EXPECT_CALL(port, set(5004)).WillOnce(Return(-102)).WillOnce(Return(0));
  EXPECT_EQ(setPortPatiently(port, 5004), 0);
}

TEST(SetPortPatiently, DoesNotRepeatOneThatMayHaveBeenCarriedOut) {
  MockPort port;
  EXPECT_CALL(port, set(5004)).WillOnce(Return(-103));
  EXPECT_EQ(setPortPatiently(port, 5004), -103);
}

}  // namespace
