#include "simulator/store.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <vector>

#include "common/shared/wire_json.h"
#include "tests/simulator/json_text.h"
#include "tests/simulator/temporary_folder.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;
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

std::string save(const Store& store, const std::string& document) {
  std::string warning;
  std::string failure = store.save(json(document), warning);
  EXPECT_THAT(warning, IsEmpty());
  return failure;
}

std::vector<std::string> namesIn(const TemporaryFolder& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
    names.push_back(entry.path().filename().string());
  }
  return names;
}

bool makeSocket(const std::string& path) {
  const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const bool made = bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  close(descriptor);
  return made;
}

TEST(Store, GivesBackWhatWasSaved) {
  const TemporaryFolder folder;
  const Store store(folder.file("store"));
  for (const char* document : {R"({"a":[1,2,{"b":"ä"}]})", R"({"a":2})"}) {
    EXPECT_THAT(save(store, document), IsEmpty());
    const Loaded loaded = load(store);
    EXPECT_THAT(loaded.failure, IsEmpty());
    EXPECT_TRUE(loaded.found);
    EXPECT_THAT(loaded.damage, IsEmpty());
    EXPECT_EQ(loaded.document, json(document));
  }
  EXPECT_EQ(contentOf(folder.file("store")), "{\"a\":2}\n");
  EXPECT_THAT(namesIn(folder), ElementsAre("store"));
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

TEST(Store, FailsWithoutItsFolder) {
  const TemporaryFolder folder;
  const Store store(folder.file("none") + "/store");
  EXPECT_FALSE(load(store).found);
  EXPECT_THAT(save(store, "{}"), HasSubstr("No such file"));
}

/// Something at a path that is not a regular file.
struct Irregular {
  const char* name;
  bool (*make)(const std::string& path);
};
void PrintTo(const Irregular& row, std::ostream* out) { *out << row.name; }
class StoreThatIsNotARegularFile : public testing::TestWithParam<Irregular> {};

TEST_P(StoreThatIsNotARegularFile, IsRefusedAndLeftAsItIs) {
  const TemporaryFolder folder;
  const Store store(folder.file("store"));
  std::ofstream(folder.file("target")) << "{}";
  if (!GetParam().make(store.path())) GTEST_SKIP() << "not allowed here";
  struct stat before {};
  ASSERT_EQ(lstat(store.path().c_str(), &before), 0);

  const std::string why = store.path() + " is not a regular file but a " + GetParam().name;
  EXPECT_THAT(load(store).failure, HasSubstr(why));
  EXPECT_THAT(save(store, R"({"a":1})"), HasSubstr(why));
  struct stat after {};
  ASSERT_EQ(lstat(store.path().c_str(), &after), 0);
  EXPECT_EQ(after.st_ino, before.st_ino);
  EXPECT_EQ(after.st_mode, before.st_mode);
  EXPECT_EQ(contentOf(folder.file("target")), "{}");
}

INSTANTIATE_TEST_SUITE_P(
    Store, StoreThatIsNotARegularFile,
    testing::Values(Irregular{"folder", [](const std::string& path) { return mkdir(path.c_str(), 0755) == 0; }},
                    Irregular{"FIFO", [](const std::string& path) { return mkfifo(path.c_str(), 0644) == 0; }},
                    Irregular{"symbolic link",
                              [](const std::string& path) { return symlink("target", path.c_str()) == 0; }},
                    Irregular{"device",
                              [](const std::string& path) {
                                return mknod(path.c_str(), S_IFCHR | 0666, makedev(1, 3)) == 0;  // as /dev/null
                              }},
                    Irregular{"socket", makeSocket}),
    [](const auto& row) { return std::string(row.param.name).substr(0, 6); });

TEST(Store, KeepsTheModeAndTheOwnerOfItsFile) {
  const TemporaryFolder folder;
  const Store store(folder.file("store"));
  ASSERT_THAT(save(store, R"({"a":1})"), IsEmpty());
  const bool privileged = chown(store.path().c_str(), 12345, 54321) == 0;
  for (const mode_t mode : {0600U, 0664U, 0440U}) {
    ASSERT_EQ(chmod(store.path().c_str(), mode), 0);
    EXPECT_THAT(save(store, R"({"a":2})"), IsEmpty());
    struct stat facts {};
    ASSERT_EQ(stat(store.path().c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 07777U, mode);
    if (!privileged) continue;
    EXPECT_EQ(facts.st_uid, 12345U);
    EXPECT_EQ(facts.st_gid, 54321U);
  }
}

TEST(Store, WritesThroughNoLinkThatStandsBesideIt) {
  const TemporaryFolder folder;
  const Store store(folder.file("store"));
  std::ofstream(folder.file("victim")) << "mine";
  ASSERT_EQ(symlink("victim", folder.file("store.new").c_str()), 0);
  EXPECT_THAT(save(store, R"({"a":1})"), IsEmpty());
  EXPECT_EQ(contentOf(folder.file("victim")), "mine");
  EXPECT_EQ(contentOf(store.path()), "{\"a\":1}\n");
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

TEST(Store, RemovesWhatAKilledProcessLeftBesideAndNothingElse) {
  const TemporaryFolder folder;
  const Store store(folder.file("store"));
  for (const char* name : {"store.new-0123abcd", "store.new-0123abc", "store.new-0123abcde", "store.new-0123abcx",
                           "store.new", "other.new-0123abcd"}) {
    std::ofstream(folder.file(name)) << "half of a docum";
  }
  ASSERT_EQ(symlink("other.new-0123abcd", folder.file("store.new-01234567").c_str()), 0);
  store.removeLeftovers();
  EXPECT_THAT(namesIn(folder), UnorderedElementsAre("store.new-0123abc", "store.new-0123abcde", "store.new-0123abcx",
                                                    "store.new", "other.new-0123abcd", "store.new-01234567"));
}

}  // namespace
