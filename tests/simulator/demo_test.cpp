#include <gmock/gmock.h>

#include "tests/simulator/board_process.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using zel::test::ChildProcess;
using zel::test::startBoard;

TEST(Demo, ShowsTheWholeRoadOfAChangeAndEnds) {
  ChildProcess board = startBoard({"--model", "KORVA"});
  ASSERT_TRUE(board.waitForOutput(zel::test::kReady));
  ChildProcess demo = ChildProcess::run({ZEL_DEMO});
  EXPECT_EQ(demo.wait(6 * zel::test::kSoon), 0);
  const std::string output = demo.output();
  EXPECT_THAT(output, HasSubstr("KORVA, bitstream SDI-ST2110, 16 video formats"));
  EXPECT_THAT(output, HasSubstr("    rtsp {\"eth-port\":\"all\",\"tcp-port\":8554}"));  // before
  EXPECT_THAT(output, HasSubstr("  * rtsp {\"eth-port\":\"all\",\"tcp-port\":5004}"));  // after
  EXPECT_THAT(output, HasSubstr("returned -7: \"rtsp-tcp-port\" is 70000, which is out of range: 1 to 65535."));
  EXPECT_THAT(output, HasSubstr("Interface IP cannot be multicast"));
  EXPECT_THAT(output, HasSubstr("its cache shows RTSP port 5004"));
  EXPECT_THAT(output, Not(HasSubstr("\033")));  // no colours into a pipe
}

}  // namespace
