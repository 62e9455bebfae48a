#include "cli/board.h"

#include <charconv>
#include <utility>

#include "cli/output.h"
#include "client/zmq_utils.h"
#include "types/whitelist.h"

namespace zel::ctl {

namespace {

constexpr const char* kReplyMembers[] = {"status", "error", "aux-errors"};  // around the payload, in every answer

template <int (SysMgrJsonClient::*kQuery)(Json::Value&)>
int ask(SysMgrJsonClient& client, Json::Value& reply) {
  return (client.*kQuery)(reply);
}

int askForAllGpioLines(SysMgrJsonClient& client, Json::Value& reply) {
  Json::Value noneNamed(Json::objectValue);
  return client.getGpioConfiguration(noneNamed, reply);
}

Failure wrongType(const std::string& name, const std::string& why) {
  return {Exit::kBadAnswer, std::string("cannot read ") + documentOf(name).what + ": " + why,
          "'sysmgrctl get " + name + "' shows the document as the daemon sends it"};
}

}  // namespace

const std::vector<Document>& documents() {
  static const std::vector<Document> kDocuments = {
      {"stored", "the stored parameters", "the configuration that the daemon keeps",
       ask<&SysMgrJsonClient::getStoredParameters>, "stored"},
      {"dynamic", "the dynamic information", "the state of interfaces, temperatures, fans, errors",
       ask<&SysMgrJsonClient::getDynamicParameters>, "dynamic"},
      {"model", "the board model", "which board this is and the bitstream that it runs",
       ask<&SysMgrJsonClient::getBoardModel>, "board-model"},
      {"info", "the system information", "what the daemon tells about the system",
       ask<&SysMgrJsonClient::getSystemInfo>, "systemInfo"},
      {"network", "the network stack status", "how the network stack is doing",
       ask<&SysMgrJsonClient::getNetworkStackStatus>, "network-stack-status"},
      {"debug", "the debug information", "the daemon's own counters, for its makers",
       ask<&SysMgrJsonClient::getInternalDebugInfo>, nullptr},
      {"gpio", "the GPIO lines", "the general purpose lines", askForAllGpioLines, nullptr},
      {"whitelist", "the multicast whitelist", "from where multicast streams are accepted",
       ask<&SysMgrJsonClient::getMcastWhitelist>, "white-list"},
  };
  return kDocuments;
}

const Document& documentOf(const std::string& name) {
  Words names;
  for (const Document& document : documents()) {
    if (name == document.name) return document;
    names.emplace_back(document.name);
  }
  throw Failure(Exit::kNotFound, "there is no document '" + name + "'", didYouMean(name, names));
}

Json::Value unwrapped(Json::Value answer) {
  const bool isWrapped = answer.size() == 1 && answer.begin()->isObject();
  if (!isWrapped) return answer;
  Json::Value inner = std::move(*answer.begin());
  return inner;
}

double parseSeconds(const char* option, const std::string& text) {
  constexpr double kShortest = 0.001;
  constexpr double kLongest = 1000000;  // in milliseconds it still is an int
  double seconds = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, seconds);
  const bool fits = error == std::errc() && rest == end && seconds >= kShortest && seconds <= kLongest;
  if (!fits) throw usage(std::string(option) + ": '" + text + "' is not a number of seconds above 0");
  return seconds;
}

int Board::Client::getClientTimeout() { return static_cast<int>(deadline_.left().count()); }

Board::Board(const Deadline& deadline) : deadline_(deadline), client_(deadline) {
  if (client_.init(ZmqUtils::getInstance().getContext()) >= 0) return;
  ErrorReport report;
  client_.getLastErrorMessage(report);
  throw requestFailed(Purpose::kToRead, "reach the daemon", report, deadline.text());
}

template <class Call>
Json::Value Board::exchange(Purpose purpose, const std::string& action, const Call& call) {
  if (deadline_.isOver()) {
    throw Failure(Exit::kTimeOut,
                  "cannot " + action + ": the " + deadline_.text() + " of this command were over before",
                  "'-w SECONDS' waits longer");
  }
  Json::Value reply;
  if (call(reply) < 0) {
    ErrorReport report;
    client_.getLastErrorMessage(report);
    throw requestFailed(purpose, action, report, deadline_.text());
  }
  const Json::Value& remark = reply["error"];
  if (reply["status"].asInt() > 0 && remark.isString()) {
    note("the daemon remarks: " + remark.asString());
  }
  for (const char* member : kReplyMembers) reply.removeMember(member);
  return reply;
}

Json::Value Board::get(const Document& document) {
  Json::Value reply = exchange(Purpose::kToRead, std::string("read ") + document.what,
                               [&](Json::Value& answer) { return document.query(client_, answer); });
  return document.member == nullptr ? unwrapped(std::move(reply)) : std::move(reply[document.member]);
}

Json::Value Board::whitelist() {
  Json::Value list = get("whitelist");
  if (list.isNull()) return Json::arrayValue;
  if (!list.isArray()) throw wrongType("whitelist", "it is not a list");
  for (const Json::Value& element : list) {
    Json::Value copy = element;
    WhiteListEntry entry;
    read(entry, copy, "whitelist");
  }
  return list;
}

Json::Value Board::send(const std::string& action, const Command& command, Json::Value request, Purpose purpose) {
  return exchange(purpose, action, [&](Json::Value& reply) { return command(client_, request, reply); });
}

Json::Value Board::send(const std::string& action, const BareCommand& command) {
  return exchange(Purpose::kToChange, action, [&](Json::Value& reply) { return command(client_, reply); });
}

void Board::read(IJsonSerializable& record, Json::Value& document, const std::string& name) {
  try {
    record.Deserialize(document);
  } catch (const Json::Exception& mismatch) {
    throw wrongType(name, std::string("a value has the wrong type: ") + mismatch.what());
  }
}

}  // namespace zel::ctl
