// Stores each port that is typed, and shows what the board has then, until the end of the input. The application's loop
// is Asio's; each port has a coroutine of C++20, which waits with `co_await` while the loop goes on.

#include <asio.hpp>
#include <cstdio>
#include <exception>
#include <memory>

#include "client/async_client.h"
#include "client/zmq_utils.h"
#include "typed_ports.h"

namespace {

/// Lets the coroutine go on when the request has ended. The coroutine goes on inside `process`.
template <class Value>
asio::awaitable<zel::Answer<Value>> carryOut(zel::AsyncClient& client, zel::Request<Value> request) {
  const auto submit = [&](auto goOn) {
    const auto kept = std::make_shared<decltype(goOn)>(std::move(goOn));  // a completion has to be copyable
    client.submit(request, [kept](const zel::Answer<Value>& answer) { std::move (*kept)(answer); });
  };
  co_return co_await asio::async_initiate<decltype(asio::use_awaitable), void(zel::Answer<Value>)>(submit,
                                                                                                   asio::use_awaitable);
}

asio::awaitable<void> store(zel::AsyncClient& client, unsigned int port) {
  const auto set = co_await carryOut(client, zel::requests::set(zel::settings::kRtspTcpPort, port));
  if (!set.ok()) std::fprintf(stderr, "%s\n", set.text.c_str());
  if (set.status == zel::status::kNotSent) co_return;

  const auto stored = co_await carryOut(client, zel::requests::storedParameters());
  if (stored.ok()) {
    std::printf("RTSP port %u\n", stored.value.rtspTcpPort);
    std::fflush(stdout);
  } else {
    std::fprintf(stderr, "%s\n", stored.text.c_str());
  }
}

asio::awaitable<void> readInput(asio::io_context& loop, zel::AsyncClient& client) {
  asio::posix::stream_descriptor input(loop, dup(STDIN_FILENO));  // the loop closes the duplicate
  TypedPorts ports;
  do {
    co_await input.async_wait(input.wait_read, asio::use_awaitable);
  } while (ports.read([&](unsigned int port) { co_spawn(loop, store(client, port), asio::detached); }));
  loop.stop();
}

asio::awaitable<void> process(asio::io_context& loop, zel::AsyncClient& client) {
  asio::posix::stream_descriptor due(loop, dup(client.descriptor()));
  for (;;) {
    co_await due.async_wait(due.wait_read, asio::use_awaitable);
    client.process();
  }
}

}  // namespace

int main() try {
  asio::io_context loop;
  zel::AsyncClient client(ZmqUtils::getInstance().getContext());
  co_spawn(loop, process(loop, client), asio::detached);
  co_spawn(loop, readInput(loop, client), asio::detached);
  loop.run();
  return 0;
} catch (const std::exception& error) {  // Asio's own
  std::fprintf(stderr, "%s\n", error.what());
  return 1;
}
