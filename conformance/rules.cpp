#include "conformance/rules.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace zel::conformance {

namespace {

constexpr std::string_view kItem = "- <a id=\"";
constexpr std::string_view kBehindAnchor = "\"></a>**";
constexpr std::string_view kBehindLevel = "** ";

/// Takes the text up to an end mark from the front of `text`.
std::string taken(std::string_view& text, std::string_view end) {
  const std::size_t at = text.find(end);
  if (at == std::string_view::npos) throw std::logic_error("a rule has no " + std::string(end));
  std::string front(text.substr(0, at));
  text.remove_prefix(at + end.size());
  return front;
}

}  // namespace

std::vector<Rule> rulesOf(std::string_view page) {
  std::vector<Rule> rules;
  bool inRule = false;
  std::istringstream lines{std::string(page)};
  for (std::string line; std::getline(lines, line);) {
    std::string_view rest = line;
    if (rest.substr(0, kItem.size()) == kItem) {
      rest.remove_prefix(kItem.size());
      Rule rule;
      rule.anchor = taken(rest, kBehindAnchor);
      rule.level = taken(rest, kBehindLevel);
      rule.sentence = rest;
      rules.push_back(rule);
      inRule = true;
    } else if (inRule && rest.substr(0, 2) == "  ") {
      rules.back().sentence.append(" ").append(rest.substr(2));
    } else {
      inRule = false;
    }
  }
  return rules;
}

const Rule& ruleAt(std::string_view anchor) {
  static const std::vector<Rule> kRules = rulesOf(kProtocolPage);
  const auto found =
      std::find_if(kRules.begin(), kRules.end(), [anchor](const Rule& rule) { return rule.anchor == anchor; });
  if (found == kRules.end()) throw std::logic_error("docs/protocol.md has no rule " + std::string(anchor));
  return *found;
}

}  // namespace zel::conformance
