#include "types/board_model.h"
#include "tests/support/captured_log.h"
#include "tests/support/json_of.h"

namespace zel::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct ModelRow {
  int value;
  const char* text;
  const char* displayName;
};
constexpr ModelRow kModels[] = {
    {0, "ORVEN_AES67", "ORVEN AES67"},
    {1, "TRISK_AES67", "TRISK AES67"},
    {2, "ORVEN_AVB", "ORVEN AVB"},
    {3, "KORVA", "KORVA"},
    {4, "ORVEN_TESSA", "ORVEN Tessa AES67"},
    {5, "BRAVIK_AOIP", "Bravik AOIP"},
    {6, "ORVEN_QUILL_IO", "ORVEN Quill IO"},
    {7, "NIMBRA_AES67", "NIMBRA"},
    {8, "ZIRC", "ZIRC"},
    {9, "VELDA", "ORVEN VELDA"},
    {10, "MERIX", "MERIX"},
    {11, "PIXA_MADI", "PIXA_MADI"},
    {12, "PIXA_AES1616", "PIXA AES 16.16"},
};

BoardModelType::board_models_t model(int value) { return BoardModelType::board_models_t(value); }

std::vector<int> formats(const BoardModel& board) {
  std::vector<int> numbers;
  for (const VideoFormat& format : board.supportedVideoFormats) numbers.push_back(format.format);
  return numbers;
}
const std::vector<int> kSixteen = {1, 2, 10, 4, 5, 11, 8, 9, 3, 21, 6, 7, 14, 15, 16, 17};
const std::vector<int> kTwenty = {1, 2, 10, 4, 5, 11, 8, 9, 3, 21, 6, 7, 14, 15, 16, 17, 25, 28, 24, 27};

TEST(BoardModelType, NamesItsValues) {
  for (const auto& [value, text, displayName] : kModels) {
    EXPECT_STREQ(BoardModelType::toText(model(value)), text);
    EXPECT_STREQ(BoardModelType::displayName(model(value)), displayName);
    EXPECT_EQ(BoardModelType::fromText(text), model(value));
  }
  for (const int value : {13, 14, -1, 1000}) {
    EXPECT_STREQ(BoardModelType::toText(model(value)), "Undefined");
    EXPECT_STREQ(BoardModelType::displayName(model(value)), "Undefined");
  }
  EXPECT_EQ(BoardModelType::BOARD_MODEL_UNDEFINED, 13);
}

TEST(BoardModelType, ReadsTavroAsKorvaAndNothingAsUndefined) {
  EXPECT_EQ(BoardModelType::fromText("TAVRO"), BoardModelType::KORVA);
  for (const char* const text : {"", "Undefined", "BOARD_MODEL_UNDEFINED", "korva", "ORVEN AES67", "KORVA "}) {
    EXPECT_EQ(BoardModelType::fromText(text), std::nullopt) << text;
  }
}

TEST(BoardModelType, TheEnumeratorsAreTheTexts) {
  EXPECT_STREQ(BoardModelType::toText(BoardModelType::ORVEN_AES67), "ORVEN_AES67");
  EXPECT_STREQ(BoardModelType::toText(BoardModelType::TRISK_AES67), "TRISK_AES67");
  EXPECT_STREQ(BoardModelType::toText(BoardModelType::ORVEN_AVB), "ORVEN_AVB");
  EXPECT_STREQ(BoardModelType::toText(BoardModelType::KORVA), "KORVA");
  EXPECT_STREQ(BoardModelType::toText(BoardModelType::ORVEN_TESSA), "ORVEN_TESSA");
  EXPECT_STREQ(BoardModelType::toText(BoardModelType::BRAVIK_AOIP), "BRAVIK_AOIP");
  EXPECT_STREQ(BoardModelType::toText(BoardModelType::ORVEN_QUILL_IO), "ORVEN_QUILL_IO");
  EXPECT_STREQ(BoardModelType::toText(BoardModelType::NIMBRA_AES67), "NIMBRA_AES67");
  EXPECT_STREQ(BoardModelType::toText(BoardModelType::ZIRC), "ZIRC");
  EXPECT_STREQ(BoardModelType::toText(BoardModelType::VELDA), "VELDA");
  EXPECT_STREQ(BoardModelType::toText(BoardModelType::MERIX), "MERIX");
  EXPECT_STREQ(BoardModelType::toText(BoardModelType::PIXA_MADI), "PIXA_MADI");
  EXPECT_STREQ(BoardModelType::toText(BoardModelType::PIXA_AES1616), "PIXA_AES1616");
}

TEST(BoardModel, IsUndefinedAtFirst) {
  const BoardModel board;
  EXPECT_EQ(board.model, BoardModelType::BOARD_MODEL_UNDEFINED);
  EXPECT_EQ(board.modelCopyA, BoardModelType::BOARD_MODEL_UNDEFINED);
  EXPECT_EQ(board.modelCopyB, BoardModelType::BOARD_MODEL_UNDEFINED);
  EXPECT_EQ(board.modelLabel, "");
  EXPECT_EQ(board.bitstream.type, BitstreamType::BITSTREAM_NONE);
  EXPECT_THAT(board.supportedVideoFormats, IsEmpty());
  EXPECT_EQ(written(board), json(R"({"model":"Undefined","module":"NA"})"));
}

TEST(BoardModel, WritesModelAndModule) {
  BoardModel board;
  board.bitstream.type = BitstreamType::BITSTREAM_SDI_BIDIR_ST2110;
  board.modelLabel = "not part of the JSON form";
  for (const auto& [value, text, displayName] : kModels) {
    board.setModel(model(value));
    Json::Value expected;
    expected["model"] = text;
    expected["module"] = "SDI-BIDIR-ST2110";
    EXPECT_EQ(written(board), expected);
  }
  board.setModel(model(99));
  EXPECT_EQ(written(board)["model"], "Undefined");
}

TEST(BoardModel, ReadsEveryModel) {
  for (const auto& [value, text, displayName] : kModels) {
    Json::Value document;
    document["model"] = text;
    const auto board = over(BoardModel(), document);
    EXPECT_EQ(board.model, value);
    EXPECT_EQ(board.modelCopyA, value);
    EXPECT_EQ(board.modelCopyB, value);
  }
}

TEST(BoardModel, ReadsTavroAndWritesKorva) {
  const auto board = readFrom<BoardModel>(R"({"model":"TAVRO"})");
  EXPECT_EQ(board.model, BoardModelType::KORVA);
  EXPECT_EQ(written(board)["model"], "KORVA");
}

TEST(BoardModel, SetModelLogsTheModel) {
  const CapturedLog log;
  BoardModel board;
  board.setModel(BoardModelType::BRAVIK_AOIP);
  board.setModel(model(77));
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{5, "BoardModel::setModel - BRAVIK_AOIP"},
                                       LogLine{5, "BoardModel::setModel - Undefined"}));
  EXPECT_THAT(board.supportedVideoFormats, IsEmpty());
}

TEST(BoardModel, OnlySomeModelsSupportVideoFormats) {
  for (const auto& [value, text, displayName] : kModels) {
    BoardModel board;
    board.setModel(model(value));
    const bool video = value == 3 || value == 8 || value == 10;
    EXPECT_EQ(formats(board), video ? kSixteen : std::vector<int>()) << text;
  }
}

TEST(BoardModel, OnlyZircWithTheHdmiBitstreamSupportsTwentyFormats) {
  for (const auto& [value, text, displayName] : kModels) {
    for (int bitstream = 0; bitstream < 5; ++bitstream) {
      BoardModel board;
      board.bitstream.type = BitstreamType::bitstream_t(bitstream);
      board.setModel(model(value));
      const bool twenty = value == 8 && bitstream == 2;
      EXPECT_EQ(formats(board) == kTwenty, twenty) << text << ' ' << bitstream;
    }
  }
}

TEST(BoardModel, TheListIsRebuiltFromTheModelAndTheBitstream) {
  BoardModel board;
  board.model = BoardModelType::ZIRC;
  board.bitstream.type = BitstreamType::BITSTREAM_HDMI_ST2110;
  EXPECT_EQ(board.initializeSupportedVideoFormatList(), 0);
  EXPECT_EQ(formats(board), kTwenty);
  board.model = BoardModelType::KORVA;
  EXPECT_EQ(board.initializeSupportedVideoFormatList(), 0);
  EXPECT_EQ(formats(board), kSixteen);
  board.model = BoardModelType::VELDA;
  EXPECT_EQ(board.initializeSupportedVideoFormatList(), 0);
  EXPECT_THAT(formats(board), IsEmpty());
}

TEST(BoardModel, ReadsTheBitstreamBeforeTheModelIsSet) {
  EXPECT_EQ(formats(readFrom<BoardModel>(R"({"model":"KORVA","module":"SDI-ST2110"})")), kSixteen);
  EXPECT_EQ(formats(readFrom<BoardModel>(R"({"model":"ZIRC","module":"hdmi-st2110"})")), kTwenty);
  EXPECT_EQ(formats(readFrom<BoardModel>(R"({"model":"ZIRC","module":"SDI-ST2110"})")), kSixteen);
  EXPECT_EQ(formats(readFrom<BoardModel>(R"({"model":"MERIX","module":"HDMI-ST2110"})")), kSixteen);
}

TEST(BoardModel, AnUnknownModelLeavesAllButTheBitstream) {
  const auto zirc = readFrom<BoardModel>(R"({"model":"ZIRC","module":"HDMI-ST2110"})");
  const CapturedLog log;
  for (const char* const document :
       {R"({"model":"x","module":"SDI-TR04"})", R"({"module":"SDI-TR04"})", R"({"model":"","module":"SDI-TR04"})",
        R"({"model":null,"module":"SDI-TR04"})", R"({"model":8,"module":"SDI-TR04"})"}) {
    const auto board = over(zirc, document);
    EXPECT_EQ(board.model, BoardModelType::ZIRC);
    EXPECT_EQ(board.modelCopyA, BoardModelType::ZIRC);
    EXPECT_EQ(board.modelCopyB, BoardModelType::ZIRC);
    EXPECT_EQ(board.bitstream.type, BitstreamType::BITSTREAM_SDI_TR04);
    EXPECT_EQ(formats(board), kTwenty);
  }
  EXPECT_EQ(over(zirc, "{}").bitstream.type, BitstreamType::BITSTREAM_NONE);
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{6, "The text 'x' is not known, it is read as 'ZIRC'"},
                                       LogLine{6, "The text '8' is not known, it is read as 'ZIRC'"}));
}

TEST(BoardModel, ReadingAModelLogsItOnce) {
  const CapturedLog log;
  readFrom<BoardModel>(R"({"model":"MERIX"})");
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{5, "BoardModel::setModel - MERIX"}));
}

TEST(BoardModel, NothingChangesWhenAValueIsRefused) {
  for (const char* const text : {R"({"model":{},"module":"SDI-TR04"})", R"({"model":"KORVA","module":[]})"}) {
    auto board = readFrom<BoardModel>(R"({"model":"ZIRC","module":"HDMI-ST2110"})");
    Json::Value document = json(text);
    EXPECT_THROW(board.Deserialize(document), Json::LogicError);
    EXPECT_EQ(board.model, BoardModelType::ZIRC);
    EXPECT_EQ(board.bitstream.type, BitstreamType::BITSTREAM_HDMI_ST2110);
  }
}

TEST(BoardModel, ReadingLeavesTheDocumentAsItIs) { EXPECT_EQ(afterReading<BoardModel>("{}"), json("{}")); }

TEST(BoardModel, ACopyHasAListOfItsOwn) {
  auto board = readFrom<BoardModel>(R"({"model":"KORVA"})");
  board.modelLabel = "label";
  const BoardModel copy = board;
  board.setModel(BoardModelType::VELDA);
  EXPECT_EQ(formats(copy), kSixteen);
  EXPECT_EQ(copy.modelLabel, "label");
}

}  // namespace
}  // namespace zel::test
