#include "cli/daemon.h"

#include <utility>

#include "cli/json_paths.h"
#include "cli/output.h"
#include "cli/suggest.h"
#include "client/zmq_utils.h"
#include "common/envelope.h"
#include "common/ipc_msg.h"
#include "common/shared/format_text.h"
#include "types/whitelist.h"

namespace zel::ctl {

Offers documents() {
  Offers offers;
  for (const CommandRow& row : kCommands) {
    if (row.isQuery()) offers.push_back({row.document, row.meaning});
  }
  return offers;
}

const CommandRow& queryOf(const std::string& document) {
  for (const CommandRow& row : kCommands) {
    if (row.isQuery() && document == row.document) return row;
  }
  const Words names = wordsOf(documents());
  const std::string guess = didYouMean(document, names);
  throw Failure(Exit::kNotFound, "there is no document '" + document + "'",
                guess.empty() ? "the documents are " + listed(names) : guess)
      .about(document);
}

Json::Value unwrapped(const CommandRow& query, Json::Value answer) {
  const char* const member = query.usualMember;
  const bool isWrapped = answer.size() == 1 && answer.isMember(member) && answer[member].isObject();
  if (!isWrapped) return answer;
  Json::Value inner = std::move(answer[member]);
  return inner;
}

Failure wrongType(const std::string& document, const std::string& why) {
  return {Exit::kBadAnswer, std::string("cannot read ") + queryOf(document).title + ": " + why,
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

Json::Value Daemon::get(const CommandRow& query) {
  // The query of the GPIO lines names lines in its body; an empty object asks for all of them.
  const bool namesLines = query.id == SysMgrCommands::SYSMGR_GET_GPIO_CONFIGURATION;
  const Json::Value body(namesLines ? Json::objectValue : Json::nullValue);
  Json::Value reply = exchange(Purpose::kToRead, std::string("read ") + query.title,
                               [&](SysMgrJsonClient& client, Json::Value& answer) {
                                 IpcMsg request(static_cast<unsigned int>(query.id), body);
                                 return client.sendMessage(request, answer);
                               });
  const char* const payload = query.payload;
  if (payload == nullptr) return unwrapped(query, std::move(reply));
  // A list without entries may be null: the records write it so.
  const bool isThere =
      reply.isMember(payload) && (!reply[payload].isNull() || payload == std::string(kWhitelistMember));
  if (isThere) return std::move(reply[payload]);
  throw Failure(Exit::kBadAnswer, std::string("cannot read ") + query.title + ": the answer has no \"" + payload + "\"",
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
