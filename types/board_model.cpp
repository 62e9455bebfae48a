#include "types/board_model.h"

#include "common/logger.h"
#include "common/status.h"
#include "types/enum_texts.h"
#include "types/walks.h"

namespace {

struct ModelRow : zel::EnumRow<BoardModelType::board_models_t> {
  const char* displayName;
};

// The names for people are irregular on purpose.
constexpr ModelRow kModels[] = {
    {{BoardModelType::ORVEN_AES67, "ORVEN_AES67"}, "ORVEN AES67"},
    {{BoardModelType::TRISK_AES67, "TRISK_AES67"}, "TRISK AES67"},
    {{BoardModelType::ORVEN_AVB, "ORVEN_AVB"}, "ORVEN AVB"},
    {{BoardModelType::KORVA, "KORVA", "TAVRO"}, "KORVA"},
    {{BoardModelType::ORVEN_TESSA, "ORVEN_TESSA"}, "ORVEN Tessa AES67"},
    {{BoardModelType::BRAVIK_AOIP, "BRAVIK_AOIP"}, "Bravik AOIP"},
    {{BoardModelType::ORVEN_QUILL_IO, "ORVEN_QUILL_IO"}, "ORVEN Quill IO"},
    {{BoardModelType::NIMBRA_AES67, "NIMBRA_AES67"}, "NIMBRA"},
    {{BoardModelType::ZIRC, "ZIRC"}, "ZIRC"},
    {{BoardModelType::VELDA, "VELDA"}, "ORVEN VELDA"},
    {{BoardModelType::MERIX, "MERIX"}, "MERIX"},
    {{BoardModelType::PIXA_MADI, "PIXA_MADI"}, "PIXA_MADI"},
    {{BoardModelType::PIXA_AES1616, "PIXA_AES1616"}, "PIXA AES 16.16"},
};
constexpr const char* kUndefined = "Undefined";

// In the order in which the formats are reported.
constexpr int kVideoFormats[] = {1, 2, 10, 4, 5, 11, 8, 9, 3, 21, 6, 7, 14, 15, 16, 17};
constexpr int kHdmiVideoFormats[] = {25, 28, 24, 27};

constexpr zel::Key kModel = "model";

}  // namespace

const char* BoardModelType::toText(board_models_t model) { return zel::textOf(kModels, model, kUndefined); }

const char* BoardModelType::displayName(board_models_t model) {
  const ModelRow* const row = zel::rowOf(kModels, model);
  return row ? row->displayName : kUndefined;
}

std::optional<BoardModelType::board_models_t> BoardModelType::fromText(std::string_view text) {
  return zel::valueOf<board_models_t>(kModels, text);
}

void BoardModel::setModel(BoardModelType::board_models_t newModel) {
  model = modelCopyA = modelCopyB = newModel;
  initializeSupportedVideoFormatList();
  Logger::log(Logger::LEVEL_LIFECYCLE, "BoardModel::%s - %s", "setModel", toText(model));
}

int BoardModel::initializeSupportedVideoFormatList() {
  const auto append = [this](const auto& numbers) {
    for (const int number : numbers) supportedVideoFormats.emplace_back(VideoFormat::video_format_t(number));
  };
  supportedVideoFormats.clear();
  if (model != KORVA && model != ZIRC && model != MERIX) return zel::status::kOk;
  append(kVideoFormats);
  if (model == ZIRC && bitstream.type == BitstreamType::BITSTREAM_HDMI_ST2110) append(kHdmiVideoFormats);
  return zel::status::kOk;
}

void BoardModel::Serialize(Json::Value& root) const {
  zel::demandMember(root, kModel) = toText(model);
  bitstream.Serialize(root);
}

// By hand: both keys are read before anything changes, and the bitstream changes before the model, whose formats depend
// on it.
int BoardModel::Deserialize(Json::Value& root) {
  const Json::Value* const name = zel::findMember(root, kModel);
  const auto newModel = name ? fromText(name->asString()) : std::nullopt;
  bitstream.Deserialize(root);
  if (newModel) setModel(*newModel);
  return zel::status::kOk;
}
