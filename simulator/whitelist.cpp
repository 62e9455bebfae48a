#include "simulator/whitelist.h"

#include <string>

#include "common/shared/ipv4.h"
#include "simulator/judge.h"

namespace zel::sim {

namespace {

constexpr std::size_t kMostEntries = 1024;  // so that the list fits into a frame

constexpr bool isNetworkMask(std::uint32_t mask) { return mask != 0 && (~mask & (~mask + 1U)) == 0; }

Refusal invalidAddress(const char* member, const std::string& address, const char* wanted) {
  return {refusal::kInvalidAddress,
          std::string("\"white-list/") + member + "\" is \"" + address + "\", which is not " + wanted + "."};
}

Refusal readEntry(const Json::Value& value, WhiteListEntry& entry) {
  Json::Value shape(Json::objectValue);
  entry.Serialize(shape);
  if (Refusal why = judgeShape(kWhitelistMember, value, shape)) return why;
  for (const char* const member : {"ip", "mask"}) {
    const Json::Value& address = value[member];
    if (address.isNull()) continue;
    if (address.asString().empty()) return invalidAddress(member, "", "an IPv4 address");
    if (Refusal why = judgeAddress(std::string(kWhitelistMember) + "/" + member, address)) return why;
  }
  Json::Value given = value;
  entry.Deserialize(given);
  if (!isMulticast(entry.ip)) return invalidAddress("ip", entry.getIpStr(), "multicast");
  if (!isNetworkMask(entry.mask)) return invalidAddress("mask", entry.getMaskStr(), "a mask");
  return {};
}

template <class Use>
Refusal forEachEntry(const Json::Value& entries, Use use) {
  if (!entries.isArray()) return wrongType(kWhitelistMember, entries, "an array");
  for (const Json::Value& element : entries) {
    WhiteListEntry entry;
    if (Refusal why = readEntry(element, entry)) return why;
    if (Refusal why = use(entry)) return why;
  }
  return {};
}

std::string rangeText(const WhiteListEntry& entry) { return entry.getIpStr() + "/" + entry.getMaskStr(); }

Refusal refuseFixed(const WhiteListDb& db, const WhiteListEntry& entry) {
  if (!db.isEntryFixed(entry.type)) return {};
  return {refusal::kFixedEntry,
          "\"white-list\" holds " + rangeText(entry) + ", an entry of the system's own that cannot be changed."};
}

/// Passes the entry of each element, which has to be one that a client may change, to `use`.
template <class Use>
Refusal forEachKnown(const Json::Value& entries, WhiteListDb& db, Use use) {
  return forEachEntry(entries, [&](const WhiteListEntry& wanted) -> Refusal {
    const auto at = db.entries.find(wanted.ip);
    if (at == db.entries.end() || at->second.mask != wanted.mask) {
      return {refusal::kNotFound, "\"white-list\" has no entry " + rangeText(wanted) + "."};
    }
    if (Refusal why = refuseFixed(db, at->second)) return why;
    use(at, wanted);
    return {};
  });
}

}  // namespace

Refusal addToWhitelist(const Json::Value& entries, WhiteListDb& db) {
  return forEachEntry(entries, [&db](const WhiteListEntry& entry) -> Refusal {
    const auto known = db.entries.find(entry.ip);
    if (known != db.entries.end()) {
      if (Refusal why = refuseFixed(db, known->second)) return why;
    } else if (db.entries.size() >= kMostEntries) {
      return {refusal::kTooMany, "\"white-list\" is full: " + rangeText(entry) + " is more than " +
                                     std::to_string(kMostEntries) + " entries."};
    }
    db.entries.insert_or_assign(entry.ip, entry);
    return {};
  });
}

Refusal removeFromWhitelist(const Json::Value& entries, WhiteListDb& db) {
  return forEachKnown(entries, db, [&db](auto at, const WhiteListEntry&) { db.entries.erase(at); });
}

Refusal enableOnWhitelist(const Json::Value& entries, WhiteListDb& db) {
  return forEachKnown(entries, db, [](auto at, const WhiteListEntry& wanted) { at->second.enable(wanted.enabled); });
}

}  // namespace zel::sim
