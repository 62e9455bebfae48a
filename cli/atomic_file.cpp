#include "cli/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "cli/descriptor.h"
#include "cli/failure.h"

namespace zel::ctl {

namespace {

constexpr std::size_t kMost = std::size_t{1024} * 1024;  ///< bytes of a file that is read

Failure cannot(const std::string& what, const std::string& path) {
  const int error = errno;
  return {error == ENOENT ? Exit::kNotFound : Exit::kOther,
          "cannot " + what + " " + path + ": " + std::strerror(error)};
}

bool writeAll(int file, const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t written = write(file, text.data() + done, text.size() - done);
    if (written >= 0) {
      done += static_cast<std::size_t>(written);
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

/// The file that a path means: a symbolic link is followed, so that it stays.
std::string targetOf(const std::string& path) {
  const std::unique_ptr<char, void (*)(void*)> resolved(realpath(path.c_str(), nullptr), std::free);
  return resolved ? resolved.get() : path;
}

std::string folderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

/// Mode and, where this user may, owner of the file that is replaced; those of a new file otherwise.
void takeRights(int file, const struct stat* old) {
  const mode_t mask = umask(0);
  umask(mask);
  constexpr mode_t kNew = 0666;
  constexpr mode_t kRights = 07777;
  if (old != nullptr && fchown(file, old->st_uid, old->st_gid) != 0) errno = 0;  // the new owner is this user
  fchmod(file, old == nullptr ? kNew & ~mask : old->st_mode & kRights);
}

void replaceRegular(const std::string& path, const std::string& text, const struct stat* old) {
  std::string beside = path + ".XXXXXX";
  const Descriptor file(mkostemp(beside.data(), O_CLOEXEC));
  if (file.number() < 0) throw cannot("write", path);
  takeRights(file.number(), old);
  if (writeAll(file.number(), text) && fsync(file.number()) == 0 && rename(beside.c_str(), path.c_str()) == 0) {
    const Descriptor folder(open(folderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.number() >= 0) fsync(folder.number());
    return;
  }
  const int error = errno;
  unlink(beside.c_str());
  errno = error;
  throw cannot("write", path);
}

}  // namespace

void replaceFile(const std::string& path, const std::string& text) {
  struct stat old {};
  const bool exists = stat(path.c_str(), &old) == 0;
  if (!exists || S_ISREG(old.st_mode)) return replaceRegular(targetOf(path), text, exists ? &old : nullptr);
  const Descriptor file(open(path.c_str(), O_WRONLY | O_CLOEXEC));
  if (file.number() < 0 || !writeAll(file.number(), text)) throw cannot("write", path);
}

std::string textOfFile(const std::string& path, const Deadline* end) {
  const int flags = O_RDONLY | O_CLOEXEC | (end == nullptr ? 0 : O_NONBLOCK);  // or `open` waits for a pipe's writer
  const Descriptor file(path == "-" ? STDIN_FILENO : open(path.c_str(), flags));
  if (file.number() < 0) throw cannot("read", path);
  std::string text;
  char piece[4096];
  while (true) {
    if (end != nullptr && (end->isOver() || !isReadable(file.number(), *end))) throw timeIsOver(*end);
    const ssize_t size = read(file.number(), piece, sizeof piece);
    if (size == 0) return text;
    if (size < 0 && (errno == EINTR || (errno == EAGAIN && end != nullptr))) continue;
    if (size < 0) throw cannot("read", path);
    text.append(piece, static_cast<std::size_t>(size));
    if (text.size() > kMost) throw Failure(Exit::kUsage, path + " is larger than 1 MiB");
  }
}

}  // namespace zel::ctl
