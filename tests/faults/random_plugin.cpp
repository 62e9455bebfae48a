// A plug-in of the random applications: it uses the library, and has a static object of its own.

#include "client/sysmgr_client.h"
#include "client/zmq_utils.h"

extern "C" __attribute__((visibility("default"))) void zelUsePlugin() {
  static SysMgrClient client;
  client.init(ZmqUtils::getInstance().getContext());
  client.setTimeout(std::chrono::milliseconds(20));
  BoardModel model;
  client.getBoardModel(model);
}
