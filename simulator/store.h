#pragma once

#include <json/value.h>

#include <string>

namespace zel::sim {

/// A file that holds one JSON document across restarts. A kill at any instant leaves the old document or the new one.
class Store {
 public:
  explicit Store(std::string path);

  /// Reads the document.
  /// @param found  false where there is no file yet
  /// @param damage  why the file does not hold a document; empty when it does
  /// @return empty, or why the file cannot be read at all
  std::string load(Json::Value& document, bool& found, std::string& damage) const;

  /// Writes the document: it is on the disk when this returns.
  /// @return empty, or why it is not; the file holds the old document then, or the new one
  std::string save(const Json::Value& document) const;

  /// Gives a damaged file another name, one that no file has.
  /// @return empty, or why it cannot be renamed
  std::string setAside(std::string& newPath) const;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

/// Reads a JSON file, as strictly as the wire's.
/// @return empty, or why it cannot be read
std::string readJsonFile(const std::string& path, Json::Value& document);

}  // namespace zel::sim
