#include "simulator/store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "common/wire_json.h"

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

}  // namespace

Store::Store(std::string path) : path_(std::move(path)) {}

std::string Store::load(Json::Value& document, bool& found, std::string& damage) const {
  found = false;
  const Descriptor file(open(path_.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) return errno == ENOENT ? "" : failure(path_ + " cannot be opened");
  std::string text;
  if (!readAll(file.get(), text)) return failure(path_ + " cannot be read");
  found = true;
  damage = WireJsonReader().read(text, document);
  return {};
}

std::string Store::save(const Json::Value& document) const {
  std::string text;
  if (const std::string why = WireJsonWriter().write(document, text); !why.empty()) return "the document is " + why;
  text += '\n';

  const std::string beside = path_ + ".new";
  {
    const Descriptor file(open(beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!file) return failure(beside + " cannot be opened");
    if (!writeAll(file.get(), text)) return failure(beside + " cannot be written");
    if (fsync(file.get()) != 0) return failure(beside + " cannot be synced");
  }
  if (std::rename(beside.c_str(), path_.c_str()) != 0) return failure(path_ + " cannot be replaced");
  // The new name is on the disk only when its folder is.
  const Descriptor folder(open(folderOf(path_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder || fsync(folder.get()) != 0) return failure(folderOf(path_) + " cannot be synced");
  return {};
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

std::string readJsonFile(const std::string& path, Json::Value& document) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) return failure(path + " cannot be opened");
  std::string text;
  if (!readAll(file.get(), text)) return failure(path + " cannot be read");
  const std::string why = WireJsonReader().read(text, document);
  return why.empty() ? "" : path + " is not one JSON document: " + why;
}

}  // namespace zel::sim
