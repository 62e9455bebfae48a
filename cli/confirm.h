#pragma once

#include <functional>

#include "cli/command.h"
#include "cli/configuration.h"

namespace zel::ctl {

/// Makes a change; with the option --confirm a guardian brings the old values back later.
/// @param keys  what the change concerns: keys of settings and of elements of the lists, which come back whole
void changeWithGuardian(Call& call, const Configuration& live, const Words& keys, const std::function<void()>& change);

}  // namespace zel::ctl
