#pragma once

#include <optional>

#include "client/sysmgr_jsonApi.h"
#include "simulator/board.h"

namespace zel::sim {

/// What a board answers to a request without a body. The board itself does not count the request.
Json::Value answerOf(const Board& board, SysMgrCommands::sysmgr_msg_t command);

/// The notification of the topic that shows the board's present state; none for a reboot, which is not a state.
std::optional<Notification> currentNotification(const Board& board, SysmgrPublisher::sysmgr_notifications_t topic);

}  // namespace zel::sim
