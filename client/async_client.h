#pragma once

#include <json/value.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <type_traits>
#include <utility>
#include <zmq.hpp>

#include "../common/export.h"
#include "../common/status.h"
#include "endpoints.h"
#include "requests.h"

namespace zel {

/// How a request of an `AsyncClient` ended.
template <class Value>
struct Answer {
  int status = 0;    ///< 0, or a negative code: see `AsyncClient`
  std::string text;  ///< why it failed, in the words of `SysMgrClient::getLastErrorMessage`; empty after a success
  Value value{};     ///< what the daemon answered; default-constructed where the request failed

  /// Whether the request succeeded.
  bool ok() const { return status >= 0; }
};

/// How a request without a value in its answer ended.
template <>
struct Answer<void> {
  int status = 0;    ///< as above
  std::string text;  ///< as above

  bool ok() const { return status >= 0; }
};

/// A client of the daemon that never waits: requests are submitted, and their completions run inside `process`, which
/// the application's event loop calls whenever one descriptor is readable.
///
/// @code
/// zel::AsyncClient client(ZmqUtils::getInstance().getContext());
/// client.submit(zel::requests::set(zel::settings::kRtspTcpPort, 5004), [](const zel::Answer<void>& answer) {
///   if (!answer.ok()) std::fprintf(stderr, "%s\n", answer.text.c_str());
/// });
/// pollfd watched{client.descriptor(), POLLIN, 0};
/// while (poll(&watched, 1, -1) >= 0) client.process();
/// @endcode
///
/// Order: one request is carried out at a time, in the order of submission. A request is sent when the one before it
/// was answered or given up, so the second of two sets never overtakes the first. A request that got no answer in time
/// is the exception: the daemon may carry it out later than the ones behind it, as with `SysMgrClient`.
///
/// Completions: one for each request, in the order in which the requests ended, inside `process`, never inside `submit`
/// or `cancel`. A completion may submit, cancel, and destroy the client. An exception of a completion leaves `process`;
/// its request is completed, and the completions behind it run in the next call. The destructor of the client runs no
/// completion; a request that waits then is never sent.
///
/// The status of an answer is one of these, with the promises of `ClientJsonApi::sendMessage`:
///
/// - 0: success, also where the daemon's status is positive
/// - -100: the process is at its end: not sent
/// - -101: the socket cannot be opened or connected: not sent
/// - -102: no daemon took the request within its time-out: it was not sent and never will be. This is also the status
///   of a request whose time-out was over while it waited behind others
/// - -103: the request was sent, and no answer came within its time-out or before the end of the process, or it was
///   cancelled after it was sent: the daemon may have acted on it
/// - -104: the answer is not one JSON object in one frame, or holds a value of a type that does not convert, or
///   there is not enough memory to read it
/// - -105: the request cannot be written as JSON text within the limits: not sent
/// - -106: cancelled before it was sent: it was not sent and never will be
/// - any other negative status: the daemon refused the request; the text is the daemon's
///
/// The client logs no failure: the completion gets the code and the text.
///
/// The client holds one connection, which it keeps and renews as `SysMgrClient` does: it works again with the next
/// request once a daemon is back. The requests that wait are kept in memory, without a limit.
///
/// Threads: one at a time. A forked child may only destroy the client: the parent's requests are not completed there,
/// and `descriptor` is shared with the parent's loop. The context has to outlive the client, except at the end of the
/// process: the connection of a client in static storage is closed before the context is destroyed, and a `process`
/// that runs later completes what waits with -100 or -103. In a thread that goes on while another one ends the process,
/// `submit` returns 0 and `process` does nothing.
class ZEL_EXPORT AsyncClient {
 public:
  /// Identifies a request for `cancel`. Never 0; a client uses each only once.
  using Id = std::uint64_t;

  static constexpr std::chrono::milliseconds kDefaultTimeout{5000};

  /// Begins to connect, and does not wait for it. The daemon need not be there.
  /// @param context   that of `ZmqUtils` as a rule
  /// @param endpoint  the daemon's request endpoint, as ZeroMQ writes it (zmq_tcp(7)); where it is not valid, each
  ///                  request ends with -101
  explicit AsyncClient(zmq::context_t& context, const std::string& endpoint = requestEndpoint());
  ~AsyncClient();
  AsyncClient(const AsyncClient&) = delete;
  AsyncClient& operator=(const AsyncClient&) = delete;

  /// Appends a request to those that wait; outside `process` sends it at once if there are none and a daemon is
  /// connected. Never waits.
  ///
  /// @param completion  is called once with a `const Answer<Value>&`, and destroyed after that, or with the client. May
  ///                    be empty.
  /// @param timeout     the longest time from now to the answer, the wait behind other requests included; 0 and
  ///                    negative values mean the default, 5 s
  /// @return the request's id; 0 in a forked child, or while another thread ends the process: nothing is submitted
  ///         then, and the completion never runs
  template <class Value>
  Id submit(const Request<Value>& request, std::function<void(const std::common_type_t<Answer<Value>>&)> completion,
            std::chrono::milliseconds timeout = kDefaultTimeout) {
    // The answer of a failure is made here: then no failure of memory keeps the completion from being called.
    auto complete = [read = request.read, completion = std::move(completion),
                     answer = Answer<Value>()](Ending& ending) mutable {
      const auto fill = [&] {
        Value value{};
        read(ending.reply, value);
        answer.value = std::move(value);
      };
      readAnswer(ending, std::ref(fill));
      answer.status = ending.status;
      answer.text = std::move(ending.text);
      if (completion) completion(answer);
    };
    return append(request.command, request.body, std::move(complete), timeout);
  }
  Id submit(const Request<void>& request, std::function<void(const Answer<void>&)> completion,
            std::chrono::milliseconds timeout = kDefaultTimeout) {
    auto complete = [completion = std::move(completion)](Ending& ending) {
      if (completion) completion({ending.status, std::move(ending.text)});
    };
    return append(request.command, request.body, std::move(complete), timeout);
  }

  /// Cancels a request. Its completion runs in the next `process`: with -106 when the request was not sent, with -103
  /// when it was. After a request that was sent, the next one is sent only when the answer has come or the time-out is
  /// over: the order holds.
  /// @return false when there is no such request, it was cancelled before, or it has ended: its completion has run or
  ///         is due
  bool cancel(Id id);

  /// The descriptor to watch: readable, level-triggered, while `process` has something to do, the time-outs of requests
  /// included. So an application that watches it needs no timer. Only to be watched, never read, and not after the
  /// client is destroyed. May be readable when nothing is due. The same for the life of the client; -1 when there were
  /// too few descriptors to make it: as long as that is so, each request ends with -101.
  int descriptor() const;

  /// Does what is due: sends, receives, and runs at most 32 completions; when more are due, the descriptor stays
  /// readable. Never waits. May be called at any time; inside a completion and in a forked child it does nothing.
  /// @return the number of completions that were run
  std::size_t process();

  /// The number of requests whose completions have not run yet, the empty ones included.
  std::size_t pending() const;

 private:
  /// A request's end, before its answer is read.
  struct Ending {
    SysMgrCommands::sysmgr_msg_t command;
    int status = 0;
    std::string text;
    Json::Value reply;  ///< after a success
  };
  using Complete = std::function<void(Ending&)>;

  Id append(SysMgrCommands::sysmgr_msg_t command, const Json::Value& body, Complete complete,
            std::chrono::milliseconds timeout);
  /// Runs the reader of an answer if there is one. What it throws makes the answer unusable.
  static void readAnswer(Ending& ending, const std::function<void()>& read);

  class ZEL_HIDDEN State;
  State* const state_;
};

}  // namespace zel
