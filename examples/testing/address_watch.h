#pragma once

#include <json/value.h>

#include <string>
#include <utility>

#include "subscriber/sysmgr_subscriber.h"

/// A part of an application: knows the address of one interface, and whether the board reports an error.
class AddressWatch final : public SysmgrSubscriber {
 public:
  explicit AddressWatch(std::string interface) : interface_(std::move(interface)) {}

  const std::string& address() const { return address_; }
  bool alarm() const { return alarm_; }

  int notifyDynamicInfoUpdate(SysParametersDynamic& dynamic) override {
    alarm_ = !dynamic.errors.empty();
    for (const EthBasicInfo& each : dynamic.ethBasics) {
      if (each.name == interface_) address_ = IpAddress(each.ip).toString();
    }
    return 0;
  }

 private:
  std::string interface_;
  std::string address_ = "unknown";
  bool alarm_ = false;
};
