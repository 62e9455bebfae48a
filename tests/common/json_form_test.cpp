#include "common/shared/json_form.h"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "tests/support/child_process.h"
#include "tests/support/wait_until.h"

using zel::test::ChildProcess;

namespace {

std::atomic<int> beingMade{0};
std::atomic<bool> mayBeMade{false};

/// A record whose factory record takes its time.
struct Slow {
  Slow() {
    ++beingMade;
    while (!mayBeMade) std::this_thread::yield();
  }
};

TEST(FactoryRecord, IsMadeByAForkedChildWhereAThreadOfTheParentWasMakingIt) {
  ChildProcess parent = ChildProcess::call([] {
    std::thread maker([] { zel::factory<Slow>(); });
    while (beingMade == 0) std::this_thread::yield();
    const pid_t child = fork();
    mayBeMade = true;
    if (child == 0) {
      alarm(5);
      zel::factory<Slow>();
      _exit(beingMade == 2 ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    maker.join();
    return status;
  });
  EXPECT_EQ(parent.wait(), 0);
}

TEST(FactoryRecord, IsOneForAllThreads) {
  mayBeMade = true;
  const Slow* const first = &zel::factory<Slow>();
  const Slow* second = nullptr;
  std::thread([&second] { second = &zel::factory<Slow>(); }).join();
  EXPECT_EQ(first, second);
}

}  // namespace
