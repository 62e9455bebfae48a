#pragma once

#include "json_serializable.h"

/// A video format, by the number that the daemon knows it by.
class ZEL_EXPORT VideoFormat : public IJsonSerializable {
 public:
  /// The numbers are the daemon's; which resolution and rate a number stands for is not known here.
  enum video_format_t : int {};

  video_format_t format = video_format_t(0);  ///< "video-format", a number

  VideoFormat() = default;
  /// Implicit: a list of formats is written as a list of their numbers.
  VideoFormat(video_format_t number) : format(number) {}  // NOLINT(google-explicit-constructor)

  void Serialize(Json::Value& root) const override;
  /// A missing key resets the number to 0.
  int Deserialize(Json::Value& root) override;
};
