#pragma once

namespace zel::ctl {

/// The exit statuses of sysmgrctl, the same on a terminal and in a pipe; the manual page lists them.
enum class Exit : int {
  kOk = 0,
  kOther = 1,
  kUsage = 2,
  kTimeOut = 3,    ///< the daemon took the request and did not answer in time
  kRefused = 4,    ///< the daemon answered with a failure
  kBadAnswer = 5,  ///< the daemon's answer cannot be used
  kNoDaemon = 8,
  kNotFound = 10,
};

/// The name of an exit status for programs: "refused".
constexpr const char* nameOf(Exit status) {
  switch (status) {
    case Exit::kOk: return "ok";
    case Exit::kOther: return "failure";
    case Exit::kUsage: return "usage";
    case Exit::kTimeOut: return "time-out";
    case Exit::kRefused: return "refused";
    case Exit::kBadAnswer: return "bad-answer";
    case Exit::kNoDaemon: return "no-daemon";
    case Exit::kNotFound: return "not-found";
  }
  return "failure";
}

}  // namespace zel::ctl
