#include "conformance/report.h"

#include <json/writer.h>

#include <algorithm>
#include <cstdio>

#include "conformance/rules.h"

namespace zel::conformance {

namespace {

constexpr char kPage[] = "docs/protocol.md#";

std::string nameOf(const Check& check) {
  return std::string(check.rule) + (check.name.empty() ? "" : ": " + check.name);
}

std::string citation(const Check& check) {
  const Rule& rule = ruleAt(check.rule);
  return kPage + rule.anchor + ", " + rule.level + ": \"" + rule.sentence + "\"";
}

std::string seconds(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f s", value);
  return text;
}

}  // namespace

std::size_t Report::failures(const std::string& level) const {
  return static_cast<std::size_t>(std::count_if(results.begin(), results.end(), [&level](const Result& result) {
    return result.failed() && ruleAt(result.check->rule).level == level;
  }));
}

std::size_t Report::skips() const {
  return static_cast<std::size_t>(
      std::count_if(results.begin(), results.end(), [](const Result& result) { return !result.skipped.empty(); }));
}

std::string asText(const Report& report, bool all) {
  std::string text;
  for (const Result& result : report.results) {
    const std::string level = ruleAt(result.check->rule).level;
    if (result.failed()) {
      text += "FAILED   " + level + "  " + nameOf(*result.check) + "\n";
      for (const std::string& failure : result.failures) text += "         " + failure + "\n";
      text += "         " + citation(*result.check) + "\n";
    } else if (all && !result.skipped.empty()) {
      text += "skipped  " + level + "  " + nameOf(*result.check) + ": " + result.skipped + "\n";
    } else if (all) {
      text += "ok       " + level + "  " + nameOf(*result.check) + "\n";
    }
  }
  if (!report.stopped.empty()) text += "The run stopped: " + report.stopped + ".\n";
  for (const std::string& difference : report.notPutBack) text += "Not put back: " + difference + "\n";
  text += std::to_string(report.results.size()) + " checks in " + seconds(report.seconds) + ": " +
          std::to_string(report.failures("must")) + " of a must failed, " + std::to_string(report.failures("should")) +
          " of a should failed, " + std::to_string(report.skips()) + " skipped\n";
  return text;
}

std::string asTap(const Report& report) {
  std::string text = "TAP version 13\n1.." + std::to_string(report.results.size()) + "\n";
  std::size_t number = 0;
  for (const Result& result : report.results) {
    const std::string line =
        std::to_string(++number) + " - " + ruleAt(result.check->rule).level + " " + nameOf(*result.check);
    text += (result.failed() ? "not ok " : "ok ") + line;
    if (!result.skipped.empty()) text += " # SKIP " + result.skipped;
    text += "\n";
    for (const std::string& failure : result.failures) text += "# " + failure + "\n";
    if (result.failed()) text += "# " + citation(*result.check) + "\n";
  }
  if (!report.stopped.empty()) text += "Bail out! " + report.stopped + "\n";
  for (const std::string& difference : report.notPutBack) text += "# not put back: " + difference + "\n";
  return text;
}

std::string asJson(const Report& report) {
  Json::Value document(Json::objectValue);
  document["checks"] = Json::Value(Json::arrayValue);
  for (const Result& result : report.results) {
    const Rule& rule = ruleAt(result.check->rule);
    Json::Value check(Json::objectValue);
    check["rule"] = rule.anchor;
    check["name"] = result.check->name;
    check["level"] = rule.level;
    check["sentence"] = rule.sentence;
    check["result"] = result.failed() ? "failed" : result.skipped.empty() ? "ok" : "skipped";
    if (!result.skipped.empty()) check["skipped"] = result.skipped;
    for (const std::string& failure : result.failures) check["failures"].append(failure);
    document["checks"].append(check);
  }
  document["must-failed"] = Json::UInt64{report.failures("must")};
  document["should-failed"] = Json::UInt64{report.failures("should")};
  document["skipped"] = Json::UInt64{report.skips()};
  document["seconds"] = report.seconds;
  if (!report.stopped.empty()) document["stopped"] = report.stopped;
  for (const std::string& difference : report.notPutBack) document["not-put-back"].append(difference);
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "  ";
  builder["emitUTF8"] = true;
  return Json::writeString(builder, document) + "\n";
}

}  // namespace zel::conformance
