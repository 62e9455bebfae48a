#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "client/async_client.h"

namespace zel::test {

/// An application's loop around an asynchronous client. It watches the client's one descriptor and has no timer, so a
/// wake-up that is missing is seen.
class AsyncDriver {
 public:
  using milliseconds = std::chrono::milliseconds;

  /// The end of a request, as its completion is told.
  struct End {
    std::uint32_t token;
    int status;
    Json::Value reply;
    milliseconds limit;
    std::chrono::microseconds took;  ///< since it was submitted
  };
  /// @param onEnd  runs inside each completion
  explicit AsyncDriver(std::function<void(const End&)> onEnd);

  void submit(std::uint32_t token, const Json::Value& body, milliseconds limit);
  void cancel(std::uint32_t token);
  /// The requests whose completion has not run, oldest first.
  std::vector<std::uint32_t> waiting() const;

  /// Waits until the descriptor is readable, and has the client do what is due.
  /// @return false when it was not readable by the end of all requests
  bool step();
  /// The same without a wait, as a loop does that watches other things, too.
  void stepIfReadable();

  /// Destroys the client and makes a new one.
  /// @return the requests that waited then, oldest first
  std::vector<std::uint32_t> renew();

 private:
  using Clock = std::chrono::steady_clock;
  struct Submitted {
    AsyncClient::Id id;
    Clock::time_point at;
    milliseconds limit;
  };
  bool isReadable(milliseconds within) const;
  void end(std::uint32_t token, const Answer<Json::Value>& answer);

  std::function<void(const End&)> onEnd_;
  std::map<std::uint32_t, Submitted> waiting_;
  std::unique_ptr<AsyncClient> client_;
};

}  // namespace zel::test
