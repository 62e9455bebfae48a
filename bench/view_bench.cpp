// What a view costs in its own process: its memory, and a notification that changes one number, by the number of
// interfaces. Expects zelBenchDaemon to run; the notifications come from a publisher of this program.

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <poll.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "client/zmq_utils.h"
#include "common/shared/wire_json.h"
#include "view/board_view.h"

extern "C" void* __libc_malloc(std::size_t);  // NOLINT(bugprone-reserved-identifier): the C library's own name

namespace {
thread_local std::uint64_t allocations = 0;  // those of the application's thread count, not those of libzmq's
}

extern "C" void* malloc(std::size_t size) {
  ++allocations;
  return __libc_malloc(size);
}

namespace {

using zel::BoardView;

class Publisher {
 public:
  Publisher() : socket_(ZmqUtils::getInstance().getContext(), zmq::socket_type::pub) {
    socket_.bind("tcp://127.0.0.1:*");
  }
  std::string endpoint() const { return socket_.get(zmq::sockopt::last_endpoint); }
  void publish(const std::string& document) {
    socket_.send(zmq::str_buffer("1000"), zmq::send_flags::sndmore);
    socket_.send(zmq::buffer(document), zmq::send_flags::none);
  }

 private:
  zmq::socket_t socket_;
};

void waitFor(const BoardView& view) {
  pollfd watched{view.descriptor(), POLLIN, 0};
  if (poll(&watched, 1, 10000) != 1) throw std::runtime_error("nothing happens");
}

std::unique_ptr<BoardView> liveView(const std::string& notifications) {
  auto view = std::make_unique<BoardView>(ZmqUtils::getInstance().getContext(), zel::requestEndpoint(), notifications);
  view->setProbe(std::chrono::milliseconds(0));
  if (view->open() != 0) throw std::runtime_error("the view does not open");
  while (view->state() != BoardView::State::kLive) {
    waitFor(*view);
    view->process();
  }
  return view;
}

/// The stored document with that many interfaces, as text.
std::string document(std::int64_t interfaces, unsigned int port) {
  SysParameters parameters;
  parameters.rtspTcpPort = port;
  for (std::int64_t i = 0; i < interfaces; ++i) {
    EthIpV4Cfg entry;
    entry.eth = "eth" + std::to_string(i);
    entry.ip = static_cast<uint32_t>(0x0A000001 + 256 * i);
    parameters.ethIPv4Cfg.push_back(entry);
  }
  Json::Value json;
  parameters.Serialize(json);
  std::string text;
  zel::writeWireJson(json, text);
  return text;
}

/// @param listeners  how many callbacks the differences are told to
void takeChange(benchmark::State& state, int listeners) {
  Publisher publisher;
  const std::unique_ptr<BoardView> view = liveView(publisher.endpoint());
  std::size_t told = 0;
  for (int i = 0; i < listeners; ++i) {
    view->onChange([&told](const zel::BoardChange& change) { told += change.differences.size(); });
  }
  const std::string documents[] = {document(state.range(0), 5000), document(state.range(0), 5001)};
  std::uint64_t taken = 0;
  std::size_t next = 0;
  const auto change = [&](bool counted) {
    if (counted) state.PauseTiming();
    const std::uint64_t generation = view->generation();
    publisher.publish(documents[next++ % 2]);
    waitFor(*view);
    // Slower than the flow that the view takes for the end of a full queue.
    std::this_thread::sleep_for(std::chrono::microseconds(150));
    if (counted) state.ResumeTiming();
    const std::uint64_t before = allocations;
    while (view->generation() == generation) view->process();
    while (view->process() > 0) continue;
    if (counted) taken += allocations - before;
  };
  change(false);
  change(false);
  for ([[maybe_unused]] const auto& round : state) change(true);
  benchmark::DoNotOptimize(told);
  state.counters["allocations"] = benchmark::Counter(static_cast<double>(taken), benchmark::Counter::kAvgIterations);
}

void takeChangeUnheard(benchmark::State& state) { takeChange(state, 0); }
BENCHMARK(takeChangeUnheard)->Arg(4)->Arg(100)->Arg(1000)->Iterations(1000);

void takeChangeAndTell(benchmark::State& state) { takeChange(state, 1); }
BENCHMARK(takeChangeAndTell)->Arg(4)->Arg(100)->Arg(1000)->Iterations(1000);

/// What a live view holds on the heap: its documents and records, two clients, two sockets with their monitors.
void memoryOfAView(benchmark::State& state) {
  Publisher publisher;
  const std::unique_ptr<BoardView> first = liveView(publisher.endpoint());
  constexpr int kViews = 10;
  std::vector<std::unique_ptr<BoardView>> views;
  std::size_t bytes = 0;
  for ([[maybe_unused]] const auto& round : state) {
    const std::size_t before = mallinfo2().uordblks;
    for (int i = 0; i < kViews; ++i) views.push_back(liveView(publisher.endpoint()));
    bytes = mallinfo2().uordblks - before;
  }
  state.counters["bytes"] = static_cast<double>(bytes) / kViews;
}
BENCHMARK(memoryOfAView)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
