#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zel::conformance {

/// The text of docs/protocol.md.
extern const char* const kProtocolPage;

/// A sentence of docs/protocol.md that says what a daemon does.
struct Rule {
  std::string anchor;    ///< "one-answer"
  std::string level;     ///< "must", "should" or "choice"
  std::string sentence;  ///< in one line
};

/// The rules of a page: each is an item of a list that begins with an anchor and a level.
std::vector<Rule> rulesOf(std::string_view page);

/// The rule of docs/protocol.md with this anchor.
/// @throws std::logic_error when the page has none: the checks cite existing anchors only, and a test holds that
const Rule& ruleAt(std::string_view anchor);

}  // namespace zel::conformance
