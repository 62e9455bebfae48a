#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <random>
#include <thread>

#include "simulator/board.h"
#include "simulator/store.h"
#include "tests/common/test_client.h"
#include "tests/simulator/board_process.h"
#include "tests/simulator/json_text.h"
#include "tests/simulator/temporary_folder.h"

namespace {

using zel::test::at;
using zel::test::ChildProcess;
using zel::test::kReady;
using zel::test::kSlowdown;
using zel::test::startBoard;
using zel::test::TemporaryFolder;
using zel::test::TestClient;

/// Kills a process after a while, whatever this thread does meanwhile.
class Killer {
 public:
  Killer(pid_t pid, std::chrono::microseconds delay)
      : thread_([pid, delay] {
          std::this_thread::sleep_for(delay);
          ::kill(pid, SIGKILL);
        }) {}
  ~Killer() { thread_.join(); }
  Killer(const Killer&) = delete;
  Killer& operator=(const Killer&) = delete;

 private:
  std::thread thread_;
};

/// The changes that a board was sent, numbered; the number is the value that it has to store.
struct Changes {
  unsigned int acknowledged = 0;
  unsigned int sent = 0;
};

void streamUntilItIsGone(TestClient& client, Changes& changes) {
  for (;;) {
    Json::Value body;
    body["offset-from-master-threshold"] = changes.sent + 1;
    ++changes.sent;
    if (client.send(2, body).code != 0) return;
    changes.acknowledged = changes.sent;
  }
}

TEST(KilledBoard, HasTheLastAcknowledgedChangeOrTheOneAfterIt) {
  const int rounds = zel::test::lengthFromEnvironment("ZEL_KILL_ROUNDS", kSlowdown == 1 ? 50 : 16);
  const TemporaryFolder folder;
  const zel::sim::Store store(folder.file("store"));
  std::mt19937 chance(std::random_device{}());  // NOLINT(cert-msc32-c): instants, not secrets
  const auto within = [&chance](int most) {
    return std::chrono::microseconds(std::uniform_int_distribution<int>(0, most)(chance));
  };
  zmq::context_t context;
  Changes changes;
  unsigned int acknowledged = 0;
  int storedUnanswered = 0;

  for (int round = 0; round < rounds; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    ChildProcess board = startBoard({"--store", store.path()});
    if (round % 8 == 7) {
      const Killer killer(board.pid(), within(20000));  // while it starts
      board.wait();
    } else {
      ASSERT_TRUE(board.waitForOutput(kReady));
      TestClient client(context, std::chrono::milliseconds(200));
      const Killer killer(board.pid(), within(60000));
      const unsigned int before = changes.acknowledged;
      changes.sent = before;
      streamUntilItIsGone(client, changes);
      acknowledged += changes.acknowledged - before;
    }
    board.kill();

    Json::Value document;
    bool found = false;
    std::string damage;
    ASSERT_EQ(store.load(document, found, damage), "");
    if (!found && changes.sent == 0) continue;  // killed before there was anything to keep
    ASSERT_TRUE(found);
    ASSERT_EQ(damage, "");
    ASSERT_FALSE(zel::sim::Board().restore(document));
    const unsigned int stored = at(document, "stored/cfg/offset-from-master-threshold").asUInt();
    if (changes.acknowledged == 0 && stored == 30000) continue;  // the factory's
    ASSERT_TRUE(stored == changes.acknowledged || stored == changes.sent)
        << stored << " is neither " << changes.acknowledged << " nor " << changes.sent;
    if (stored != changes.acknowledged) ++storedUnanswered;
    changes.acknowledged = changes.sent = stored;
  }
  int unfinished = 0;  // what the last kill left: each start removes what those before it left
  for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
    const std::string name = entry.path().filename().string();
    EXPECT_THAT(name, testing::AnyOf("store", testing::StartsWith("store.new-")));
    if (name != "store") ++unfinished;
  }
  EXPECT_LE(unfinished, 1);
  EXPECT_GT(acknowledged, 0U);
  std::printf("%d kills, %u changes acknowledged, none lost; %d unanswered ones were stored\n", rounds, acknowledged,
              storedUnanswered);
}

}  // namespace
