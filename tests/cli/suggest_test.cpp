#include "cli/suggest.h"

#include <gmock/gmock.h>

namespace zel::ctl {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const Words kWords = {"status", "set", "stored", "rtsp/tcp-port", "ember/tcp-port"};

TEST(Suggestion, ForgivesASlipOfTheFingers) {
  EXPECT_THAT(nearest("statsu", kWords), ElementsAre("status"));   // swapped
  EXPECT_THAT(nearest("satatus", kWords), ElementsAre("status"));  // one too many
  EXPECT_THAT(nearest("staus", kWords), ElementsAre("status"));    // one missing
  EXPECT_THAT(nearest("stored1", kWords), ElementsAre("stored"));
  EXPECT_THAT(nearest("rtsp-tcp-prt", kWords), ElementsAre("rtsp/tcp-port"));
}

TEST(Suggestion, ForgivesTheCase) {
  EXPECT_THAT(nearest("STATUS", kWords), ElementsAre("status"));
  EXPECT_THAT(nearest("Rtsp/TCP-port", kWords), ElementsAre("rtsp/tcp-port"));
  EXPECT_THAT(nearest("velda", {"VELDA", "ZIRC"}), ElementsAre("VELDA"));
}

TEST(Suggestion, CompletesAPart) { EXPECT_THAT(nearest("ember", kWords), ElementsAre("ember/tcp-port")); }

TEST(Suggestion, NamesAllThatAreEquallyLikely) {
  EXPECT_THAT(nearest("tcp-port", kWords), ElementsAre("rtsp/tcp-port", "ember/tcp-port"));
  EXPECT_EQ(didYouMean("tcp-port", kWords), "did you mean 'rtsp/tcp-port' or 'ember/tcp-port'?");
}

TEST(Suggestion, IsNoneForWhatIsFarOffOrCouldBeAnything) {
  EXPECT_THAT(nearest("reboot", kWords), IsEmpty());
  EXPECT_THAT(nearest("x", {"a", "b", "c", "d"}), IsEmpty());
  EXPECT_EQ(didYouMean("reboot", kWords), "");
}

}  // namespace
}  // namespace zel::ctl
