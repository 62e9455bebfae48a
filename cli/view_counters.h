#pragma once

#include <json/value.h>

#include <string>

#include "view/board_view.h"

namespace zel::ctl {

/// The counters of a view, each under its name.
Json::Value documentOf(const BoardView::Counters& counters);

/// Those that are not 0: "changes 4, requests-done 4".
std::string textOf(const BoardView::Counters& counters);

}  // namespace zel::ctl
