#include "common/video_format.h"

#include <type_traits>

#include "tests/support/json_of.h"

namespace zel::test {
namespace {

TEST(VideoFormat, IsMadeFromItsNumber) {
  const VideoFormat format = VideoFormat::video_format_t(21);
  EXPECT_EQ(format.format, 21);
  EXPECT_EQ(VideoFormat().format, 0);
}

TEST(VideoFormat, WritesItsNumber) {
  EXPECT_EQ(written(VideoFormat()), json(R"({"video-format":0})"));
  EXPECT_EQ(written(VideoFormat(VideoFormat::video_format_t(-3))), json(R"({"video-format":-3})"));
}

TEST(VideoFormat, ReadsItsNumber) {
  const auto format = readFrom<VideoFormat>(R"({"video-format":28})");
  EXPECT_EQ(format.format, 28);
  EXPECT_EQ(over(format, "{}").format, 0);
  EXPECT_EQ(readFrom<VideoFormat>(R"({"video-format":-3})").format, -3);
  EXPECT_THROW(readFrom<VideoFormat>(R"({"video-format":"28"})"), Json::LogicError);
}

}  // namespace
}  // namespace zel::test
