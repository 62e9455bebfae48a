#include "types/settings.h"

#include <algorithm>
#include <set>

#include "tests/types/stored_rows.h"

namespace zel::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Kind = SettingRow::Kind;
using Route = SettingRow::Route;

bool isStored(const SettingRow& row) { return row.route != Route::kListChange; }

/// Calls `use` with each row that has a place in `SysParameters`.
template <class Use>
void forEachStoredValue(Use use) {
  settings::forEach([&](const auto& row) {
    using Row = std::decay_t<decltype(row)>;
    if constexpr (std::is_base_of_v<StoredValue<typename Row::Type>, Row>) use(row);
  });
}

/// The paths of the values in a document. An array counts as one value.
void collectPaths(const Json::Value& value, const std::string& path, std::vector<std::string>& paths) {
  if (!value.isObject()) {
    paths.push_back(path);
    return;
  }
  for (auto member = value.begin(); member != value.end(); ++member) {
    collectPaths(*member, (path.empty() ? "" : path + "/") + member.name(), paths);
  }
}

TEST(Settings, HaveOneRowForEachStoredKey) {
  std::vector<std::string> written_paths;
  collectPaths(written(fullParameters()), "", written_paths);
  std::sort(written_paths.begin(), written_paths.end());

  std::vector<std::string> paths;
  settings::forEach([&](const SettingRow& row) {
    if (isStored(row) && row.kind != Kind::kBlock) paths.emplace_back(row.path);
  });
  std::sort(paths.begin(), paths.end());
  EXPECT_EQ(paths, written_paths);
}

TEST(Settings, HaveARowForEachBlockThatIsSetWhole) {
  Json::Value document = written(fullParameters());
  std::set<std::string> blocks;
  settings::forEach([&](const SettingRow& row) {
    if (row.kind != Kind::kBlock) return;
    EXPECT_TRUE(at(document, row.path).isObject()) << row.path;
    EXPECT_EQ(row.route, Route::kKey) << row.path;
    blocks.insert(row.path);
  });
  settings::forEach([&](const SettingRow& row) {
    if (row.route != Route::kBlock) return;
    const std::string block = std::string(row.path).substr(0, std::string(row.path).find('/'));
    EXPECT_EQ(blocks.count(block), 1U) << row.path;
    ASSERT_NE(settings::findKey(row.key), nullptr) << row.path;
    EXPECT_EQ(settings::findKey(row.key)->path, block) << row.path;
  });
}

TEST(Settings, HaveTheDefaultsOfTheRecord) {
  Json::Value document = written(SysParameters());
  forEachStoredValue([&](const auto& row) {
    const Json::Value value = row.toJson(row.in(SysParameters()));
    const Json::Value& stored = at(document, row.path);
    if (row.kind == Kind::kInterfaceList) {
      EXPECT_THAT(value, IsEmpty()) << row.path;
    } else if (stored.isNull()) {
      EXPECT_EQ(value, VideoTimingParameters::kNotSet) << row.path;
    } else {
      EXPECT_EQ(value, stored) << row.path;
    }
  });
}

TEST(Settings, WriteEachValueAsTheRecordDoes) {
  const SysParameters full = fullParameters();
  Json::Value document = written(full);
  forEachStoredValue([&](const auto& row) { EXPECT_EQ(row.toJson(row.in(full)), at(document, row.path)) << row.path; });
}

TEST(Settings, ReachTheMemberThatTheRecordReadsFromTheirPath) {
  const Json::Value changed = written(fullParameters());
  const Json::Value before = written(readFrom<SysParameters>("{}"));
  forEachStoredValue([&](const auto& row) {
    Json::Value source = changed;
    Json::Value document;
    at(document, row.path) = at(source, row.path);
    SysParameters parameters = over(readFrom<SysParameters>("{}"), document);
    EXPECT_EQ(row.toJson(row.in(parameters)), at(source, row.path)) << row.path;

    row.in(parameters) = row.in(readFrom<SysParameters>("{}"));
    EXPECT_EQ(written(parameters), before) << row.path;
  });
}

TEST(Settings, HaveKeysOfTheirOwn) {
  std::vector<std::string> keys;
  settings::forEach([&](const SettingRow& row) {
    EXPECT_EQ(row.key == nullptr, row.route == Route::kNone) << row.path;
    EXPECT_EQ(settings::findPath(row.path), &row);
    if (row.key == nullptr || row.route == Route::kBlock) return;
    EXPECT_EQ(settings::findKey(row.key), &row);
    keys.emplace_back(row.key);
  });
  std::sort(keys.begin(), keys.end());
  EXPECT_EQ(std::adjacent_find(keys.begin(), keys.end()), keys.end());
  EXPECT_EQ(settings::findPath("rtsp"), nullptr);
  EXPECT_EQ(settings::findKey("rtsp/tcp-port"), nullptr);
}

TEST(Settings, KnowTheKindOfTheirValue) {
  EXPECT_EQ(settings::kSapEnable.kind, Kind::kSwitch);
  EXPECT_EQ(settings::kRtspTcpPort.kind, Kind::kNumber);
  EXPECT_EQ(settings::kRtspTcpPort.highest, 0xFFFFFFFF);
  EXPECT_EQ(settings::kPrimaryVlanId.highest, 0xFFFF);
  EXPECT_EQ(settings::kNmosNodePort.highest, 0x7FFFFFFF);
  EXPECT_EQ(settings::kRtspEthPort.kind, Kind::kText);
  EXPECT_EQ(settings::kRtspEthPort.highest, 0);
  EXPECT_EQ(settings::kBitstreamModule.kind, Kind::kChoice);
  EXPECT_EQ(settings::kNmos.kind, Kind::kBlock);
  EXPECT_EQ(settings::kAddInterface.kind, Kind::kInterface);
  EXPECT_EQ(settings::kInterfaces.kind, Kind::kInterfaceList);
}

TEST(Settings, OfferTheTextsOfAnEnumeration) {
  EXPECT_THAT(settings::kBitstreamModule.choices(),
              ElementsAre(testing::StrEq("SDI-TR04"), testing::StrEq("SDI-ST2110"), testing::StrEq("HDMI-ST2110"),
                          testing::StrEq("SDI-BIDIR-ST2110"), testing::StrEq("NA")));
  EXPECT_THAT(settings::kVideoTimingMode.choices(),
              ElementsAre(testing::StrEq("frame_sync"), testing::StrEq("low_latency"), testing::StrEq("2059")));
  EXPECT_THAT(settings::kRtspEthPort.choices(), IsEmpty());
}

TEST(Settings, AcceptTheTextsThatAnEnumerationWritesOrReads) {
  for (const char* const text : {"SDI-TR04", "sdi-tr04", "NA"}) {
    EXPECT_TRUE(settings::kBitstreamModule.acceptsChoice(text)) << text;
  }
  for (const char* const text : {"frame_sync", "unset", ""}) {
    EXPECT_TRUE(settings::kVideoTimingMode.acceptsChoice(text)) << text;
  }
  EXPECT_FALSE(settings::kBitstreamModule.acceptsChoice(""));
  EXPECT_FALSE(settings::kVideoTimingMode.acceptsChoice("ERROR"));
  EXPECT_FALSE(settings::kRtspEthPort.acceptsChoice("all"));
}

TEST(Settings, AreReadAndChangedInARecord) {
  SysParameters parameters;
  settings::kRtspTcpPort.in(parameters) = 5004;
  settings::kNmosNodePort.in(parameters) = 80;
  EXPECT_EQ(parameters.rtspTcpPort, 5004U);
  EXPECT_EQ(parameters.nmos.nodePort, 80);
  const SysParameters& constant = parameters;
  EXPECT_EQ(settings::kRtspTcpPort.in(constant), 5004U);
}

}  // namespace
}  // namespace zel::test
