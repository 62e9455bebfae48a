#include "simulator/store.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <fstream>
#include <iterator>

#include "common/wire_json.h"
#include "tests/simulator/json_text.h"
#include "tests/simulator/temporary_folder.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using zel::sim::Store;
using zel::test::json;
using zel::test::TemporaryFolder;

std::string contentOf(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

struct Loaded {
  std::string failure;
  bool found = true;
  std::string damage;
  Json::Value document;
};
Loaded load(const Store& store) {
  Loaded loaded;
  loaded.failure = store.load(loaded.document, loaded.found, loaded.damage);
  return loaded;
}

TEST(Store, GivesBackWhatWasSaved) {
  const TemporaryFolder folder;
  const Store store(folder.file("store"));
  for (const char* document : {R"({"a":[1,2,{"b":"ä"}]})", R"({"a":2})"}) {
    EXPECT_THAT(store.save(json(document)), IsEmpty());
    const Loaded loaded = load(store);
    EXPECT_THAT(loaded.failure, IsEmpty());
    EXPECT_TRUE(loaded.found);
    EXPECT_THAT(loaded.damage, IsEmpty());
    EXPECT_EQ(loaded.document, json(document));
  }
  EXPECT_EQ(contentOf(folder.file("store")), "{\"a\":2}\n");
  EXPECT_FALSE(std::filesystem::exists(folder.file("store.new")));
}

TEST(Store, IsNotFoundWhereThereIsNoFile) {
  const TemporaryFolder folder;
  const Loaded loaded = load(Store(folder.file("store")));
  EXPECT_THAT(loaded.failure, IsEmpty());
  EXPECT_FALSE(loaded.found);
}

TEST(Store, TellsWhatIsDamaged) {
  const TemporaryFolder folder;
  const Store store(folder.file("store"));
  for (const std::string& text : {std::string(), std::string("{\"a\":1"), std::string("{\"a\":1}x"),
                                  std::string("\0\0\0\0", 4), std::string(2 * zel::kMaxFrameBytes, ' ')}) {
    std::ofstream(store.path()) << text;
    const Loaded loaded = load(store);
    EXPECT_THAT(loaded.failure, IsEmpty());
    EXPECT_TRUE(loaded.found);
    EXPECT_THAT(loaded.damage, Not(IsEmpty()));
  }
}

TEST(Store, FailsOnWhatIsNoFile) {
  const TemporaryFolder folder;
  const Store store(folder.path());
  EXPECT_THAT(load(store).failure, HasSubstr("cannot be read"));
  EXPECT_THAT(Store(folder.file("none") + "/store").save(json("{}")), HasSubstr("cannot be opened"));
}

TEST(Store, IsSetAsideUnderANameThatNoFileHas) {
  const TemporaryFolder folder;
  const Store store(folder.file("store"));
  for (const char* number : {"1", "2", "3"}) {
    std::ofstream(store.path()) << number;
    std::string newPath;
    EXPECT_THAT(store.setAside(newPath), IsEmpty());
    EXPECT_EQ(newPath, store.path() + ".damaged-" + number);
  }
  for (const char* number : {"1", "2", "3"}) EXPECT_EQ(contentOf(store.path() + ".damaged-" + number), number);
  EXPECT_FALSE(std::filesystem::exists(store.path()));
}

TEST(Store, OverwritesWhatAKilledProcessLeftBeside) {
  const TemporaryFolder folder;
  const Store store(folder.file("store"));
  std::ofstream(folder.file("store.new")) << "half of a docum";
  EXPECT_THAT(store.save(json("{\"a\":1}")), IsEmpty());
  EXPECT_EQ(contentOf(store.path()), "{\"a\":1}\n");
}

TEST(Store, KeepsTheOldDocumentWhenTheNewOneCannotBeWritten) {
  const TemporaryFolder folder;
  const Store store(folder.file("store"));
  ASSERT_THAT(store.save(json("{\"a\":1}")), IsEmpty());
  ASSERT_EQ(mkdir(folder.file("store.new").c_str(), 0755), 0);  // in the way
  EXPECT_THAT(store.save(json("{\"a\":2}")), HasSubstr("cannot be opened"));
  EXPECT_EQ(load(store).document, json("{\"a\":1}"));
}

}  // namespace
