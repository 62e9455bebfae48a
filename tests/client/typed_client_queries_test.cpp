#include <json/value.h>
#include <malloc.h>

#include "tests/client/typed_client_fixture.h"
#include "tests/support/wait_until.h"

namespace {

using testing::IsEmpty;
using zel::test::WithTypedClient;

/// What was handed to a record.
struct Handed {
  int calls = 0;
  Json::Value json;
  bool throws = false;
};

/// An application's own class on top of a record of the API.
template <class Record>
class Spy : public Record {
 public:
  explicit Spy(Handed& handed) : handed_(handed) {}
  int Deserialize(Json::Value& root) override {
    ++handed_.calls;
    handed_.json = root;
    if (handed_.throws) throw Json::LogicError("does not convert");
    return -7;  // to be ignored
  }

 private:
  Handed& handed_;
};

struct Query {
  const char* name;
  int (*call)(SysMgrClient&, Handed&);
  const char* id;
  const char* member;
  const char* signature;
  const char* jsonOperation;
};
void PrintTo(const Query& query, std::ostream* out) { *out << query.name; }

template <class Record, int (SysMgrClient::*operation)(Record&)>
int ask(SysMgrClient& client, Handed& handed) {
  Spy<Record> record(handed);
  return (client.*operation)(record);
}

const Query kQueries[] = {
    {"StoredParameters", ask<SysParameters, &SysMgrClient::getStoredParameters>, "0", "stored",
     "int SysMgrClient::getStoredParameters(SysParameters&)",
     "int SysMgrJsonClient::getStoredParameters(Json::Value&)"},
    {"DynamicParameters", ask<SysParametersDynamic, &SysMgrClient::getDynamicParameters>, "1", "dynamic",
     "int SysMgrClient::getDynamicParameters(SysParametersDynamic&)",
     "int SysMgrJsonClient::getDynamicParameters(Json::Value&)"},
    {"SystemInfo", ask<SystemBasicInfo, &SysMgrClient::getSystemInfo>, "5", "systemInfo",
     "int SysMgrClient::getSystemInfo(SystemBasicInfo&)", "int SysMgrJsonClient::getSystemInfo(Json::Value&)"},
    {"BoardModel", ask<BoardModel, &SysMgrClient::getBoardModel>, "3", "board-model",
     "int SysMgrClient::getBoardModel(BoardModel&)", "int SysMgrJsonClient::getBoardModel(Json::Value&)"},
    {"NetworkStackStatus", ask<NetworkStackStatus, &SysMgrClient::getNetworkStackStatus>, "4", "network-stack-status",
     "int SysMgrClient::getNetworkStackStatus(NetworkStackStatus&)",
     "int SysMgrJsonClient::getNetworkStackStatus(Json::Value&)"},
};

class TypedQuery : public WithTypedClient, public testing::TestWithParam<Query> {
 protected:
  int call() { return GetParam().call(client_, handed_); }
  Json::Value answerWith(const Json::Value& payload) const {
    Json::Value answer;
    answer[GetParam().member] = payload;
    answer["other"] = "beside it";
    return answer;
  }

  Handed handed_;
};

TEST_P(TypedQuery, SendsItsCommandWithoutABody) {
  EXPECT_EQ(call(), 0);
  expectRequest(GetParam().id, "");
}

TEST_P(TypedQuery, HandsItsMemberToTheRecord) {
  Json::Value payload;
  payload["key"]["inner"] = "text";
  daemon_.answer(answerWith(payload));
  EXPECT_EQ(call(), 0);
  EXPECT_EQ(handed_.calls, 1);
  EXPECT_EQ(handed_.json, payload);
  EXPECT_THAT(log_.texts(Logger::LEVEL_ERROR), IsEmpty());
}

TEST_P(TypedQuery, HandsNullToTheRecordWhenTheMemberIsAbsent) {
  daemon_.answer(R"({"other": {"key": 1}})");
  handed_.json = "before";
  EXPECT_EQ(call(), 0);
  EXPECT_EQ(handed_.calls, 1);
  EXPECT_EQ(handed_.json, Json::Value());
}

TEST_P(TypedQuery, HandsAnythingButAnObjectOnToo) {
  for (const Json::Value& payload : {Json::Value(), Json::Value("text"), Json::Value(Json::arrayValue)}) {
    daemon_.answer(answerWith(payload));
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(handed_.json, payload);
  }
}

TEST_P(TypedQuery, TakesAPositiveStatusForSuccess) {
  daemon_.answer(R"({"status": 3})");
  EXPECT_EQ(call(), 0);
  EXPECT_EQ(handed_.calls, 1);
  EXPECT_THAT(log_.texts(Logger::LEVEL_ERROR), IsEmpty());
}

TEST_P(TypedQuery, LeavesTheRecordOnFailureAndLogsIt) {
  Json::Value refusal = answerWith("payload");
  refusal["status"] = -5;
  daemon_.answer(refusal);
  EXPECT_EQ(call(), -5);
  EXPECT_EQ(handed_.calls, 0);
  expectFailures(GetParam().jsonOperation, GetParam().signature, -5);
}

TEST_P(TypedQuery, LetsTheRecordsExceptionOutAndWorksOn) {
  handed_.throws = true;
  EXPECT_THROW(call(), Json::LogicError);
  handed_.throws = false;
  EXPECT_EQ(call(), 0);
  EXPECT_EQ(handed_.calls, 2);
  EXPECT_THAT(log_.texts(Logger::LEVEL_ERROR), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(All, TypedQuery, testing::ValuesIn(kQueries),
                         [](const auto& row) { return std::string(row.param.name); });

class TypedQueries : public WithTypedClient, public testing::Test {};

TEST_F(TypedQueries, FillTheStoredParameters) {
  daemon_.answer(R"({"stored": {"serial-number": "X1", "rtsp": {"tcp-port": 5004}}})");
  SysParameters parameters;
  EXPECT_EQ(client_.getStoredParameters(parameters), 0);
  EXPECT_EQ(parameters.serialNumber, "X1");
  EXPECT_EQ(parameters.rtspTcpPort, 5004U);
}

TEST_F(TypedQueries, GiveAbsentStoredParametersTheirFactoryValues) {
  daemon_.answer("{}");
  SysParameters parameters;
  parameters.rtspTcpPort = 1;
  parameters.rtspEthPort = "eth3";
  EXPECT_EQ(client_.getStoredParameters(parameters), 0);
  EXPECT_EQ(parameters.rtspTcpPort, 8554U);
  EXPECT_EQ(parameters.rtspEthPort, "all");
}

TEST_F(TypedQueries, FillTheDynamicParameters) {
  daemon_.answer(R"({"dynamic": {"errors": [{"code": 4, "description": "hot"}]}})");
  SysParametersDynamic parameters;
  EXPECT_EQ(client_.getDynamicParameters(parameters), 0);
  ASSERT_EQ(parameters.errors.size(), 1U);
  EXPECT_EQ(parameters.errors.front().code, 4);
}

TEST_F(TypedQueries, FillTheBoardModelWithItsVideoFormats) {
  daemon_.answer(R"({"board-model": {"model": "ZIRC", "module": "HDMI-ST2110"}})");
  BoardModel model;
  EXPECT_EQ(client_.getBoardModel(model), 0);
  EXPECT_EQ(model.model, BoardModelType::ZIRC);
  EXPECT_EQ(model.bitstream.type, BitstreamType::BITSTREAM_HDMI_ST2110);
  EXPECT_EQ(model.supportedVideoFormats.size(), 20U);
}

TEST_F(TypedQueries, KeepTheDaemonsObjectsWhole) {
  daemon_.answer(R"({"systemInfo": {"kernel": {"version": "6.1"}}})");
  SystemBasicInfo info;
  EXPECT_EQ(client_.getSystemInfo(info), 0);
  EXPECT_EQ(info.fields["kernel"]["version"], "6.1");

  daemon_.answer(R"({"network-stack-status": {"up": true}})");
  NetworkStackStatus status;
  EXPECT_EQ(client_.getNetworkStackStatus(status), 0);
  EXPECT_EQ(status.fields["up"], true);
}

TEST_F(TypedQueries, LetJsonCppsExceptionsOutAndWorkOn) {
  daemon_.answer(R"({"board-model": 5})");
  BoardModel model;
  EXPECT_THROW(client_.getBoardModel(model), Json::LogicError);
  daemon_.answer(R"({"stored": {"rtsp": {"tcp-port": []}}})");
  SysParameters parameters;
  EXPECT_THROW(client_.getStoredParameters(parameters), Json::LogicError);

  daemon_.answer(R"({"board-model": {"model": "KORVA"}})");
  EXPECT_EQ(client_.getBoardModel(model), 0);
  EXPECT_EQ(model.model, BoardModelType::KORVA);
}

TEST_F(TypedQueries, MayBeMadeWhileARecordIsRead) {
  struct Asking : BoardModel {
    explicit Asking(SysMgrClient& asked) : client(asked) {}
    int Deserialize(Json::Value& root) override {
      SysParameters parameters;
      EXPECT_EQ(client.getStoredParameters(parameters), 0);
      EXPECT_EQ(parameters.rtspTcpPort, 5004U);
      return BoardModel::Deserialize(root);
    }
    SysMgrClient& client;
  };
  for (int i = 0; i < 3; ++i) {
    daemon_.answer(R"({"board-model": {"model": "KORVA"}})");
    daemon_.answer(R"({"stored": {"rtsp": {"tcp-port": 5004}}})");
    Asking model(client_);
    EXPECT_EQ(client_.getBoardModel(model), 0);
    EXPECT_EQ(model.model, BoardModelType::KORVA);
  }
}

TEST_F(TypedQueries, LeaveARecordUntouchedOnFailure) {
  daemon_.answer(R"({"status": -5, "board-model": {"model": "KORVA", "module": "SDI-TR04"}})");
  BoardModel model;
  model.setModel(BoardModelType::ZIRC);
  EXPECT_EQ(client_.getBoardModel(model), -5);
  EXPECT_EQ(model.model, BoardModelType::ZIRC);
  EXPECT_EQ(model.bitstream.type, BitstreamType::BITSTREAM_NONE);
  EXPECT_EQ(model.supportedVideoFormats.size(), 16U);
}

}  // namespace

TEST(TypedClientMemory, KeepsNothingOfALargeAnswerOnceItIsGone) {
  zel::test::ScriptedDaemon daemon;
  zmq::context_t context;
  const auto ask = [&context] {
    SysMgrClient client;
    EXPECT_EQ(client.init(context), 0);
    SystemBasicInfo info;
    EXPECT_EQ(client.getSystemInfo(info), 0);
  };
  Json::Value answer;
  for (int i = 0; i < 60'000; ++i) answer["systemInfo"].append("a text in it");

  ask();
  const auto inUse = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
  const std::size_t before = inUse();
  daemon.answer(answer);
  ask();
  // libzmq's thread releases the frames of a closed connection a moment later.
  EXPECT_TRUE(zel::test::waitUntil([&] { return inUse() < before + std::size_t{1024} * 1024; }));
}
