#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "cli/board.h"
#include "cli/suggest.h"

namespace zel::ctl {

/// What a settable key takes.
struct KeyType {
  const char* name;  ///< as it is listed
  /// The value that the request carries. @throws Failure when the text is no such value
  Json::Value (*parse)(const std::string& text);
  Words (*values)();  ///< the values to offer; null: any
};

/// How the value travels.
enum class KeyRoute {
  kMember,    ///< as a member of the change request
  kBlock,     ///< inside its block, which travels whole: what it holds besides is read from the daemon first
  kIdentify,  ///< with a command of its own
};

/// One thing that can be set. A new setter of the client is a new row.
struct Key {
  const char* path;     ///< as it is typed, and as the stored parameters and `watch` show it
  const char* request;  ///< the member of the request
  const KeyType& type;
  const char* meaning;
  KeyRoute route = KeyRoute::kMember;
};
const std::vector<Key>& settableKeys();

/// @throws Failure with a suggestion when there is no such key
const Key& keyOf(const std::string& path);

/// Sets the keys, which come as KEY VALUE KEY VALUE ..., together or not at all.
/// @return the values as the daemon got them, by key
Json::Value setKeys(Board& board, const Words& keysAndValues);

/// An interface configuration from "NAME,dhcp" or "NAME,ADDRESS/PREFIX[,GATEWAY]". @throws Failure
Json::Value parseInterface(const std::string& text);
/// The dotted text itself, once it is known to be an address. @throws Failure
std::string parseAddress(const std::string& text);
/// The mask of a prefix length: "255.255.255.0" of "24". @throws Failure
std::string maskOfPrefix(const std::string& length);
bool parseSwitch(const std::string& text);

}  // namespace zel::ctl
