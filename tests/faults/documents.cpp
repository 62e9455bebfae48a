#include "tests/faults/documents.h"

#include <cstdlib>

#include "subscriber/sysmgr_subscriber.h"

namespace zel::test {

namespace {

const std::string kMark = "state ";

std::string textOf(std::uint32_t number) {
  constexpr std::uint32_t kMost = 3000;
  const std::string filling(number * 7919 % kMost, static_cast<char>('a' + number % 26));
  return kMark + std::to_string(number) + ' ' + filling;
}

Json::Value whitelistOf(std::uint32_t number) {
  Json::Value list(Json::arrayValue);
  for (std::uint32_t i = 0; i <= number % 50; ++i) {
    WhiteListEntry entry;
    entry.setIp(number);
    entry.setMask(i);
    entry.enable(i % 2 == 0);
    entry.Serialize(list.append(Json::Value()));
  }
  return list;
}

std::uint32_t judged(std::uint32_t number, bool whole) { return number == 0 || whole ? number : kDamaged; }

}  // namespace

std::string topicOf(Subject subject) {
  switch (subject) {
    case Subject::kStored: return SysmgrPublisher::topicOf(SysmgrPublisher::SYSMGR_STORED_PARAMETERS_UPDATE);
    case Subject::kDynamic: return SysmgrPublisher::topicOf(SysmgrPublisher::SYSMGR_DYNAMIC_INFO_UPDATE);
    case Subject::kWhitelist: return SysmgrPublisher::topicOf(SysmgrPublisher::SYSMGR_MCAST_WHITELIST_UPDATE);
  }
  std::abort();
}

Json::Value documentOf(Subject subject, std::uint32_t number) {
  Json::Value document(Json::objectValue);
  switch (subject) {
    case Subject::kStored: document["cfg"]["cfg-file-path"] = textOf(number); break;
    case Subject::kDynamic: document["eth-basics"][0]["name"] = textOf(number); break;
    case Subject::kWhitelist: document["white-list"] = whitelistOf(number); break;
  }
  return document;
}

std::uint32_t numberOf(const std::string& path) {
  if (path.compare(0, kMark.size(), kMark) != 0) return 0;
  const auto number = static_cast<std::uint32_t>(std::strtoul(path.c_str() + kMark.size(), nullptr, 10));
  return judged(number, path == textOf(number));
}

std::uint32_t numberOf(const std::list<EthBasicInfo>& interfaces) {
  return interfaces.empty() ? 0 : numberOf(interfaces.front().name);
}

std::uint32_t numberOf(const std::list<WhiteListEntry>& entries) {
  if (entries.empty()) return 0;
  const std::uint32_t number = entries.front().getIp();
  Json::Value list(Json::arrayValue);
  for (const WhiteListEntry& entry : entries) entry.Serialize(list.append(Json::Value()));
  return judged(number, list == whitelistOf(number));
}

}  // namespace zel::test
