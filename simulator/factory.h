#pragma once

#include <json/value.h>

#include <optional>
#include <string>
#include <vector>

#include "types/sysmgr_types.h"

namespace zel::sim {

// What a board of each model is like when it leaves the factory. The names of chips and modules are made up.

/// The model of a text: the JSON texts with their alias, and both texts of the undefined one.
std::optional<BoardModelType::board_models_t> modelFromText(const std::string& text);
/// The text of every model, in the order of their values.
std::vector<std::string> modelTexts();

BoardModel factoryModel(BoardModelType::board_models_t model);
SysParameters factoryParameters(const BoardModel& model);
SysParametersDynamic factoryDynamic(const BoardModel& model, const SysParameters& stored);
/// The ranges that the system itself needs; a client cannot change them.
WhiteListDb factoryWhitelist();
/// The documents whose fields the daemon defines, by the member of the answer that holds them.
Json::Value factoryOwnDocuments(const BoardModel& model, const std::string& serialNumber);

}  // namespace zel::sim
