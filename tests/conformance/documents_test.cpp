// What the judge of documents finds.

#include "conformance/documents.h"

#include <gmock/gmock.h>

#include "common/logger.h"
#include "simulator/board.h"

namespace {

using testing::Contains;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using zel::conformance::Breach;
using zel::conformance::judgeDocument;

Json::Value answerOf(int id) {
  return zel::sim::Board(BoardModelType::KORVA).handle(static_cast<unsigned int>(id), Json::Value()).reply;
}
Json::Value stored() { return answerOf(0)["stored"]; }
Json::Value dynamic() { return answerOf(1)["dynamic"]; }

auto breaks(const char* rule, const char* path) {
  return Contains(AllOf(Field(&Breach::rule, rule), Field(&Breach::text, HasSubstr(path))));
}

TEST(Documents, OfTheVirtualBoardBreakNoRule) {
  for (const auto& [member, id] :
       {std::pair("stored", 0), std::pair("dynamic", 1), std::pair("board-model", 3), std::pair("white-list", 16)}) {
    for (const Breach& breach : judgeDocument(member, answerOf(id)[member])) {
      ADD_FAILURE() << breach.rule << ": " << breach.text;
    }
  }
}

TEST(Documents, BreakARuleWhereAValueIsWrong) {
  struct Row {
    const char* block;
    const char* key;
    Json::Value value;
    const char* rule;
  };
  const Row kRows[] = {
      {"rtsp", "tcp-port", "5004", "value-types"},
      {"rtsp", "tcp-port", 5004.5, "numbers"},
      {"rtsp", "tcp-port", true, "value-types"},
      {"rtsp", "tcp-port", Json::Value(), "no-null"},
      {"rtsp", "tcp-port", -1, "numbers"},
      {"rtsp", "tcp-port", 70000, "settable"},
      {"nmos", "slot-id", Json::UInt(4294967295U), "numbers"},
      {"sap", "enable", 1, "value-types"},
      {"advert", "eth-port", 7, "value-types"},
      {"advert", "eth-port", std::string("a\0b", 3), "no-nul"},
      {"bitstream", "module", "sdi-st2110", "exact-texts"},
      {"videoTimingParameters", "timing-mode", "ERROR", "exact-texts"},
      {"rtsp", "unknown", 1, "own-members"},
  };
  for (const Row& row : kRows) {
    Json::Value document = stored();
    document[row.block][row.key] = row.value;
    EXPECT_THAT(judgeDocument("stored", document), breaks(row.rule, row.key)) << row.rule;
  }
}

TEST(Documents, BreakARuleWhereAKeyIsMissing) {
  Json::Value document = stored();
  document["rtsp"].removeMember("tcp-port");
  document.removeMember("serial-number");
  document["ethipv4"][0].removeMember("mode");
  const std::vector<Breach> breaches = judgeDocument("stored", document);
  EXPECT_THAT(breaches, breaks("whole-documents", "rtsp/tcp-port"));
  EXPECT_THAT(breaches, breaks("whole-documents", "serial-number"));
  EXPECT_THAT(breaches, breaks("whole-documents", "ethipv4[i]/mode"));
}

TEST(Documents, MayLackWhatIsNotSet) {
  Json::Value document = stored();
  document.removeMember("ethipv4");
  document["nmos"].removeMember("node-description");
  EXPECT_THAT(judgeDocument("stored", document), IsEmpty());
}

TEST(Documents, BreakARuleWhereAListIsWrong) {
  Json::Value document = stored();
  document["ethipv4"].append(document["ethipv4"][0]);
  EXPECT_THAT(judgeDocument("stored", document), breaks("one-entry", "ethipv4"));

  document = stored();
  document["ethipv4"][0]["mode"] = "dhcp";
  EXPECT_THAT(judgeDocument("stored", document), breaks("exact-texts", "ethipv4[i]/mode"));

  document = dynamic();
  document["eth-basics"][0]["ip"] = "1.2.3";
  document["eth-basics"][0]["mac"] = "02:5a:00:00:00:01";
  EXPECT_THAT(judgeDocument("dynamic", document), breaks("addresses", "ip"));
  EXPECT_THAT(judgeDocument("dynamic", document), breaks("addresses", "mac"));

  document = answerOf(16)["white-list"];
  std::swap(document[0], document[1]);
  EXPECT_THAT(judgeDocument("white-list", document), breaks("whitelist-sorted", "sorted"));
}

TEST(Documents, MayHaveMembersOfTheDaemonsOwn) {
  Json::Value document = stored();
  document["x-made-in"] = "a factory";
  EXPECT_THAT(judgeDocument("stored", document), IsEmpty());
}

}  // namespace
