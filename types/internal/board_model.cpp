#include "types/board_model.h"

#include "common/logger.h"
#include "common/status.h"
#include "types/internal/walks.h"
#include "types/shared/board_models.h"

using zel::models::VideoFormats;

namespace {

constexpr const char* kUndefined = "Undefined";

// In the order in which the formats are reported.
constexpr int kSdiFormats[] = {1, 2, 10, 4, 5, 11, 8, 9, 3, 21, 6, 7, 14, 15, 16, 17};
constexpr int kHdmiFormats[] = {25, 28, 24, 27};

constexpr zel::Key kModel = "model";

}  // namespace

const char* BoardModelType::toText(board_models_t model) { return zel::textOf(zel::models::kTable, model, kUndefined); }

const char* BoardModelType::displayName(board_models_t model) {
  const zel::models::Row* const row = zel::models::find(model);
  return row ? row->displayName : kUndefined;
}

std::optional<BoardModelType::board_models_t> BoardModelType::fromText(std::string_view text) {
  return zel::valueOf<board_models_t>(zel::models::kTable, text);
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
  const zel::models::Row* const row = zel::models::find(model);
  const VideoFormats formats = row ? row->formats : VideoFormats::kNone;
  if (formats == VideoFormats::kNone) return zel::status::kOk;
  append(kSdiFormats);
  if (formats == VideoFormats::kSdiAndHdmi && bitstream.type == BitstreamType::BITSTREAM_HDMI_ST2110) {
    append(kHdmiFormats);
  }
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
  if (newModel) {
    setModel(*newModel);
  } else if (name) {
    zel::logUnknownText(name->asString(), toText(model));
  }
  return zel::status::kOk;
}
