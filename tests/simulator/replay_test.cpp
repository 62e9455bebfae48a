#include "simulator/replay.h"

#include <gmock/gmock.h>

#include <fstream>

#include "simulator/refusal.h"
#include "tests/simulator/json_text.h"
#include "tests/simulator/temporary_folder.h"

namespace zel::sim {
namespace {

using test::TemporaryFolder;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string kHead = R"({"recording":"sysmgr","started":"2026-01-01T00:00:00Z","version":1})"
                          "\n";

class ReplayFile : public testing::Test {
 protected:
  std::string open(const std::string& text) {
    std::ofstream(folder_.file("recording"), std::ios::binary) << text;
    return replay_.open(folder_.file("recording"), cut_);
  }
  std::string answer(unsigned int id) const { return test::text(replay_.handle(id, Json::Value()).reply); }

  TemporaryFolder folder_;
  Replay replay_;
  std::string cut_;
};

TEST_F(ReplayFile, AnswersWithTheDocumentsOfEachStep) {
  ASSERT_THAT(open(kHead + R"({"connection":"begins","ms":0}
{"document":"stored","ms":1,"value":{"a":1.5,"b":"ü"}}
{"document":"dynamic","ms":2,"failed":"no answer"}
{"document":"model","ms":3,"value":{"model":"new"}}
{"document":"whitelist","ms":4,"value":[]}
{"frames":["1000","{\"a\": 2}"],"ms":10}
{"frames":["1001","{\"c\":-3.2999999523162842}"],"ms":20}
{"frames":["1004","{\"white-list\":[{\"ip\":\"239.0.0.1\"}]}"],"ms":20}
{"frames":["1000","{broken"],"ms":30}
{"frames":["1000"],"ms":30}
{"hex-frames":["31303030","00ff"],"ms":30}
{"connection":"ends","ms":40}
{"connection":"begins","ms":50}
{"document":"stored","ms":51,"value":{"a":3}}
)"),
              IsEmpty());
  EXPECT_THAT(cut_, IsEmpty());
  EXPECT_EQ(answer(0), R"({"status":0,"stored":{"a":1.5,"b":"\u00fc"}})");
  EXPECT_THAT(answer(1), HasSubstr("This board is a recording, which holds no document \\\"dynamic\\\"."));
  EXPECT_EQ(answer(3), R"({"board-model":{"model":"new"},"status":0})");
  EXPECT_EQ(answer(16), R"({"status":0,"white-list":[]})");
  EXPECT_FALSE(replay_.current(SysmgrPublisher::SYSMGR_DYNAMIC_INFO_UPDATE));

  ASSERT_TRUE(replay_.next());
  EXPECT_THAT(replay_.next()->frames, ElementsAre("1000", "{\"a\": 2}"));  // with its blank
  replay_.step();
  EXPECT_EQ(answer(0), R"({"status":0,"stored":{"a":2}})");
  replay_.step();
  EXPECT_EQ(answer(1), R"({"dynamic":{"c":-3.2999999523162842},"status":0})");
  replay_.step();
  EXPECT_EQ(answer(16), R"({"status":0,"white-list":[{"ip":"239.0.0.1"}]})");
  EXPECT_EQ(test::text(replay_.current(SysmgrPublisher::SYSMGR_MCAST_WHITELIST_UPDATE)->payload),
            R"({"white-list":[{"ip":"239.0.0.1"}]})");
  for (int malformed = 0; malformed < 2; ++malformed) replay_.step();
  EXPECT_THAT(replay_.next()->frames, ElementsAre("1000", std::string("\0\xff", 2)));
  for (int more = 0; more < 3; ++more) replay_.step();
  EXPECT_EQ(answer(0), R"({"status":0,"stored":{"a":2}})");
  replay_.step();
  EXPECT_EQ(answer(0), R"({"status":0,"stored":{"a":3}})");
  EXPECT_FALSE(replay_.next());
}

TEST_F(ReplayFile, RefusesWhatItDoesNotHold) {
  ASSERT_THAT(open(kHead), IsEmpty());
  for (const unsigned int id : {0U, 1U, 2U, 4U, 6U, 13U, 99U}) {
    const Outcome outcome = replay_.handle(id, Json::Value());
    EXPECT_EQ(outcome.reply["status"], refusal::kRecording) << id;
    EXPECT_THAT(outcome.reply["error"].asString(), HasSubstr("is a recording"));
  }
  EXPECT_FALSE(replay_.next());
}

TEST_F(ReplayFile, EndsWhereItIsCutOff) {
  const std::string whole = kHead + R"({"document":"stored","ms":1,"value":{}})"
                                    "\n"
                                    R"({"frames":["1000","{}"],"ms":2})"
                                    "\n";
  const std::size_t second = whole.find('\n', kHead.size()) + 1;
  for (std::size_t size = kHead.size(); size <= whole.size(); ++size) {
    Replay replay;
    std::ofstream(folder_.file("cut"), std::ios::binary) << whole.substr(0, size);
    ASSERT_THAT(replay.open(folder_.file("cut"), cut_), IsEmpty()) << size;
    EXPECT_EQ(replay.handle(0, Json::Value()).accepted(), size >= second) << size;
    EXPECT_EQ(replay.next().has_value(), size == whole.size()) << size;
    if (size == kHead.size() || size == second || size == whole.size()) {
      EXPECT_THAT(cut_, IsEmpty()) << size;
    } else {
      EXPECT_THAT(cut_, HasSubstr(size < second ? "line 2 is cut off" : "line 3 is cut off")) << size;
    }
  }
}

TEST_F(ReplayFile, NamesTheLineOfEachMistake) {
  const std::string kGood = R"({"document":"stored","ms":5,"value":{}})"
                            "\n";
  const std::pair<std::string, const char*> kRows[] = {
      {"", ": it is not a recording of sysmgrctl"},
      {"\n", ", line 1: it is not a recording of sysmgrctl"},
      {"[1]\n", ", line 1: it is not a recording of sysmgrctl"},
      {R"({"recording":"sysmgr","version":2})"
       "\n",
       ", line 1: its version is 2, and only version 1 is known"},
      {R"({"recording":"sysmgr"})"
       "\n",
       ", line 1: its version is null, and only version 1 is known"},
      {kHead + kGood + "\n", ", line 3: it is not a JSON object"},
      {kHead + kGood + "{]\n" + kGood, ", line 3: it is not a JSON object"},
      {kHead + "{}\n", ", line 2: it has no time"},
      {kHead + R"({"ms":-1,"frames":["1"]})"
               "\n",
       ", line 2: it has no time"},
      {kHead + R"({"ms":99999999999999,"frames":["1"]})"
               "\n",
       ", line 2: it has no time"},
      {kHead + R"({"ms":1})"
               "\n",
       ", line 2: it is not an event"},
      {kHead + R"({"ms":1,"connection":"naps"})"
               "\n",
       ", line 2: it is not an event"},
      {kHead + R"({"ms":1,"document":"debug","value":{}})"
               "\n",
       ", line 2: there is no document \"debug\""},
      {kHead + R"({"ms":1,"document":7,"value":{}})"
               "\n",
       ", line 2: there is no document 7"},
      {kHead + R"({"ms":1,"frames":"1000"})"
               "\n",
       ", line 2: its frames are not a list of texts"},
      {kHead + R"({"ms":1,"frames":[]})"
               "\n",
       ", line 2: its frames are not a list of texts"},
      {kHead + R"({"ms":1,"frames":["1000",{}]})"
               "\n",
       ", line 2: its frames are not a list of texts"},
      {kHead + R"({"ms":1,"hex-frames":["123"]})"
               "\n",
       ", line 2: a frame is not a text of hexadecimal digits"},
      {kHead + R"({"ms":1,"hex-frames":["1x"]})"
               "\n",
       ", line 2: a frame is not a text of hexadecimal digits"},
      {kHead + kGood +
           R"({"ms":4,"frames":["1"]})"
           "\n",
       ", line 3: its time is before that of the line above"},
      {kHead + R"({"ms":1,"document":"stored","value":)" + std::string(200, '[') + std::string(200, ']') + "}\n",
       ", line 2: it nests too deep"},
      {kHead + "{\"ms\":1,\"frames\":[\"" + std::string(std::size_t{9} << 20U, 'x') + "\"]}\n",
       ", line 2: it is longer than 8 MiB"},
  };
  for (const auto& [text, why] : kRows) {
    Replay replay;
    std::ofstream(folder_.file("wrong"), std::ios::binary) << text;
    EXPECT_EQ(replay.open(folder_.file("wrong"), cut_), folder_.file("wrong") + why);
  }
  Replay replay;
  EXPECT_THAT(replay.open(folder_.file("none"), cut_), HasSubstr("none cannot be read"));
}

}  // namespace
}  // namespace zel::sim
