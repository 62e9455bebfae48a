#pragma once

#include <list>
#include <optional>
#include <string>
#include <string_view>

#include "../common/json_serializable.h"
#include "../common/video_format.h"
#include "bitstream_type.h"

/// The product variants of the board.
class ZEL_EXPORT BoardModelType {
 public:
  enum board_models_t : int {
    ORVEN_AES67 = 0,
    TRISK_AES67 = 1,
    ORVEN_AVB = 2,
    KORVA = 3,
    ORVEN_TESSA = 4,
    BRAVIK_AOIP = 5,
    ORVEN_QUILL_IO = 6,
    NIMBRA_AES67 = 7,
    ZIRC = 8,
    VELDA = 9,
    MERIX = 10,
    PIXA_MADI = 11,
    PIXA_AES1616 = 12,
    BOARD_MODEL_UNDEFINED = 13,
  };

  /// The text of the JSON form, the enumerator's name: "ORVEN_TESSA". "Undefined" for every value that is not a model.
  static const char* toText(board_models_t model);
  /// The name for people: "ORVEN Tessa AES67". "Undefined" for every value that is not a model.
  static const char* displayName(board_models_t model);
  /// The model of a text of the JSON form, letter case included; "TAVRO" is read as `KORVA`. None for any other text,
  /// "Undefined" included.
  static std::optional<board_models_t> fromText(std::string_view text);
};

/// Which product variant the board is, which bitstream it runs and which video formats the two support.
class ZEL_EXPORT BoardModel : public IJsonSerializable, public BoardModelType {
 public:
  board_models_t model = BOARD_MODEL_UNDEFINED;  ///< "model"; to be changed by `setModel`
  std::string modelLabel;                        ///< free text; not part of the JSON form
  BitstreamType bitstream;                       ///< "module"
  board_models_t modelCopyA =
      BOARD_MODEL_UNDEFINED;  ///< kept equal to `model` by `setModel`; not part of the JSON form
  board_models_t modelCopyB =
      BOARD_MODEL_UNDEFINED;                     ///< kept equal to `model` by `setModel`; not part of the JSON form
  std::list<VideoFormat> supportedVideoFormats;  ///< of the model and the bitstream at the time of `setModel`

  /// Sets the model and its copies and rebuilds `supportedVideoFormats`. Logs "BoardModel::setModel - MODEL" at
  /// level 5.
  void setModel(BoardModelType::board_models_t newModel);

  /// Rebuilds `supportedVideoFormats` from `model` and `bitstream`: sixteen formats for `KORVA`, `ZIRC` and `MERIX`,
  /// four more for `ZIRC` with the HDMI bitstream, none for the others. The order is the daemon's.
  /// @return 0
  int initializeSupportedVideoFormatList();

  void Serialize(Json::Value& root) const override;
  /// Reads the bitstream as `BitstreamType::Deserialize` does, then calls `setModel` with the model. An unknown or
  /// missing "model" leaves the model, its copies and the formats, while the bitstream changes all the same.
  int Deserialize(Json::Value& root) override;
};
