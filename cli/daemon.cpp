#include "cli/daemon.h"

#include <utility>

#include "cli/output.h"
#include "cli/suggest.h"
#include "client/zmq_utils.h"
#include "common/envelope.h"
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
       Commands::SYSMGR_GET_INTERNAL_DEBUG_INFO, &Client::getInternalDebugInfo},
      {"gpio", "the GPIO lines", "the general purpose lines", Commands::SYSMGR_GET_GPIO_CONFIGURATION, getAllGpioLines},
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
  throw Failure(Exit::kNotFound, "there is no document '" + name + "'", didYouMean(name, names));
}

Json::Value unwrapped(Json::Value answer) {
  const bool isWrapped = answer.size() == 1 && answer.begin()->isObject();
  if (!isWrapped) return answer;
  Json::Value inner = std::move(*answer.begin());
  return inner;
}

Failure wrongType(const std::string& document, const std::string& why) {
  return {Exit::kBadAnswer, std::string("cannot read ") + documentOf(document).what + ": " + why,
          "'sysmgrctl get " + document + "' shows the document as the daemon sends it"};
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
  return payload == nullptr ? unwrapped(std::move(reply)) : std::move(reply[payload]);
}

Json::Value Daemon::whitelist() {
  Json::Value list = get("whitelist");
  if (list.isNull()) return Json::arrayValue;
  if (!list.isArray()) throw wrongType("whitelist", "it is not a list");
  for (const Json::Value& element : list) {
    Json::Value copy = element;
    reading("whitelist", [&copy] { WhiteListEntry().Deserialize(copy); });
  }
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
