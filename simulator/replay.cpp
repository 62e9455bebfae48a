#include "simulator/replay.h"

#include <json/reader.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <utility>

#include "client/commands.h"
#include "common/shared/wire_json.h"
#include "simulator/judge.h"
#include "simulator/simulator.h"

namespace zel::sim {

namespace {

constexpr int kVersion = 1;
/// Holds the largest frame (1 MiB) with every byte escaped.
constexpr std::size_t kLongestLine = std::size_t{8} << 20U;
constexpr std::int64_t kLatestMs = std::int64_t{366} * 24 * 60 * 60 * 1000;
constexpr std::chrono::milliseconds kTurn{10};  // then requests have their turn

/// A document of a recording.
struct Document {
  const char* name;
  SysMgrCommands::sysmgr_msg_t command;
  std::optional<SysmgrPublisher::sysmgr_notifications_t> topic;
  const char* member;  ///< of the notification's payload that holds it; null: the payload is the document
};
const Document kDocuments[] = {
    {"stored", SysMgrCommands::SYSMGR_GET_STORED_PARAMETERS, SysmgrPublisher::SYSMGR_STORED_PARAMETERS_UPDATE, nullptr},
    {"dynamic", SysMgrCommands::SYSMGR_GET_DYNAMIC_PARAMETERS, SysmgrPublisher::SYSMGR_DYNAMIC_INFO_UPDATE, nullptr},
    {"model", SysMgrCommands::SYSMGR_GET_BOARD_MODEL, std::nullopt, nullptr},
    {"whitelist", SysMgrCommands::SYSMGR_GET_MCAST_WHITELIST, SysmgrPublisher::SYSMGR_MCAST_WHITELIST_UPDATE,
     kWhitelistMember},
};

template <class Predicate>
const Document* findDocument(Predicate isIt) {
  const auto* const found = std::find_if(std::begin(kDocuments), std::end(kDocuments), isIt);
  return found == std::end(kDocuments) ? nullptr : found;
}

/// Reads the object of a line. Its values may nest as deep as those of the wire.
std::string readObject(std::string_view line, Json::Value& object) {
  static const Json::CharReaderBuilder kBuilder = [] {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["stackLimit"] = kMaxJsonDepth + 8;
    return builder;
  }();
  const std::unique_ptr<Json::CharReader> reader(kBuilder.newCharReader());
  std::string errors;
  try {
    if (!reader->parse(line.data(), line.data() + line.size(), &object, &errors)) return "it is not a JSON object";
  } catch (const Json::Exception&) {
    return "it nests too deep";
  }
  return object.isObject() ? "" : "it is not a JSON object";
}

bool readHex(const std::string& text, std::string& bytes) {
  const auto digit = [](char c) { return std::string_view("0123456789abcdef").find(c); };
  bytes.clear();
  if (text.size() % 2 != 0) return false;
  for (std::size_t i = 0; i < text.size(); i += 2) {
    if (digit(text[i]) == std::string_view::npos || digit(text[i + 1]) == std::string_view::npos) return false;
    bytes += static_cast<char>(digit(text[i]) << 4U | digit(text[i + 1]));
  }
  return true;
}

std::string readFrames(const Json::Value& list, bool areHex, std::vector<std::string>& frames) {
  if (!list.isArray() || list.empty()) return "its frames are not a list of texts";
  for (const Json::Value& element : list) {
    if (!element.isString()) return "its frames are not a list of texts";
    frames.push_back(element.asString());
    if (areHex && !readHex(element.asString(), frames.back())) return "a frame is not a text of hexadecimal digits";
  }
  return {};
}

Outcome refused(int status, const std::string& why) {
  Outcome outcome;
  outcome.reply = refusalReply({status, why});
  return outcome;
}

}  // namespace

std::string RecordedEvent::parseHead(std::string_view line) {
  Json::Value head;
  if (!readObject(line, head).empty() || head["recording"] != "sysmgr") return "it is not a recording of sysmgrctl";
  const Json::Value& version = head["version"];
  if (version.isInt() && version.asInt() == kVersion) return {};
  return "its version is " + shown(version) + ", and only version " + std::to_string(kVersion) + " is known";
}

std::string RecordedEvent::parse(std::string_view line, RecordedEvent& event) {
  Json::Value object;
  if (std::string why = readObject(line, object); !why.empty()) return why;
  RecordedEvent made;
  const Json::Value& ms = std::as_const(object)["ms"];
  if (!ms.isInt64() || ms.asInt64() < 0 || ms.asInt64() > kLatestMs) return "it has no time";
  made.at = std::chrono::milliseconds(ms.asInt64());
  if (object.isMember("document")) {
    const Json::Value& name = object["document"];
    const auto isIt = [&name](const Document& candidate) { return name == candidate.name; };
    if (findDocument(isIt) == nullptr) return "there is no document " + shown(name);
    made.kind = object.isMember("value") ? Kind::kDocument : Kind::kMissingDocument;
    made.document = name.asString();
    made.value = std::as_const(object)["value"];
    std::string text;
    if (std::string why = writeWireJson(made.value, text); !why.empty()) return "its document is " + why;
  } else if (object.isMember("frames") || object.isMember("hex-frames")) {
    made.kind = Kind::kNotification;
    const bool areHex = object.isMember("hex-frames");
    if (std::string why = readFrames(object[areHex ? "hex-frames" : "frames"], areHex, made.frames); !why.empty()) {
      return why;
    }
  } else if (object["connection"] == "begins" || object["connection"] == "ends") {
    made.kind = object["connection"] == "begins" ? Kind::kConnectionBegins : Kind::kConnectionEnds;
  } else {
    return "it is not an event";
  }
  event = std::move(made);
  return {};
}

// --- the file

/// Reads a line without its end. @return false where there is none, or where it is cut off
bool Replay::readNext(std::string& line) {
  constexpr int kEnd = std::ifstream::traits_type::eof();
  line.clear();
  for (int c; (c = file_.rdbuf()->sbumpc()) != kEnd;) {
    if (c == '\n' || line.size() > kLongestLine) return true;
    line += static_cast<char>(c);
  }
  return false;
}

/// Reads the whole file, and counts the lines that can be replayed.
std::string Replay::check(std::string& cut) {
  std::string line;
  const std::string name = path_ + ", line ";
  std::chrono::milliseconds latest{0};
  linesLeft_ = 0;
  for (std::uint64_t number = 1;; ++number) {
    const bool whole = readNext(line);
    if (!whole) {
      if (number == 1) return path_ + ": it is not a recording of sysmgrctl";
      if (!line.empty()) cut = name + std::to_string(number) + " is cut off; the recording is replayed up to there";
      return {};
    }
    RecordedEvent event;
    std::string why = number == 1 ? RecordedEvent::parseHead(line) : RecordedEvent::parse(line, event);
    if (why.empty() && event.at < latest) why = "its time is before that of the line above";
    if (line.size() > kLongestLine) why = "it is longer than 8 MiB";
    if (!why.empty()) return (name + std::to_string(number)).append(": ").append(why);
    latest = event.at;
    if (number > 1) ++linesLeft_;
  }
}

std::string Replay::open(const std::string& path, std::string& cut) {
  path_ = path;
  file_.open(path, std::ios::binary);
  if (!file_) return path + " cannot be read";
  cut.clear();
  if (std::string why = check(cut); !why.empty()) return why;
  file_.clear();
  if (!file_.seekg(0)) return path + " is not a regular file";
  std::string head;
  readNext(head);
  takeNext();
  while (next_ && next_->kind != RecordedEvent::Kind::kNotification &&
         next_->kind != RecordedEvent::Kind::kConnectionEnds) {
    zero_ = next_->at;
    step();
  }
  return {};
}

void Replay::takeNext() {
  next_.reset();
  std::string line;
  RecordedEvent event;
  if (linesLeft_ == 0 || !readNext(line) || !RecordedEvent::parse(line, event).empty()) return;
  --linesLeft_;
  next_ = std::move(event);
}

void Replay::step() {
  const RecordedEvent& event = *next_;
  if (event.kind == RecordedEvent::Kind::kDocument) documents_[event.document] = event.value;
  if (event.kind == RecordedEvent::Kind::kMissingDocument) documents_.erase(event.document);
  if (event.kind == RecordedEvent::Kind::kNotification && event.frames.size() == 2) {
    const Document* const document = findDocument([&event](const Document& candidate) {
      return candidate.topic && event.frames[0] == SysmgrPublisher::topicOf(*candidate.topic);
    });
    Json::Value payload;
    if (document != nullptr && WireJsonReader().read(event.frames[1], payload).empty() && payload.isObject()) {
      documents_[document->name] = document->member == nullptr ? payload : payload[document->member];
    }
  }
  takeNext();
}

// --- in place of a board

Outcome Replay::handle(unsigned int id, const Json::Value&) const {
  const Document* const document =
      findDocument([id](const Document& candidate) { return static_cast<unsigned int>(candidate.command) == id; });
  if (document == nullptr) {
    return refused(refusal::kRecording, "This board is a recording: it answers commands 0, 1, 3 and 16 only.");
  }
  const auto found = documents_.find(document->name);
  if (found == documents_.end()) {
    return refused(refusal::kRecording,
                   std::string("This board is a recording, which holds no document \"") + document->name + "\".");
  }
  Outcome outcome;
  outcome.reply["status"] = status::kOk;
  outcome.reply[findCommand(document->command)->payload] = found->second;
  return outcome;
}

std::optional<Notification> Replay::current(SysmgrPublisher::sysmgr_notifications_t topic) const {
  const Document* const document =
      findDocument([topic](const Document& candidate) { return candidate.topic == topic; });
  const auto found = document == nullptr ? documents_.end() : documents_.find(document->name);
  if (found == documents_.end()) return std::nullopt;
  Notification notification{topic, found->second};
  if (document->member != nullptr) {
    notification.payload = Json::Value(Json::objectValue);
    notification.payload[document->member] = found->second;
  }
  return notification;
}

// --- in time

void Replay::start(Simulator& simulator) {
  simulator.post([this, &simulator] {
    simulator.observe([this, &simulator](unsigned int) {
      if (start_) return;
      start_ = Clock::now();
      goOn(simulator);
    });
  });
}

void Replay::goOn(Simulator& simulator) {
  const auto turnEnds = Clock::now() + kTurn;
  while (next_) {
    const std::chrono::duration<double, std::milli> passed = (next_->at - zero_) / speed_;
    const auto due = *start_ + std::chrono::duration_cast<Clock::duration>(passed);
    if (due > Clock::now() || Clock::now() > turnEnds) {
      return simulator.at(due, [this, &simulator] { goOn(simulator); });
    }
    const RecordedEvent event = *next_;
    step();
    show(event, simulator);
  }
  simulator.tell("the recording " + path_ + " is over");
}

void Replay::show(const RecordedEvent& event, Simulator& simulator) {
  switch (event.kind) {
    case RecordedEvent::Kind::kNotification: return simulator.publishFrames(event.frames);
    case RecordedEvent::Kind::kConnectionBegins:
      if (const std::string why = simulator.comeBack(); !why.empty()) simulator.tell(why);
      return;
    case RecordedEvent::Kind::kConnectionEnds: return simulator.leave();
    case RecordedEvent::Kind::kDocument:
    case RecordedEvent::Kind::kMissingDocument: return;
  }
}

}  // namespace zel::sim
