#pragma once

namespace zel::ctl {

/// Redirects standard output to standard error while it lives. The library reports on standard output that the lease
/// directory cannot be read, and a command writes only its data there.
class NoticesOnStandardError {
 public:
  NoticesOnStandardError();
  ~NoticesOnStandardError();
  NoticesOnStandardError(const NoticesOnStandardError&) = delete;
  NoticesOnStandardError& operator=(const NoticesOnStandardError&) = delete;

 private:
  int output_;
};

}  // namespace zel::ctl
