#include "types/system_info.h"

#include "common/status.h"

namespace {

void copyMembers(const Json::Value& from, Json::Value& to) {
  if (!from.isObject()) return;
  for (auto member = from.begin(); member != from.end(); ++member) to[member.name()] = *member;
}

}  // namespace

void SystemBasicInfo::Serialize(Json::Value& root) const { copyMembers(fields, root); }

int SystemBasicInfo::Deserialize(Json::Value& root) {
  fields = root;
  return zel::status::kOk;
}

void NetworkStackStatus::Serialize(Json::Value& root) const { copyMembers(fields, root); }

int NetworkStackStatus::Deserialize(Json::Value& root) {
  fields = root;
  return zel::status::kOk;
}
