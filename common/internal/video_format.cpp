#include "common/video_format.h"

#include "common/shared/json_form.h"

namespace zel {

namespace {

/// The enumeration as its number.
struct Number {
  static Json::Value write(VideoFormat::video_format_t member) { return int(member); }
  static void read(const Json::Value& json, VideoFormat::video_format_t& member) {
    member = VideoFormat::video_format_t(json.asInt());
  }
};

}  // namespace

template <class Io>
void walk(Io& io, const VideoFormat&) {
  io.reset("video-format", &VideoFormat::format, Number{});
}

}  // namespace zel

void VideoFormat::Serialize(Json::Value& root) const { zel::writeRecord(*this, root); }
int VideoFormat::Deserialize(Json::Value& root) { return zel::readRecord(*this, root); }
