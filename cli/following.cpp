#include "cli/following.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <string>

#include "cli/values.h"

namespace zel::ctl {

EndOfFollowing::EndOfFollowing(const Call& call) : call_(call) {
  if (!call.has("--timeout")) return;
  timeOut_.emplace(valueFor("--timeout", [&call] { return parseSeconds(call.word("--timeout")); }));
}

bool EndOfFollowing::hasCome() const {
  if (call_.has("--wait") && call_.deadline.isOver()) throw timeIsOver(call_.deadline);
  return timeOut_ && timeOut_->isOver();
}

long EndOfFollowing::left() const {
  const long left = timeOut_ ? static_cast<long>(timeOut_->left().count()) : -1;
  if (!call_.has("--wait")) return left;
  const auto whole = static_cast<long>(call_.deadline.left().count());
  return left < 0 ? whole : std::min(left, whole);
}

void openView(BoardView& view) {
  const int result = view.open();
  if (result >= 0) return;
  throw Failure(Exit::kNoDaemon, "cannot subscribe to notifications (" + std::to_string(result) + ")").withCode(result);
}

void attend(BoardView& view, long ms) {
  const int limit = static_cast<int>(std::min<long>(ms, std::numeric_limits<int>::max()));
  pollfd watched{view.descriptor(), POLLIN, 0};
  if (poll(&watched, 1, limit) < 0 && errno != EINTR) {
    throw Failure(Exit::kOther, std::string("cannot wait: ") + std::strerror(errno));
  }
  view.process();
}

}  // namespace zel::ctl
