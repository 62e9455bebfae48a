// Recordings of a board: a file is refused, or replayed to its end or its cut; each answer on the way can be written.

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "common/logger.h"
#include "common/shared/wire_json.h"
#include "simulator/replay.h"

namespace {

void expectAnswers(const zel::sim::Replay& replay) {
  for (const unsigned int id : {0U, 1U, 2U, 3U, 16U}) {
    std::string text;
    const zel::sim::Outcome outcome = replay.handle(id, Json::Value());
    // A document at the limits of the wire is beyond them within an answer: then the simulator says so.
    if (outcome.reply.empty()) std::abort();
    zel::writeWireJson(outcome.reply, text);
  }
  for (const auto topic : SysmgrPublisher::kNotifications) replay.current(topic);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const int kFile = memfd_create("recording", MFD_CLOEXEC);
  static const std::string kPath = "/proc/self/fd/" + std::to_string(kFile);
  if (ftruncate(kFile, 0) != 0 || pwrite(kFile, data, size, 0) != static_cast<ssize_t>(size)) return 0;
  zel::sim::Replay replay;
  std::string cut;
  if (!replay.open(kPath, cut).empty()) return 0;
  expectAnswers(replay);
  for (int steps = 0; replay.next() && steps < 100; ++steps) replay.step();
  expectAnswers(replay);
  return 0;
}
