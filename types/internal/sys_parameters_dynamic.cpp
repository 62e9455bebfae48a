#include "types/sys_parameters_dynamic.h"

#include "common/shared/json_form.h"

namespace zel {

template <class Io>
void walk(Io& io, const FanSpeed&) {
  io.reset("main", &FanSpeed::main);
}

template <class Io>
void walk(Io& io, const SystemTemperature&) {
  io.reset("fpga", &SystemTemperature::fpga);
}

template <class Io>
void walk(Io& io, const SystemError&) {
  io.reset("code", &SystemError::code);
  io.reset("description", &SystemError::description);
}

template <class Io>
void walk(Io& io, const SysParametersDynamic&) {
  using P = SysParametersDynamic;
  io.reset("chipid-version", &P::chipIdVersion);
  io.reset("chipid-name", &P::chipIdName);
  io.object("temperature", &P::temperature);
  io.object("fan-speed", &P::fanSpeed);
  io.reset("madi-lock", &P::madiLock);
  io.list("eth-basics", &P::ethBasics);
  io.list("errors", &P::errors);
}

}  // namespace zel

void FanSpeed::Serialize(Json::Value& root) const { zel::writeRecord(*this, root); }
int FanSpeed::Deserialize(Json::Value& root) { return zel::readRecord(*this, root); }

void SystemTemperature::Serialize(Json::Value& root) const { zel::writeRecord(*this, root); }
int SystemTemperature::Deserialize(Json::Value& root) { return zel::readRecord(*this, root); }

void SystemError::Serialize(Json::Value& root) const { zel::writeRecord(*this, root); }
int SystemError::Deserialize(Json::Value& root) { return zel::readRecord(*this, root); }

void SysParametersDynamic::Serialize(Json::Value& root) const { zel::writeRecord(*this, root); }
int SysParametersDynamic::Deserialize(Json::Value& root) { return zel::readRecord(*this, root); }
