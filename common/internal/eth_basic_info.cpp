#include "common/eth_basic_info.h"

#include "common/shared/json_form.h"

namespace zel {

template <class Io>
void walk(Io& io, const EthBasicInfo&) {
  io.reset("name", &EthBasicInfo::name);
  io.reset("ip", &EthBasicInfo::ip, Address{});
  io.reset("mac", &EthBasicInfo::mac);
  io.reset("ip-present", &EthBasicInfo::ipPresent);
  io.reset("index", &EthBasicInfo::index);
  io.reset("label", &EthBasicInfo::label);
  io.object("sfp-info", &EthBasicInfo::sfp);
}

}  // namespace zel

void EthBasicInfo::Serialize(Json::Value& root) const { zel::writeRecord(*this, root); }
int EthBasicInfo::Deserialize(Json::Value& root) { return zel::readRecord(*this, root); }
