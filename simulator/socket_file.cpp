#include "simulator/socket_file.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace zel::sim {

namespace {

std::string failure(const std::string& what) { return what + ": " + std::strerror(errno); }

/// @return 0 when a process listens at the address, or the error number of the attempt to connect
int tryToConnect(const sockaddr_un& address) {
  const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (probe < 0) return errno;
  const bool connected = connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  const int error = connected || errno == EAGAIN ? 0 : errno;
  close(probe);
  return error;
}

}  // namespace

std::optional<sockaddr_un> socketAddress(const std::string& path) {
  sockaddr_un address{};
  if (path.empty() || path.size() >= sizeof address.sun_path) return std::nullopt;
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, path.size());
  return address;
}

std::string makeRoomForSocket(const std::string& path) {
  const auto address = socketAddress(path);
  if (!address) return path + " is too long for the path of a socket";
  struct stat found = {};
  if (lstat(path.c_str(), &found) != 0) return errno == ENOENT ? "" : failure(path + " cannot be examined");
  if (!S_ISSOCK(found.st_mode)) return path + " is there already, and is not a socket";
  errno = tryToConnect(*address);
  if (errno == 0) return path + " is in use: another process listens on it";
  if (errno != ECONNREFUSED) return failure(path + " cannot be tried");
  return unlink(path.c_str()) == 0 || errno == ENOENT ? "" : failure(path + " cannot be removed");
}

SocketFile::SocketFile(std::string path) : path_(std::move(path)) { lstat(path_.c_str(), &facts_); }

SocketFile::~SocketFile() {
  struct stat now = {};
  const bool own = lstat(path_.c_str(), &now) == 0 && now.st_dev == facts_.st_dev && now.st_ino == facts_.st_ino;
  if (own) unlink(path_.c_str());
}

}  // namespace zel::sim
