// The lines that a simulator takes on its control socket. An order that is understood is carried out on a board:
// refused, it leaves the board as it was; what the board is then can be stored and restored.

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "common/logger.h"
#include "simulator/orders.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Logger::getInstance()->setSink([](Logger::logDebugLevel_t, const std::string&) {});
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using zel::sim::Board;
  std::optional<Board> board;  // made for the first order, since most inputs hold none and a board takes long to make
  std::string_view text(reinterpret_cast<const char*>(data), size);
  for (int count = 0; count < 4 && !text.empty(); ++count) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(line.size() < text.size() ? line.size() + 1 : text.size());
    zel::sim::Order order;
    if (!zel::sim::Order::parse(line, order).empty()) continue;
    if (!board) board.emplace();
    const Json::Value before = board->keptState();
    if (!order.tryOn(*board).empty() && board->keptState() != before) std::abort();
  }
  if (!board) return 0;
  Board other;
  if (other.restore(board->keptState())) std::abort();
  return 0;
}
