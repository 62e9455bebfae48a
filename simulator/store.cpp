#include "simulator/store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>
#include <random>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "common/shared/wire_json.h"

namespace zel::sim {

namespace {

/// A file descriptor, closed with its scope.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  explicit operator bool() const { return number_ >= 0; }
  int get() const { return number_; }

 private:
  int number_;
};

std::string failure(const std::string& what) { return what + ": " + std::strerror(errno); }

bool writeAll(int file, const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t written = write(file, text.data() + done, text.size() - done);
    if (written < 0 && errno != EINTR) return false;
    if (written > 0) done += static_cast<std::size_t>(written);
  }
  return true;
}

/// @param text  receives up to one byte more than a document may have, so that a longer one is known as such
bool readAll(int file, std::string& text) {
  text.resize(kMaxFrameBytes + 1);
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t got = read(file, text.data() + done, text.size() - done);
    if (got == 0) break;
    if (got < 0 && errno != EINTR) return false;
    if (got > 0) done += static_cast<std::size_t>(got);
  }
  text.resize(done);
  return true;
}

std::string folderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

const char* kindOf(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFDIR: return "folder";
    case S_IFIFO: return "FIFO";
    case S_IFLNK: return "symbolic link";
    case S_IFSOCK: return "socket";
    default: return "device";
  }
}

/// Looks at a path without opening what is there, since opening a FIFO or a device may wait or have effects.
/// @param facts  none where there is nothing yet
/// @return empty, or why the path cannot be a store
std::string examine(const std::string& path, std::optional<struct stat>& facts) {
  struct stat found = {};
  if (lstat(path.c_str(), &found) != 0) return errno == ENOENT ? "" : failure(path + " cannot be examined");
  if (!S_ISREG(found.st_mode)) return path + " is not a regular file but a " + kindOf(found.st_mode);
  facts = found;
  return {};
}

// The random end of the name keeps others from putting something in the way beforehand.
constexpr char kNewSuffix[] = ".new-";
constexpr std::size_t kRandomDigits = 8;

bool isLeftover(std::string_view name, const std::string& storeName) {
  const std::string beginning = storeName + kNewSuffix;
  return name.size() == beginning.size() + kRandomDigits && name.substr(0, beginning.size()) == beginning &&
         name.find_first_not_of("0123456789abcdef", beginning.size()) == std::string_view::npos;
}

/// The file that is to take the store's place. It is removed with its scope unless it did.
class Replacement {
 public:
  Replacement(const std::string& path, mode_t mode)
      : path_(path + kNewSuffix + randomDigits()),
        file_(open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode)) {}
  ~Replacement() {
    if (file_ && !inPlace_) unlink(path_.c_str());
  }
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;

  explicit operator bool() const { return static_cast<bool>(file_); }
  int file() const { return file_.get(); }
  const std::string& path() const { return path_; }

  bool takeOwnerAndModeOf(const struct stat& other) const {
    struct stat own = {};
    if (fstat(file(), &own) != 0) return false;
    const bool sameOwner = own.st_uid == other.st_uid && own.st_gid == other.st_gid;
    return (sameOwner || fchown(file(), other.st_uid, other.st_gid) == 0) &&
           fchmod(file(), other.st_mode & 07777U) == 0;
  }
  bool takeThePlaceOf(const std::string& path) {
    inPlace_ = std::rename(path_.c_str(), path.c_str()) == 0;
    return inPlace_;
  }

 private:
  static std::string randomDigits() {
    char text[kRandomDigits + 1];
    std::snprintf(text, sizeof text, "%08x", std::random_device()());
    return text;
  }

  std::string path_;
  Descriptor file_;
  bool inPlace_ = false;
};

}  // namespace

Store::Store(std::string path) : path_(std::move(path)) {}

std::string Store::load(Json::Value& document, bool& found, std::string& damage) const {
  std::optional<struct stat> facts;
  std::string why = examine(path_, facts);
  found = facts.has_value();
  if (!why.empty() || !found) return why;
  // It may have been replaced meanwhile: neither a link is followed nor a FIFO's writer waited for.
  const Descriptor file(open(path_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file) return failure(path_ + " cannot be opened");
  std::string text;
  if (!readAll(file.get(), text)) return failure(path_ + " cannot be read");
  damage = WireJsonReader().read(text, document);
  return {};
}

std::string Store::save(const Json::Value& document, std::string& warning) const {
  std::string text;
  if (const std::string why = writeWireJson(document, text); !why.empty()) return "the document is " + why;
  text += '\n';
  warning.clear();
  std::optional<struct stat> present;
  if (std::string why = examine(path_, present); !why.empty()) return why;

  // Whatever can fail comes before the rename: behind it the new document is in force.
  const std::string what = path_ + " cannot be written: ";
  const Descriptor folder(open(folderOf(path_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) return failure(what + folderOf(path_) + " cannot be opened");
  constexpr mode_t kModeOfANewFile = 0644;
  Replacement file(path_, present ? present->st_mode & 0777U : kModeOfANewFile);
  if (!file) return failure(what + file.path() + " cannot be made");
  if (present && !file.takeOwnerAndModeOf(*present)) return failure(what + "its owner and mode cannot be kept");
  if (!writeAll(file.file(), text)) return failure(what + file.path() + " cannot be written");
  if (fsync(file.file()) != 0) return failure(what + file.path() + " cannot be synced");
  if (!file.takeThePlaceOf(path_)) return failure(what + "it cannot be replaced");
  // The new name is on the disk only when its folder is. Some file systems cannot sync a folder: EINVAL.
  if (fsync(folder.get()) != 0 && errno != EINVAL) warning = failure(folderOf(path_) + " cannot be synced");
  return {};
}

void Store::removeLeftovers() const {
  namespace fs = std::filesystem;
  const std::string ownName = fs::path(path_).filename();
  std::vector<fs::path> leftovers;
  std::error_code error;
  for (fs::directory_iterator entry(folderOf(path_), error); !error && entry != fs::end(entry);
       entry.increment(error)) {
    const bool isRegular = fs::is_regular_file(entry->symlink_status(error));
    if (isRegular && isLeftover(entry->path().filename().native(), ownName)) leftovers.push_back(entry->path());
  }
  for (const fs::path& leftover : leftovers) fs::remove(leftover, error);
}

std::string Store::setAside(std::string& newPath) const {
  constexpr int kMostTries = 10000;
  for (int number = 1; number <= kMostTries; ++number) {
    newPath = path_ + ".damaged-" + std::to_string(number);
    if (renameat2(AT_FDCWD, path_.c_str(), AT_FDCWD, newPath.c_str(), RENAME_NOREPLACE) == 0) return {};
    if (errno != EEXIST) return failure(path_ + " cannot be set aside");
  }
  return path_ + " cannot be set aside: there are too many damaged files already";
}

std::string readTextFile(const std::string& path, std::string& text) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) return failure(path + " cannot be opened");
  if (!readAll(file.get(), text)) return failure(path + " cannot be read");
  return text.size() > kMaxFrameBytes ? path + " is larger than 1 MiB" : "";
}

std::string readJsonFile(const std::string& path, Json::Value& document) {
  std::string text;
  if (std::string why = readTextFile(path, text); !why.empty()) return why;
  const std::string why = WireJsonReader().read(text, document);
  return why.empty() ? "" : path + " is not one JSON document: " + why;
}

}  // namespace zel::sim
