#include "types/whitelist.h"

#include "common/logger.h"
#include "common/shared/json_form.h"
#include "common/status.h"

namespace zel {

template <class Io>
void walk(Io& io, const WhiteListEntry&) {
  io.keep("ip", &WhiteListEntry::ip, Address{});
  io.keep("mask", &WhiteListEntry::mask, Address{});
  io.resetTo("enabled", &WhiteListEntry::enabled, false);
}

}  // namespace zel

namespace {

/// The setters return this for every value, so their result says nothing.
constexpr int kSetterResult = 1;

int setAddress(uint32_t& member, const std::string& dotted) {
  IpAddress address(member);
  address.setAddress(dotted);
  member = address.getAddress();
  return kSetterResult;
}

template <class Wanted>
void writeEntries(const std::map<unsigned int, WhiteListEntry>& entries, Json::Value& root, Wanted wanted) {
  Json::ArrayIndex i = 0;
  for (const auto& [ip, entry] : entries) {
    if (wanted(entry)) entry.Serialize(root[i++]);
  }
}

}  // namespace

WhiteListEntry::WhiteListEntry() { Logger::log(Logger::LEVEL_TRACE, "Adding Empty Whitelist Entry"); }

WhiteListEntry::WhiteListEntry(unsigned int ipHostOrder, unsigned int maskHostOrder, int number, whitelist_entry_t kind)
    : ip(ipHostOrder), mask(maskHostOrder), type(kind), index(number) {
  // "%ul" shows a number and the letter l: so the log has always had it.
  Logger::log(Logger::LEVEL_TRACE, "Adding Filled Whitelist Entry: ip %ul, mask %ul, index %d, type %d", ip, mask,
              index, int(type));
}

int WhiteListEntry::enable(bool on) {
  enabled = on;
  return zel::status::kOk;
}

int WhiteListEntry::getIp(IpAddress& address) const {
  address.setAddress(ip);
  return zel::status::kOk;
}

int WhiteListEntry::getMask(IpAddress& address) const {
  address.setAddress(mask);
  return zel::status::kOk;
}

std::string WhiteListEntry::getIpStr() const { return IpAddress(ip).toString(); }
std::string WhiteListEntry::getMaskStr() const { return IpAddress(mask).toString(); }

// The binary interface passes these texts by value. NOLINTBEGIN(performance-unnecessary-value-param)
int WhiteListEntry::setIp(std::string dotted) { return setAddress(ip, dotted); }
int WhiteListEntry::setMask(std::string dotted) { return setAddress(mask, dotted); }
// NOLINTEND(performance-unnecessary-value-param)

int WhiteListEntry::setIp(unsigned int hostOrder) {
  ip = hostOrder;
  return kSetterResult;
}

int WhiteListEntry::setMask(unsigned int hostOrder) {
  mask = hostOrder;
  return kSetterResult;
}

void WhiteListEntry::Serialize(Json::Value& root) const { zel::writeRecord(*this, root); }
int WhiteListEntry::Deserialize(Json::Value& root) { return zel::readRecord(*this, root); }

bool WhiteListDb::isEntryFixed(WhiteListEntry::whitelist_entry_t type) const {
  return static_cast<unsigned int>(type) < 3;
}

void WhiteListDb::Serialize(Json::Value& root) const {
  writeEntries(entries, root, [](const WhiteListEntry&) { return true; });
}

void WhiteListDb::SerializeVariable(Json::Value& root) const {
  writeEntries(entries, root, [this](const WhiteListEntry& entry) { return !isEntryFixed(entry.getType()); });
}

int WhiteListDb::Deserialize(Json::Value& root) {
  Logger::log(Logger::LEVEL_LIFECYCLE, "Cleaning Whitelist database and loading it from the received json");
  entries.clear();
  zel::forEachRecord<WhiteListEntry>(root, [this](const WhiteListEntry& entry) {
    entries.emplace(entry.ip, entry);  // the first one of an address stays
  });
  return zel::status::kOk;
}
