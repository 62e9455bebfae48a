#pragma once

#include <sys/stat.h>
#include <sys/un.h>

#include <optional>
#include <string>

namespace zel::sim {

/// The address of a Unix socket; nothing when the path is empty or too long for one.
std::optional<sockaddr_un> socketAddress(const std::string& path);

/// Removes a socket that is left of a process that has ended.
/// @return empty, or why there cannot be a new one
std::string makeRoomForSocket(const std::string& path);

/// The file of a Unix socket that this process has bound. It is removed with this object, unless another one has taken
/// its place.
class SocketFile {
 public:
  explicit SocketFile(std::string path);
  ~SocketFile();
  SocketFile(const SocketFile&) = delete;
  SocketFile& operator=(const SocketFile&) = delete;

 private:
  std::string path_;
  struct stat facts_ = {};
};

}  // namespace zel::sim
