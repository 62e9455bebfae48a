#include "types/nmos_parameters.h"

#include "common/logger.h"
#include "types/internal/mark.h"
#include "types/internal/walks.h"

void NmosParameters::Serialize(Json::Value& root) const { zel::writeRecord(*this, root); }
int NmosParameters::Deserialize(Json::Value& root) { return zel::readRecord(*this, root); }
void NmosParameters::SerializeDelta(Json::Value& root) const { zel::writeDelta(*this, root); }

void NmosParameters::dumpParameter() const {
  constexpr auto kLevel = Logger::LEVEL_CONFIG;
  Logger::log(kLevel, "NMOS");
  Logger::log(kLevel, "    Enable                [%s]", zel::mark(enable));
  Logger::log(kLevel, "    Ethernet Interface    [%s]", advertisementInterface.c_str());
  Logger::log(kLevel, "    Device Name           [%s]", deviceName.c_str());
  Logger::log(kLevel, "    Node Name             [%s]", nodeName.c_str());
  Logger::log(kLevel, "    HTTP SDP port         [%d]", httpSdpPort);
  Logger::log(kLevel, "    Node API port         [%d]", nodePort);
  Logger::log(kLevel, "    Query API port        [%d]", queryPort);
  Logger::log(kLevel, "    Registration API port [%d]", registrationPort);
  Logger::log(kLevel, "    Shelf Slot ID         [%d::%d]", shelfId, slotId);
}
