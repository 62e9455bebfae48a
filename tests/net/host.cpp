#include "tests/net/host.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace zel::test {

void configureNetwork(const std::string& commands) {
  FILE* batch = popen("ip -batch -", "w");
  if (batch == nullptr) throw std::runtime_error("ip cannot be started");
  std::fputs(commands.c_str(), batch);
  if (pclose(batch) != 0) throw std::runtime_error("ip refuses:\n" + commands);
}

TemporaryDirectory::TemporaryDirectory() : path_(std::filesystem::temp_directory_path() / "zel-XXXXXX") {
  if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no directory can be made: " + path_);
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TemporaryDirectory::addFile(const std::string& name) const {
  std::string file = path_ + "/" + name;
  if (!std::ofstream(file)) throw std::runtime_error("no file can be made: " + file);
  return file;
}

}  // namespace zel::test
