#include "conformance/observer.h"

#include <algorithm>

#include "client/commands.h"
#include "common/envelope.h"
#include "common/shared/escape.h"
#include "common/shared/utf8.h"
#include "common/status.h"
#include "conformance/documents.h"

namespace zel::conformance {

std::atomic<bool> interrupted{false};

namespace {

constexpr std::size_t kMostFindings = 5;  // of one rule
constexpr std::size_t kMostShown = 200;
constexpr int kMostMissed = 2;
constexpr Observer::Milliseconds kSoon{1000};
constexpr std::size_t kMostInASecond = 50;
constexpr char kOwnPrefix[] = "x-";

/// Whether the client makes the status itself; those of common/status.h that the daemon sends too are not meant.
bool isClientsStatus(int number) {
  constexpr int kFirst = -199;
  constexpr int kLast = status::kNotInitialized;
  return (number >= kFirst && number <= kLast) || number == status::kSubscriberNotInitialized ||
         number == status::kNullParameter || number == status::kUnknownTopic;
}

/// How deep the text nests, and how many values it has at least; texts are skipped.
struct Measure {
  unsigned int depth = 0;
  std::size_t values = 1;
};
Measure measured(const std::string& json) {
  Measure most;
  unsigned int depth = 0;
  bool inText = false;
  for (std::size_t i = 0; i < json.size(); ++i) {
    const char c = json[i];
    if (inText) {
      if (c == '\\') ++i;
      if (c == '"') inText = false;
    } else if (c == '"') {
      inText = true;
    } else if (c == '{' || c == '[') {
      most.depth = std::max(most.depth, ++depth);
      ++most.values;
    } else if (c == '}' || c == ']') {
      --depth;
    } else if (c == ',') {
      ++most.values;
    }
  }
  return most;
}

bool isDigits(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

bool isOwn(const std::string& name) { return name.rfind(kOwnPrefix, 0) == 0; }

/// The member of an answer that carries what was asked for; empty when there is none.
std::string payloadOf(int id) {
  const CommandRow* const row = findCommand(static_cast<SysMgrCommands::sysmgr_msg_t>(id));
  if (row == nullptr || !row->isQuery()) return "";
  return row->payload != nullptr ? row->payload : row->usualMember;
}

}  // namespace

bool isQueryId(int id) {
  const CommandRow* const row = findCommand(static_cast<SysMgrCommands::sysmgr_msg_t>(id));
  return row != nullptr && row->isQuery();
}

std::string shown(const std::string& text) { return shortened(escaped(text), kMostShown); }

std::string shown(const Json::Value& value) {
  std::string text;
  const std::string why = writeWireJson(value, text);
  return why.empty() ? shown(text) : "a value that cannot be shown: " + why;
}

void Observer::found(const std::string& rule, const std::string& text) {
  std::vector<std::string>& known = findings_[rule];
  if (known.size() < kMostFindings && std::find(known.begin(), known.end(), text) == known.end()) known.push_back(text);
}

const std::vector<std::string>& Observer::findings(const std::string& rule) const {
  static const std::vector<std::string> kNone;
  const auto known = findings_.find(rule);
  return known == findings_.end() ? kNone : known->second;
}

void Observer::missed(const std::string& request) {
  found("answer-time", request + " had no answer in time");
  if (++missed_ >= kMostMissed) throw Stopped{"the daemon left " + std::to_string(missed_) + " requests unanswered"};
}

Json::Value Observer::readJson(const char* strictRule, const std::string& what, const std::string& text) {
  if (text.size() > kMaxFrameBytes)
    found("frame-size", what + " has a frame of " + std::to_string(text.size()) + " bytes");
  const Measure measure = measured(text);
  if (measure.depth > kMaxJsonDepth || measure.values > kMaxJsonValues) {
    found("json-size", what + " nests " + std::to_string(measure.depth) + " deep and has at least " +
                           std::to_string(measure.values) + " values");
    return {};
  }
  Json::Value document;
  if (const std::string why = reader_.read(text, document); !why.empty() && text.size() <= kMaxFrameBytes) {
    found(strictRule, what + " has " + shown(text) + ": " + why);
    found("json-strict", what + " has " + shown(text) + ": " + why);
  }
  return document;
}

void Observer::judgeEnvelope(const std::string& request, const Json::Value& answer) {
  const std::string what = "the answer to " + request;
  const Json::Value& status = answer[envelope::kStatus];
  if (answer.isMember(envelope::kStatus) && (!status.isInt() || status.type() == Json::realValue)) {
    found("status-type", what + " has the status " + shown(status));
  }
  const bool isNumber = status.isInt() && status.type() != Json::realValue;
  if (isNumber && isClientsStatus(status.asInt())) {
    found("reserved-statuses", what + " has the status " + shown(status));
  }
  const Json::Value& error = answer[envelope::kError];
  if (answer.isMember(envelope::kError) && !error.isString()) {
    found("error-type", what + " has the error " + shown(error));
  }
  const Json::Value& messages = answer[envelope::kAuxErrors];
  const bool areTexts = messages.isArray() && std::all_of(messages.begin(), messages.end(),
                                                          [](const Json::Value& each) { return each.isString(); });
  if (answer.isMember(envelope::kAuxErrors) && !areTexts) {
    found("error-type", what + " has the aux-errors " + shown(messages));
  }
  if (isNumber && status.asInt() < 0 && (!error.isString() || error.asString().empty())) {
    found("error-text", what + " has the status " + shown(status) + " and no error text");
  }
}

/// Judges what an answer to a query carries.
void Observer::judgePayload(const std::string& what, int id, const Json::Value& answer) {
  const Json::Value& status = answer[envelope::kStatus];
  if (status.isInt() && status.asInt() < 0) {
    found("queries-succeed", what + " is " + shown(answer));
    return;
  }
  const CommandRow* const row = findCommand(static_cast<SysMgrCommands::sysmgr_msg_t>(id));
  if (row == nullptr || row->payload == nullptr) return;
  const Json::Value& payload = answer[row->payload];
  const bool isList = id == SysMgrCommands::SYSMGR_GET_MCAST_WHITELIST;
  if (isList ? !payload.isArray() : !payload.isObject()) {
    found("payload",
          what + " has not " + (isList ? "an array" : "an object") + " in \"" + row->payload + "\": " + shown(answer));
    return;
  }
  for (const Breach& breach : judgeDocument(row->payload, payload)) found(breach.rule, breach.text);
}

Json::Value Observer::judgeAnswer(const std::string& request, int id, bool isQuery,
                                  const std::vector<std::string>& frames, Milliseconds took) {
  const std::string what = "the answer to " + request;
  if (took > kSoon) found("answer-soon", what + " took " + std::to_string(took.count()) + " ms");
  if (frames.size() != 1) {
    found("answer-object", what + " has " + std::to_string(frames.size()) + " frames");
    return {};
  }
  Json::Value document = readJson("answer-object", what, frames.front());
  if (!document.isObject()) {
    if (!document.isNull()) found("answer-object", what + " is " + shown(document));
    return {};
  }
  judgeEnvelope(request, document);
  if (isQuery) judgePayload(what, id, document);
  const std::string payload = payloadOf(id);
  for (const std::string& name : document.getMemberNames()) {
    const bool known = name == envelope::kStatus || name == envelope::kError || name == envelope::kAuxErrors ||
                       name == payload || isOwn(name);
    if (!known) found("own-members", what + " has the member \"" + shown(name) + "\"");
  }
  return document;
}

Json::Value Observer::judgeNotification(const std::vector<std::string>& frames) {
  if (frames.size() != 2 || !isDigits(frames.front())) {
    found("notification-frames", "a notification has " + std::to_string(frames.size()) +
                                     " frames, the first of which is \"" + shown(frames.front()) + "\"");
    return {};
  }
  const std::string& topic = frames.front();
  const std::string what = "a notification of " + shown(topic);
  if (topicRow(topic) == nullptr && (topic.size() != 4 || topic[0] == '0' || topic[0] == '1')) {
    found("own-topics", what + " came");
  }
  auto& arrivals = arrivals_[topic];
  const auto now = std::chrono::steady_clock::now();
  arrivals.push_back(now);
  while (now - arrivals.front() > std::chrono::seconds(1)) arrivals.pop_front();
  if (topic == kDynamicTopic && arrivals.size() > kMostInASecond) {
    found("dynamic-rate",
          "more than " + std::to_string(kMostInASecond) + " notifications of " + topic + " came in one second");
  }
  if (frames.back().empty()) return {};
  return readJson("notification-json", what, frames.back());
}

}  // namespace zel::conformance
