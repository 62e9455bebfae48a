#pragma once

#include <stdexcept>
#include <string>

#include "cli/deadline.h"
#include "cli/exit_status.h"
#include "common/error_report.h"

namespace zel::ctl {

/// Why a command cannot go on: thrown where it is found, shown by main.
class Failure : public std::runtime_error {
 public:
  /// @param why     what failed and why, without the program's name: "cannot read the board model: ..."
  /// @param advice  what to try; may be empty
  Failure(Exit status, const std::string& why, std::string advice = {})
      : std::runtime_error(why), status_(status), advice_(std::move(advice)) {}

  Exit status() const { return status_; }
  const std::string& advice() const { return advice_; }

  Failure withAdvice(const std::string& advice) const {
    Failure copy = *this;
    copy.advice_ = advice;
    return copy;
  }

  /// The key or the path that the failure is about; empty: none.
  const std::string& key() const { return key_; }
  Failure about(const std::string& key) const {
    Failure copy = *this;
    copy.key_ = key;
    return copy;
  }
  /// The status code of the request that failed; 0: it was not a request.
  int code() const { return code_; }
  Failure withCode(int code) const {
    Failure copy = *this;
    copy.code_ = code;
    return copy;
  }

 private:
  Exit status_;
  std::string advice_;
  std::string key_;
  int code_ = 0;
};

/// Wrong usage; the advice is the help of the command.
Failure usage(const std::string& why, std::string advice = {});

/// A command whose time ended before its work.
Failure timeIsOver(const Deadline& deadline);

/// What a request is for.
enum class Purpose { kToRead, kToChange };

/// A request that failed.
/// @param action   what was tried, as it follows "cannot": "read the board model"
/// @param report   what the client has to say about it
/// @param seconds  how long the command was allowed to wait, as text
Failure requestFailed(Purpose purpose, const std::string& action, const ErrorReport& report,
                      const std::string& seconds);

}  // namespace zel::ctl
