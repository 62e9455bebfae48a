#include "cli/daemon.h"

#include <utility>

#include "cli/json_paths.h"
#include "cli/output.h"
#include "cli/suggest.h"
#include "client/zmq_utils.h"
#include "common/envelope.h"
#include "common/shared/format_text.h"
#include "types/whitelist.h"

namespace zel::ctl {

namespace {

int getAllGpioLines(SysMgrJsonClient& client, Json::Value& reply) {
  Json::Value noneNamed(Json::objectValue);
  return client.getGpioConfiguration(noneNamed, reply);
}

}  // namespace

const std::vector<Document>& documents() {
  using Client = SysMgrJsonClient;
  using Commands = SysMgrCommands;
  static const std::vector<Document> kDocuments = {
      {"stored", "the stored parameters", "the configuration that the daemon keeps",
       Commands::SYSMGR_GET_STORED_PARAMETERS, &Client::getStoredParameters},
      {"dynamic", "the dynamic information", "the state of interfaces, temperatures, fans, errors",
       Commands::SYSMGR_GET_DYNAMIC_PARAMETERS, &Client::getDynamicParameters},
      {"model", "the board model", "which board this is and the bitstream that it runs",
       Commands::SYSMGR_GET_BOARD_MODEL, &Client::getBoardModel},
      {"info", "the system information", "versions and serial numbers of the system", Commands::SYSMGR_GET_SYSTEM_INFO,
       &Client::getSystemInfo},
      {"network", "the network stack status", "the state of the network stack",
       Commands::SYSMGR_GET_NETWORK_STACK_STATUS, &Client::getNetworkStackStatus},
      {"debug", "the debug information", "the daemon's own counters, for its makers",
       Commands::SYSMGR_GET_INTERNAL_DEBUG_INFO, &Client::getInternalDebugInfo, "debug-info"},
      {"gpio", "the GPIO lines", "the general purpose lines", Commands::SYSMGR_GET_GPIO_CONFIGURATION, getAllGpioLines,
       "gpio"},
      {"whitelist", "the multicast whitelist", "from where multicast streams are accepted",
       Commands::SYSMGR_GET_MCAST_WHITELIST, &Client::getMcastWhitelist},
  };
  return kDocuments;
}

const Document& documentOf(const std::string& name) {
  Words names;
  for (const Document& document : documents()) {
    if (name == document.name) return document;
    names.emplace_back(document.name);
  }
  const std::string guess = didYouMean(name, names);
  throw Failure(Exit::kNotFound, "there is no document '" + name + "'",
                guess.empty() ? "the documents are " + listed(names) : guess)
      .about(name);
}

Json::Value unwrapped(const Document& document, Json::Value answer) {
  const bool isWrapped = answer.size() == 1 && answer.isMember(document.wrapper) && answer[document.wrapper].isObject();
  if (!isWrapped) return answer;
  Json::Value inner = std::move(answer[document.wrapper]);
  return inner;
}

Failure wrongType(const std::string& document, const std::string& why) {
  return {Exit::kBadAnswer, std::string("cannot read ") + documentOf(document).what + ": " + why,
          "'sysmgrctl get " + document + "' shows the document as the daemon sends it"};
}

void reading(const std::string& document, Json::Value& value, const std::function<void(Json::Value& value)>& read) {
  try {
    read(value);
  } catch (const Json::Exception& mismatch) {
    const std::string path = pathOfFault(value, [&read](Json::Value& part) {
      try {
        read(part);
      } catch (const Json::Exception&) {
        return true;
      }
      return false;
    });
    const std::string which = path.empty() ? "it" : "'" + path + "'";
    throw wrongType(document, which + " has the wrong type: " + mismatch.what()).about(path);
  }
}

int Daemon::Client::getClientTimeout() { return static_cast<int>(deadline_.left().count()); }

Daemon::Daemon(const Deadline& deadline) : deadline_(deadline), client_(deadline) {
  if (client_.init(ZmqUtils::getInstance().getContext()) >= 0) return;
  ErrorReport report;
  client_.getLastErrorMessage(report);
  throw requestFailed(Purpose::kToRead, "reach the daemon", report, deadline.text());
}

Json::Value Daemon::exchange(Purpose purpose, const std::string& action, const BareOperation& operation) {
  if (deadline_.isOver()) {
    throw Failure(Exit::kTimeOut,
                  "cannot " + action + ": the " + deadline_.text() + " of this command were over before",
                  "'-w SECONDS' waits longer");
  }
  Json::Value reply;
  if (operation(client_, reply) < 0) {
    ErrorReport report;
    client_.getLastErrorMessage(report);
    throw requestFailed(purpose, action, report, deadline_.text());
  }
  const Json::Value& remark = reply[envelope::kError];
  if (reply[envelope::kStatus].asInt() > 0 && remark.isString()) note("the daemon remarks: " + remark.asString());
  for (const char* member : {envelope::kStatus, envelope::kError, envelope::kAuxErrors}) reply.removeMember(member);
  return reply;
}

Json::Value Daemon::get(const Document& document) {
  Json::Value reply = exchange(Purpose::kToRead, std::string("read ") + document.what, document.query);
  const char* const payload = document.payload();
  if (payload == nullptr) return unwrapped(document, std::move(reply));
  // A list without entries may be null: the records write it so.
  const bool isThere =
      reply.isMember(payload) && (!reply[payload].isNull() || payload == std::string(kWhitelistMember));
  if (isThere) return std::move(reply[payload]);
  throw Failure(Exit::kBadAnswer,
                std::string("cannot read ") + document.what + ": the answer has no \"" + payload + "\"",
                "is the daemon of another version than this program?")
      .about(payload);
}

Json::Value Daemon::whitelist() {
  Json::Value list = get("whitelist");
  if (list.isNull()) return Json::arrayValue;
  if (!list.isArray()) throw wrongType("whitelist", "it is not a list");
  Json::Value copy = list;
  reading("whitelist", copy, [](Json::Value& entries) {
    for (Json::Value& element : entries) WhiteListEntry().Deserialize(element);
  });
  return list;
}

Json::Value Daemon::send(const std::string& action, const Operation& operation, Json::Value request, Purpose purpose) {
  return exchange(purpose, action,
                  [&](SysMgrJsonClient& client, Json::Value& reply) { return operation(client, request, reply); });
}

Json::Value Daemon::send(const std::string& action, const BareOperation& operation) {
  return exchange(Purpose::kToChange, action, operation);
}

}  // namespace zel::ctl
