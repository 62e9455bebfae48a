#include "conformance/saved_state.h"

#include "client/commands.h"
#include "conformance/check.h"

namespace zel::conformance {

namespace {

using C = SysMgrCommands;
using Route = SettingRow::Route;

const Json::Value* find(const Json::Value& list, const char* key, const Json::Value& wanted) {
  for (const Json::Value& entry : list) {
    if (entry.isObject() && entry[key] == wanted) return &entry;
  }
  return nullptr;
}

}  // namespace

SavedState::SavedState(Session& session) : stored_(session.stored()), whitelist_(session.whitelist()) {}

/// One request each: where the daemon refuses one, the others are put back all the same.
void SavedState::putBackSettings(Session& session, const Json::Value& now) const {
  settings::forEach([&](const SettingRow& row) {
    const Json::Value saved = valueAt(stored_, row.path);
    if (saved.isNull() || isSame(saved, valueAt(now, row.path))) return;
    if (row.route == Route::kKey) session.set(row.key, saved);
    if (row.route != Route::kIdentify) return;
    Json::Value body(Json::objectValue);
    body[row.key] = saved;
    session.client().ask(C::SYSMGR_SET_IDENTIFY_LEDS, body);
  });
}

void SavedState::putBackInterfaces(Session& session, const Json::Value& now) const {
  for (const Json::Value& entry : now["ethipv4"]) {
    if (entry.isObject() && find(stored_["ethipv4"], "eth", entry["eth"]) == nullptr) {
      session.set("rem-eth-cfg", entry["eth"]);
    }
  }
  for (const Json::Value& entry : stored_["ethipv4"]) {
    const Json::Value* const present = entry.isObject() ? find(now["ethipv4"], "eth", entry["eth"]) : &entry;
    if (present == nullptr || !isSame(*present, entry)) session.set("add-eth-cfg", entry);
  }
}

void SavedState::putBackWhitelist(Session& session) const {
  const Json::Value now = session.whitelist();
  if (isSame(now, whitelist_)) return;
  const auto change = [&session](int id, const Json::Value& entry) {
    session.changeWhitelist(id, entry["ip"].asString(), entry["mask"].asString(), entry["enabled"].asBool());
  };
  for (const Json::Value& entry : now) {
    if (entry.isObject() && find(whitelist_, "ip", entry["ip"]) == nullptr)
      change(C::SYSMGR_REMOVE_MCAST_WHITELIST, entry);
  }
  for (const Json::Value& entry : whitelist_) {
    const Json::Value* const present = entry.isObject() ? find(now, "ip", entry["ip"]) : &entry;
    if (present == nullptr || !isSame(*present, entry)) change(C::SYSMGR_ADD_MCAST_WHITELIST, entry);
  }
}

std::vector<std::string> SavedState::differences(Session& session) const {
  std::vector<std::string> texts;
  const Json::Value now = session.stored();
  settings::forEach([&](const SettingRow& row) {
    if (row.route == Route::kListChange || row.kind == SettingRow::Kind::kBlock) return;
    const Json::Value saved = valueAt(stored_, row.path);
    const Json::Value present = valueAt(now, row.path);
    if (isSame(saved, present)) return;
    texts.push_back(std::string(row.path) + " is " + shown(present) + " instead of " + shown(saved));
  });
  const Json::Value whitelist = session.whitelist();
  if (!isSame(whitelist, whitelist_)) {
    texts.push_back("white-list is " + shown(whitelist) + " instead of " + shown(whitelist_));
  }
  return texts;
}

std::vector<std::string> SavedState::putBack(Session& session) const {
  // Only a reset makes a value unset again.
  if (session.options().allowReset && !differences(session).empty()) session.client().ask(C::SYSMGR_FACTORY_RESET);
  const Json::Value now = session.stored();
  if (!now.isObject()) return {"the stored parameters cannot be read"};
  putBackSettings(session, now);
  putBackInterfaces(session, now);
  putBackWhitelist(session);
  return differences(session);
}

}  // namespace zel::conformance
