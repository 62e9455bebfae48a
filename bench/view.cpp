// The library with a `BoardView` in place of the cache.

#include "view/board_view.h"

#include "bench/library.h"

namespace zel::bench {

namespace {

class View final : public Library {
 public:
  void fetchAll() override {
    view_.setProbe(std::chrono::milliseconds(0));
    require(view_.open() == 0, "open");
    while (view_.state() != BoardView::State::kLive) process();
  }
  void follow() override {}
  int absorb() override {
    const std::uint64_t before = view_.counters().notifications;
    process();
    return static_cast<int>(view_.counters().notifications - before);
  }
  std::uint32_t cachedPort() override { return view_.stored().rtspTcpPort; }

 private:
  void process() {
    pollfd watched{view_.descriptor(), POLLIN, 0};
    require(poll(&watched, 1, kTimeoutMs) == 1, "nothing happens");
    view_.process();
  }

  BoardView view_{ZmqUtils::getInstance().getContext()};
};

}  // namespace

Contestant& contestant() {
  static View view;
  return view;
}

}  // namespace zel::bench
