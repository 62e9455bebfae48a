#include "types/sysmgr_eth_types.h"

#include "common/error_aux_msg.h"
#include "common/logger.h"
#include "common/shared/ipv4.h"
#include "common/shared/json_form.h"
#include "common/status.h"
#include "types/internal/enum_texts.h"

namespace zel {

namespace {

constexpr EnumRow<EthMode::eth_mode_t> kEthModes[] = {
    {EthMode::ETH_MODE_STATIC, "static"},
    {EthMode::ETH_MODE_DHCP, "DHCP"},
};

constexpr Key kMode = "mode";

/// Reads a mode from a text, or from the member "mode" of an object. A value of any other JSON type leaves the mode.
struct EthModeText : EnumText<EthMode> {
  static void read(const Json::Value& json, EthMode::eth_mode_t& mode) {
    if (json.isString()) EnumText::read(json, mode);
    if (!json.isObject()) return;
    if (const Json::Value* const nested = findMember(json, kMode)) EnumText::read(*nested, mode);
  }
};

}  // namespace

template <class Io>
void walk(Io& io, const Vlan&) {
  io.reset("id", &Vlan::id);
  io.reset("priority", &Vlan::priority);
  io.reset("tpid", &Vlan::tpid);
}

template <class Io>
void walk(Io& io, const EthMode&) {
  if constexpr (Io::kReading) io.insert(kMode);  // a missing mode becomes a null member; callers may see it
  io.keep(kMode, &EthMode::mode, EthModeText{});
}

template <class Io>
void walk(Io& io, const EthIpV4Cfg& cfg) {
  io.reset("eth", &EthIpV4Cfg::eth);
  io.in(&EthIpV4Cfg::mode);
  if (cfg.mode.mode != EthMode::ETH_MODE_STATIC) return;  // as just read: the addresses of the others do not travel
  io.keepBlock("static", [](auto& addresses) {
    addresses.keep("gw", &EthIpV4Cfg::gw, Address{});
    addresses.keep("ip", &EthIpV4Cfg::ip, Address{});
    addresses.keep("mask", &EthIpV4Cfg::mask, Address{});
  });
}

}  // namespace zel

void Vlan::Serialize(Json::Value& root) const { zel::writeRecord(*this, root); }
int Vlan::Deserialize(Json::Value& root) { return zel::readRecord(*this, root); }

const char* EthMode::toText(eth_mode_t mode) { return zel::textOf(zel::kEthModes, mode, "Undefined"); }
std::optional<EthMode::eth_mode_t> EthMode::fromText(std::string_view text) {
  return zel::valueOf<eth_mode_t>(zel::kEthModes, text);
}

void EthMode::Serialize(Json::Value& root) const { zel::writeRecord(*this, root); }
int EthMode::Deserialize(Json::Value& root) { return zel::readRecord(*this, root); }

void EthIpV4Cfg::Serialize(Json::Value& root) const { zel::writeRecord(*this, root); }
int EthIpV4Cfg::Deserialize(Json::Value& root) { return zel::readRecord(*this, root); }

namespace {

/// Why a configuration may not be applied; null when it may.
const char* fault(const EthIpV4Cfg& cfg) {
  constexpr uint32_t kLocalHost = 0x7F000001;
  if (cfg.mode.mode != EthMode::ETH_MODE_STATIC) return nullptr;
  if (zel::firstOctet(cfg.ip) == 0) return "Interface IP cannot start with 0";
  if (cfg.ip == kLocalHost) return "Interface IP cannot be set as the local host 127.0.0.1";
  if (zel::isMulticast(cfg.ip)) return "Interface IP cannot be multicast";
  if (cfg.gw != 0 && zel::firstOctet(cfg.gw) == 0) return "Interface gateway cannot start with 0";
  if (zel::isMulticast(cfg.gw)) return "Interface gateway cannot be multicast";
  if (cfg.mask == 0) return "Interface mask cannot be 0.0.0.0";
  return nullptr;
}

}  // namespace

int EthIpV4Cfg::validate() const {
  const char* const text = fault(*this);
  if (!text) return zel::status::kOk;
  Logger::log(Logger::LEVEL_ERROR, "%s", text);
  ErrorAuxMsg::getInstance()->addMessage("%s", text);
  return zel::status::kInvalidAddress;
}

bool EthIpV4Cfg::operator==(const EthIpV4Cfg& other) const {
  if (eth != other.eth || mode.mode != other.mode.mode) return false;
  return mode.mode == EthMode::ETH_MODE_DHCP || (ip == other.ip && mask == other.mask && gw == other.gw);
}

bool EthIpV4Cfg::operator<(const EthIpV4Cfg& other) const { return eth < other.eth; }
