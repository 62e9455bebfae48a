#pragma once

#include "tests/support/child_process.h"
#include "tests/support/scripted_daemon.h"

namespace zel::test {

/// A scripted daemon in a process of its own, to be killed and frozen. It writes "request ID\n" for each request.
///
/// `prepareDaemon` makes the process, which then stands still until it is to `listen`: so a test can have all its
/// processes before it has threads. `startDaemon` does both.
ChildProcess prepareDaemon(const ScriptedDaemon::Handler& handler = {});
/// Lets a prepared daemon begin. It listens when this returns.
void listen(ChildProcess& daemon);
ChildProcess startDaemon(const ScriptedDaemon::Handler& handler = {});

/// Answers no request at all.
std::vector<Answer> keepSilent(const Request& request);

}  // namespace zel::test
