#include "simulator/fault.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <sstream>
#include <utility>

#include "common/shared/escape.h"
#include "common/shared/wire_json.h"
#include "simulator/refusal.h"
#include "simulator/store.h"

namespace zel::sim {

namespace {

constexpr unsigned int kDefaultDelayMs = 1000;
constexpr unsigned int kDefaultLateMs = 6000;  // later than a client waits
constexpr unsigned int kDefaultCrashMs = 100;
constexpr int kDefaultStatus = -50;
constexpr unsigned int kDefaultBurst = 100;

template <class Number>
bool readNumber(const std::string& text, Number& number) {
  const char* const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, number);
  return result.ec == std::errc() && result.ptr == end && !text.empty();
}

/// Reads the number of a parameter that a rule may have.
template <class Number>
bool readOptional(const std::string& text, std::optional<Number>& place) {
  Number number{};
  if (!readNumber(text, number)) return false;
  place = number;
  return true;
}

/// The words of an order; double quotes hold a word with blanks together.
std::string splitWords(const std::string& text, std::vector<std::string>& words) {
  bool inWord = false;
  bool quoted = false;
  for (const char c : text) {
    const bool isBlank = c == ' ' || c == '\t' || c == '\r';
    if (isBlank && !quoted) {
      inWord = false;
      continue;
    }
    if (!inWord) words.emplace_back();
    inWord = true;
    if (c == '"') {
      quoted = !quoted;
    } else {
      words.back() += c;
    }
  }
  return quoted ? "a double quote is not closed" : "";
}

/// The member of an answer at a path, "stored/rtsp/tcp-port"; made where it is missing.
Json::Value& memberAt(Json::Value& reply, const std::string& path) {
  Json::Value* at = &reply;
  std::istringstream steps(path);
  for (std::string step; std::getline(steps, step, '/');) {
    if (!at->isObject()) *at = Json::Value(Json::objectValue);
    at = &(*at)[step];
  }
  return *at;
}

/// The first member that carries what was asked for; the status of an answer that carries nothing.
std::string firstPayloadMember(const Json::Value& reply) {
  for (const std::string& name : reply.getMemberNames()) {
    if (name != "status" && name != "error" && name != "aux-errors") return name;
  }
  return "status";
}

}  // namespace

struct FaultRule::Kind {
  const char* name;
  const char* parameters;  ///< the names of those that it takes
  const char* meaning;
  void (*apply)(const FaultRule& rule, Exchange& exchange);

  bool takes(const std::string& parameter) const {
    std::istringstream names(parameters);
    return std::find(std::istream_iterator<std::string>(names), {}, parameter) != std::istream_iterator<std::string>();
  }
};

const std::vector<FaultRule::Kind>& FaultRule::kinds() {
  static const std::vector<Kind> kKinds = {
      {"delay", "ms", "the request waits ms (1000) before it is served; others are served meanwhile",
       [](const FaultRule& rule, Exchange& exchange) {
         exchange.actAfter = std::chrono::milliseconds(rule.ms_.value_or(kDefaultDelayMs));
       }},
      {"silence", "", "the request is dropped: nothing is done and nothing is answered",
       [](const FaultRule&, Exchange& exchange) {
         exchange.acts = false;
         exchange.answers = 0;
       }},
      {"refuse", "status text", "nothing is done; the answer has a negative status (-50) and an error text",
       [](const FaultRule& rule, Exchange& exchange) {
         exchange.acts = false;
         exchange.editReply = [status = rule.status_.value_or(kDefaultStatus),
                               text = rule.text_.value_or("Refused on demand.")](Json::Value& reply) {
           reply = Json::Value(Json::objectValue);
           reply["status"] = status;
           reply["error"] = text;
         };
       }},
      {"late", "ms", "the request is carried out at once and answered after ms (6000)",
       [](const FaultRule& rule, Exchange& exchange) {
         exchange.answerAfter = std::chrono::milliseconds(rule.ms_.value_or(kDefaultLateMs));
       }},
      {"double", "", "the answer comes twice", [](const FaultRule&, Exchange& exchange) { exchange.answers = 2; }},
      {"garbage", "text", "the answer is a text that is no JSON",
       [](const FaultRule& rule, Exchange& exchange) {
         exchange.editText = [garbage = rule.text_.value_or("{no JSON")](std::string& text) { text = garbage; };
       }},
      {"truncate", "bytes", "only the first bytes of the answer (half of it) are sent",
       [](const FaultRule& rule, Exchange& exchange) {
         exchange.editText = [bytes = rule.bytes_](std::string& text) {
           text.resize(std::min<std::size_t>(text.size(), bytes.value_or(static_cast<unsigned int>(text.size() / 2))));
         };
       }},
      {"oversize", "bytes", "the answer is filled up with blanks to bytes (one more than a frame may have)",
       [](const FaultRule& rule, Exchange& exchange) {
         exchange.editText = [bytes = rule.bytes_.value_or(kMaxFrameBytes + 1)](std::string& text) {
           text.resize(std::max<std::size_t>(text.size(), bytes), ' ');
         };
       }},
      {"unknown-member", "member", "the answer has a member (\"unknown-member\", or a path) that nobody knows",
       [](const FaultRule& rule, Exchange& exchange) {
         exchange.editReply = [path = rule.member_.value_or("unknown-member")](Json::Value& reply) {
           memberAt(reply, path)["nobody"] = "knows me";
         };
       }},
      {"wrong-type", "member", "a member of the answer (the payload, or a path) has an array with a text in its place",
       [](const FaultRule& rule, Exchange& exchange) {
         exchange.editReply = [path = rule.member_](Json::Value& reply) {
           Json::Value& member = memberAt(reply, path.value_or(firstPayloadMember(reply)));
           member = Json::Value(Json::arrayValue);
           member.append("of the wrong type");
         };
       }},
      {"crash-before", "", "the process is gone before anything is done",
       [](const FaultRule&, Exchange& exchange) { exchange.crash = Exchange::Crash::kBeforeActing; }},
      {"crash-unanswered", "", "the request is carried out, then the process is gone without an answer",
       [](const FaultRule&, Exchange& exchange) { exchange.crash = Exchange::Crash::kBeforeAnswering; }},
      {"crash-after", "ms", "the request is answered, and ms (100) later the process is gone",
       [](const FaultRule& rule, Exchange& exchange) {
         exchange.crash = Exchange::Crash::kAfterAnswering;
         exchange.crashAfter = std::chrono::milliseconds(rule.ms_.value_or(kDefaultCrashMs));
       }},
      {"burst", "count", "count (100) notifications of the dynamic information come before the answer",
       [](const FaultRule& rule, Exchange& exchange) { exchange.burst = rule.count_.value_or(kDefaultBurst); }},
  };
  return kKinds;
}

struct FaultRule::Parameter {
  const char* name;
  bool ofEveryKind;
  const char* wanted;
  bool (*read)(const std::string& text, FaultRule& rule);
};

const std::vector<FaultRule::Parameter>& FaultRule::parameters() {
  static const std::vector<Parameter> kParameters = {
      {"do", true, "one of the faults",
       [](const std::string& text, FaultRule& rule) {
         for (const Kind& kind : kinds()) {
           if (text == kind.name) rule.kind_ = &kind;
         }
         return rule.kind_ != nullptr;
       }},
      {"command", true, "a command id, or any",
       [](const std::string& text, FaultRule& rule) { return text == "any" || readOptional(text, rule.command_); }},
      {"times", true, "a number from 1, or always",
       [](const std::string& text, FaultRule& rule) {
         if (text == "always") {
           rule.times_ = 0;
           return true;
         }
         return readNumber(text, rule.times_) && rule.times_ > 0;
       }},
      {"ms", false, "milliseconds",
       [](const std::string& text, FaultRule& rule) { return readOptional(text, rule.ms_); }},
      {"status", false, "a negative number",
       [](const std::string& text, FaultRule& rule) { return readOptional(text, rule.status_) && *rule.status_ < 0; }},
      {"text", false, "a text",
       [](const std::string& text, FaultRule& rule) {
         rule.text_ = text;
         return true;
       }},
      {"bytes", false, "a number of bytes",
       [](const std::string& text, FaultRule& rule) { return readOptional(text, rule.bytes_); }},
      {"member", false, "a member's name, or a path like stored/rtsp/tcp-port",
       [](const std::string& text, FaultRule& rule) {
         rule.member_ = text;
         return !text.empty();
       }},
      {"count", false, "a number",
       [](const std::string& text, FaultRule& rule) { return readOptional(text, rule.count_); }},
  };
  return kParameters;
}

std::string FaultRule::parse(const std::string& text, FaultRule& rule) {
  std::vector<std::string> words;
  if (std::string why = splitWords(text, words); !why.empty()) return why;

  FaultRule made;
  std::vector<std::string> ofSomeKinds;
  for (const std::string& word : words) {
    const std::string name = word.substr(0, word.find('='));
    const std::string shown = escaped(word);
    if (name.size() == word.size()) return "\"" + shown + "\" is not name=value";
    const std::string value = word.substr(name.size() + 1);
    const auto known = std::find_if(parameters().begin(), parameters().end(),
                                    [&name](const Parameter& parameter) { return name == parameter.name; });
    if (known == parameters().end()) return "\"" + escaped(name) + "\" is not a parameter";
    if (!known->read(value, made)) return shown + ": " + known->wanted + " is wanted";
    if (!known->ofEveryKind) ofSomeKinds.push_back(name);
  }
  if (made.kind_ == nullptr) return "do=FAULT is missing";
  for (const std::string& name : ofSomeKinds) {
    if (!made.kind_->takes(name)) return std::string("do=") + made.kind_->name + " has no parameter " + name;
  }
  rule = made;
  return {};
}

std::string FaultRule::parseFile(const std::string& path, std::vector<FaultRule>& rules) {
  std::string text;
  if (std::string why = readTextFile(path, text); !why.empty()) return why;
  std::istringstream file(text);
  std::vector<FaultRule> read;
  int number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    const std::size_t start = line.find_first_not_of(" \t\r");
    if (start == std::string::npos || line[start] == '#') continue;
    FaultRule rule;
    if (const std::string why = parse(line, rule); !why.empty()) {
      return std::string(path).append(", line ").append(std::to_string(number)).append(": ").append(why);
    }
    read.push_back(rule);
  }
  rules.insert(rules.end(), read.begin(), read.end());
  return {};
}

std::string FaultRule::help() {
  std::string text =
      "Faults: do=FAULT [command=ID|any] [times=N|always] [parameters]. A fault strikes the next N (1) requests with "
      "the\n"
      "command ID (any); of several that concern a request the first strikes.\n";
  for (const Kind& kind : kinds()) {
    std::string words = kind.name;
    std::istringstream names(kind.parameters);
    for (std::string name; names >> name;) words.append(" ").append(name).append("=...");
    words.resize(std::max<std::size_t>(words.size(), 28), ' ');
    text.append("  ").append(words).append(" ").append(kind.meaning).append("\n");
  }
  text +=
      "Examples:\n"
      "  --fault-rule 'do=delay command=2 ms=300 times=3'\n"
      "  --fault-rule 'do=refuse command=6 status=-5 text=\"not today\" times=always'\n"
      "  --fault-rule 'do=wrong-type command=0 member=stored/rtsp/tcp-port'\n"
      "  --fault FILE: one a line, # starts a comment; on SIGUSR1 the file's orders replace those before\n";
  return text;
}

void FaultRule::applyTo(Exchange& exchange) const {
  exchange.fault = kind_->name;
  kind_->apply(*this, exchange);
}

void FaultInjector::add(const FaultRule& rule) {
  const std::lock_guard<std::mutex> lock(mutex_);
  rules_.push_back(rule);
}

void FaultInjector::replaceAll(std::vector<FaultRule> rules) {
  const std::lock_guard<std::mutex> lock(mutex_);
  rules_ = std::move(rules);
}

Exchange FaultInjector::next(unsigned int id) {
  const std::lock_guard<std::mutex> lock(mutex_);
  Exchange exchange;
  const auto rule =
      std::find_if(rules_.begin(), rules_.end(), [id](const FaultRule& candidate) { return candidate.concerns(id); });
  if (rule == rules_.end()) return exchange;
  rule->applyTo(exchange);
  if (rule->times_ > 0 && --rule->times_ == 0) rules_.erase(rule);
  return exchange;
}

}  // namespace zel::sim
