// Checks of subscribers that come late, of healing, of the factory reset, the reboot and a restart.

#include <cstdlib>

#include "client/commands.h"
#include "conformance/check.h"

namespace zel::conformance {

namespace {

using C = SysMgrCommands;
using Milliseconds = std::chrono::milliseconds;

constexpr Milliseconds kRestartLimit{15000};
constexpr char kHostMask[] = "255.255.255.255";
constexpr char kInterface[] = "sysmgr-conf0";

/// Subscribers of one topic each, that come after the others, and one that goes.
void servesLateSubscribers(Session& session) {
  const Json::Value before = session.stored();
  const bool present = valueAt(before, "sap/enable").asBool();
  const auto has = [](bool on) {
    return [on](const Json::Value& payload) { return valueAt(payload, "sap/enable") == on; };
  };
  Follower late(session.context(), session.options().notificationEndpoint, session.observer());
  late.subscribe(kStoredTopic);
  Follower ofOther(session.context(), session.options().notificationEndpoint, session.observer());
  ofOther.subscribe(kWhitelistTopic);
  // A subscription takes a moment to arrive. So the change is made again until the late one has seen it.
  bool on = !present;
  bool isSeen = false;
  for (int tries = 0; tries < 10 && !isSeen; ++tries, on = !on) {
    session.set("sap-enable", on);
    isSeen = late.waitFor(kStoredTopic, Milliseconds(300), has(on));
  }
  session.expect(isSeen, "a subscriber that came late saw no notification of 1000");
  session.follower().settle();
  late.unsubscribe(kStoredTopic);
  session.set("sap-enable", !present);
  session.set("sap-enable", present);
  session.expect(session.seen(kStoredTopic, has(present)),
                 "when another subscriber had gone, no notification of 1000 came");
  for (const Notice& notice : ofOther.settle()) {
    session.expect(notice.topic == kWhitelistTopic,
                   "a subscriber of 1004 got a notification of " + shown(notice.topic));
  }
}

/// A client that subscribes gets the present document of the topic.
void healsSubscribers(Session& session) {
  constexpr Milliseconds kHealed{1000};
  for (const char* const topic : {kStoredTopic, kDynamicTopic, kWhitelistTopic}) {
    Follower late(session.context(), session.options().notificationEndpoint, session.observer());
    late.subscribe(topic);
    session.expect(late.waitFor(topic, kHealed, [](const Json::Value&) { return true; }),
                   std::string("a client that subscribed to ") + topic + " got no document");
  }
}

/// A new subscriber of the reboot topic gets no notification: a reboot is an event, and the board has no document of
/// it.
void repeatsNoReboot(Session& session) {
  constexpr Milliseconds kRepeated{500};
  for (const char* const prefix : {kRebootTopic, ""}) {
    Follower late(session.context(), session.options().notificationEndpoint, session.observer());
    late.subscribe(prefix);
    session.expect(!late.waitFor(kRebootTopic, kRepeated, [](const Json::Value&) { return true; }),
                   "a client that subscribed to " + shown(std::string(prefix)) + " got a notification of 1002");
  }
}

struct ResetResult {
  Json::Value before;
  Json::Value after;
  Json::Value whitelistBefore;
  Json::Value whitelistAfter;
};

/// Changes something of each list, resets, and reads.
ResetResult changeAndReset(Session& session) {
  ResetResult result;
  session.set("add-eth-cfg", [] {
    Json::Value entry(Json::objectValue);
    entry["eth"] = kInterface;
    entry["mode"] = "DHCP";
    return entry;
  }());
  session.set("rtsp-tcp-port", 5123);
  session.changeWhitelist(C::SYSMGR_ADD_MCAST_WHITELIST, session.freeGroups(1).front(), kHostMask, true);
  result.before = session.stored();
  result.whitelistBefore = session.whitelist();
  session.follower().settle();
  session.expectAccepted(session.client().ask(C::SYSMGR_FACTORY_RESET));
  result.after = session.stored();
  result.whitelistAfter = session.whitelist();
  return result;
}

void resetRestores(Session& session) {
  const ResetResult first = changeAndReset(session);
  session.expect(session.seen(kStoredTopic, [&](const Json::Value& payload) { return isSame(payload, first.after); }),
                 "no notification of 1000 had the stored parameters after the reset");
  session.expect(!isSame(valueAt(first.after, "rtsp/tcp-port"), 5123), "the reset left \"rtsp/tcp-port\"");
  for (const Json::Value& entry : first.after["ethipv4"]) {
    session.expect(entry["eth"] != kInterface, "the reset left an interface that was added");
  }
  const ResetResult second = changeAndReset(session);
  session.expect(isSame(first.after, second.after),
                 "after a second reset the stored parameters are others than after the first");
}

void resetKeeps(Session& session) {
  const Json::Value model = session.query(C::SYSMGR_GET_BOARD_MODEL);
  const ResetResult result = changeAndReset(session);
  session.expect(isSame(result.before["serial-number"], result.after["serial-number"]),
                 "the reset changed the serial number");
  session.expect(isSame(model, session.query(C::SYSMGR_GET_BOARD_MODEL)), "the reset changed the board model");
  const ResetResult again = changeAndReset(session);
  session.expect(isSame(result.whitelistAfter, again.whitelistAfter), "a second reset left another whitelist");
}

void resetClearsWhitelist(Session& session) {
  const ResetResult result = changeAndReset(session);
  session.expect(result.whitelistAfter.size() < result.whitelistBefore.size(),
                 "the reset left the whitelist with " + std::to_string(result.whitelistAfter.size()) + " entries");
  session.expect(session.seen(kWhitelistTopic,
                              [&](const Json::Value& payload) {
                                return payload.isObject() && isSame(payload[kWhitelistMember], result.whitelistAfter);
                              }),
                 "no notification of 1004 had the whitelist after the reset");
}

void publishesReboot(Session& session) {
  session.follower().settle();
  const Answer answer = session.client().ask(C::SYSMGR_REBOOT_DEVICE);
  session.expectAccepted(answer);
  session.expect(session.seen(kRebootTopic, [](const Json::Value&) { return true; }), "no notification of 1002 came");
}

/// Restarts the daemon. @return whether it takes requests again on the connections that there are
bool restart(Session& session) {
  const int status = std::system(session.options().restartCommand.c_str());
  if (!session.expect(status == 0, "the restart command ended with status " + std::to_string(status))) return false;
  session.client().reconnect();
  session.other().reconnect();
  return session.expect(session.client().waitUntilServed(kRestartLimit),
                        "after the restart " + session.options().requestEndpoint + " takes no request");
}

void bindsAgain(Session& session) {
  const Json::Value before = session.stored();
  const bool present = valueAt(before, "sap/enable").asBool();
  if (!restart(session)) return;
  session.expect(session.client().ask(C::SYSMGR_GET_BOARD_MODEL).accepted(),
                 "after the restart a query was not answered");
  // The follower's own socket connects again and subscribes again: that takes a moment.
  bool isSeen = false;
  for (int tries = 0; tries < 20 && !isSeen; ++tries) {
    const bool on = tries % 2 == 0 ? !present : present;
    session.set("sap-enable", on);
    isSeen = session.follower().waitFor(kStoredTopic, Milliseconds(200), [on](const Json::Value& payload) {
      return valueAt(payload, "sap/enable") == on;
    });
  }
  session.expect(isSeen, "after the restart a subscriber of before saw no notification of 1000");
  session.set("sap-enable", present);
}

void setSlot(Session& session, const Json::Value& slot) {
  Json::Value block(Json::objectValue);
  block["slot-id"] = slot;
  session.set("nmos", block);
}

void identify(Session& session, const Json::Value& isOn) {
  Json::Value body(Json::objectValue);
  body["identify-enable"] = isOn;
  session.client().ask(C::SYSMGR_SET_IDENTIFY_LEDS, body);
}

/// Changes something of each kind, restarts and reads.
void keepsOverRestart(Session& session) {
  const Json::Value original = session.stored();
  if (valueAt(original, "cfg/autosave-enable") != true) return session.skip("\"cfg/autosave-enable\" is not true");
  const std::string group = session.freeGroups(1).front();
  session.changeWhitelist(C::SYSMGR_ADD_MCAST_WHITELIST, group, kHostMask, true);
  session.set("rtsp-tcp-port", isSame(valueAt(original, "rtsp/tcp-port"), 5004) ? 5006 : 5004);
  Json::Value interface(Json::objectValue);
  interface["eth"] = kInterface;
  interface["mode"] = "DHCP";
  session.set("add-eth-cfg", interface);
  setSlot(session, isSame(valueAt(original, "nmos/slot-id"), 1) ? 2 : 1);
  identify(session, valueAt(original, "cfg/identify-enable") != true);
  const Json::Value before = session.stored();
  const Json::Value whitelist = session.whitelist();
  if (restart(session)) {
    const Json::Value after = session.stored();
    session.expect(isSame(before, after), "after the restart the stored parameters are " + shown(after));
    session.expect(isSame(whitelist, session.whitelist()), "after the restart the whitelist is another one");
  }
  session.changeWhitelist(C::SYSMGR_REMOVE_MCAST_WHITELIST, group, kHostMask, true);
  session.set("rtsp-tcp-port", valueAt(original, "rtsp/tcp-port"));
  session.set("rem-eth-cfg", kInterface);
  setSlot(session, valueAt(original, "nmos/slot-id"));
  identify(session, valueAt(original, "cfg/identify-enable"));
}

}  // namespace

void appendLifeChecks(std::vector<Check>& checks) {
  const Check kChecks[] = {
      {"late-subscriber", "", Needs::kWrite, servesLateSubscribers},
      {"healing", "", Needs::kNothing, healsSubscribers},
      {"healing-reboot", "", Needs::kNothing, repeatsNoReboot},
      {"reset-keeps", "", Needs::kReset, resetKeeps},  // first: another reset would have changed what it compares
      {"reset-restores", "", Needs::kReset, resetRestores},
      {"reset-whitelist", "", Needs::kReset, resetClearsWhitelist},
      {"reboot-published", "", Needs::kReboot, publishesReboot},
      {"restart-binds", "", Needs::kRestart, bindsAgain},
      {"restart-keeps", "", Needs::kRestart, keepsOverRestart},
  };
  checks.insert(checks.end(), std::begin(kChecks), std::end(kChecks));
}

}  // namespace zel::conformance
