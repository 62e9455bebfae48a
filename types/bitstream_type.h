#pragma once

#include <optional>
#include <string_view>

#include "../common/json_serializable.h"

/// Which FPGA bitstream (video module) a board runs.
class ZEL_EXPORT BitstreamType : public IJsonSerializable {
 public:
  enum bitstream_t : int {
    BITSTREAM_SDI_TR04 = 0,          ///< "SDI-TR04"
    BITSTREAM_SDI_ST2110 = 1,        ///< "SDI-ST2110"
    BITSTREAM_HDMI_ST2110 = 2,       ///< "HDMI-ST2110"
    BITSTREAM_SDI_BIDIR_ST2110 = 3,  ///< "SDI-BIDIR-ST2110"
    BITSTREAM_NONE = 4,              ///< "NA"
  };

  bitstream_t type = BITSTREAM_NONE;  ///< "module"

  /// The text of a bitstream; "NA" for none and for a value outside the enumeration.
  static const char* toText(bitstream_t type);
  /// The bitstream of a text, which is all upper or all lower case; none for any other text, "NA" included.
  static std::optional<bitstream_t> fromText(std::string_view text);

  void Serialize(Json::Value& root) const override;
  /// A missing "module" and an unknown text select no bitstream.
  int Deserialize(Json::Value& root) override;
};
