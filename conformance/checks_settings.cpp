// Checks of command 2 and command 19: every row of types/settings.h that a request can set.

#include <algorithm>
#include <cctype>
#include <limits>

#include "client/commands.h"
#include "conformance/check.h"

namespace zel::conformance {

namespace {

using C = SysMgrCommands;
using Kind = SettingRow::Kind;
using Route = SettingRow::Route;

// --- a row as a request

bool isSettableRow(const SettingRow& row) {
  const bool hasRoute = row.route == Route::kKey || row.route == Route::kBlock || row.route == Route::kIdentify;
  return hasRoute && row.kind != Kind::kBlock;
}

std::vector<const SettingRow*> settableRows() {
  std::vector<const SettingRow*> rows;
  settings::forEach([&](const SettingRow& row) {
    if (isSettableRow(row)) rows.push_back(&row);
  });
  return rows;
}

int commandOf(const SettingRow& row) {
  return row.route == Route::kIdentify ? C::SYSMGR_SET_IDENTIFY_LEDS : C::SYSMGR_SET_PARAMETER;
}

/// The name of the row's value in its block.
std::string memberOf(const SettingRow& row) {
  const std::string path = row.path;
  return path.substr(path.find('/') + 1);
}

Json::Value bodyOf(const SettingRow& row, const Json::Value& value) {
  Json::Value body(Json::objectValue);
  (row.route == Route::kBlock ? body[row.key][memberOf(row)] : body[row.key]) = value;
  return body;
}

Answer ask(Client& client, const SettingRow& row, const Json::Value& value) {
  return client.ask(commandOf(row), bodyOf(row, value));
}

std::string textOf(const Json::Value& body) {
  std::string text;
  writeWireJson(body, text);
  return text;
}

// --- values

/// Values that the daemon accepts: the ends of a range, every text of an enumeration. The first one is not the present
/// one.
std::vector<Json::Value> goodValues(const SettingRow& row, const Json::Value& present) {
  std::vector<Json::Value> values;
  switch (row.kind) {
    case Kind::kSwitch: values = {true, false}; break;
    case Kind::kNumber:
      values = {Json::Int64{row.values.least}, Json::Int64{row.values.most},
                Json::Int64{row.values.least + (row.values.most - row.values.least) / 2}};
      break;
    case Kind::kChoice:
      for (const char* const text : row.choices()) values.emplace_back(text);
      break;
    default:
      values = {"sysmgr-conformance", std::string(static_cast<std::size_t>(row.values.most), 'x'),
                "\"\\ /\t\xc3\xa9\xe2\x82\xac"};
      if (row.values.least == 0) values.emplace_back("");
      break;
  }
  const auto isOther = [&present](const Json::Value& value) { return !isSame(value, present); };
  std::stable_partition(values.begin(), values.end(), isOther);
  return values;
}

/// A value that no notification of this run has had before; null where the row has too few values.
Json::Value freshValue(const SettingRow& row, const Json::Value& present) {
  if (row.kind == Kind::kText)
    return present == "sysmgr-conformance, new" ? "sysmgr-conformance, other" : "sysmgr-conformance, new";
  if (row.kind != Kind::kNumber) return {};
  const Json::Value third = Json::Int64{row.values.least + (row.values.most - row.values.least) / 3};
  return isSame(third, present) ? Json::Value(third.asInt64() + 1) : third;
}

/// Values of the right type that the daemon refuses.
std::vector<Json::Value> badValues(const SettingRow& row) {
  constexpr auto kMost = std::numeric_limits<Json::Int64>::max();
  switch (row.kind) {
    case Kind::kSwitch: return {};
    case Kind::kNumber:
      return {Json::Int64{row.values.least - 1}, Json::Int64{row.values.most + 1}, Json::Int64{-kMost},
              Json::Int64{kMost}, Json::UInt64{std::numeric_limits<Json::UInt64>::max()}};
    case Kind::kChoice: return {"sysmgr-conformance", "Sdi-St2110", "LOW_LATENCY"};
    default: {
      const auto most = static_cast<std::size_t>(row.values.most);
      std::string wide;  // one byte too long, and with few characters
      for (std::size_t i = 0; i <= most / 2; ++i) wide += "\xc3\xa9";
      std::vector<Json::Value> values = {std::string(most + 1, 'x'), wide};
      if (row.values.least > 0) values.emplace_back("");
      return values;
    }
  }
}

/// Bodies with a value of another type, as text: JsonCpp would not write all of them.
std::vector<std::string> bodiesOfOtherTypes(const SettingRow& row) {
  std::vector<std::string> values = {"null", "[]", "{}", "1.5"};
  if (row.kind == Kind::kSwitch) values.insert(values.end(), {"0", "1", "\"true\""});
  if (row.kind == Kind::kNumber) {
    values.insert(values.end(), {"true", "\"" + std::to_string(row.values.least) + "\"",
                                 std::to_string(row.values.least) + ".0", std::to_string(row.values.least) + "e0"});
  }
  if (row.kind == Kind::kText || row.kind == Kind::kChoice) values.insert(values.end(), {"true", "1"});
  std::vector<std::string> bodies;
  const std::string mark = "\"@\"";
  const std::string body = textOf(bodyOf(row, "@"));
  bodies.reserve(values.size());
  for (const std::string& value : values) {
    bodies.push_back(body.substr(0, body.find(mark)) + value + body.substr(body.find(mark) + mark.size()));
  }
  return bodies;
}

/// Whether a value that is changed can be put back. No request makes a value unset again; a reset does.
bool canBePutBack(Session& session, const SettingRow& row, const Json::Value& present) {
  const bool isSet = !present.isNull() && (row.kind != Kind::kChoice || row.acceptsChoice(present.asString()));
  const bool isUnset = isSet && row.kind == Kind::kChoice && !row.values.reads(present.asString()) &&
                       present.asString() == row.values.text(0) && row.values.least > 0;
  if ((isSet && !isUnset) || session.options().allowReset) return true;
  session.skip("nothing is set there, and only a reset (--allow-reset) makes it unset again");
  return false;
}

void putBack(Session& session, const SettingRow& row, const Json::Value& present) {
  if (!present.isNull()) ask(session.client(), row, present);
}

// --- checks of a row

void acceptsEach(Session& session, const SettingRow& row) {
  const Json::Value present = valueAt(session.stored(), row.path);
  if (!canBePutBack(session, row, present)) return;
  for (const Json::Value& value : goodValues(row, present)) {
    const Answer answer = ask(session.client(), row, value);
    if (!session.expectAccepted(answer)) continue;
    const Json::Value now = valueAt(session.stored(), row.path);
    session.expect(isSame(now, value), answer.request + " was accepted, and \"" + row.path + "\" is " + shown(now));
  }
  putBack(session, row, present);
}

/// The change is there for another client as soon as its notification, or its answer, is.
void isInForceWhenPublished(Session& session, const SettingRow& row) {
  const Json::Value present = valueAt(session.stored(), row.path);
  if (!canBePutBack(session, row, present)) return;
  Json::Value value = freshValue(row, present);
  if (value.isNull()) {
    value = goodValues(row, present).front();
    session.follower().settle();  // no notification of an earlier change is to be taken for this one's
  }
  session.client().drain();
  session.client().send({std::to_string(commandOf(row)), textOf(bodyOf(row, value))});
  const auto isIt = [&](const Json::Value& payload) { return isSame(valueAt(payload, row.path), value); };
  const bool isSeen = session.seen(kStoredTopic, isIt);
  Json::Value now;
  if (isSeen) {
    const Answer stored = session.other().ask(C::SYSMGR_GET_STORED_PARAMETERS);
    if (stored.accepted()) now = valueAt(stored.document["stored"], row.path);
  }
  const Answer answer = session.client().receive();
  session.expect(isSeen || !answer.accepted(), answer.request + " was accepted, and no notification of 1000 had " +
                                                   shown(value) + " in \"" + row.path + "\"");
  session.expect(!isSeen || isSame(now, value),
                 "when the notification of " + answer.request + " was there, \"" + row.path + "\" was " + shown(now));
  putBack(session, row, present);
}

void refusesBad(Session& session, const SettingRow& row) {
  const Json::Value before = session.stored();
  for (const Json::Value& value : badValues(row)) session.expectRefused(ask(session.client(), row, value));
  if (!session.expect(isSame(before, session.stored()), "the stored parameters are others afterwards")) {
    putBack(session, row, valueAt(before, row.path));
  }
}

void refusesOtherTypes(Session& session, const SettingRow& row) {
  const Json::Value before = session.stored();
  for (const std::string& body : bodiesOfOtherTypes(row)) {
    session.expectRefused(session.client().ask(std::to_string(commandOf(row)), body));
  }
  if (!session.expect(isSame(before, session.stored()), "the stored parameters are others afterwards")) {
    putBack(session, row, valueAt(before, row.path));
  }
}

// --- checks of the command

Json::Value otherPort(const Json::Value& stored) {
  return isSame(valueAt(stored, "rtsp/tcp-port"), 5004) ? 5006 : 5004;
}

void putPortBack(Session& session, const Json::Value& before) {
  session.set("rtsp-tcp-port", valueAt(before, "rtsp/tcp-port"));
}

void refusesNul(Session& session) {
  for (const SettingRow* const row : settableRows()) {
    if (row->kind != Kind::kText) continue;
    session.expectRefused(ask(session.client(), *row, std::string("a\0b", 3)));
  }
  // Texts that end at the NUL where they are read as those of C.
  for (const char* const entry :
       {R"({"eth":"sysmgr\u0000conf0","mode":"DHCP"})",
        R"({"eth":"sysmgr-conf0","mode":"static","static":{"ip":"192.168.77.1\u0000"}})",
        R"({"eth":"sysmgr-conf0","mode":"static","static":{"ip":"192.168.77.1","gw":"192.168.77.2\u0000x"}})"}) {
    const Answer answer = session.client().ask("2", std::string(R"({"add-eth-cfg":)") + entry + "}");
    if (!session.expectRefused(answer)) session.set("rem-eth-cfg", "sysmgr-conf0");
  }
  const std::string group = session.freeGroups(1).front();
  const Answer answer =
      session.client().ask("13", R"({"white-list":[{"ip":")" + group + R"(\u0000","mask":"255.255.255.255"}]})");
  if (!session.expectRefused(answer)) {
    session.changeWhitelist(C::SYSMGR_REMOVE_MCAST_WHITELIST, group, "255.255.255.255", false);
  }
}

void refusesHugeNumbers(Session& session) {
  const Json::Value before = session.stored();
  for (const char* const number :
       {"18446744073709551616", "-9223372036854775809", "99999999999999999999999", "1e400"}) {
    for (const std::string& body :
         {std::string(R"({"rtsp-tcp-port":)") + number + "}", std::string(R"({"nmos":{"slot-id":)") + number + "}}"}) {
      session.expectRefused(session.client().ask("2", body));
    }
  }
  session.expect(isSame(before, session.stored()), "the stored parameters are others afterwards");
}

/// A text that a daemon may take in place of another one.
void writesAliasesOut(Session& session) {
  struct Alias {
    const SettingRow& row;
    const char* text;
    const char* written;
  };
  const Json::Value before = session.stored();
  for (const Alias& alias : {Alias{settings::kBitstreamModule, "sdi-st2110", "SDI-ST2110"},
                             Alias{settings::kVideoTimingMode, "", "low_latency"}}) {
    const Json::Value present = valueAt(before, alias.row.path);
    if (!canBePutBack(session, alias.row, present)) continue;
    const Answer answer = ask(session.client(), alias.row, alias.text);
    const Json::Value now = valueAt(session.stored(), alias.row.path);
    session.expect(isSame(now, answer.accepted() ? Json::Value(alias.written) : present),
                   "after " + answer.request + " \"" + alias.row.path + "\" is " + shown(now));
    putBack(session, alias.row, present);
  }
}

void acceptsEmptyObjects(Session& session) {
  const Json::Value before = session.stored();
  struct Request {
    const char* id;
    const char* body;
  };
  for (const Request& request :
       {Request{"2", "{}"}, Request{"2", R"({"nmos":{}})"}, Request{"2", R"({"bitstream-type":{}})"},
        Request{"2", R"({"videoTimingParameters":{}})"}, Request{"7", "{}"},
        Request{"7", R"({"sysmgr-conformance":{}})"}, Request{"17", "{}"}}) {
    session.expectAccepted(session.client().ask(request.id, request.body));
  }
  session.expect(isSame(before, session.stored()), "the stored parameters are others afterwards");
}

void refusesUnknownKeys(Session& session) {
  for (const char* const key : {"sysmgr-conformance", "serial-number", "ptp-path", "ethipv4", "rtsp", "rtsp/tcp-port",
                                "RTSP-TCP-PORT", "identify-enable", ""}) {
    session.expectRefused(session.set(key, "text"));
  }
}

void setsSeveral(Session& session) {
  const Json::Value before = session.stored();
  Json::Value body(Json::objectValue);
  body["rtsp-tcp-port"] = otherPort(before);
  body["sap-enable"] = !valueAt(before, "sap/enable").asBool();
  const Answer answer = session.client().ask(C::SYSMGR_SET_PARAMETER, body);
  session.expectAccepted(answer);
  const Json::Value after = session.stored();
  session.expect(isSame(valueAt(after, "rtsp/tcp-port"), body["rtsp-tcp-port"]) &&
                     isSame(valueAt(after, "sap/enable"), body["sap-enable"]),
                 answer.request + " did not set both values");
  session.set("sap-enable", valueAt(before, "sap/enable"));
  putPortBack(session, before);
}

/// Requests of which one member is good and another one is not.
std::vector<Json::Value> halfGoodBodies(const Json::Value& before) {
  Json::Value unknown(Json::objectValue);
  unknown["rtsp-tcp-port"] = otherPort(before);
  unknown["zz-unknown"] = 1;
  Json::Value outOfRange = unknown;
  outOfRange.removeMember("zz-unknown");
  outOfRange["tdm-ch-per-line"] = 0;
  Json::Value interface = unknown;
  interface.removeMember("zz-unknown");
  interface["rem-eth-cfg"] = "sysmgr-conf-no";
  Json::Value block(Json::objectValue);
  block["nmos"]["enable"] = !valueAt(before, "nmos/enable").asBool();
  block["nmos"]["node-port"] = 0;
  return {unknown, outOfRange, interface, block};
}

void carriesOutAllOrNone(Session& session) {
  const Json::Value before = session.stored();
  for (const Json::Value& body : halfGoodBodies(before)) {
    const Answer answer = session.client().ask(C::SYSMGR_SET_PARAMETER, body);
    session.expectRefused(answer);
    session.expect(isSame(before, session.stored()), "a part of " + answer.request + " was carried out");
  }
  putPortBack(session, before);
  Json::Value block(Json::objectValue);
  block["nmos"]["enable"] = valueAt(before, "nmos/enable");
  session.client().ask(C::SYSMGR_SET_PARAMETER, block);
}

/// Refused requests of every kind, and the documents before and after.
void refusesAll(Session& session, const Json::Value& before) {
  for (const SettingRow* const row : settableRows()) {
    for (const Json::Value& value : badValues(*row)) ask(session.client(), *row, value);
  }
  for (const Json::Value& body : halfGoodBodies(before)) session.client().ask(C::SYSMGR_SET_PARAMETER, body);
  session.changeWhitelist(C::SYSMGR_ADD_MCAST_WHITELIST, "10.0.0.1", "255.255.255.255", true);
  session.changeWhitelist(C::SYSMGR_REMOVE_MCAST_WHITELIST, session.freeGroups(1).front(), "255.0.0.0", true);
  session.client().ask(999);
  session.client().ask("2", "{");
}

void changesNothingWhenRefused(Session& session) {
  const Json::Value before = session.stored();
  const Json::Value whitelist = session.whitelist();
  refusesAll(session, before);
  session.expect(isSame(before, session.stored()), "after refused requests the stored parameters are others");
  session.expect(isSame(whitelist, session.whitelist()), "after refused requests the whitelist is another one");
  putPortBack(session, before);
}

/// A change behind the refused requests marks where their notifications would have been.
void publishesNothingWhenRefused(Session& session) {
  const Json::Value before = session.stored();
  session.follower().settle();
  refusesAll(session, before);
  const Json::Value mark = otherPort(before);
  session.set("rtsp-tcp-port", mark);
  for (const Notice& notice : session.follower().settle()) {
    if (notice.topic == kStoredTopic && isSame(valueAt(notice.payload, "rtsp/tcp-port"), mark)) break;
    session.expect(notice.topic == kDynamicTopic,
                   "a notification of " + shown(notice.topic) + " came for a refused request");
  }
  putPortBack(session, before);
}

void isInForceWhenAnswered(Session& session) {
  const Json::Value before = session.stored();
  for (int i = 0; i < 20; ++i) {
    const Json::Value port = 5004 + i;
    if (!session.expectAccepted(session.set("rtsp-tcp-port", port))) break;
    const Answer answer = session.other().ask(C::SYSMGR_GET_STORED_PARAMETERS);
    const Json::Value now = answer.accepted() ? valueAt(answer.document["stored"], "rtsp/tcp-port") : Json::Value();
    session.expect(isSame(now, port),
                   "after " + shown(port) + " was accepted, another client was answered " + shown(now));
  }
  putPortBack(session, before);
}

void publishesInOrder(Session& session) {
  const Json::Value before = session.stored();
  session.follower().settle();
  constexpr int kFirst = 5100;
  constexpr int kLast = kFirst + 19;
  for (int port = kFirst; port <= kLast; ++port) session.set("rtsp-tcp-port", port);
  int last = 0;
  session.seen(kStoredTopic, [&](const Json::Value& payload) {
    const Json::Value port = valueAt(payload, "rtsp/tcp-port");
    if (!port.isInt()) return false;
    session.expect(port.asInt() >= last,
                   "a notification with " + shown(port) + " came behind one with " + std::to_string(last));
    last = port.asInt();
    return last == kLast;
  });
  session.expect(last == kLast, "the last notification has " + std::to_string(last) + ", and " + std::to_string(kLast) +
                                    " was set last");
  putPortBack(session, before);
}

// --- blocks

struct BlockRow {
  const SettingRow* block;
  std::vector<const SettingRow*> members;
};

std::vector<BlockRow> blockRows() {
  std::vector<BlockRow> blocks;
  settings::forEach([&](const SettingRow& row) {
    if (row.kind == Kind::kBlock) blocks.push_back({&row, {}});
    if (row.route == Route::kBlock) blocks.back().members.push_back(&row);
  });
  return blocks;
}

/// Sets every member to another value than it had, and then each one back: the others keep what they have.
void mergesBlock(Session& session, const BlockRow& row) {
  const Json::Value before = session.stored();
  std::vector<const SettingRow*> members;
  for (const SettingRow* const member : row.members) {
    const Json::Value present = valueAt(before, member->path);
    if (present.isNull() || !canBePutBack(session, *member, present)) continue;
    if (ask(session.client(), *member, goodValues(*member, present).front()).accepted()) members.push_back(member);
  }
  session.skip("");
  Json::Value last = session.stored();
  for (const SettingRow* const member : members) {
    const Answer answer = ask(session.client(), *member, valueAt(before, member->path));
    const Json::Value now = session.stored();
    for (const SettingRow* const each : row.members) {
      if (each == member || isSame(valueAt(now, each->path), valueAt(last, each->path))) continue;
      session.fail(answer.request + " changed \"" + each->path + "\" from " + shown(valueAt(last, each->path)) +
                   " to " + shown(valueAt(now, each->path)));
    }
    last = now;
  }
}

void refusesUnknownMembers(Session& session, const BlockRow& row) {
  Json::Value value(Json::objectValue);
  value["sysmgr-conformance"] = 1;
  session.expectRefused(session.set(row.block->key, value));
}

void takesBlockBack(Session& session, const BlockRow& row) {
  const Json::Value before = session.stored();
  Json::Value block = valueAt(before, row.block->path);
  if (!block.isObject()) return;  // another rule
  session.expectAccepted(session.set(row.block->key, block));
  if (row.block == &settings::kNmos) {
    Json::Value written;
    NmosParameters().Serialize(written);  // as the library's record writes it
    block["node-description"] = written["nmos"]["node-description"];
    session.expectAccepted(session.set(row.block->key, block));
  }
  session.expect(isSame(before, session.stored()), "the stored parameters are others after a block was sent back");
}

void refusesFixedTexts(Session& session) {
  Json::Value block(Json::objectValue);
  block["node-description"] = "sysmgr-conformance";
  session.expectRefused(session.set("nmos", block));
  const Json::Value mode = valueAt(session.stored(), "videoTimingParameters/timing-mode");
  if (mode == "unset") return;
  Json::Value timing(Json::objectValue);
  timing["timing-mode"] = "unset";
  session.expectRefused(session.set("videoTimingParameters", timing));
}

// --- malformed bodies, with the present value: a lenient daemon changes nothing either

std::string presentPort(Session& session) { return shown(valueAt(session.stored(), "rtsp/tcp-port")); }

void refusesMalformed(Session& session) {
  const std::string port = presentPort(session);
  const std::string good = "{\"rtsp-tcp-port\":" + port + "}";
  for (const std::string& body : {std::string("{"), std::string("text"), std::string("  "), good + " x", good + good,
                                  "{\"rtsp-tcp-port\":" + port + ",}", "/* */" + good, "{rtsp-tcp-port:" + port + "}",
                                  "{'rtsp-tcp-port':" + port + "}", good.substr(0, good.size() - 1)}) {
    session.expectRefused(session.client().ask("2", body));
  }
}

void readsStrictly(Session& session) {
  const Json::Value before = session.stored();
  const std::string port = presentPort(session);
  session.expectRefused(session.client().ask("2", "{\"rtsp-tcp-port\":" + port + ",\"rtsp-tcp-port\":" + port + "}"));
  session.expectRefused(session.client().ask("2", "{\"board-name-prefix\":\"a\xff\"}"));
  session.set("board-name-prefix", valueAt(before, "advert/board-name-prefix"));
}

void usesStatuses(Session& session) {
  struct Case {
    const char* id;
    const char* body;
    int status;
  };
  constexpr Case kCases[] = {
      {"2", "{", -3},
      {"2", "[]", -3},
      {"x", "", -3},
      {"2", R"({"sysmgr-conformance":1})", -5},
      {"2", R"({"nmos":{"sysmgr-conformance":1}})", -5},
      {"2", R"({"rtsp-tcp-port":"text"})", -6},
      {"2", R"({"rtsp-tcp-port":0})", -7},
      {"2", R"({"bitstream-type":{"module":"sysmgr-conformance"}})", -7},
      {"2", R"({"add-eth-cfg":{"eth":"sysmgr-conf-no","mode":"DHCP","sysmgr-conformance":1}})", -5},
      {"2", R"({"add-eth-cfg":{"eth":"sysmgr-conf-no","static":{"ip":1}}})", -6},
      {"2", R"({"add-eth-cfg":{"eth":"sysmgr-conf-no","mode":"dhcp"}})", -7},
      {"2", R"({"add-eth-cfg":{"mode":"DHCP"}})", -7},
      {"2", R"({"rem-eth-cfg":"sysmgr-conf-no"})", -16},
      {"2", R"({"rem-eth-cfg":"an-interface-name-that-is-long"})", -16},
      {"2", R"({"add-eth-cfg":{"eth":"sysmgr-conf-no","mode":"static","static":{"ip":"224.0.0.1"}}})", -27},
      {"13", R"({"white-list":[{"ip":"10.0.0.1","mask":"255.255.255.255","enabled":true}]})", -27},
      {"13", R"({"white-list":[{"ip":"239.201.79.1"}]})", -27},
      {"13", R"({"white-list":[{"ip":"239.201.79.1","mask":"255.255.255.255","sysmgr-conformance":1}]})", -5},
      {"13", R"({"white-list":[{"ip":1,"mask":"255.255.255.255"}]})", -6},
      {"13", R"({"white-list":[]})", -7},
      {"13", "{}", -6},
      {"14", R"({"white-list":[{"ip":"239.201.79.1","mask":"255.255.255.255"}]})", -8},
      {"17", R"({"sysmgr-conformance":{"value":true}})", -5},
      {"18", R"({"sysmgr-conformance":{}})", -8},
      {"19", "{}", -6},
      {"19", R"({"identify-enable":1})", -6},
  };
  for (const Case& each : kCases) {
    const Answer answer = session.client().ask(each.id, each.body);
    if (!answer.refused()) continue;  // another rule
    session.expect(answer.status() == each.status, answer.request + " was refused with " +
                                                       std::to_string(answer.status()) + " instead of " +
                                                       std::to_string(each.status));
  }
}

}  // namespace

void appendSettingChecks(std::vector<Check>& checks) {
  struct RowCheck {
    const char* rule;
    void (*run)(Session& session, const SettingRow& row);
  };
  constexpr RowCheck kRowChecks[] = {
      {"set-accepts", acceptsEach},
      {"published-in-force", isInForceWhenPublished},
      {"set-range", refusesBad},
      {"set-type", refusesOtherTypes},
  };
  for (const RowCheck& check : kRowChecks) {
    for (const SettingRow* const row : settableRows()) {
      checks.push_back(
          {check.rule, row->path, Needs::kWrite, [check, row](Session& session) { check.run(session, *row); }});
    }
  }
  struct BlockCheck {
    const char* rule;
    void (*run)(Session& session, const BlockRow& row);
  };
  constexpr BlockCheck kBlockChecks[] = {
      {"block-merges", mergesBlock}, {"block-unknown", refusesUnknownMembers}, {"block-fixed", takesBlockBack}};
  for (const BlockCheck& check : kBlockChecks) {
    for (const BlockRow& row : blockRows()) {
      checks.push_back(
          {check.rule, row.block->path, Needs::kWrite, [check, row](Session& session) { check.run(session, row); }});
    }
  }
  const Check kChecks[] = {
      {"block-fixed-other", "", Needs::kWrite, refusesFixedTexts},
      {"set-range", "aliases", Needs::kWrite, writesAliasesOut},
      {"set-huge", "", Needs::kWrite, refusesHugeNumbers},
      {"set-nul", "", Needs::kWrite, refusesNul},
      {"set-unknown", "", Needs::kWrite, refusesUnknownKeys},
      {"set-members", "", Needs::kWrite, setsSeveral},
      {"empty-object", "", Needs::kWrite, acceptsEmptyObjects},
      {"all-or-none", "", Needs::kWrite, carriesOutAllOrNone},
      {"refused-whole", "", Needs::kWrite, changesNothingWhenRefused},
      {"refused-quietly", "", Needs::kWrite, publishesNothingWhenRefused},
      {"in-force", "", Needs::kWrite, isInForceWhenAnswered},
      {"notification-order", "", Needs::kWrite, publishesInOrder},
      {"malformed-body", "", Needs::kWrite, refusesMalformed},
      {"body-strict", "", Needs::kWrite, readsStrictly},
      {"statuses", "", Needs::kWrite, usesStatuses},
  };
  checks.insert(checks.end(), std::begin(kChecks), std::end(kChecks));
}

}  // namespace zel::conformance
