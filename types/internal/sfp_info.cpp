#include "types/sfp_info.h"

#include "common/shared/json_form.h"

namespace zel {

template <class Io>
void walk(Io& io, const SfpInfo&) {
  io.reset("present", &SfpInfo::present);
  io.reset("temperature", &SfpInfo::temperature);
  io.resetTo("rx_power", &SfpInfo::rxPower, 0.0F);  // the daemon's readers take 0, not the -1 of a new record
  io.resetTo("tx_power", &SfpInfo::txPower, 0.0F);
  io.resetTo("wavelength", &SfpInfo::wavelength, 0);
  io.reset("part_number", &SfpInfo::partNumber);
}

}  // namespace zel

void SfpInfo::Serialize(Json::Value& root) const { zel::writeRecord(*this, root); }
int SfpInfo::Deserialize(Json::Value& root) { return zel::readRecord(*this, root); }
