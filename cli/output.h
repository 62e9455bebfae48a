#pragma once

#include <json/value.h>

#include <string>
#include <vector>

namespace zel::ctl {

/// The text of one value in a table: texts as they are, the rest as JSON. Control characters are escaped, so that no
/// text from the daemon can steer the terminal.
std::string cellOf(const Json::Value& value);

/// A column of a table over a list of objects.
struct Column {
  const char* member;
  const char* heading;
};

/// What the user gets on standard output, in one of two faces: tables for people or JSON for programs. A command makes
/// its document once, whatever the face.
class Output {
 public:
  /// @param json  one JSON object a command, or a line where there are several, in place of tables
  explicit Output(bool json);

  bool isJson() const { return json_; }

  /// A document as the values in it, a line each with the path, or as JSON.
  void document(const Json::Value& value);
  /// The list that the document holds under `member` as a table, or the document as JSON.
  void list(const Json::Value& value, const char* member, const std::vector<Column>& columns);
  /// A page that the command lays out itself, or the document as JSON. `layOut` is called for people only.
  template <class LayOut>
  void page(const Json::Value& value, const LayOut& layOut) {
    if (json_) return line(asJson(value));
    layOut();
  }

  // The pieces of pages.
  void line(const std::string& text);
  /// The values in a document, a line each with the path.
  void leaves(const Json::Value& value);
  void rows(const std::vector<std::vector<std::string>>& cells);
  void table(const Json::Value& list, const std::vector<Column>& columns);
  /// Hands what was written so far to whoever reads it. @throws Failure when it cannot be written
  void flush();

  std::string bold(const std::string& text) const;

  static std::string asJson(const Json::Value& value);

 private:
  bool json_;
  bool colour_;
};

/// Whether texts for people may be coloured on this descriptor: on a terminal, unless NO_COLOR is set.
bool mayColour(int descriptor);

}  // namespace zel::ctl
