// Checks of the lists: interfaces, whitelist, modules, GPIO lines, and of command 19.

#include <algorithm>

#include "client/commands.h"
#include "conformance/check.h"

namespace zel::conformance {

namespace {

using C = SysMgrCommands;

constexpr char kInterface[] = "sysmgr-conf0";
constexpr char kModule[] = "sysmgr-conformance";
constexpr char kHostMask[] = "255.255.255.255";

Json::Value parsed(const std::string& text) {
  Json::Value value;
  WireJsonReader().read(text, value);
  return value;
}

// --- interfaces

/// The entry with a member of this value; null when there is none.
Json::Value entryOf(const Json::Value& list, const char* key, const std::string& value) {
  for (const Json::Value& entry : list) {
    if (entry.isObject() && entry[key] == value) return entry;
  }
  return {};
}

Json::Value interfaceNow(Session& session) { return entryOf(session.stored()["ethipv4"], "eth", kInterface); }

Json::Value staticInterface(const std::string& ip, const std::string& mask = "255.255.255.0",
                            const std::string& gateway = "0.0.0.0") {
  Json::Value entry(Json::objectValue);
  entry["eth"] = kInterface;
  entry["mode"] = "static";
  entry["static"]["ip"] = ip;
  entry["static"]["mask"] = mask;
  entry["static"]["gw"] = gateway;
  return entry;
}

void removeInterface(Session& session) { session.set("rem-eth-cfg", kInterface); }

void addsInterface(Session& session) {
  for (const Json::Value& entry : {staticInterface("192.168.77.1", "255.255.0.0", "192.168.0.1"),
                                   parsed(std::string(R"({"eth":")") + kInterface + R"(","mode":"DHCP"})")}) {
    session.expectAccepted(session.set("add-eth-cfg", entry));
    const Json::Value now = interfaceNow(session);
    session.expect(isSame(now, entry), shown(entry) + " was added, and \"ethipv4\" has " + shown(now));
    removeInterface(session);
  }
}

void replacesInterface(Session& session) {
  session.set("add-eth-cfg", staticInterface("192.168.77.1", "255.255.0.0", "192.168.0.1"));
  Json::Value shorter(Json::objectValue);
  shorter["eth"] = kInterface;
  shorter["static"]["ip"] = "192.168.77.2";
  const Answer answer = session.set("add-eth-cfg", shorter);
  session.expectAccepted(answer);
  const Json::Value wanted = staticInterface("192.168.77.2");
  Json::Value now = interfaceNow(session);
  session.expect(isSame(now, wanted), "after " + answer.request + " \"ethipv4\" has " + shown(now));
  Json::Value dhcp(Json::objectValue);
  dhcp["eth"] = kInterface;
  dhcp["mode"] = "DHCP";
  session.set("add-eth-cfg", dhcp);
  session.set("add-eth-cfg", shorter);
  now = interfaceNow(session);
  session.expect(isSame(now, wanted), "after DHCP and " + answer.request + " \"ethipv4\" has " + shown(now));
  removeInterface(session);
}

void removesInterface(Session& session) {
  session.set("add-eth-cfg", staticInterface("192.168.77.1"));
  const Answer answer = session.set("rem-eth-cfg", kInterface);
  session.expectAccepted(answer);
  const Json::Value now = interfaceNow(session);
  session.expect(now.isNull(), "after " + answer.request + " \"ethipv4\" has " + shown(now));
  session.expectRefused(session.set("rem-eth-cfg", kInterface));
}

void addsBeforeItRemoves(Session& session) {
  Json::Value body(Json::objectValue);
  body["add-eth-cfg"] = staticInterface("192.168.77.1");
  body["rem-eth-cfg"] = kInterface;
  for (const bool isThere : {false, true}) {
    if (isThere) session.set("add-eth-cfg", staticInterface("192.168.77.2"));
    const Answer answer = session.client().ask(C::SYSMGR_SET_PARAMETER, body);
    session.expectAccepted(answer);
    const Json::Value now = interfaceNow(session);
    session.expect(now.isNull(), "after " + answer.request + " \"ethipv4\" has " + shown(now));
    if (!now.isNull()) removeInterface(session);
  }
}

void refusesInvalidInterfaces(Session& session) {
  const Json::Value before = session.stored();
  std::vector<Json::Value> entries = {staticInterface("0.1.2.3"),
                                      staticInterface("127.0.0.1"),
                                      staticInterface("224.0.0.1"),
                                      staticInterface("239.255.255.255"),
                                      staticInterface("192.168.0.256"),
                                      staticInterface("192.168.0"),
                                      staticInterface("text"),
                                      staticInterface("192.168.77.1", "0.0.0.0"),
                                      staticInterface("192.168.77.1", "text"),
                                      staticInterface("192.168.77.1", "255.255.255.0", "0.1.2.3"),
                                      staticInterface("192.168.77.1", "255.255.255.0", "224.0.0.1")};
  Json::Value entry = staticInterface("192.168.77.1");
  for (const char* const name : {"", "an-interface-nam"}) {
    entry["eth"] = name;
    entries.push_back(entry);
  }
  entry = staticInterface("192.168.77.1");
  for (const char* const mode : {"dhcp", "Static", "Undefined", "auto", ""}) {
    entry["mode"] = mode;
    entries.push_back(entry);
  }
  entry = staticInterface("192.168.77.1");
  entry["unknown"] = 1;
  entries.push_back(entry);
  entry.removeMember("unknown");
  entry.removeMember("eth");
  entries.push_back(entry);
  for (const Json::Value& each : entries) session.expectRefused(session.set("add-eth-cfg", each));
  if (!session.expect(isSame(before, session.stored()), "the stored parameters are others afterwards")) {
    removeInterface(session);
  }
}

void acceptsUnusualInterfaces(Session& session) {
  for (const Json::Value& entry :
       {staticInterface("127.0.0.2"), staticInterface("240.0.0.1"), staticInterface("192.168.77.1", "255.0.255.0")}) {
    session.expectAccepted(session.set("add-eth-cfg", entry));
  }
  removeInterface(session);
}

void hasNoAddressesWithDhcp(Session& session) {
  Json::Value both = staticInterface("192.168.77.1");
  both["mode"] = "DHCP";
  session.expectAccepted(session.set("add-eth-cfg", both));
  const Json::Value now = interfaceNow(session);
  session.expect(!now.isMember("static"), "with the mode DHCP \"ethipv4\" has " + shown(now));
  removeInterface(session);
}

/// Addresses in other spellings, which a lenient reader takes for 10.0.0.1 or 239.201.77.1.
void refusesOtherSpellings(Session& session) {
  const Json::Value before = session.stored();
  const Json::Value whitelist = session.whitelist();
  for (const char* const ip :
       {"10.1", "167772161", "010.0.0.1", "10.0.0.001", "0x0a.0.0.1", " 10.0.0.1", "10.0.0.1 "}) {
    session.expectRefused(session.set("add-eth-cfg", staticInterface(ip)));
    session.expectRefused(session.set("add-eth-cfg", staticInterface("192.168.77.1", "255.255.255.0", ip)));
  }
  for (const char* const ip : {"239.201.19713", "4023995649", "239.201.077.1", "239.201.77.001", "0xef.201.77.1",
                               " 239.201.77.1", "239.201.77.1 ", ""}) {
    session.expectRefused(session.changeWhitelist(C::SYSMGR_ADD_MCAST_WHITELIST, ip, kHostMask, true));
  }
  if (!session.expect(isSame(before, session.stored()), "the stored parameters are others afterwards")) {
    removeInterface(session);
  }
  session.expect(isSame(whitelist, session.whitelist()), "the whitelist is another one afterwards");
}

// --- whitelist

class Groups {
 public:
  explicit Groups(Session& session) : session_(session), ips_(session.freeGroups(3)) {}
  ~Groups() = default;
  const std::string& operator[](std::size_t i) const { return ips_[i]; }
  Json::Value now(std::size_t i) const { return entryOf(session_.whitelist(), "ip", ips_[i]); }
  Answer add(std::size_t i, const std::string& mask, bool enabled) const {
    return session_.changeWhitelist(C::SYSMGR_ADD_MCAST_WHITELIST, ips_[i], mask, enabled);
  }
  Answer remove(std::size_t i, const std::string& mask) const {
    return session_.changeWhitelist(C::SYSMGR_REMOVE_MCAST_WHITELIST, ips_[i], mask, false);
  }
  Answer enable(std::size_t i, const std::string& mask, bool enabled) const {
    return session_.changeWhitelist(C::SYSMGR_ENABLE_MCAST_WHITELIST, ips_[i], mask, enabled);
  }
  /// Removes what checks have added.
  void clear() const {
    for (std::size_t i = 0; i < ips_.size(); ++i) {
      const Json::Value entry = now(i);
      if (entry.isObject() && entry["mask"].isString()) remove(i, entry["mask"].asString());
    }
  }
  void expect(std::size_t i, const std::string& mask, bool enabled, const std::string& after) const {
    const Json::Value entry = now(i);
    session_.expect(entry.isObject() && entry["mask"] == mask && entry["enabled"] == enabled,
                    after + " the whitelist has " + shown(entry));
  }

 private:
  Session& session_;
  std::vector<std::string> ips_;
};

void addsEntries(Session& session) {
  const Groups groups(session);
  session.expectAccepted(groups.add(0, "255.255.0.0", true));  // with bits outside the mask
  groups.expect(0, "255.255.0.0", true, "after an entry was added");
  session.expectAccepted(groups.add(0, kHostMask, false));
  groups.expect(0, kHostMask, false, "after an entry was added again");
  groups.clear();
}

void removesEntries(Session& session) {
  const Groups groups(session);
  groups.add(0, kHostMask, true);
  session.expectAccepted(groups.remove(0, kHostMask));
  session.expect(groups.now(0).isNull(), "after an entry was removed the whitelist has " + shown(groups.now(0)));
}

void enablesEntries(Session& session) {
  const Groups groups(session);
  groups.add(0, kHostMask, true);
  session.expectAccepted(groups.enable(0, kHostMask, false));
  groups.expect(0, kHostMask, false, "after an entry was disabled");
  session.expectAccepted(groups.enable(0, kHostMask, true));
  groups.expect(0, kHostMask, true, "after an entry was enabled");
  groups.clear();
}

Json::Value entryWith(const std::string& ip, const std::string& mask, bool enabled) {
  Json::Value entry(Json::objectValue);
  entry["ip"] = ip;
  entry["mask"] = mask;
  entry["enabled"] = enabled;
  return entry;
}

Json::Value bodyWith(const std::vector<Json::Value>& entries) {
  Json::Value body(Json::objectValue);
  for (const Json::Value& entry : entries) body[kWhitelistMember].append(entry);
  return body;
}

/// Two entries of one address in one request.
void carriesOutInOrder(Session& session) {
  const Groups groups(session);
  const Json::Value wide = entryWith(groups[0], "255.255.0.0", true);
  const Json::Value host = entryWith(groups[0], kHostMask, true);
  session.expectAccepted(session.client().ask(C::SYSMGR_ADD_MCAST_WHITELIST, bodyWith({wide, host})));
  groups.expect(0, kHostMask, true, "after an address was added twice in one request");
  const Json::Value off = entryWith(groups[0], kHostMask, false);
  session.expectAccepted(session.client().ask(C::SYSMGR_ENABLE_MCAST_WHITELIST, bodyWith({host, off})));
  groups.expect(0, kHostMask, false, "after an entry was enabled and disabled in one request");
  session.expectRefused(session.client().ask(C::SYSMGR_REMOVE_MCAST_WHITELIST, bodyWith({host, host})));
  groups.clear();
}

/// Fills the whitelist up to the number of entries that is always possible.
void hasRoom(Session& session) {
  constexpr std::size_t kRoom = 64;
  const std::size_t present = session.whitelist().size();
  if (present >= kRoom) return session.skip("the whitelist has " + std::to_string(present) + " entries already");
  std::vector<Json::Value> entries;
  for (const std::string& group : session.freeGroups(kRoom - present)) {
    entries.push_back(entryWith(group, kHostMask, false));
  }
  const Answer answer = session.client().ask(C::SYSMGR_ADD_MCAST_WHITELIST, bodyWith(entries));
  if (!session.expectAccepted(answer)) return;
  session.expect(session.whitelist().size() == kRoom, "after entries were added up to " + std::to_string(kRoom) +
                                                          " the whitelist has " +
                                                          std::to_string(session.whitelist().size()));
  session.client().ask(C::SYSMGR_REMOVE_MCAST_WHITELIST, bodyWith(entries));
}

void demandsAddressAndMask(Session& session) {
  const Groups groups(session);
  groups.add(0, kHostMask, true);
  session.expectRefused(groups.remove(0, "255.255.0.0"));
  session.expectRefused(groups.enable(0, "255.255.0.0", false));
  session.expectRefused(groups.remove(1, kHostMask));
  session.expectRefused(groups.enable(1, kHostMask, true));
  groups.expect(0, kHostMask, true, "after refused requests");
  groups.clear();
}

void missingFlagIsFalse(Session& session) {
  const Groups groups(session);
  groups.add(0, kHostMask, true);
  const Answer answer =
      session.client().ask("13", R"({"white-list":[{"ip":")" + groups[0] + R"(","mask":"255.255.255.255"}]})");
  session.expectAccepted(answer);
  groups.expect(0, kHostMask, false, "after " + answer.request);
  groups.clear();
}

void refusesInvalidEntries(Session& session) {
  const Json::Value before = session.whitelist();
  const std::string ip = session.freeGroups(1).front();
  const std::string good = R"({"ip":")" + ip + R"(","mask":"255.255.255.255","enabled":true)";
  const std::string kEntries[] = {R"({"ip":"10.0.0.1","mask":"255.255.255.255"})",
                                  R"({"ip":"240.0.0.1","mask":"255.255.255.255"})",
                                  R"({"ip":"223.255.255.255","mask":"255.0.0.0"})",
                                  R"({"ip":")" + ip + R"(","mask":"0.0.0.0"})",
                                  R"({"ip":")" + ip + R"(","mask":"255.0.255.0"})",
                                  R"({"ip":"239.1.1","mask":"255.255.255.255"})",
                                  R"({"ip":"text","mask":"255.255.255.255"})",
                                  R"({"ip":")" + ip + R"(","mask":"text"})",
                                  R"({"ip":")" + ip + R"("})",
                                  R"({"mask":"255.255.255.255"})",
                                  good + R"(,"unknown":1})",
                                  R"({"ip":1,"mask":"255.255.255.255"})",
                                  R"({"ip":")" + ip + R"(","mask":"255.255.255.255","enabled":1})",
                                  "1",
                                  "null"};
  for (const std::string& entry : kEntries) {
    session.expectRefused(session.client().ask("13", R"({"white-list":[)" + entry + "]}"));
  }
  for (const std::string& body : {std::string("{}"), std::string(R"({"white-list":[]})"),
                                  R"({"white-list":)" + good + "}}", R"({"white-list":[)" + good + "}],\"unknown\":1}",
                                  R"({"white-list":[)" + good + R"(},{"ip":"10.0.0.1","mask":"255.255.255.255"}]})"}) {
    for (const char* const id : {"13", "14", "15"}) session.expectRefused(session.client().ask(id, body));
  }
  if (!session.expect(isSame(before, session.whitelist()), "the whitelist is another one afterwards")) {
    Groups(session).clear();
  }
}

/// An entry of the system's own is one that the daemon does not let a client change. To find them the check enables
/// each entry as it is: nothing changes.
std::vector<Json::Value> ownEntries(Session& session) {
  std::vector<Json::Value> own;
  for (const Json::Value& entry : session.whitelist()) {
    if (!entry.isObject() || !entry["ip"].isString() || !entry["mask"].isString()) continue;
    if (session
            .changeWhitelist(C::SYSMGR_ENABLE_MCAST_WHITELIST, entry["ip"].asString(), entry["mask"].asString(),
                             entry["enabled"] == true)
            .refused()) {
      own.push_back(entry);
    }
  }
  return own;
}

void protectsOwnEntries(Session& session) {
  const Json::Value before = session.whitelist();
  const std::vector<Json::Value> own = ownEntries(session);
  if (own.empty()) return session.skip("the whitelist has no entry of the system's own");
  for (const Json::Value& entry : own) {
    const std::string ip = entry["ip"].asString();
    const std::string mask = entry["mask"].asString();
    session.expectRefused(session.changeWhitelist(C::SYSMGR_REMOVE_MCAST_WHITELIST, ip, mask, true));
    session.expectRefused(session.changeWhitelist(C::SYSMGR_ADD_MCAST_WHITELIST, ip, mask, true));
    session.expectRefused(session.changeWhitelist(C::SYSMGR_ADD_MCAST_WHITELIST, ip, "255.0.0.0", true));
    const Answer answer = session.changeWhitelist(C::SYSMGR_ENABLE_MCAST_WHITELIST, ip, mask, entry["enabled"] != true);
    session.expectRefused(answer);
  }
  session.expect(isSame(before, session.whitelist()), "the whitelist is another one afterwards");
}

// --- what is published

Json::Value moduleState(bool error, bool warn) {
  Json::Value body(Json::objectValue);
  body[kModule]["error"] = error;
  body[kModule]["warn"] = warn;
  return body;
}

void publishes(Session& session, const char* topic, const Answer& answer) {
  if (!answer.accepted()) return;  // another rule
  session.expect(session.seen(topic, [](const Json::Value&) { return true; }),
                 answer.request + " was accepted, and no notification of " + topic + " came");
}

void publishesEachChange(Session& session) {
  const Json::Value stored = session.stored();
  const bool sap = valueAt(stored, "sap/enable").asBool();
  const Groups groups(session);
  session.follower().settle();
  publishes(session, kStoredTopic, session.set("sap-enable", !sap));
  publishes(session, kStoredTopic, session.set("sap-enable", sap));
  publishes(session, kStoredTopic, session.set("add-eth-cfg", staticInterface("192.168.77.1")));
  publishes(session, kStoredTopic, session.set("rem-eth-cfg", kInterface));
  publishes(session, kWhitelistTopic, groups.add(0, kHostMask, true));
  publishes(session, kWhitelistTopic, groups.enable(0, kHostMask, false));
  publishes(session, kWhitelistTopic, groups.remove(0, kHostMask));
  Json::Value identify(Json::objectValue);
  const bool isOn = valueAt(stored, "cfg/identify-enable").asBool();
  for (const bool on : {!isOn, isOn}) {
    identify["identify-enable"] = on;
    publishes(session, kStoredTopic, session.client().ask(C::SYSMGR_SET_IDENTIFY_LEDS, identify));
  }
}

void publishesDynamic(Session& session) {
  session.follower().settle();
  for (const bool error : {true, false}) {
    publishes(session, kDynamicTopic, session.client().ask(C::SYSMGR_SET_MODULE_STATE, moduleState(error, false)));
  }
}

// --- modules, GPIO, identify

std::size_t errorsOfModule(Session& session) {
  const Json::Value errors = session.query(C::SYSMGR_GET_DYNAMIC_PARAMETERS)["errors"];
  return static_cast<std::size_t>(std::count_if(errors.begin(), errors.end(), [](const Json::Value& error) {
    return error.isObject() && error["description"].isString() &&
           error["description"].asString().find(kModule) != std::string::npos;
  }));
}

void showsModules(Session& session) {
  struct State {
    bool error;
    bool warn;
  };
  for (const State state : {State{true, false}, State{false, true}, State{true, true}, State{false, false}}) {
    const Answer answer = session.client().ask(C::SYSMGR_SET_MODULE_STATE, moduleState(state.error, state.warn));
    if (!session.expectAccepted(answer)) continue;
    const std::size_t errors = errorsOfModule(session);
    session.expect((errors > 0) == (state.error || state.warn),
                   "after " + answer.request + " \"errors\" has " + std::to_string(errors) + " entries of the module");
  }
}

void takesModuleNames(Session& session) {
  constexpr std::size_t kLongest = 64;
  std::string longest = kModule;
  longest.resize(kLongest, 'x');
  for (const std::string& name : {std::string("s"), longest}) {
    Json::Value body(Json::objectValue);
    body[name]["error"] = body[name]["warn"] = false;
    session.expectAccepted(session.client().ask(C::SYSMGR_SET_MODULE_STATE, body));
  }
}

void refusesModuleStates(Session& session) {
  for (const char* const body : {R"({"sysmgr-conformance":true})", R"({"sysmgr-conformance":{"error":1}})",
                                 R"({"sysmgr-conformance":{"warn":null}})", R"({"sysmgr-conformance":{"other":true}})",
                                 R"({"sysmgr-conformance\u0000x":{"error":false}})"}) {
    session.expectRefused(session.client().ask("7", body));
  }
  session.expect(errorsOfModule(session) == 0, "\"errors\" has an entry of the module afterwards");
}

/// The lines are set to the state that they have: on a board they drive something.
void setsGpio(Session& session) {
  const auto linesNow = [&session] {
    const Answer answer = session.client().ask(C::SYSMGR_GET_GPIO_CONFIGURATION);
    return answer.document.isObject() ? answer.document["gpio"] : Json::Value();
  };
  const Json::Value before = linesNow();
  for (const char* const body : {R"({"sysmgr-conformance":{"value":true}})", R"({"sysmgr-conformance":1})"}) {
    session.expectRefused(session.client().ask("17", body));
  }
  if (!before.isObject()) return;  // another rule
  for (const std::string& line : before.getMemberNames()) {
    for (const char* const member : {"output", "value"}) {
      Json::Value body(Json::objectValue);
      body[line][member] = before[line].isObject() ? before[line][member] : Json::Value();
      session.expectAccepted(session.client().ask(C::SYSMGR_SET_GPIO_CONFIGURATION, body));
    }
    Json::Value other(Json::objectValue);
    other[line]["sysmgr-conformance"] = true;
    session.expectRefused(session.client().ask(C::SYSMGR_SET_GPIO_CONFIGURATION, other));
    other[line].clear();
    other[line]["value"] = 1;
    session.expectRefused(session.client().ask(C::SYSMGR_SET_GPIO_CONFIGURATION, other));
  }
  session.expect(isSame(before, linesNow()),
                 "the GPIO lines were set to the state that they had, and they are now " + shown(linesNow()));
}

void refusesIdentify(Session& session) {
  const Json::Value before = session.stored();
  for (const char* const body :
       {"{}", R"({"identify-enable":1})", R"({"identify-enable":"on"})", R"({"identify-enable":null})",
        R"({"other":true})", R"({"identify-enable":true,"other":true})"}) {
    session.expectRefused(session.client().ask("19", body));
  }
  session.expect(isSame(before, session.stored()), "the stored parameters are others afterwards");
}

}  // namespace

void appendListChecks(std::vector<Check>& checks) {
  const Check kChecks[] = {
      {"eth-adds", "", Needs::kWrite, addsInterface},
      {"eth-replaces", "", Needs::kWrite, replacesInterface},
      {"eth-removes", "", Needs::kWrite, removesInterface},
      {"eth-add-first", "", Needs::kWrite, addsBeforeItRemoves},
      {"eth-valid", "", Needs::kWrite, refusesInvalidInterfaces},
      {"eth-valid", "unusual ones", Needs::kWrite, acceptsUnusualInterfaces},
      {"eth-dhcp", "", Needs::kWrite, hasNoAddressesWithDhcp},
      {"request-addresses", "", Needs::kWrite, refusesOtherSpellings},
      {"whitelist-add", "", Needs::kWrite, addsEntries},
      {"whitelist-remove", "", Needs::kWrite, removesEntries},
      {"whitelist-enable", "", Needs::kWrite, enablesEntries},
      {"whitelist-missing", "", Needs::kWrite, demandsAddressAndMask},
      {"whitelist-flag", "", Needs::kWrite, missingFlagIsFalse},
      {"whitelist-valid", "", Needs::kWrite, refusesInvalidEntries},
      {"whitelist-order", "", Needs::kWrite, carriesOutInOrder},
      {"whitelist-room", "", Needs::kWrite, hasRoom},
      {"whitelist-own", "", Needs::kWrite, protectsOwnEntries},
      {"published", "", Needs::kWrite, publishesEachChange},
      {"dynamic-published", "", Needs::kWrite, publishesDynamic},
      {"module-errors", "", Needs::kWrite, showsModules},
      {"module-types", "", Needs::kWrite, refusesModuleStates},
      {"module-names", "", Needs::kWrite, takesModuleNames},
      {"gpio-set", "", Needs::kWrite, setsGpio},
      {"identify", "", Needs::kWrite, refusesIdentify},
  };
  checks.insert(checks.end(), std::begin(kChecks), std::end(kChecks));
}

}  // namespace zel::conformance
