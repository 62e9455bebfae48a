#include "cli/failure.h"

#include "common/status.h"

namespace zel::ctl {

namespace {

/// The meaning of a code of the request client for the user. Every other code is the daemon's own: a refusal.
struct Meaning {
  int code;
  Exit status;
  const char* why;  ///< "%" is replaced by the time that the command was allowed to wait; null: the client's own text
  bool mayHaveActed;
  const char* advice;
};

constexpr const char* kIsItRunning = "is the system manager daemon running? 'sysmgrctl doctor' looks closer";

constexpr Meaning kMeanings[] = {
    {status::kNotInitialized, Exit::kNoDaemon, nullptr, false, kIsItRunning},
    {status::kCannotConnect, Exit::kNoDaemon, nullptr, false, kIsItRunning},
    {status::kNotSent, Exit::kNoDaemon, "no daemon took the request within %", false, kIsItRunning},
    {status::kNoAnswer, Exit::kTimeOut, "the daemon took the request, but did not answer within %", true,
     "'-w SECONDS' waits longer, 'sysmgrctl doctor' looks closer"},
    {status::kBadAnswer, Exit::kBadAnswer, nullptr, true, "is the daemon of another version than this program?"},
    {status::kBadRequest, Exit::kUsage, nullptr, false, "texts have to be UTF-8, and a request at most 1 MiB"},
};

constexpr Meaning kRefused = {0, Exit::kRefused, nullptr, false, "the reason is the daemon's; its log may say more"};

const Meaning& meaningOf(int code) {
  for (const Meaning& meaning : kMeanings) {
    if (meaning.code == code) return meaning;
  }
  return kRefused;
}

std::string filledIn(std::string text, const std::string& seconds) {
  const std::size_t place = text.find('%');
  return place == std::string::npos ? text : text.replace(place, 1, seconds);
}

}  // namespace

Failure usage(const std::string& why, std::string advice) { return {Exit::kUsage, why, std::move(advice)}; }

Failure timeIsOver(const Deadline& deadline) {
  return {Exit::kTimeOut, "the " + deadline.text() + " of this command are over"};
}

Failure requestFailed(Purpose purpose, const std::string& action, const ErrorReport& report,
                      const std::string& seconds) {
  const Meaning& meaning = meaningOf(report.code);
  const bool refused = &meaning == &kRefused;
  const std::string why = meaning.why != nullptr ? filledIn(meaning.why, seconds) : report.text;
  const std::string whose = refused ? "the daemon refuses (status " + std::to_string(report.code) + "): " : "";
  std::string advice = meaning.advice;
  if (purpose == Purpose::kToChange) {
    const char* const effect = meaning.mayHaveActed
                                   ? "the change may have been made all the same: look with 'sysmgrctl get'"
                                   : "nothing was changed";
    advice = std::string(effect) + "; " + advice;
  }
  return Failure(meaning.status, "cannot " + action + ": " + whose + why, advice).withCode(report.code);
}

}  // namespace zel::ctl
