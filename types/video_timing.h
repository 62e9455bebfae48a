#pragma once

#include <optional>
#include <string_view>

#include "../common/json_serializable.h"

/// The video timing set-up of the FPGA. A number of -1 is not set and does not travel.
class ZEL_EXPORT VideoTimingParameters : public IJsonSerializable {
 public:
  enum timing_mode_t : int {
    TIMING_MODE_UNSET = 0,        ///< "unset"
    TIMING_MODE_FRAME_SYNC = 1,   ///< "frame_sync"
    TIMING_MODE_LOW_LATENCY = 2,  ///< "low_latency"
    TIMING_MODE_2059 = 3,         ///< "2059": locked to SMPTE ST 2059
  };
  /// What a number holds that is not set.
  static constexpr int kNotSet = -1;

  timing_mode_t timingMode = TIMING_MODE_UNSET;  ///< "timing-mode"
  int initBufDelay = kNotSet;                    ///< "initBufDelay"
  int minWrRdPtrThresh = kNotSet;                ///< "minWrRdPtrThresh"
  int maxWrRdPtrThresh = kNotSet;                ///< "maxWrRdPtrThresh"
  int rtpPktsPerFrame = kNotSet;                 ///< "rtpPktsPerFrame"

  /// The text of a mode; "ERROR" for a value outside the enumeration.
  static const char* toText(timing_mode_t mode);
  /// The mode of a text, letter case included. The empty text selects low latency, by design. None for any other text,
  /// "unset" included.
  static std::optional<timing_mode_t> fromText(std::string_view text);

  /// Writes "timing-mode" always, the numbers only where they are set.
  void Serialize(Json::Value& root) const override;
  /// Missing keys leave their member, and so does a "timing-mode" that `fromText` does not know.
  int Deserialize(Json::Value& root) override;
};
