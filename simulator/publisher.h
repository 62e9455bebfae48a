#pragma once

#if __has_include("subscriber/sysmgr_subscriber.h")
#include "subscriber/sysmgr_subscriber.h"
#else  // until the subscriber is there
struct SysmgrPublisher {
  enum sysmgr_notifications_t : int {
    SYSMGR_STORED_PARAMETERS_UPDATE = 1000,
    SYSMGR_DYNAMIC_INFO_UPDATE = 1001,
    SYSMGR_REBOOT_REQUEST = 1002,
    SYSMGR_MCAST_WHITELIST_UPDATE = 1004,
  };
};
#endif
