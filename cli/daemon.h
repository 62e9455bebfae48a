#pragma once

#include <json/value.h>

#include <functional>
#include <string>
#include <vector>

#include "cli/deadline.h"
#include "cli/failure.h"
#include "cli/words.h"
#include "client/commands.h"
#include "client/sysmgr_jsonApi.h"

namespace zel::ctl {

/// A request of the client with a body, and one without.
using Operation = std::function<int(SysMgrJsonClient& client, Json::Value& request, Json::Value& reply)>;
using BareOperation = std::function<int(SysMgrJsonClient& client, Json::Value& reply)>;

/// The documents that the daemon can be asked for, with their meanings.
Offers documents();
/// The query of a document. @throws Failure for a name that no document has
const CommandRow& queryOf(const std::string& document);

/// The payload of an answer whose layout the daemon chooses: the object in its usual member, or the answer itself.
Json::Value unwrapped(const CommandRow& query, Json::Value answer);

/// A document whose values do not have the types that are needed.
Failure wrongType(const std::string& document, const std::string& why);

/// Passes the value, a document of this name or a part of it, to `read`, which may change it.
/// @throws Failure when a value in it has the wrong type; it names the path of that value
void reading(const std::string& document, Json::Value& value, const std::function<void(Json::Value& value)>& read);

/// The daemon as the commands see it: every request ends with the command's deadline, and a failed one is thrown.
///
/// It asks at the JSON level, for two reasons: the time-out of the typed client is fixed, and `get` shows the document
/// that the daemon sent, not the record that was read from it.
class Daemon {
 public:
  explicit Daemon(const Deadline& deadline);

  /// @throws Failure
  Json::Value get(const CommandRow& query);
  Json::Value get(const std::string& document) { return get(queryOf(document)); }
  /// The same as a record. @throws Failure, also for a document that does not fit the record
  template <class Record>
  Record record(const std::string& name) {
    return read<Record>(name, get(name));
  }

  /// A document that was read before, as a record. @throws Failure
  template <class Record>
  static Record read(const std::string& name, Json::Value document) {
    Record record;
    // A new record for each try: what an earlier one has read must not stay.
    reading(name, document, [&record](Json::Value& value) { (record = Record()).Deserialize(value); });
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
