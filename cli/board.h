#pragma once

#include <json/value.h>

#include <functional>
#include <string>
#include <vector>

#include "cli/deadline.h"
#include "cli/failure.h"
#include "cli/suggest.h"
#include "client/sysmgr_jsonApi.h"
#include "common/json_serializable.h"

namespace zel::ctl {

/// A time in seconds, from a millisecond up, as an option takes it. @throws Failure when the text is none
double parseSeconds(const char* option, const std::string& text);

/// A document that the daemon can be asked for.
struct Document {
  const char* name;  ///< as it is typed
  const char* what;  ///< as messages name it
  const char* help;
  int (*query)(SysMgrJsonClient& client, Json::Value& reply);
  const char* member;  ///< where the answer holds it; null: where the daemon likes, see `unwrapped`
};
const std::vector<Document>& documents();
const Document& documentOf(const std::string& name);

/// The payload of an answer whose layout is the daemon's affair: what its one member holds, or the answer itself.
Json::Value unwrapped(Json::Value answer);

/// The daemon as the commands see it: every request ends with the command's deadline, and a failed one is thrown.
///
/// It asks at the JSON level, for two reasons: the time-out of the typed client is fixed, and a user wants to see what
/// the daemon says, not what the records make of it.
class Board {
 public:
  explicit Board(const Deadline& deadline);

  /// @throws Failure
  Json::Value get(const Document& document);
  Json::Value get(const std::string& name) { return get(documentOf(name)); }
  /// The same as a record. @throws Failure, also for a document that does not fit the record
  template <class Record>
  Record record(const std::string& name) {
    Json::Value document = get(name);
    Record record;
    read(record, document, name);
    return record;
  }

  /// The entries of the whitelist as the daemon sends them. @throws Failure, also when one does not fit the record
  Json::Value whitelist();

  /// Sends a command with a request body.
  /// @param action  what it does, as it follows "cannot"
  /// @return the answer's payload
  /// @throws Failure
  using Command = std::function<int(SysMgrJsonClient& client, Json::Value& request, Json::Value& reply)>;
  Json::Value send(const std::string& action, const Command& command, Json::Value request,
                   Purpose purpose = Purpose::kToChange);
  /// A command without a body.
  using BareCommand = std::function<int(SysMgrJsonClient& client, Json::Value& reply)>;
  Json::Value send(const std::string& action, const BareCommand& command);

 private:
  class Client final : public SysMgrJsonClient {
   public:
    explicit Client(const Deadline& deadline) : deadline_(deadline) {}
    int getClientTimeout() override;

   private:
    const Deadline& deadline_;
  };

  static void read(IJsonSerializable& record, Json::Value& document, const std::string& name);
  template <class Call>
  Json::Value exchange(Purpose purpose, const std::string& action, const Call& call);

  const Deadline& deadline_;
  Client client_;
};

}  // namespace zel::ctl
