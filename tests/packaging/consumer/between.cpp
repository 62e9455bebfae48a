#include "client/sysmgr_client.h"
#include "client/zmq_utils.h"

int between() {
  SysMgrClient client;
  return client.init(ZmqUtils::getInstance().getContext());
}
