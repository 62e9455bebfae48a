#include "simulator/current.h"

namespace zel::sim {

Json::Value answerOf(const Board& board, SysMgrCommands::sysmgr_msg_t command) {
  Board copy = board;
  return copy.handle(static_cast<unsigned int>(command), Json::Value()).reply;
}

std::optional<Notification> currentNotification(const Board& board, SysmgrPublisher::sysmgr_notifications_t topic) {
  switch (topic) {
    case SysmgrPublisher::SYSMGR_STORED_PARAMETERS_UPDATE:
      return Notification{topic, answerOf(board, SysMgrCommands::SYSMGR_GET_STORED_PARAMETERS)["stored"]};
    case SysmgrPublisher::SYSMGR_DYNAMIC_INFO_UPDATE: return board.dynamicNotification();
    case SysmgrPublisher::SYSMGR_MCAST_WHITELIST_UPDATE: {
      Json::Value payload(Json::objectValue);
      payload["white-list"] = answerOf(board, SysMgrCommands::SYSMGR_GET_MCAST_WHITELIST)["white-list"];
      return Notification{topic, payload};
    }
    case SysmgrPublisher::SYSMGR_REBOOT_REQUEST: break;
  }
  return std::nullopt;
}

}  // namespace zel::sim
