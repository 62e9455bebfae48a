#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "conformance/document_rows.h"

namespace zel::conformance {

inline constexpr char kStoredTopic[] = "1000";
inline constexpr char kDynamicTopic[] = "1001";
inline constexpr char kRebootTopic[] = "1002";
inline constexpr char kWhitelistTopic[] = "1004";

/// What a topic carries.
struct TopicRow {
  const char* topic;
  int query;           ///< the command that answers the same document; negative: none
  const char* member;  ///< the member of that answer; the payload of the whitelist's topic has the same member
  bool isWrapped;
};

/// The row of a topic; null when docs/protocol.md has none.
const TopicRow* topicRow(const std::string& topic);

/// What a value of a document has to be.
struct ValueRule {
  std::string path;
  DocumentRow::Type type;
  Presence presence = Presence::kAlways;
  std::vector<std::string> texts;       ///< of a choice
  const SettingRow* setting = nullptr;  ///< the row of types/settings.h, where there is one
};

/// The rules of a document by the member that holds it: "stored", "dynamic", "board-model", "white-list". Null for the
/// daemon's own documents.
const std::vector<ValueRule>* rulesOfDocument(const std::string& member);

/// What breaks a rule of docs/protocol.md.
struct Breach {
  std::string rule;
  std::string text;
};

/// Judges a document by its rules.
/// @param member  the member that holds it; "white-list" is the array
std::vector<Breach> judgeDocument(const std::string& member, const Json::Value& document);

/// The value at a path like "rtsp/tcp-port"; null when there is none.
Json::Value valueAt(const Json::Value& document, const std::string& path);

}  // namespace zel::conformance
