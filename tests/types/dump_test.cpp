#include "tests/support/captured_log.h"
#include "tests/types/stored_rows.h"

namespace zel::test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

BoardModel board(int model, int bitstream) {
  BoardModel board;
  board.model = BoardModelType::board_models_t(model);
  board.bitstream.type = BitstreamType::bitstream_t(bitstream);
  return board;
}

/// The dump's lines, all of which are configuration.
std::vector<std::string> dump(const SysParameters& parameters, const BoardModel& model) {
  const CapturedLog log;
  parameters.dumpParameter(model);
  EXPECT_EQ(log.texts(3).size(), log.lines().size());
  return log.texts(3);
}

TEST(Dump, OfAFullRecord) {
  auto parameters = fullParameters();
  parameters.rtspTcpPort = 5004;
  parameters.nmos.httpSdpPort = 1;
  parameters.nmos.nodePort = 2;
  parameters.nmos.queryPort = 3;
  parameters.nmos.registrationPort = 4;
  EthIpV4Cfg odd;
  odd.eth = "eth1-long-name";
  odd.mode.mode = EthMode::eth_mode_t(7);
  odd.ip = odd.mask = odd.gw = 0xFFFFFFFF;
  parameters.ethIPv4Cfg.push_back(odd);
  EXPECT_THAT(dump(parameters, board(4, 2)),
              ElementsAreArray({
                  "Board model               [ORVEN Tessa AES67]",
                  "Bitstream",
                  "   Running                [HDMI-ST2110]",
                  "   Configured             [SDI-BIDIR-ST2110]",
                  "Advertisements [eth:port] eth1:81",
                  "   Board Prefix:          Studio",
                  "RTSP           [eth:port] eth0:5004",
                  "CFG",
                  "    Store Path            [/c/]",
                  "    Autosave              [ ]",
                  "Redundancy Enable         [ ]",
                  "Walkabout Enable          [ ]",
                  "SAP Enable                [X]",
                  "SLP Enable                [ ]",
                  "Pause senders PTP fail    [X]",
                  "Identify Enable           [X]",
                  "TDM Channels per line     [8]",
                  "VTC Image path            [/v]",
                  "Serial number             [SN-1]",
                  "Ember TCP port            [9096]",
                  "VLAN Configuration",
                  "   Primary                [65535]",
                  "   Secondary              [21]",
                  "NMOS",
                  "    Enable                [ ]",
                  "    Ethernet Interface    [eth1]",
                  "    Device Name           [Device]",
                  "    Node Name             [Node]",
                  "    HTTP SDP port         [1]",
                  "    Node API port         [2]",
                  "    Query API port        [3]",
                  "    Registration API port [4]",
                  "    Shelf Slot ID         [2::5]",
                  "|  Iface |    Mode |          IP |     NetMask |          GW |   VLAN:pri Tpid |",
                  "|   eth0 |  static | 192.168.0.100 | 255.255.255.0 | 192.168.0.1 | 0:0 0x8100 |",
                  "| eth0.10 |    DHCP |     0.0.0.0 | 255.255.255.0 |     0.0.0.0 | 10:5 0x88a8 |",
                  "| eth1-long-name | Undefined | 255.255.255.255 | 255.255.255.255 | 255.255.255.255 | 0:0 0x8100 |",
              }));
}

TEST(Dump, ShowsTheOppositeOfEverySwitch) {
  const auto lines = dump(SysParameters(), BoardModel());
  ASSERT_EQ(lines.size(), 34U) << "no interface, no row";
  EXPECT_EQ(lines[0], "Board model               [Undefined]");
  EXPECT_EQ(lines[2], "   Running                [NA]");
  EXPECT_EQ(lines[3], "   Configured             [NA]");
  EXPECT_EQ(lines[9], "    Autosave              [X]");
  EXPECT_EQ(lines[10], "Redundancy Enable         [X]");
  EXPECT_EQ(lines[11], "Walkabout Enable          [X]");
  EXPECT_EQ(lines[12], "SAP Enable                [ ]");
  EXPECT_EQ(lines[13], "SLP Enable                [X]");
  EXPECT_EQ(lines[14], "Pause senders PTP fail    [ ]");
  EXPECT_EQ(lines[15], "Identify Enable           [ ]");
  EXPECT_EQ(lines[24], "    Enable                [X]");
}

TEST(Dump, ShowsTheBoardThatIsPassedIn) {
  SysParameters parameters;
  parameters.boardModel = board(8, 0);
  const auto lines = dump(parameters, board(11, 7));
  EXPECT_EQ(lines[0], "Board model               [PIXA_MADI]");
  EXPECT_EQ(lines[2], "   Running                [NA]");
}

TEST(Dump, LargeNumbersAreShownAsSigned) {
  SysParameters parameters;
  parameters.emberTcpPort = 4294967295U;
  EXPECT_EQ(dump(parameters, BoardModel())[19], "Ember TCP port            [-1]");
}

TEST(Dump, TheNmosBlockAlone) {
  NmosParameters nmos;
  nmos.shelfId = 2;
  nmos.slotId = 5;
  const CapturedLog log;
  nmos.dumpParameter();
  EXPECT_THAT(
      log.lines(),
      ElementsAre(
          LogLine{3, "NMOS"}, LogLine{3, "    Enable                [X]"},
          LogLine{3, "    Ethernet Interface    [eth0]"}, LogLine{3, "    Device Name           [Velmar Board]"},
          LogLine{3, "    Node Name             [Velmar Board]"}, LogLine{3, "    HTTP SDP port         [8081]"},
          LogLine{3, "    Node API port         [12345]"}, LogLine{3, "    Query API port        [8235]"},
          LogLine{3, "    Registration API port [8870]"}, LogLine{3, "    Shelf Slot ID         [2::5]"}));
}

}  // namespace
}  // namespace zel::test
