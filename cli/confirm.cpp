#include "cli/confirm.h"

#include "cli/guardian.h"
#include "cli/values.h"
#include "types/whitelist.h"

namespace zel::ctl {

namespace {

bool isOf(const std::string& list, const std::string& key) { return key.rfind(list + "/", 0) == 0; }

/// The part of the configuration that the keys are about. @throws Failure when a value cannot come back
Configuration partOf(const Configuration& live, const Words& keys) {
  Configuration part;
  part.model = live.model;
  for (const std::string& key : keys) {
    if (isOf("ethipv4", key)) {
      part.interfaces = live.interfaces;
    } else if (isOf(kWhitelistMember, key)) {
      part.whitelist = live.whitelist;
    } else if (part.settings[key] = live.settings.at(key); part.settings[key] == kUnset) {
      throw Failure(Exit::kOther, key + " has no value now, so no request could bring that back",
                    "nothing was changed; it can be set without --confirm")
          .about(key);
    }
  }
  return part;
}

/// Has the guardian bring the old values back. It goes on by itself where that takes longer.
/// @return what the user has to know about it; empty: the old values are back
std::string undoSoon() {
  constexpr double kSeconds = 2;  // the time of the command may be over
  try {
    tellGuardian(Verdict::kUndo, Deadline(kSeconds));
    return "";
  } catch (const Failure& failure) {
    if (failure.status() == Exit::kTimeOut) return "the guardian goes on trying to bring the old values back";
    return std::string("the old values are not back: ") + failure.what();
  }
}

}  // namespace

void changeWithGuardian(Call& call, const Configuration& live, const Words& keys, const std::function<void()>& change) {
  if (!call.has("--confirm")) return change();
  constexpr double kLongest = 86400;
  const double seconds = valueFor("--confirm", [&call] { return parseSeconds(call.word("--confirm")); });
  if (seconds > kLongest) throw usage("--confirm: a day is the longest time");
  startGuardian(partOf(live, keys), seconds);
  try {
    change();
  } catch (const Failure& failure) {
    const std::string remark = undoSoon();
    if (remark.empty()) throw;
    throw failure.withAdvice(remark + (failure.advice().empty() ? "" : "; " + failure.advice()));
  }
  note("the old values come back in " + Deadline(seconds).text() + " unless 'sysmgrctl confirm' keeps the new ones");
}

void runConfirm(Call& call) {
  const bool isUndone = call.has("--undo");
  tellGuardian(isUndone ? Verdict::kUndo : Verdict::kConfirm, call.deadline);
  Json::Value document;
  document["kept"] = isUndone ? "old" : "new";
  call.output.page(document, [&] { call.output.line(isUndone ? "The old values are back." : "The new values stay."); });
}

}  // namespace zel::ctl
