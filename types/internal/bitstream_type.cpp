#include "types/bitstream_type.h"

#include "types/internal/enum_texts.h"
#include "types/internal/walks.h"

namespace {

constexpr zel::EnumRow<BitstreamType::bitstream_t> kBitstreams[] = {
    {BitstreamType::BITSTREAM_SDI_TR04, "SDI-TR04", "sdi-tr04"},
    {BitstreamType::BITSTREAM_SDI_ST2110, "SDI-ST2110", "sdi-st2110"},
    {BitstreamType::BITSTREAM_HDMI_ST2110, "HDMI-ST2110", "hdmi-st2110"},
    {BitstreamType::BITSTREAM_SDI_BIDIR_ST2110, "SDI-BIDIR-ST2110", "sdi-bidir-st2110"},
};

}  // namespace

const char* BitstreamType::toText(bitstream_t type) { return zel::textOf(kBitstreams, type, "NA"); }
std::optional<BitstreamType::bitstream_t> BitstreamType::fromText(std::string_view text) {
  return zel::valueOf<bitstream_t>(kBitstreams, text);
}

void BitstreamType::Serialize(Json::Value& root) const { zel::writeRecord(*this, root); }
int BitstreamType::Deserialize(Json::Value& root) { return zel::readRecord(*this, root); }
