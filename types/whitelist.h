#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "../common/ip_address.h"
#include "../common/json_serializable.h"

namespace zel {

/// The member that holds the array of whitelist entries, in requests, answers and notifications.
inline constexpr char kWhitelistMember[] = "white-list";

}  // namespace zel

/// One range of addresses from which the board accepts multicast streams. Addresses in host order, the first octet in
/// the most significant byte.
class ZEL_EXPORT WhiteListEntry : public IJsonSerializable {
 public:
  /// The kind of an entry. Kinds 0, 1 and 2 are fixed: the system defines such entries itself. The daemon gives the
  /// kinds their meaning.
  enum whitelist_entry_t : int {
    WHITELIST_ENTRY_EMPTY = 9,  ///< built empty, as every entry that is read from JSON
  };

  uint32_t ip = 0;                                 ///< "ip", dotted text
  uint32_t mask = 0;                               ///< "mask", dotted text
  bool enabled = false;                            ///< "enabled": whether the range is in force
  whitelist_entry_t type = WHITELIST_ENTRY_EMPTY;  ///< not part of the JSON form
  int index = -1;                                  ///< the daemon's number; -1: none; not part of the JSON form

  /// An empty entry. Logs "Adding Empty Whitelist Entry" at level 7.
  WhiteListEntry();
  /// A filled entry, not enabled. Logs "Adding Filled Whitelist Entry: ip %ul, mask %ul, index %d, type %d" at level 7,
  /// which shows each address as a number followed by the letter l.
  WhiteListEntry(unsigned int ip, unsigned int mask, int index, whitelist_entry_t type);

  /// @return 0
  int enable(bool on);
  bool is_enabled() const { return enabled; }

  unsigned int getIp() const { return ip; }
  unsigned int getMask() const { return mask; }
  /// @return 0
  int getIp(IpAddress& address) const;
  /// @return 0
  int getMask(IpAddress& address) const;
  /// Dotted text.
  std::string getIpStr() const;
  /// Dotted text.
  std::string getMaskStr() const;
  whitelist_entry_t getType() const { return type; }
  int getIndex() const { return index; }

  /// Sets the address from its dotted text. A text that is not an address is logged at level 2 ("Error parsing IP [%s]:
  /// invalid IP address") and leaves the value as it is; an empty text leaves it without a log line.
  /// @return 1, also when the text is not an address
  int setIp(std::string dotted);
  /// As `setIp`.
  int setMask(std::string dotted);
  /// @return 1
  int setIp(unsigned int hostOrder);
  /// @return 1
  int setMask(unsigned int hostOrder);

  void Serialize(Json::Value& root) const override;
  /// Missing, empty or bad address texts leave their member, bad ones are logged as in `setIp`; a missing "enabled"
  /// disables the entry.
  int Deserialize(Json::Value& root) override;
};

/// The set of whitelist entries, at most one an address.
class ZEL_EXPORT WhiteListDb : public IJsonSerializable {
 public:
  /// The entries by their `ip`, in ascending order.
  std::map<unsigned int, WhiteListEntry> entries;

  /// Whether the system defines entries of this kind itself: kinds 0, 1 and 2.
  bool isEntryFixed(WhiteListEntry::whitelist_entry_t type) const;

  /// Writes every entry, in ascending order of address, to the elements of the array `root` from 0 on; elements behind
  /// the last one are left alone, and so is `root` when there is no entry.
  void Serialize(Json::Value& root) const override;
  /// As `Serialize`, without the fixed entries; the others are numbered without gaps.
  void SerializeVariable(Json::Value& root) const;
  /// Replaces all entries by those of the array `root`; of several with one address the first is kept. An entry whose
  /// "ip" is missing or bad has the address 0. Null and the empty array leave no entry.
  ///
  /// Logs "Cleaning Whitelist database and loading it from the received json" at level 5.
  int Deserialize(Json::Value& root) override;
};
