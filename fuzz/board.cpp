// The virtual board's requests and its state files. The first line of the input is a command id, "restore" or "state";
// the rest is the JSON. A refused request leaves the board as it was; whatever was accepted can be stored and restored.

#include <json/value.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "common/logger.h"
#include "common/shared/wire_json.h"
#include "simulator/board.h"

namespace {

using zel::sim::Board;

void expectRestorable(const Board& board) {
  Board other;
  if (other.restore(board.keptState())) std::abort();
  if (other.keptState() != board.keptState()) std::abort();
}

void request(Board& board, std::string_view id, const Json::Value& body) {
  const Json::Value before = board.keptState();
  unsigned int number = 0;  // decimal texts mean themselves: the code of "0" is twice 24
  for (const char digit : id) number = number * 10 + static_cast<unsigned char>(digit);
  const zel::sim::Outcome outcome = board.handle(number % 24, body);
  if (!outcome.accepted() && (board.keptState() != before || !outcome.notifications.empty())) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Logger::getInstance()->setSink([](Logger::logDebugLevel_t, const std::string&) {});
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::string_view head = input.substr(0, input.find('\n'));
  static zel::WireJsonReader reader;
  Json::Value document;
  if (head.size() < input.size() && !reader.read(input.substr(head.size() + 1), document).empty()) return 0;

  Board board;
  if (head == "restore") {
    board.restore(document);
  } else if (head == "state") {
    board.applyState(document);
  } else {
    request(board, head, document);
  }
  expectRestorable(board);
  return 0;
}
