// What a look at the host's interfaces costs, by their number. Runs in a network namespace of its own.

#include <benchmark/benchmark.h>

#include <stdexcept>
#include <string>

#include "net/eth_ip_utils.h"
#include "tests/net/host.h"
#include "tests/support/private_network.h"
#include "types/sysmgr_types.h"

namespace {

/// Puts the process on a host with so many interfaces besides the loopback, each with one address, and one lease file.
void useHostOf(int interfaces) {
  static int current = 0;
  if (current == interfaces) return;

  const std::string why = zel::test::enterPrivateNetwork();
  if (!why.empty()) throw std::runtime_error("no network namespace: " + why);
  std::string commands;
  for (int i = 0; i < interfaces; i += 2) {
    commands += "link add eth" + std::to_string(i) + " type veth peer name eth" + std::to_string(i + 1) + "\n";
  }
  for (int i = 0; i < interfaces; ++i) {
    commands += "addr add 10.0." + std::to_string(i / 250) + "." + std::to_string(i % 250 + 1) + "/32 dev eth" +
                std::to_string(i) + "\n";
  }
  zel::test::configureNetwork(commands);
  static const zel::test::TemporaryDirectory leases;
  leases.addFile("dhclient.eth1.leases");
  dhcp_lease = leases.path();
  current = interfaces;
}

std::string lastInterface(const benchmark::State& state) { return "eth" + std::to_string(state.range(0) - 1); }

void listInterfaces(benchmark::State& state) {
  useHostOf(static_cast<int>(state.range(0)));
  EthIpUtils host;
  std::list<EthBasicInfo> interfaces;
  for (auto _ : state) host.get_eth_info(interfaces, false);
  if (interfaces.size() != static_cast<std::size_t>(state.range(0))) state.SkipWithError("not all are listed");
  state.SetComplexityN(state.range(0));
}

void findInterface(benchmark::State& state) {
  useHostOf(static_cast<int>(state.range(0)));
  EthIpUtils host;
  EthBasicInfo info;
  bool found = true;
  for (auto _ : state) found = found && host.get_eth_info(info, lastInterface(state));
  if (!found) state.SkipWithError("it is not found");
  state.SetComplexityN(state.range(0));
}

void readAddress(benchmark::State& state) {
  useHostOf(static_cast<int>(state.range(0)));
  EthIpUtils host;
  EthBasicInfo info;
  info.name = lastInterface(state);
  bool found = true;
  for (auto _ : state) found = found && host.get_ip_address(info);
  if (!found) state.SkipWithError("it has no address");
  state.SetComplexityN(state.range(0));
}

void fillHostDefaults(benchmark::State& state) {
  useHostOf(static_cast<int>(state.range(0)));
  BoardModel model;
  model.setModel(BoardModelType::NIMBRA_AES67);
  const SysParameters parameters;
  std::list<EthIpV4Cfg> configs;
  for (auto _ : state) parameters.fillEthIPv4DefaultCfg(configs, model);
  if (configs.size() != static_cast<std::size_t>(state.range(0))) state.SkipWithError("not all are there");
  state.SetComplexityN(state.range(0));
}

void sizes(benchmark::internal::Benchmark* each) { each->Arg(10)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond); }

BENCHMARK(listInterfaces)->Apply(sizes)->Complexity(benchmark::oN);
BENCHMARK(findInterface)->Apply(sizes)->Complexity(benchmark::oN);
BENCHMARK(readAddress)->Apply(sizes)->Complexity(benchmark::oN);
BENCHMARK(fillHostDefaults)->Apply(sizes)->Complexity(benchmark::oN);

}  // namespace

BENCHMARK_MAIN();
