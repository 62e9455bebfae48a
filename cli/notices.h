#pragma once

namespace zel::ctl {

/// Sends what the library prints to standard output to standard error, while it lives: it tells there that the lease
/// directory cannot be read, and the output of a command is for its data alone.
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
