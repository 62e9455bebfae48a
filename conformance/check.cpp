#include "conformance/check.h"

#include "common/shared/wire_json.h"

namespace zel::conformance {

std::vector<Check> allChecks() {
  std::vector<Check> checks;
  appendRequestChecks(checks);
  appendDocumentChecks(checks);
  appendSettingChecks(checks);
  appendListChecks(checks);
  appendLifeChecks(checks);
  appendObservedChecks(checks);
  return checks;
}

void appendObservedChecks(std::vector<Check>& checks) {
  constexpr const char* kObserved[] = {
      "endpoints",
      "survives",
      "queries-succeed",
      "payload",
      "one-answer",
      "answer-time",
      "answer-soon",
      "answer-object",
      "status-type",
      "error-type",
      "reserved-statuses",
      "error-text",
      "frame-size",
      "json-size",
      "json-strict",
      "own-members",
      "whole-documents",
      "value-types",
      "numbers",
      "no-null",
      "exact-texts",
      "addresses",
      "no-nul",
      "one-entry",
      "settable",
      "eth-dhcp",
      "eth-sorted",
      "whitelist-sorted",
      "notification-frames",
      "wrapped",
      "not-wrapped",
      "notification-json",
      "dynamic-rate",
      "own-topics",
  };
  for (const char* const rule : kObserved) {
    checks.push_back({rule, kObservedName, Needs::kNothing, [rule](Session& session) {
                        for (const std::string& text : session.observer().findings(rule)) session.fail(text);
                      }});
  }
}

const std::vector<NotChecked>& rulesWithoutCheck() {
  static const std::vector<NotChecked> kRules = {
      {"restart-loads",
       "a client cannot tell a daemon that has not loaded its state from one that has lost it: "
       "restart-keeps finds either"},
  };
  return kRules;
}

bool isSame(const Json::Value& a, const Json::Value& b) {
  std::string textOfA;
  std::string textOfB;
  writeWireJson(a, textOfA);
  writeWireJson(b, textOfB);
  return textOfA == textOfB;
}

}  // namespace zel::conformance
