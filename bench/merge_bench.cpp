// How long the interface lists of the stored parameters take to read.

#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "types/sys_parameters.h"

namespace {

EthIpV4Cfg interface(unsigned int number) {
  EthIpV4Cfg cfg;
  cfg.eth = "eth0." + std::to_string(number);
  cfg.ip = 0x0A000000 + number;
  return cfg;
}

/// Merges as many interfaces as the argument says into as many others, half of which have the same names.
void mergeInterfaces(benchmark::State& state) {
  const auto count = static_cast<unsigned int>(state.range(0));
  SysParameters held;
  SysParameters incoming;
  for (unsigned int i = 0; i < count; ++i) {
    held.ethIPv4Cfg.push_back(interface(i));
    incoming.ethIPv4Cfg.push_front(interface(i + count / 2));
  }
  Json::Value document;
  incoming.Serialize(document);

  for ([[maybe_unused]] const auto& round : state) {
    state.PauseTiming();
    auto parameters = std::make_unique<SysParameters>(held);
    state.ResumeTiming();
    parameters->Deserialize(document);
    state.PauseTiming();
    if (parameters->ethIPv4Cfg.size() != count + count / 2) state.SkipWithError("the lists were not merged");
    parameters.reset();
    state.ResumeTiming();
  }
  state.SetComplexityN(count);
}

BENCHMARK(mergeInterfaces)
    ->Arg(4)
    ->Arg(100)
    ->Arg(1000)
    ->Arg(2000)
    ->Arg(20000)
    ->Unit(benchmark::kMicrosecond)
    ->Complexity();

}  // namespace

BENCHMARK_MAIN();
