// Keeping a task of another user away from the terminal of its starter.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <string_view>

namespace runlet_tool {

// Whether any of the three standard streams is a terminal.
bool hasTerminal();

// Gives up the controlling terminal, into which the process could inject input. False if it may
// still have one.
bool leaveTerminal();

// Calls `become` in a child that leads its own session; `become` turns the process into a task of
// that user or returns an exit status. If standard input was a terminal, the child's is empty;
// outputs that were terminals pass through this process, escaped by `visiblePart`.
//
// SIGINT, SIGTERM, SIGHUP and SIGQUIT are forwarded to the child's process group, unless they are
// ignored. After the child has ended and its output has been shown, returns its exit status, or
// ends by the signal that ended it. Processes that the child leaves running can then no longer
// write to those outputs. Returns 125, after a line on standard error, if no child can be created.
int relayTask(uid_t user, const std::function<int()>& become);

}  // namespace runlet_tool
