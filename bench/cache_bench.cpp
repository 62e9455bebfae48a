// What the cache costs in its own process: its getters, and a notification from the received text to the cached
// record, by the number of interfaces. Expects zelBenchDaemon to run.

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/shared/wire_json.h"
#include "config/system_default_cfg.h"

extern "C" void* __libc_malloc(std::size_t);  // NOLINT(bugprone-reserved-identifier): the C library's own name

namespace {
std::atomic<std::uint64_t> allocations{0};
}

/// Counts what operator new and JsonCpp's copies of texts take alike.
extern "C" void* malloc(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_malloc(size);
}

namespace {

SystemDefaultCfg& cache() {
  static SystemDefaultCfg& instance = []() -> SystemDefaultCfg& {
    SystemDefaultCfg& made = SystemDefaultCfg::getInstance();
    if (!made.isInitialized()) throw std::runtime_error("the daemon does not answer");
    return made;
  }();
  return instance;
}

/// Reports how often one iteration allocates.
class Allocations {
 public:
  explicit Allocations(benchmark::State& state) : state_(state) {}
  ~Allocations() {
    state_.counters["allocations"] =
        benchmark::Counter(static_cast<double>(allocations - before_), benchmark::Counter::kAvgIterations);
  }
  Allocations(const Allocations&) = delete;
  Allocations& operator=(const Allocations&) = delete;

 private:
  benchmark::State& state_;
  std::uint64_t before_ = allocations;
};

template <class Get>
void ask(benchmark::State& state, Get get) {
  SystemDefaultCfg& asked = cache();
  const Allocations counted(state);
  for ([[maybe_unused]] const auto& round : state) get(asked);
}

void getRtspTcpPort(benchmark::State& state) {
  ask(state, [](SystemDefaultCfg& asked) {
    unsigned int port = 0;
    asked.getRtspTcpPort(&port);
    benchmark::DoNotOptimize(port);
  });
}
BENCHMARK(getRtspTcpPort);

void getPrimaryVlanTag(benchmark::State& state) {
  ask(state, [](SystemDefaultCfg& asked) { benchmark::DoNotOptimize(asked.getPrimaryVlanTag()); });
}
BENCHMARK(getPrimaryVlanTag);

void isSapEnable(benchmark::State& state) {
  ask(state, [](SystemDefaultCfg& asked) { benchmark::DoNotOptimize(asked.isSapEnable()); });
}
BENCHMARK(isSapEnable);

void getCfgFilePath(benchmark::State& state) {
  ask(state, [path = std::string()](SystemDefaultCfg& asked) mutable { asked.getCfgFilePath(&path); });
}
BENCHMARK(getCfgFilePath);

void getNmosParameters(benchmark::State& state) {
  ask(state, [](SystemDefaultCfg& asked) { benchmark::DoNotOptimize(asked.getNmosParameters()); });
}
BENCHMARK(getNmosParameters);

void getTrafficInterfacesIPv4Address(benchmark::State& state) {
  ask(state, [addresses = std::vector<IpAddress>()](SystemDefaultCfg& asked) mutable {
    asked.getTrafficInterfacesIPv4Address(addresses);
  });
}
BENCHMARK(getTrafficInterfacesIPv4Address);

/// The stored document with that many interfaces, as text.
std::string document(std::int64_t interfaces) {
  SysParameters parameters;
  for (std::int64_t i = 0; i < interfaces; ++i) {
    EthIpV4Cfg entry;
    entry.eth = "eth" + std::to_string(i);
    entry.ip = static_cast<uint32_t>(0x0A000001 + 256 * i);
    parameters.ethIPv4Cfg.push_back(entry);
  }
  parameters.ethIPv4Cfg.sort();  // as the daemon keeps them
  Json::Value json;
  parameters.Serialize(json);
  std::string text;
  zel::writeWireJson(json, text);
  return text;
}

/// What a program pays that reads the text into a new value.
void readDocument(benchmark::State& state) {
  const std::string text = document(state.range(0));
  zel::WireJsonReader reader;
  const Allocations counted(state);
  for ([[maybe_unused]] const auto& round : state) {
    Json::Value json;
    reader.read(text, json);
    benchmark::DoNotOptimize(json);
  }
  state.SetComplexityN(state.range(0));
}
BENCHMARK(readDocument)->Arg(4)->Arg(10)->Arg(100)->Arg(1000)->Complexity();

/// The work of the subscriber and the cache on a notification that changes nothing, without reading the socket.
void takeNotification(benchmark::State& state) {
  const std::string text = document(state.range(0));
  zel::WireJsonReader reader;
  Json::Value json;
  const auto take = [&] {
    reader.read(text, json);
    SysParameters parameters;
    parameters.Deserialize(json);
    cache().notifyStoredParametersUpdate(parameters);
  };
  take();
  const Allocations counted(state);
  for ([[maybe_unused]] const auto& round : state) take();
  state.SetComplexityN(state.range(0));
}
BENCHMARK(takeNotification)->Arg(4)->Arg(10)->Arg(100)->Arg(1000)->Complexity();

}  // namespace

BENCHMARK_MAIN();
