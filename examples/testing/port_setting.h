#pragma once

#include <cstdint>

#include "client/sysmgr_client.h"

/// What a part of an application needs of the board: the seam at which a test puts a fake in the daemon's place.
class PortSetting {
 public:
  virtual ~PortSetting() = default;
  virtual int set(uint32_t port) = 0;
};

/// The real one.
class PortOfTheBoard final : public PortSetting {
 public:
  explicit PortOfTheBoard(SysMgrClient& client) : client_(client) {}
  int set(uint32_t port) override { return client_.setRtspTcpPort(port); }

 private:
  SysMgrClient& client_;
};

/// Sets the port; once more where no daemon took the request, which is safe to repeat.
inline int setPortPatiently(PortSetting& setting, uint32_t port) {
  constexpr int kNotTaken = -102;
  const int status = setting.set(port);
  return status == kNotTaken ? setting.set(port) : status;
}
