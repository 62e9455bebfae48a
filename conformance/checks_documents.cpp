// Checks of the documents as notifications have them.

#include "client/commands.h"
#include "conformance/check.h"

namespace zel::conformance {

namespace {

using C = SysMgrCommands;

constexpr char kModule[] = "sysmgr-conformance";

Json::Value moduleState(bool error) {
  Json::Value body(Json::objectValue);
  body[kModule]["error"] = error;
  body[kModule]["warn"] = false;
  return body;
}

/// The document of a topic after a change, and the document that the query answers.
void compare(Session& session, const char* topic, const Answer& change) {
  if (!change.accepted()) return;  // another rule
  const TopicRow& row = *topicRow(topic);
  Json::Value published;
  Json::Value asked;
  const bool isSeen = session.seen(topic, [&](const Json::Value& payload) {
    published = row.isWrapped && payload.isObject() ? payload[row.member] : payload;
    asked = session.query(row.query);
    return isSame(published, asked);  // the dynamic information may change meanwhile
  });
  session.expect(isSeen, std::string("the last document of ") + topic + " was " + shown(published) +
                             ", and the query answered " + shown(asked));
}

void documentsAreSame(Session& session) {
  const Json::Value stored = session.stored();
  compare(session, kStoredTopic, session.set("sap-enable", !valueAt(stored, "sap/enable").asBool()));
  session.set("sap-enable", valueAt(stored, "sap/enable").asBool());
  compare(session, kDynamicTopic, session.client().ask(C::SYSMGR_SET_MODULE_STATE, moduleState(true)));
  session.client().ask(C::SYSMGR_SET_MODULE_STATE, moduleState(false));
  const std::string group = session.freeGroups(1).front();
  compare(session, kWhitelistTopic,
          session.changeWhitelist(C::SYSMGR_ADD_MCAST_WHITELIST, group, "255.255.255.255", true));
  session.changeWhitelist(C::SYSMGR_REMOVE_MCAST_WHITELIST, group, "255.255.255.255", false);
}

}  // namespace

void appendDocumentChecks(std::vector<Check>& checks) {
  checks.push_back({"same-document", "", Needs::kWrite, documentsAreSame});
}

}  // namespace zel::conformance
