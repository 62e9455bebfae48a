#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "cli/columns.h"
#include "cli/deadline.h"

namespace zel::ctl {

/// The text of one value in a table: texts as they are, the rest as JSON. Always `visible`.
std::string cellOf(const Json::Value& value);

/// Writes a line to standard error: "sysmgrctl: " and the text, made `visible`.
void note(const std::string& text);

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

  /// Bounds the time of everything below, which throws `Failure` when it is over. Of several deadlines the first one
  /// counts; each has to live as long as the output is used.
  void endBy(const Deadline& deadline);

  /// A document as the values in it, a line each with the path, or as JSON.
  void document(const Json::Value& value);
  /// The list that the document holds under `member` as a table, or the document as JSON.
  void list(const Json::Value& value, const char* member, const std::vector<Column>& columns);
  /// A page that the command lays out itself, or the document as JSON. `layOut` is called for people only.
  template <class LayOut>
  void page(const Json::Value& value, const LayOut& layOut) {
    if (json_) return write(asJson(value) + "\n");
    layOut();
  }

  // The pieces of pages.
  /// A line, made `visible`.
  void line(const std::string& text);
  /// The program's own text of several lines.
  void text(const std::string& lines);
  /// A text for a program to read, which no terminal breaks; `visible` already.
  void verbatim(const std::string& text) { write(text); }
  /// The values in a document, a line each with the path. @throws Failure when that is many times the document's size
  void leaves(const Json::Value& value);
  /// Rows of cells that are `visible` already; the first cell of each is its label.
  void labelled(const std::vector<std::vector<std::string>>& rows);
  void table(const Json::Value& list, const std::vector<Column>& columns);

  // Pictures that follow each other: on a terminal each is drawn over the one before.
  /// What stands between two pictures where there is no terminal: an empty line.
  void separatePictures();
  /// Shows what was written since the last picture.
  void showPicture();

  /// Hands what was written so far to whoever reads it. @throws Failure when it cannot be written
  void flush();

  static std::string asJson(const Json::Value& value);

 private:
  std::string bold(const std::string& text) const;
  /// A line as the terminal has room for it. @param indent  of the pieces behind the first; 0: that of the last column
  std::string folded(const std::string& line, std::size_t indent = 0) const;
  void write(const std::string& raw);
  void keepTime() const;
  void waitUntilWritable() const;

  bool json_;
  bool colour_;
  TerminalSize terminal_;
  bool isRedrawn_ = false;  ///< there is a picture on the terminal
  const Deadline* end_ = nullptr;
  std::string buffer_;
};

/// Whether texts for people may be coloured on this descriptor: on a terminal, unless NO_COLOR is set.
bool mayColour(int descriptor);

}  // namespace zel::ctl
