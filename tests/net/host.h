#pragma once

#include <string>

// A host for the tests that read the host: interfaces in a network namespace, directories of lease files.

namespace zel::test {

/// Runs commands of ip(8) in the process's network namespace, one a line: "link add eth0 type bridge".
/// @throws std::runtime_error when one fails
void configureNetwork(const std::string& commands);

/// An empty directory, removed with all it holds.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& path() const { return path_; }
  /// Makes a file in it. @return its path
  std::string addFile(const std::string& name) const;

 private:
  std::string path_;
};

}  // namespace zel::test
