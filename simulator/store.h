#pragma once

#include <json/value.h>

#include <string>

namespace zel::sim {

/// A regular file that holds one JSON document across restarts. A kill at any instant leaves the old document or the
/// new one. Anything else at the path (a folder, a FIFO, a device, a symbolic link) is refused and left alone.
class Store {
 public:
  explicit Store(std::string path);

  /// Reads the document.
  /// @param found  false where there is no file yet
  /// @param damage  why the file does not hold a document; empty when it does
  /// @return empty, or why the file cannot be read at all
  std::string load(Json::Value& document, bool& found, std::string& damage) const;

  /// Replaces the document; mode and owner of the file stay as they are.
  /// @param warning  empty when the document is on the disk; otherwise why a power failure may bring the old one back
  /// @return empty, or why the file still holds the old document
  std::string save(const Json::Value& document, std::string& warning) const;

  /// Removes the unfinished files that `save` left beside the file when its process was killed.
  void removeLeftovers() const;

  /// Gives a damaged file another name, one that no file has.
  /// @return empty, or why it cannot be renamed
  std::string setAside(std::string& newPath) const;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

/// Reads a text file of at most 1 MiB, as a whole.
/// @return empty, or why it cannot be read
std::string readTextFile(const std::string& path, std::string& text);

/// Reads a JSON file, as strictly as the wire's.
/// @return empty, or why it cannot be read
std::string readJsonFile(const std::string& path, Json::Value& document);

}  // namespace zel::sim
