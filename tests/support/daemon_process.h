#pragma once

#include "tests/support/child_process.h"
#include "tests/support/scripted_daemon.h"

namespace zel::test {

/// A scripted daemon in a process of its own, to be killed and frozen. It writes "request ID\n" for each request.
/// It listens when this returns.
ChildProcess startDaemon(const ScriptedDaemon::Handler& handler = {});

/// Answers no request at all.
std::vector<Answer> keepSilent(const Request& request);

}  // namespace zel::test
