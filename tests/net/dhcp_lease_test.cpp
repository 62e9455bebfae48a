#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "net/eth_ip_utils.h"
#include "tests/net/host.h"
#include "tests/support/captured_log.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using zel::test::CapturedLog;
using zel::test::LogLine;
using zel::test::TemporaryDirectory;

constexpr uid_t kNobody = 65534;

/// Takes the rights of root away for a while: root may read everything.
class WithoutRights {
 public:
  WithoutRights() : taken_(geteuid() != 0 || seteuid(kNobody) == 0) {}
  ~WithoutRights() {
    if (getuid() == 0 && seteuid(0) != 0) ADD_FAILURE() << "still without rights";
  }
  bool taken() const { return taken_; }

 private:
  bool taken_;
};

std::vector<std::string> leaseFiles(const std::string& directory) {
  std::vector<std::string> files;
  EXPECT_EQ(EthIpUtils().getDhcpLeaseFilenames(files, directory), 0);
  return files;
}

/// A socket in the file system.
void addSocket(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  ASSERT_LT(path.size(), sizeof address.sun_path);
  path.copy(address.sun_path, path.size());
  const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  close(descriptor);
}

TEST(DhcpLeaseFilenames, AreFullPathsInTheOrderOfTheDirectory) {
  const TemporaryDirectory directory;
  for (int i = 0; i < 50; ++i) directory.addFile("dhclient.eth" + std::to_string(i) + ".leases");

  std::vector<std::string> expected;
  DIR* listing = opendir(directory.path().c_str());
  while (const dirent* entry = readdir(listing)) {
    if (entry->d_name[0] != '.') expected.push_back(directory.path() + "/" + entry->d_name);
  }
  closedir(listing);

  EXPECT_EQ(expected.size(), 50U);
  EXPECT_THAT(leaseFiles(directory.path()), ElementsAreArray(expected));
}

TEST(DhcpLeaseFilenames, AreAppended) {
  const TemporaryDirectory directory;
  const std::string file = directory.addFile("lease");
  std::vector<std::string> files{"before"};
  EXPECT_EQ(EthIpUtils().getDhcpLeaseFilenames(files, directory.path()), 0);
  EXPECT_EQ(EthIpUtils().getDhcpLeaseFilenames(files, directory.path()), 0);
  EXPECT_THAT(files, ElementsAre("before", file, file));
}

TEST(DhcpLeaseFilenames, BeginWithTheDirectoryAsItWasGiven) {
  const TemporaryDirectory directory;
  directory.addFile("lease");
  EXPECT_THAT(leaseFiles(directory.path() + "/"), ElementsAre(directory.path() + "//lease"));
}

TEST(DhcpLeaseFilenames, OfAnEmptyDirectoryAreNone) { EXPECT_THAT(leaseFiles(TemporaryDirectory().path()), IsEmpty()); }

TEST(DhcpLeaseFilenames, LeaveOutDotFilesAndDirectories) {
  const TemporaryDirectory directory;
  directory.addFile(".hidden");
  directory.addFile("..lease");
  std::filesystem::create_directory(directory.path() + "/sub");
  std::filesystem::create_directory_symlink("sub", directory.path() + "/linkToSub");
  const std::string inner = directory.addFile("sub/inner");
  const std::string file = directory.addFile("lease.");
  EXPECT_THAT(leaseFiles(directory.path()), ElementsAre(file));
}

TEST(DhcpLeaseFilenames, FollowLinks) {
  const TemporaryDirectory directory;
  const TemporaryDirectory elsewhere;
  std::filesystem::create_symlink(elsewhere.addFile("lease"), directory.path() + "/link");
  EXPECT_THAT(leaseFiles(directory.path()), ElementsAre(directory.path() + "/link"));
}

TEST(DhcpLeaseFilenames, LeaveOutLinksThatLeadNowhere) {
  const TemporaryDirectory directory;
  std::filesystem::create_symlink("nowhere", directory.path() + "/dangling");
  std::filesystem::create_symlink("circle", directory.path() + "/circle");
  EXPECT_THAT(leaseFiles(directory.path()), IsEmpty());
}

TEST(DhcpLeaseFilenames, LeaveOutEntriesThatTheProcessMayNotExamine) {
  const TemporaryDirectory directory;
  const TemporaryDirectory locked;
  const std::string file = directory.addFile("lease");
  std::filesystem::create_symlink(locked.addFile("lease"), directory.path() + "/locked");
  chmod(directory.path().c_str(), 0755);
  chmod(locked.path().c_str(), 0);
  {
    const WithoutRights rights;
    if (!rights.taken()) GTEST_SKIP() << "root cannot give its rights up here";
    EXPECT_THAT(leaseFiles(directory.path()), ElementsAre(file));
  }
  chmod(locked.path().c_str(), 0700);
}

TEST(DhcpLeaseFilenames, HoldFilesThatCannotBeRead) {
  const TemporaryDirectory directory;
  const std::string file = directory.addFile("lease");
  chmod(file.c_str(), 0);
  chmod(directory.path().c_str(), 0755);
  const WithoutRights rights;
  if (!rights.taken()) GTEST_SKIP() << "root cannot give its rights up here";
  EXPECT_THAT(leaseFiles(directory.path()), ElementsAre(file));
}

TEST(DhcpLeaseFilenames, LeaveOutWhateverHasTheBitOfADirectory) {
  const TemporaryDirectory directory;
  ASSERT_NO_FATAL_FAILURE(addSocket(directory.path() + "/socket"));  // type 0xC000
  const std::string pipe = directory.path() + "/pipe";               // type 0x1000
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const std::string link = directory.path() + "/device";  // type 0x2000
  std::filesystem::create_symlink("/dev/null", link);
  EXPECT_THAT(leaseFiles(directory.path()), UnorderedElementsAre(pipe, link));
}

TEST(DhcpLeaseFilenames, OfADirectoryThatCannotBeOpenedAreNone) {
  const TemporaryDirectory directory;
  const CapturedLog log;
  for (const std::string& path : {directory.path() + "/missing", directory.addFile("file"), std::string()}) {
    std::vector<std::string> files{"before"};
    EXPECT_EQ(EthIpUtils().getDhcpLeaseFilenames(files, path), -1) << path;
    EXPECT_THAT(files, ElementsAre("before"));
  }
  EXPECT_THAT(log.lines(), IsEmpty());
}

/// An EthIpUtils that looks into a directory.
EthIpUtils utilsOn(const std::string& directory) {
  dhcp_lease = directory;
  return EthIpUtils();
}

bool usesDhcp(EthIpUtils& utils, const std::string& name) {
  EthBasicInfo info;
  info.name = name;
  return utils.set_ip_mode(info);
}

bool usesDhcp(const std::string& directory, const std::string& name) {
  EthIpUtils utils = utilsOn(directory);
  return usesDhcp(utils, name);
}

TEST(SetIpMode, LooksIntoTheSystemsLeaseDirectoryAtFirst) { EXPECT_EQ(dhcp_lease, "/var/lib/dhcp"); }

TEST(SetIpMode, IsTrueForTheInterfaceOfALeaseFile) {
  const TemporaryDirectory directory;
  directory.addFile("dhclient.eth0.leases");
  EXPECT_TRUE(usesDhcp(directory.path(), "eth0"));
  EXPECT_FALSE(usesDhcp(directory.path(), "eth1"));
  EXPECT_FALSE(usesDhcp(directory.path(), "eth0.10"));
  EXPECT_FALSE(usesDhcp(directory.path(), "ETH0"));
}

TEST(SetIpMode, CountsALeaseFileOfAVlanForItsInterfaceToo) {
  const TemporaryDirectory directory;
  directory.addFile("dhclient.eth0.10.leases");
  EXPECT_TRUE(usesDhcp(directory.path(), "eth0.10"));
  EXPECT_TRUE(usesDhcp(directory.path(), "eth0"));
  EXPECT_FALSE(usesDhcp(directory.path(), "eth0.1.0"));
}

TEST(SetIpMode, LooksAtEachLeaseFile) {
  const TemporaryDirectory directory;
  for (const char* name : {"a.eth0", "b.eth1", "c.eth2"}) directory.addFile(name);
  for (const char* name : {"eth0", "eth1", "eth2"}) EXPECT_TRUE(usesDhcp(directory.path(), name)) << name;
}

TEST(SetIpMode, CountsADirectoryCalledLikeTheInterface) {
  const TemporaryDirectory directory;
  const std::string leases = directory.path() + "/eth7";
  std::filesystem::create_directory(leases);
  EXPECT_FALSE(usesDhcp(leases, "eth7")) << "without a file there is nothing to count";
  directory.addFile("eth7/lease");
  EXPECT_TRUE(usesDhcp(leases, "eth7"));
}

TEST(SetIpMode, DoesNotCountWhatIsNoLeaseFile) {
  const TemporaryDirectory directory;
  directory.addFile(".eth0");
  std::filesystem::create_directory(directory.path() + "/eth0");
  std::filesystem::create_symlink("nowhere", directory.path() + "/eth0.leases");
  EXPECT_FALSE(usesDhcp(directory.path(), "eth0"));
}

TEST(SetIpMode, ReadsTheDirectoryAnewAtEachCall) {
  const TemporaryDirectory directory;
  EthIpUtils utils = utilsOn(directory.path());
  EXPECT_FALSE(usesDhcp(utils, "eth0"));
  const std::string file = directory.addFile("eth0");
  EXPECT_TRUE(usesDhcp(utils, "eth0"));
  std::filesystem::remove(file);
  EXPECT_FALSE(usesDhcp(utils, "eth0"));
}

TEST(SetIpMode, KeepsTheLeaseDirectoryOfItsConstruction) {
  const TemporaryDirectory directory;
  const TemporaryDirectory other;
  directory.addFile("eth0");
  EthIpUtils utils = utilsOn(directory.path());
  dhcp_lease = other.path();
  EXPECT_TRUE(usesDhcp(utils, "eth0"));
}

TEST(SetIpMode, DoesNotChangeTheRecord) {
  const TemporaryDirectory directory;
  directory.addFile("eth0");
  EthIpUtils utils = utilsOn(directory.path());
  EthBasicInfo info;
  info.name = "eth0";
  info.ip = 7;
  info.mac = "mac";
  info.ipPresent = true;
  info.index = 3;
  info.label = "label";
  Json::Value before;
  info.Serialize(before);
  EXPECT_TRUE(utils.set_ip_mode(info));
  Json::Value after;
  info.Serialize(after);
  EXPECT_EQ(after, before);
}

/// What a call writes to standard output, and what it logs.
struct Said {
  bool result;
  std::string output;
  std::vector<LogLine> lines;
};

Said usesDhcpAloud(const std::string& directory, const std::string& name) {
  const CapturedLog log;
  testing::internal::CaptureStdout();
  const bool result = usesDhcp(directory, name);
  return {result, testing::internal::GetCapturedStdout(), log.lines()};
}

TEST(SetIpMode, SaysNothingWhenAllIsWell) {
  const TemporaryDirectory directory;
  directory.addFile("eth0");
  const Said said = usesDhcpAloud(directory.path(), "eth0");
  EXPECT_TRUE(said.result);
  EXPECT_EQ(said.output, "");
  EXPECT_THAT(said.lines, IsEmpty());
}

TEST(SetIpMode, ReportsAMissingDirectoryOnStandardOutputOnly) {
  const TemporaryDirectory directory;
  const std::string missing = directory.path() + "/eth0";
  const Said said = usesDhcpAloud(missing, "eth0");
  EXPECT_FALSE(said.result);
  EXPECT_EQ(said.output, "cannot access " + missing + "\n");
  EXPECT_THAT(said.lines, IsEmpty());
}

TEST(SetIpMode, LogsAFileInPlaceOfTheDirectory) {
  const TemporaryDirectory directory;
  const std::string file = directory.addFile("eth0");
  const Said said = usesDhcpAloud(file, "eth0");
  EXPECT_FALSE(said.result);
  EXPECT_EQ(said.output, "");
  EXPECT_THAT(said.lines, ElementsAre(LogLine{2, file + " is not a directory\n"}));
}

TEST(SetIpMode, TakesASocketForADirectoryWithoutFiles) {
  const TemporaryDirectory directory;
  const std::string socket = directory.path() + "/eth0";
  ASSERT_NO_FATAL_FAILURE(addSocket(socket));
  const Said said = usesDhcpAloud(socket, "eth0");
  EXPECT_FALSE(said.result);
  EXPECT_EQ(said.output, "");
  EXPECT_THAT(said.lines, IsEmpty());
}

TEST(SetIpMode, IsSilentlyFalseForADirectoryThatCannotBeRead) {
  const TemporaryDirectory directory;
  directory.addFile("eth0");
  chmod(directory.path().c_str(), 0);
  {
    const WithoutRights rights;
    if (!rights.taken()) GTEST_SKIP() << "root cannot give its rights up here";
    const Said said = usesDhcpAloud(directory.path(), "eth0");
    EXPECT_FALSE(said.result);
    EXPECT_EQ(said.output, "");
    EXPECT_THAT(said.lines, IsEmpty());
  }
  chmod(directory.path().c_str(), 0700);
}

}  // namespace
