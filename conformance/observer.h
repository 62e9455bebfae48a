#pragma once

#include <json/value.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "common/shared/wire_json.h"

namespace zel::conformance {

/// Set by a signal handler: the run is to end, and what was changed is to be put back.
extern std::atomic<bool> interrupted;

/// The run cannot go on: the daemon is gone or keeps silent, or a signal came.
struct Stopped {
  std::string why;
};

/// Judges every answer and every notification of a run, whatever the check that caused it, and keeps what breaks a
/// rule.
/// Threads: one caller at a time.
class Observer {
 public:
  using Milliseconds = std::chrono::milliseconds;

  /// Keeps a breach of a rule.
  /// @param rule  its anchor
  void found(const std::string& rule, const std::string& text);
  /// What was found against a rule; of many only the first ones.
  const std::vector<std::string>& findings(const std::string& rule) const;

  /// Judges the frames of an answer behind the envelope.
  /// @param id       of the command; negative when the request had no good one
  /// @param isQuery  whether the request is a query that succeeds at any time
  /// @return the document; null when there is none
  Json::Value judgeAnswer(const std::string& request, int id, bool isQuery, const std::vector<std::string>& frames,
                          Milliseconds took);
  /// Judges a notification.
  /// @return the payload; null when there is none
  Json::Value judgeNotification(const std::vector<std::string>& frames);

  /// Counts an answer that did not come. @throws Stopped when it is not the first one
  void missed(const std::string& request);

 private:
  Json::Value readJson(const char* strictRule, const std::string& what, const std::string& text);
  void judgeEnvelope(const std::string& request, const Json::Value& answer);
  void judgePayload(const std::string& what, int id, const Json::Value& answer);

  std::map<std::string, std::vector<std::string>> findings_;
  std::map<std::string, std::deque<std::chrono::steady_clock::time_point>> arrivals_;  ///< by topic
  int missed_ = 0;
  WireJsonReader reader_;
};

/// Whether a command asks for something and needs no body.
bool isQueryId(int id);

/// A text of the wire as a finding shows it: printable and not too long.
std::string shown(const std::string& text);
std::string shown(const Json::Value& value);

}  // namespace zel::conformance
