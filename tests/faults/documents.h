#pragma once

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>

#include "common/eth_basic_info.h"
#include "types/whitelist.h"

namespace zel::test {

/// What a published document is about.
enum class Subject { kStored, kDynamic, kWhitelist };
constexpr std::size_t kSubjects = 3;

// Every document has a number, and all of its content follows from the number: what arrives tells which document it is,
// and whether it is whole.

/// The subjects take turns.
inline Subject subjectOf(std::uint32_t number) { return static_cast<Subject>(number % kSubjects); }
std::string topicOf(Subject subject);
/// The document about a subject; 0: the one before the first was published.
Json::Value documentOf(Subject subject, std::uint32_t number);

/// A content that has a number, but is not that number's.
constexpr std::uint32_t kDamaged = UINT32_MAX;

/// The number of the document that this is the content of; 0 when it has none.
/// @param path  of the stored parameters, their store path
std::uint32_t numberOf(const std::string& path);
std::uint32_t numberOf(const std::list<EthBasicInfo>& interfaces);
std::uint32_t numberOf(const std::list<WhiteListEntry>& entries);

}  // namespace zel::test
