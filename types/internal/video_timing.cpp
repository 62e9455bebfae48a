#include "types/video_timing.h"

#include "types/internal/enum_texts.h"
#include "types/internal/walks.h"

namespace {

using P = VideoTimingParameters;

constexpr zel::EnumRow<P::timing_mode_t> kTimingModes[] = {
    {P::TIMING_MODE_UNSET, "unset", nullptr, zel::Text::kOnlyWritten},
    {P::TIMING_MODE_FRAME_SYNC, "frame_sync"},
    {P::TIMING_MODE_LOW_LATENCY, "low_latency", ""},  // an empty text, and so null, selects it by design
    {P::TIMING_MODE_2059, "2059"},
};

}  // namespace

const char* VideoTimingParameters::toText(timing_mode_t mode) { return zel::textOf(kTimingModes, mode, "ERROR"); }
std::optional<P::timing_mode_t> VideoTimingParameters::fromText(std::string_view text) {
  return zel::valueOf<timing_mode_t>(kTimingModes, text);
}

void VideoTimingParameters::Serialize(Json::Value& root) const { zel::writeRecord(*this, root); }
int VideoTimingParameters::Deserialize(Json::Value& root) { return zel::readRecord(*this, root); }
