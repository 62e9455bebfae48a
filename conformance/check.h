#pragma once

#include <functional>
#include <string>
#include <vector>

#include "conformance/documents.h"
#include "conformance/session.h"

namespace zel::conformance {

/// What a check does to the board, and so what the caller has to allow.
enum class Needs {
  kNothing,
  kWrite,
  kReset,
  kReboot,
  kRestart,
};

/// One check of one rule.
struct Check {
  const char* rule;  ///< the anchor of the sentence in docs/protocol.md
  std::string name;  ///< tells the checks of one rule apart; may be empty
  Needs needs;
  std::function<void(Session& session)> run;
};

/// The name of the checks that report what the observer found.
inline constexpr char kObservedName[] = "in all that came";

/// All checks, in the order in which they run. The last ones report what the observer found meanwhile.
std::vector<Check> allChecks();

void appendRequestChecks(std::vector<Check>& checks);
void appendDocumentChecks(std::vector<Check>& checks);
void appendSettingChecks(std::vector<Check>& checks);
void appendListChecks(std::vector<Check>& checks);
void appendLifeChecks(std::vector<Check>& checks);
/// The rules that the observer judges.
void appendObservedChecks(std::vector<Check>& checks);

/// A rule of the level must that no check can observe.
struct NotChecked {
  const char* rule;
  const char* why;
};
const std::vector<NotChecked>& rulesWithoutCheck();

/// Whether two values are the same JSON, whatever JsonCpp's types of their numbers.
bool isSame(const Json::Value& a, const Json::Value& b);

}  // namespace zel::conformance
