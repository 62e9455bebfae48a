// Checks of the envelope, the frames, malformed requests and queries. None of them changes anything.

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

#include "client/commands.h"
#include "common/envelope.h"
#include "conformance/check.h"
#include "conformance/raw_connection.h"

namespace zel::conformance {

namespace {

using C = SysMgrCommands;

constexpr int kUnknownCommand = -2;
constexpr int kReserved[] = {9, 10, 11, 20, 21, 100, 999};
/// The highest ids; a daemon's own ones are lower.
constexpr const char* kHighestIds[] = {"2147483648", "4294967295"};

void bothEndpoints(Session& session) {
  session.client().ask(C::SYSMGR_GET_BOARD_MODEL);
  for (const std::string& endpoint : {session.options().requestEndpoint, session.options().notificationEndpoint}) {
    session.expect(RawConnection(endpoint).isOpen(), endpoint + " takes no connection");
  }
}

/// Sends every query; the observer judges the answers.
void askAll(Session& session) {
  for (const CommandRow& row : kCommands) {
    if (isQueryId(row.id)) session.client().ask(row.id);
  }
}

void queriesAreQuiet(Session& session) {
  const Json::Value stored = session.stored();
  const Json::Value whitelist = session.whitelist();
  session.follower().settle();
  askAll(session);
  for (const Notice& notice : session.follower().settle()) {
    session.expect(notice.topic == kDynamicTopic,
                   "a notification of " + shown(notice.topic) + " came while only queries were sent");
  }
  session.expect(isSame(stored, session.stored()), "the stored parameters are others after queries");
  session.expect(isSame(whitelist, session.whitelist()), "the whitelist is another one after queries");
}

/// Behind an envelope of several frames comes an answer with the same ones.
void keepsEnvelope(Session& session) {
  std::vector<std::string> longest(13, "frame");  // with the two frames of the request: 16
  longest.emplace_back();
  const std::vector<std::vector<std::string>> kEnvelopes = {
      {std::string("\0\0\0\1", 4), ""}, {""}, {std::string("\xff\x00\x01", 3), "another frame", ""}, longest};
  for (const std::vector<std::string>& envelope : kEnvelopes) {
    RawDealer dealer(session.context(), session.options().requestEndpoint);
    std::vector<std::string> request = envelope;
    request.insert(request.end(), {"3", ""});
    std::vector<std::string> answer;
    if (!session.expect(dealer.exchange(request, answer, session.options().patience),
                        "a request with an envelope of " + std::to_string(envelope.size()) + " frames had no answer")) {
      return;
    }
    session.expect(answer.size() == envelope.size() + 1 && std::equal(envelope.begin(), envelope.end(), answer.begin()),
                   "an envelope of " + std::to_string(envelope.size()) + " frames came back as " +
                       std::to_string(answer.size() - std::min<std::size_t>(answer.size(), 1)) +
                       ", or with other bytes");
  }
}

void keepsOrder(Session& session) {
  struct Step {
    int id;
    const char* member;
  };
  constexpr Step kSteps[] = {{C::SYSMGR_GET_BOARD_MODEL, "board-model"},
                             {C::SYSMGR_GET_STORED_PARAMETERS, "stored"},
                             {C::SYSMGR_GET_BOARD_MODEL, "board-model"},
                             {C::SYSMGR_GET_DYNAMIC_PARAMETERS, "dynamic"},
                             {C::SYSMGR_GET_SYSTEM_INFO, "systemInfo"}};
  RawDealer dealer(session.context(), session.options().requestEndpoint);
  for (const Step& step : kSteps) dealer.send({"n", "", std::to_string(step.id), ""});
  for (const Step& step : kSteps) {
    std::vector<std::string> answer;
    if (!session.expect(dealer.receive(answer, session.options().patience),
                        "one of several requests that were sent one behind the other had no answer")) {
      return;
    }
    session.expect(answer.back().find("\"" + std::string(step.member) + "\"") != std::string::npos,
                   "instead of the answer with \"" + std::string(step.member) + "\" came " + shown(answer.back()));
  }
}

void refusesEach(Session& session, const std::vector<std::vector<std::string>>& requests) {
  for (const std::vector<std::string>& request : requests) session.expectRefused(session.client().askFrames(request));
}

void refusesFrames(Session& session) { refusesEach(session, {{"3"}, {"3", "", ""}, {"3", "", "", "", ""}}); }

void refusesIds(Session& session) {
  for (const char* const id : {"", "two", "-1", "1.0", "0x1", "3x", "4294967296", "99999999999999999999"}) {
    session.expectRefused(session.client().ask(id, ""));
  }
}

void refusesOtherBodies(Session& session) {
  for (const char* const id : {"2", "7", "13", "14", "15", "17", "19"}) {
    for (const char* const body : {"", "null", "[]", "1", "\"text\""}) {
      session.expectRefused(session.client().ask(id, body));
    }
  }
  for (const char* const body : {"[]", "1", "\"text\""}) session.expectRefused(session.client().ask("18", body));
}

void ignoresNeedlessBodies(Session& session) {
  for (const char* const id : {"0", "3", "16"}) session.expectAccepted(session.client().ask(id, R"({"needless":1})"));
}

void refusesReserved(Session& session) {
  for (const int id : kReserved) {
    const Answer answer = session.client().ask(id);
    session.expect(answer.status() == kUnknownCommand, answer.request + " was not refused with -2: " + answer.text());
  }
}

void refusesOnlyUnknown(Session& session) {
  for (const std::string& id :
       {std::to_string(kReserved[3]), std::string(kHighestIds[0]), std::string(kHighestIds[1])}) {
    const Answer unknown = session.client().ask(id, "");
    session.expect(unknown.status() == kUnknownCommand,
                   unknown.request + " was not refused with -2: " + unknown.text());
  }
  for (const CommandRow& row : kCommands) {
    if (row.id == C::SYSMGR_FACTORY_RESET || row.id == C::SYSMGR_REBOOT_DEVICE) continue;
    const Answer answer = session.client().ask(std::to_string(int{row.id}), "null");
    session.expect(answer.status() != kUnknownCommand, answer.request + " was refused with -2: " + answer.text());
  }
}

void hasMember(Session& session, int id, const char* member, bool isText) {
  const Answer answer = session.client().ask(id);
  const CommandRow* const row = findCommand(static_cast<C::sysmgr_msg_t>(id));
  Json::Value holder = answer.document;
  if (row != nullptr && row->payload != nullptr && holder.isObject()) holder = holder[row->payload];
  const Json::Value value = holder.isObject() ? holder[member] : Json::Value();
  session.expect(isText ? value.isString() : value.isObject(),
                 answer.request + " was answered without \"" + member + "\": " + answer.text());
}

/// A socket that is bound to one address of the loopback is not reached by another one.
void bindsLoopbackOnly(Session& session) {
  constexpr char kBound[] = "tcp://127.0.0.1:";
  for (const std::string& endpoint : {session.options().requestEndpoint, session.options().notificationEndpoint}) {
    if (endpoint.rfind(kBound, 0) != 0) return session.skip(endpoint + " is not an endpoint on 127.0.0.1");
    const std::string other = "tcp://127.0.0.2:" + endpoint.substr(std::size(kBound) - 1);
    session.expect(!RawConnection(other).isOpen(), other + " takes connections, so more than 127.0.0.1 is bound");
  }
}

void toleratesIdleClients(Session& session) {
  const RawConnection silent(session.options().requestEndpoint);
  RawDealer greedy(session.context(), session.options().requestEndpoint);  // never reads
  for (int i = 0; i < 200; ++i) greedy.send({"n", "", "0", ""});
  RawConnection half(session.options().notificationEndpoint);
  half.write("\xff");  // the first byte of a greeting
  const auto begin = std::chrono::steady_clock::now();
  session.expect(session.client().ask(C::SYSMGR_GET_BOARD_MODEL).came, "beside idle clients a request had no answer");
  session.expect(session.other().ask(C::SYSMGR_GET_BOARD_MODEL).came, "beside idle clients a request had no answer");
  session.expect(std::chrono::steady_clock::now() - begin < std::chrono::seconds(2),
                 "beside idle clients two requests took more than 2 s");
}

void survivesGarbage(Session& session) {
  for (const std::string& endpoint : {session.options().requestEndpoint, session.options().notificationEndpoint}) {
    RawConnection(endpoint).write("GET / HTTP/1.1\r\n\r\n");
    RawConnection(endpoint).write(std::string(300, '\xfe'));
  }
  RawDealer dealer(session.context(), session.options().requestEndpoint);
  dealer.send({"no empty frame"});
  dealer.send({"n", ""});
  dealer.send(std::vector<std::string>(40, "n"));
  dealer.send({"n", "", "3", std::string(100000, '[')});
  RawDealer other(session.context(), session.options().requestEndpoint);
  other.send({"n", "", "3", std::string(kMaxFrameBytes + 1, ' ')});
  std::vector<std::string> ignored;
  other.receive(ignored, std::chrono::milliseconds(100));
  session.expect(session.client().ask(C::SYSMGR_GET_BOARD_MODEL).came,
                 "after malformed messages a request had no answer");
}

void refusesOverLongFrames(Session& session) {
  RawDealer dealer(session.context(), session.options().requestEndpoint);
  std::vector<std::string> answer;
  dealer.send({"n", "", "3", std::string(kMaxFrameBytes + 1, ' ')});
  if (!dealer.receive(answer, std::chrono::milliseconds(200))) return;
  session.expect(answer.back().find("\"board-model\"") == std::string::npos,
                 "a request with a frame of " + std::to_string(kMaxFrameBytes + 1) + " bytes was carried out");
}

}  // namespace

void appendRequestChecks(std::vector<Check>& checks) {
  const Check kChecks[] = {
      {"endpoints", "", Needs::kNothing, bothEndpoints},
      {"loopback", "", Needs::kNothing, bindsLoopbackOnly},
      {"queries-succeed", "each once", Needs::kNothing,
       [](Session& session) {
         askAll(session);
         for (const std::string& text : session.observer().findings("queries-succeed")) session.fail(text);
       }},
      {"queries-quiet", "", Needs::kNothing, queriesAreQuiet},
      {"envelope", "", Needs::kNothing, keepsEnvelope},
      {"request-order", "", Needs::kNothing, keepsOrder},
      {"malformed-frames", "", Needs::kNothing, refusesFrames},
      {"malformed-id", "", Needs::kNothing, refusesIds},
      {"body-object", "", Needs::kNothing, refusesOtherBodies},
      {"needless-body", "", Needs::kNothing, ignoresNeedlessBodies},
      {"unknown-command", "", Needs::kNothing, refusesOnlyUnknown},
      {"reserved-ids", "", Needs::kNothing, refusesReserved},
      {"gpio-get", "", Needs::kNothing,
       [](Session& session) { hasMember(session, C::SYSMGR_GET_GPIO_CONFIGURATION, "gpio", false); }},
      {"system-version", "", Needs::kNothing,
       [](Session& session) { hasMember(session, C::SYSMGR_GET_SYSTEM_INFO, "software-version", true); }},
      {"many-clients", "", Needs::kNothing, toleratesIdleClients},
      {"survives", "", Needs::kNothing, survivesGarbage},
      {"request-size", "", Needs::kNothing, refusesOverLongFrames},
  };
  checks.insert(checks.end(), std::begin(kChecks), std::end(kChecks));
}

}  // namespace zel::conformance
