#include "simulator/orders.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <optional>
#include <thread>
#include <utility>

#include "client/commands.h"
#include "common/shared/element_names.h"
#include "common/shared/format_text.h"
#include "common/shared/wire_json.h"
#include "simulator/current.h"
#include "simulator/factory.h"
#include "simulator/judge.h"
#include "simulator/simulator.h"

namespace zel::sim {

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t'; }

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && (isBlank(text.back()) || text.back() == '\r')) text.remove_suffix(1);
  return text;
}

/// Takes the first word off; double quotes hold a word with blanks together. @return empty, or what is wrong with it
std::string takeWord(std::string_view& text, std::string& word) {
  text = trimmed(text);
  word.clear();
  bool quoted = false;
  while (!text.empty() && (quoted || !isBlank(text.front()))) {
    if (text.front() == '"') {
      quoted = !quoted;
    } else {
      word += text.front();
    }
    text.remove_prefix(1);
  }
  text = trimmed(text);
  return quoted ? "a double quote is not closed" : "";
}

// --- documents

/// A document that can be changed by an order.
struct Document {
  const char* name;         ///< in orders
  const char* stateMember;  ///< in a state document
  bool whole;               ///< a state document replaces it as a whole; otherwise the members that it has
  std::function<Json::Value(const Board& board)> of;
};

std::vector<Document> allDocuments() {
  std::vector<Document> all;
  const Json::Value own = factoryOwnDocuments({}, "");
  for (const CommandRow& row : kCommands) {
    if (row.payload == nullptr || row.id == SysMgrCommands::SYSMGR_GET_MCAST_WHITELIST) continue;
    all.push_back({row.document, row.payload, own.isMember(row.payload),
                   [&row](const Board& board) { return answerOf(board, row.id)[row.payload]; }});
  }
  // Without the system's own entries, which stay.
  all.push_back(
      {"whitelist", kWhitelistMember, true, [](const Board& board) { return board.keptState()[kWhitelistMember]; }});
  all.push_back({"gpio", "gpio", false, [](const Board& board) {
                   return answerOf(board, SysMgrCommands::SYSMGR_GET_GPIO_CONFIGURATION)["gpio"];
                 }});
  all.push_back({"modules", "module-state", false, [](const Board& board) {
                   return answerOf(board, SysMgrCommands::SYSMGR_GET_INTERNAL_DEBUG_INFO)["debug-info"]["module-state"];
                 }});
  return all;
}

const std::vector<Document>& documents() {
  static const std::vector<Document> kDocuments = allDocuments();
  return kDocuments;
}

const Document* findDocument(std::string_view name) {
  const auto found = std::find_if(documents().begin(), documents().end(),
                                  [name](const Document& document) { return document.name == name; });
  return found == documents().end() ? nullptr : &*found;
}

// --- places in documents

/// The steps that lead from a value to the values in it.
std::vector<std::pair<std::string, Json::Value*>> stepsOf(Json::Value& value) {
  std::vector<std::pair<std::string, Json::Value*>> steps;
  if (value.isObject()) {
    for (auto member = value.begin(); member != value.end(); ++member) steps.emplace_back(member.name(), &*member);
  }
  if (value.isArray()) {
    for (Json::Value& element : value) {
      if (const std::string name = nameOfElement(element); !name.empty()) steps.emplace_back(name, &element);
    }
    for (Json::ArrayIndex i = 0; i < value.size(); ++i) steps.emplace_back(std::to_string(i), &value[i]);
  }
  return steps;
}

/// A place for a value in a document.
struct Place {
  Json::Value* parent = nullptr;
  Json::Value* value = nullptr;  ///< null where there is nothing yet
  std::string newStep;           ///< the last step then
};

/// Finds a place. New may be a member of an object, as the last step, and the number behind the last element of a list,
/// which is appended where steps follow it.
/// @return empty, or why there is no such place
std::string find(Json::Value& from, const std::string& path, Place& place) {
  std::vector<std::string> names;
  for (const auto& [step, child] : stepsOf(from)) {
    if (path == step) {
      place = {&from, child, ""};
      return {};
    }
    // A name may hold a slash itself, so the steps are tried and not cut out of the path.
    if (path.compare(0, step.size(), step) == 0 && path[step.size()] == '/') {
      return find(*child, path.substr(step.size() + 1), place);
    }
    names.push_back(step);
  }
  const std::size_t end = path.find('/');
  const bool isLast = end == std::string::npos;
  const bool isBehindLast = from.isArray() && path.substr(0, end) == std::to_string(from.size());
  if (isBehindLast && !isLast) return find(from.append(Json::objectValue), path.substr(end + 1), place);
  if (isLast && (from.isObject() || isBehindLast)) {
    place = {&from, nullptr, path};
    return {};
  }
  if (from.isArray()) names.resize(std::min<std::size_t>(names.size(), from.size()));  // the names, or else the numbers
  const std::string missing = "there is no \"" + shownBytes(path.substr(0, path.find('/'))) + "\"";
  if (names.empty()) return missing + "; the value before it has nothing in it";
  constexpr std::size_t kMostNames = 20;
  if (names.size() > kMostNames) names.erase(names.begin() + kMostNames, names.end());
  return missing + "; there are: " + shownBytes(listed(names));
}

/// A word as a value: JSON where it is JSON, except where a text is wanted; a text otherwise.
Json::Value valueOf(const std::string& word, bool textWanted) {
  Json::Value value;
  if (!WireJsonReader().read(word, value).empty()) return word;
  return textWanted && !value.isString() ? Json::Value(word) : value;
}

void removeFrom(Json::Value& list, const Json::Value* element) {
  for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
    if (&list[i] != element) continue;
    Json::Value removed;
    list.removeIndex(i, &removed);
    return;
  }
}

/// A value for a place of a document. @param textWanted  whether there is a text at the place
using ValueFor = std::function<Json::Value(bool textWanted)>;

/// Sets the value at a place of a document; null takes an element out of a list.
std::string setAt(Json::Value& document, const std::string& path, const ValueFor& valueFor) {
  if (path.empty()) {
    document = valueFor(false);
    return {};
  }
  Place place;
  if (std::string why = find(document, path, place); !why.empty()) return why;
  const Json::Value value = valueFor(place.value != nullptr && place.value->isString());
  if (place.value == nullptr && place.parent->isObject()) {
    (*place.parent)[place.newStep] = value;
  } else if (place.value == nullptr && value.isNull()) {
    return "there is no element \"" + shownBytes(place.newStep) + "\" to remove";
  } else if (place.value == nullptr) {
    place.parent->append(value);
  } else if (value.isNull() && place.parent->isArray()) {
    removeFrom(*place.parent, place.value);
  } else {
    *place.value = value;
  }
  return {};
}

std::string topStepOf(const std::string& path, const Json::Value& document) {
  for (const std::string& name : document.getMemberNames()) {
    if (path == name || (path.compare(0, name.size(), name) == 0 && path[name.size()] == '/')) return name;
  }
  return {};
}

/// The state document that has only the changed member of the document, where the others would stay by themselves.
Json::Value stateDocument(const Document& document, const std::string& path, const Json::Value& changed) {
  Json::Value state(Json::objectValue);
  if (document.whole || path.empty()) {
    state[document.stateMember] = changed;
  } else {
    const std::string top = topStepOf(path, changed);
    state[document.stateMember][top] = changed[top];
  }
  return state;
}

Outcome refused(int status, const std::string& why) {
  Outcome outcome;
  outcome.reply = refusalReply({status, why});
  return outcome;
}

Outcome changeDocument(Board& board, const Document& document, const std::string& path, const ValueFor& valueFor,
                       const Board::Keep& keep) {
  Json::Value changed = document.of(board);
  if (const std::string why = setAt(changed, path, valueFor); !why.empty()) {
    return refused(refusal::kNotFound, std::string(document.name) + " " + shownBytes(path) + ": " + why + ".");
  }
  return board.alter(stateDocument(document, path, changed), keep);
}

// --- frames

std::optional<unsigned int> hexDigit(char c) {
  const std::string_view kDigits = "0123456789abcdef";
  const std::size_t value = kDigits.find(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
  return value == std::string_view::npos ? std::nullopt : std::optional(static_cast<unsigned int>(value));
}

/// Reads the escapes of a word: "\x0a" is a byte, "\\" a backslash.
std::string unescape(const std::string& word, std::string& bytes) {
  bytes.clear();
  for (std::size_t i = 0; i < word.size(); ++i) {
    if (word[i] != '\\') {
      bytes += word[i];
      continue;
    }
    const std::string escape = word.substr(i + 1, 3);
    if (escape[0] == '\\') {
      bytes += '\\';
      i += 1;
      continue;
    }
    const auto high = escape.size() == 3 && escape[0] == 'x' ? hexDigit(escape[1]) : std::nullopt;
    const auto low = high ? hexDigit(escape[2]) : std::nullopt;
    if (!low) return "a backslash is not followed by another one or by x and two hexadecimal digits";
    bytes += static_cast<char>(*high << 4U | *low);
    i += 3;
  }
  return {};
}

// --- requests

std::string lineOf(const ServedRequest& request) {
  Json::Value line(Json::objectValue);
  line["number"] = Json::UInt64(request.number);
  line["ms"] = Json::Int64(request.at.count());
  line["command"] = request.id;
  line["status"] = request.status;
  if (request.fault != nullptr) line["fault"] = request.fault;
  if (!request.body.empty()) {
    Json::Value body;
    const bool isJson = WireJsonReader().read(request.body, body).empty();
    line[isJson ? "body" : "bytes"] = isJson ? body : Json::Value(shownBytes(request.body));
  }
  std::string text;
  if (writeWireJson(line, text).empty()) return text;
  line.removeMember("body");  // so large or deep that it does not fit into a line
  line["bytes"] = shownBytes(request.body);
  writeWireJson(line, text);
  return text;
}

OrderResult listRequests(Simulator& simulator) {
  OrderResult result;
  for (const ServedRequest& request : simulator.requests()) result.lines.push_back(lineOf(request));
  return result;
}

}  // namespace

// --- the orders

struct Order::Kind {
  const char* words;  ///< those that choose it
  const char* arguments;
  const char* meaning;
  std::string (*parse)(std::string_view rest, Order& order);  ///< reads what follows the words

  /// @return what follows the words, or nothing where the line does not begin with them
  std::optional<std::string_view> rest(std::string_view line) const {
    const std::string_view wanted = words;
    if (line.substr(0, wanted.size()) != wanted) return std::nullopt;
    line.remove_prefix(wanted.size());
    if (!line.empty() && !isBlank(line.front())) return std::nullopt;
    return trimmed(line);
  }
};

namespace {

/// An order that has no arguments.
template <class Act>
std::string bare(std::string_view rest, std::function<OrderResult(Simulator&)>& act, Act does) {
  if (!rest.empty()) return "\"" + shownBytes(rest) + "\" is too much";
  act = [does](Simulator& simulator) {
    OrderResult result;
    does(simulator);
    return result;
  };
  return {};
}

}  // namespace

const std::vector<Order::Kind>& Order::kinds() {
  static const std::vector<Kind> kKinds = {
      {"publish", "TOPIC [PAYLOAD]", "publishes a notification; the payload is sent as it is, JSON or not",
       [](std::string_view rest, Order& order) -> std::string {
         std::string topic;
         if (std::string why = takeWord(rest, topic); !why.empty()) return why;
         if (topic.empty()) return "TOPIC is missing";
         order.act_ = [frames = std::vector<std::string>{topic, std::string(rest)}](Simulator& simulator) {
           simulator.publishFrames(frames);
           return OrderResult();
         };
         return {};
       }},
      {"publish-frames", "FRAME...", "publishes any number of frames; \\x0a is a byte, \\\\ a backslash",
       [](std::string_view rest, Order& order) -> std::string {
         std::vector<std::string> frames;
         while (!rest.empty()) {
           std::string word;
           if (std::string why = takeWord(rest, word); !why.empty()) return why;
           frames.emplace_back();
           if (std::string why = unescape(word, frames.back()); !why.empty()) return why;
         }
         if (frames.empty()) return "FRAME is missing";
         order.act_ = [frames](Simulator& simulator) {
           simulator.publishFrames(frames);
           return OrderResult();
         };
         return {};
       }},
      {"fault", "RULE", "adds a fault rule, as --fault-rule does",
       [](std::string_view rest, Order& order) -> std::string {
         FaultRule rule;
         if (std::string why = FaultRule::parse(std::string(rest), rule); !why.empty()) return why;
         order.act_ = [rule](Simulator& simulator) {
           simulator.faults().add(rule);
           return OrderResult();
         };
         return {};
       }},
      {"faults clear", "", "removes all fault rules",
       [](std::string_view rest, Order& order) {
         return bare(rest, order.act_, [](Simulator& simulator) { simulator.faults().replaceAll({}); });
       }},
      {"stop", "", "requests are not served any more, they wait; notifications go on",
       [](std::string_view rest, Order& order) {
         return bare(rest, order.act_, [](Simulator& simulator) { simulator.setServing(false); });
       }},
      {"continue", "", "serves the requests that wait, and those that come",
       [](std::string_view rest, Order& order) {
         return bare(rest, order.act_, [](Simulator& simulator) { simulator.setServing(true); });
       }},
      {"away", "", "closes both ports, as the end of the daemon does",
       [](std::string_view rest, Order& order) {
         order.endsConnections_ = true;
         return bare(rest, order.act_, [](Simulator& simulator) { simulator.leave(); });
       }},
      {"back", "", "opens them again",
       [](std::string_view rest, Order& order) {
         std::string why = bare(rest, order.act_, [](Simulator&) {});
         order.act_ = [](Simulator& simulator) {
           const std::string failure = simulator.comeBack();
           return OrderResult{failure.empty() ? OrderResult::kDone : OrderResult::kFailed, failure, {}};
         };
         return why;
       }},
      {"drop", "", "ends every connection; the clients connect again by themselves",
       [](std::string_view rest, Order& order) {
         order.endsConnections_ = true;
         return bare(rest, order.act_, [](Simulator& simulator) { simulator.dropConnections(); });
       }},
      {"requests clear", "", "forgets the requests",
       [](std::string_view rest, Order& order) {
         return bare(rest, order.act_, [](Simulator& simulator) { simulator.forgetRequests(); });
       }},
      {"requests", "", "lists the last 1000 requests, a JSON object a line",
       [](std::string_view rest, Order& order) {
         std::string why = bare(rest, order.act_, [](Simulator&) {});
         order.act_ = listRequests;
         return why;
       }},
  };
  return kKinds;
}

std::string Order::parseChange(const std::string& name, std::string_view words, Order& order) {
  const Document& document = *findDocument(name);
  std::string path;
  std::string_view rest = words;
  const bool isJson = !words.empty() && (words.front() == '{' || words.front() == '[');  // the document itself
  if (!isJson) {
    if (std::string why = takeWord(rest, path); !why.empty()) return why;
    if (path.empty()) return "PATH is missing";
  }
  if (rest.empty()) return "VALUE is missing";
  order.change_ = [&document, path, word = std::string(rest)](Board& board, const Board::Keep& keep) {
    return changeDocument(
        board, document, path, [&](bool textWanted) { return valueOf(word, textWanted); }, keep);
  };
  order.act_ = [change = order.change_](Simulator& simulator) {
    const Outcome outcome = simulator.alter(change);
    OrderResult result;
    if (!outcome.accepted()) result = {OrderResult::kFailed, outcome.reply["error"].asString(), {}};
    for (const Json::Value& warning : outcome.reply["aux-errors"]) result.lines.push_back(warning.asString());
    return result;
  };
  return {};
}

std::string Order::parse(std::string_view line, Order& order) {
  line = trimmed(line);
  Order made;
  std::string why;
  if (line.find_first_of(std::string_view("\n\0", 2)) != std::string_view::npos) return "an order is one line of text";
  for (const Kind& kind : kinds()) {
    const auto rest = kind.rest(line);
    if (!rest) continue;
    why = kind.parse(*rest, made);
    if (!why.empty()) return std::string(kind.words) + ": " + why;
    order = std::move(made);
    return {};
  }
  const std::string word(line.substr(0, line.find_first_of(" \t")));
  if (findDocument(word) == nullptr) {
    return word.empty() ? "an order is missing" : "\"" + shownBytes(word) + "\" is not an order";
  }
  why = parseChange(word, trimmed(line.substr(word.size())), made);
  if (!why.empty()) return word + ": " + why;
  order = std::move(made);
  return {};
}

std::string Order::help() {
  std::vector<std::string> names;
  for (const Document& document : documents()) names.emplace_back(document.name);
  std::string text =
      "Orders:\n"
      "  DOCUMENT PATH VALUE         sets a value, and publishes the document as after a request\n"
      "  DOCUMENT JSON               sets a piece of the document, as a state file does\n";
  for (const Kind& kind : kinds()) {
    std::string words = std::string("  ") + kind.words + " " + kind.arguments;
    words.resize(std::max<std::size_t>(words.size(), 29), ' ');
    text.append(words).append(" ").append(kind.meaning).append("\n");
  }
  text += "Documents: " + listed(names) +
          ".\n"
          "PATH is as 'sysmgrctl get' shows it; an element of a list goes by its name or its number. VALUE is JSON,\n"
          "or else a text; null removes an element of a list.\n";
  return text;
}

std::string Order::tryOn(Board& board) const {
  if (!change_) return {};
  const Outcome outcome = change_(board, {});
  return outcome.accepted() ? "" : outcome.reply["error"].asString();
}

void waitForFetchedAnswers(Simulator& simulator) {
  const auto time = simulator.await([&simulator] { return simulator.answersAreFetched(); });
  if (time) std::this_thread::sleep_until(*time);
}

OrderResult tell(Simulator& simulator, std::string_view line) {
  Order order;
  if (std::string why = Order::parse(line, order); !why.empty()) return {OrderResult::kNotUnderstood, why, {}};
  if (order.endsConnections()) waitForFetchedAnswers(simulator);
  const auto result = simulator.await([&] { return order.carryOut(simulator); });
  return result.value_or(OrderResult{OrderResult::kFailed, "the simulator has ended", {}});
}

Outcome setValue(Board& board, const std::string& document, const std::string& path, const Json::Value& value,
                 const Board::Keep& keep) {
  const Document* const known = findDocument(document);
  if (known == nullptr) return refused(refusal::kNotFound, "there is no document \"" + shownBytes(document) + "\".");
  return changeDocument(
      board, *known, path, [&value](bool) { return value; }, keep);
}

std::optional<Json::Value> documentNamed(const Board& board, const std::string& name) {
  const Document* const known = findDocument(name);
  return known == nullptr ? std::nullopt : std::optional(known->of(board));
}

}  // namespace zel::sim
