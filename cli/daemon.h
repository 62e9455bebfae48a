#pragma once

#include <json/value.h>

#include <functional>
#include <string>
#include <vector>

#include "cli/deadline.h"
#include "cli/failure.h"
#include "client/commands.h"
#include "client/sysmgr_jsonApi.h"

namespace zel::ctl {

/// A request of the client with a body, and one without.
using Operation = std::function<int(SysMgrJsonClient& client, Json::Value& request, Json::Value& reply)>;
using BareOperation = std::function<int(SysMgrJsonClient& client, Json::Value& reply)>;

/// A document that the daemon can be asked for.
struct Document {
  const char* name;  ///< as it is typed
  const char* what;  ///< as messages name it
  const char* help;
  SysMgrCommands::sysmgr_msg_t command;
  BareOperation query;  ///< sends the command

  /// The member of the answer that holds the document; null: the daemon chooses, see `unwrapped`.
  const char* payload() const { return findCommand(command)->payload; }
};
const std::vector<Document>& documents();
const Document& documentOf(const std::string& name);

/// The payload of an answer whose layout the daemon chooses: the object in its one member, or the answer itself.
Json::Value unwrapped(Json::Value answer);

/// A document whose values do not have the types that are needed.
Failure wrongType(const std::string& document, const std::string& why);

/// Runs `read`, which reads values of a document. @throws Failure when one of them has the wrong type
template <class Read>
void reading(const std::string& document, const Read& read) {
  try {
    read();
  } catch (const Json::Exception& mismatch) {
    throw wrongType(document, std::string("a value has the wrong type: ") + mismatch.what());
  }
}

/// The daemon as the commands see it: every request ends with the command's deadline, and a failed one is thrown.
///
/// It asks at the JSON level, for two reasons: the time-out of the typed client is fixed, and `get` shows the document
/// that the daemon sent, not the record that was read from it.
class Daemon {
 public:
  explicit Daemon(const Deadline& deadline);

  /// @throws Failure
  Json::Value get(const Document& document);
  Json::Value get(const std::string& name) { return get(documentOf(name)); }
  /// The same as a record. @throws Failure, also for a document that does not fit the record
  template <class Record>
  Record record(const std::string& name) {
    Json::Value document = get(name);
    Record record;
    reading(name, [&] { record.Deserialize(document); });
    return record;
  }

  /// The entries of the whitelist as the daemon sends them. @throws Failure, also when one does not fit the record
  Json::Value whitelist();

  /// Sends a command.
  /// @param action  what it does, as it follows "cannot"
  /// @return the answer's payload
  /// @throws Failure
  Json::Value send(const std::string& action, const Operation& operation, Json::Value request,
                   Purpose purpose = Purpose::kToChange);
  Json::Value send(const std::string& action, const BareOperation& operation);

 private:
  class Client final : public SysMgrJsonClient {
   public:
    explicit Client(const Deadline& deadline) : deadline_(deadline) {}
    int getClientTimeout() override;

   private:
    const Deadline& deadline_;
  };

  Json::Value exchange(Purpose purpose, const std::string& action, const BareOperation& operation);

  const Deadline& deadline_;
  Client client_;
};

}  // namespace zel::ctl
