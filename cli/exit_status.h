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

}  // namespace zel::ctl
