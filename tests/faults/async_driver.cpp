#include "tests/faults/async_driver.h"

#include <poll.h>

#include <algorithm>
#include <utility>

#include "client/zmq_utils.h"
#include "tests/support/wait_until.h"

namespace zel::test {

namespace {

void readWhole(Json::Value& answer, Json::Value& value) { value = answer; }

std::unique_ptr<AsyncClient> makeClient() {
  return std::make_unique<AsyncClient>(ZmqUtils::getInstance().getContext());
}

}  // namespace

AsyncDriver::AsyncDriver(std::function<void(const End&)> onEnd) : onEnd_(std::move(onEnd)), client_(makeClient()) {}

void AsyncDriver::submit(std::uint32_t token, const Json::Value& body, milliseconds limit) {
  const Request<Json::Value> request{SysMgrCommands::SYSMGR_SET_PARAMETER, body, readWhole};
  Submitted& submitted = waiting_[token];
  submitted.at = Clock::now();
  submitted.limit = limit;
  submitted.id = client_->submit(
      request, [this, token](const Answer<Json::Value>& answer) { end(token, answer); }, limit);
}

void AsyncDriver::end(std::uint32_t token, const Answer<Json::Value>& answer) {
  const auto found = waiting_.find(token);
  End end{token, answer.status, answer.value, milliseconds(0), std::chrono::microseconds(0)};
  if (found != waiting_.end()) {
    end.limit = found->second.limit;
    end.took = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - found->second.at);
    waiting_.erase(found);
  }
  onEnd_(end);  // the second completion of a request, too: the history judges that
}

void AsyncDriver::cancel(std::uint32_t token) {
  const auto found = waiting_.find(token);
  if (found != waiting_.end()) client_->cancel(found->second.id);
}

std::vector<std::uint32_t> AsyncDriver::waiting() const {
  std::vector<std::uint32_t> tokens;
  for (const auto& [token, submitted] : waiting_) tokens.push_back(token);
  return tokens;
}

bool AsyncDriver::isReadable(milliseconds within) const {
  const auto end = Clock::now() + within;
  pollfd watched{client_->descriptor(), POLLIN, 0};
  for (;;) {
    const auto left = std::max(std::chrono::ceil<milliseconds>(end - Clock::now()), milliseconds(0));
    const int ready = poll(&watched, 1, static_cast<int>(left.count()));
    if (ready >= 0) return ready > 0;  // else a signal has come
  }
}

bool AsyncDriver::step() {
  Clock::time_point last = Clock::now();
  for (const auto& [token, submitted] : waiting_) last = std::max(last, submitted.at + submitted.limit);
  const bool wokenUp = isReadable(std::chrono::ceil<milliseconds>(last - Clock::now()) + kSoon);
  client_->process();
  return wokenUp;
}

void AsyncDriver::stepIfReadable() {
  if (isReadable(milliseconds(0))) client_->process();
}

std::vector<std::uint32_t> AsyncDriver::renew() {
  client_.reset();
  std::vector<std::uint32_t> left = waiting();
  waiting_.clear();
  client_ = makeClient();
  return left;
}

}  // namespace zel::test
