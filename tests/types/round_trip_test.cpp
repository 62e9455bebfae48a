#include "tests/support/json_of.h"
#include "tests/types/random_records.h"

namespace zel::test {
namespace {

constexpr int kRounds = 300;

/// What a record writes is what another one writes that has read it, through the text of the wire too. The other one
/// holds something else before.
template <class Record>
void expectRoundTrip(const Record& record, const Record& other) {
  Json::Value document = written(record);
  EXPECT_EQ(written(over(other, document)), written(record));

  std::string text;
  ASSERT_EQ(writeWireJson(document, text), "");
  EXPECT_EQ(written(over(other, text)), written(record)) << text;
}

TEST(RoundTrip, SysParameters) {
  RandomRecords random(1);
  for (int i = 0; i < kRounds; ++i) expectRoundTrip(random.sysParameters(), SysParameters());
}

TEST(RoundTrip, SysParametersOverAnotherWithTheSameInterfaces) {
  RandomRecords random(2);
  for (int i = 0; i < kRounds; ++i) {
    const auto record = random.sysParameters();
    auto other = random.sysParameters();
    other.ethIPv4Cfg.clear();
    for (const EthIpV4Cfg& cfg : record.ethIPv4Cfg) other.ethIPv4Cfg.push_front(random.ethIpV4Cfg(cfg.eth));
    other.videoTiming = VideoTimingParameters();  // a number that is not written is kept
    expectRoundTrip(record, other);
  }
}

TEST(RoundTrip, SysParametersDynamic) {
  RandomRecords random(3);
  for (int i = 0; i < kRounds; ++i) expectRoundTrip(random.sysParametersDynamic(), random.sysParametersDynamic());
}

TEST(RoundTrip, WhiteListDb) {
  RandomRecords random(4);
  for (int i = 0; i < kRounds; ++i) expectRoundTrip(random.whiteList(), random.whiteList());
}

TEST(RoundTrip, SmallerRecords) {
  RandomRecords random(5);
  for (int i = 0; i < kRounds; ++i) {
    expectRoundTrip(random.nmos(), random.nmos());
    expectRoundTrip(random.videoTiming(), VideoTimingParameters());
    expectRoundTrip(random.bitstream(), random.bitstream());
    expectRoundTrip(random.boardModel(), random.boardModel());
    expectRoundTrip(random.ethIpV4Cfg("eth0"), EthIpV4Cfg());
    expectRoundTrip(random.vlan(), random.vlan());
    expectRoundTrip(random.sfp(), random.sfp());
    expectRoundTrip(random.ethBasicInfo(), random.ethBasicInfo());
  }
}

TEST(RoundTrip, TheDeltaOfAnyRecordOverTheFactoryRecordGivesItsDeltaAgain) {
  RandomRecords random(6);
  for (int i = 0; i < kRounds; ++i) {
    const auto record = random.sysParameters();
    auto factory = readFrom<SysParameters>("{}");
    factory.videoTiming.timingMode = VideoTimingParameters::TIMING_MODE_LOW_LATENCY;
    Json::Value changes = delta(record);
    const auto again = over(factory, changes);
    EXPECT_EQ(delta(again), delta(record));

    auto expected = record;
    expected.serialNumber = "";
    expected.videoTiming = VideoTimingParameters();
    expected.videoTiming.timingMode = record.videoTiming.timingMode;
    EXPECT_EQ(written(again), written(expected));
  }
}

}  // namespace
}  // namespace zel::test
