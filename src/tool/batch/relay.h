// A task of another user, kept from the terminal of whoever starts it.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <string_view>

namespace runlet_tool {

// Whether any of the three standard streams is a terminal.
bool hasTerminal();

// Gives up the controlling terminal, in which the process could still type, if there is one. False
// where it may still have one.
bool leaveTerminal();

// Does `become`, which is to become a task of that user, in a child that leads a session of its
// own: its standard input is empty where it was a terminal, and its outputs go through this process
// where they were one, with `visiblePart` for what is in them. `become` is to become a program, and
// yields an exit status where it cannot.
//
// SIGINT, SIGTERM, SIGHUP and SIGQUIT go to the process group of the child, unless they are
// ignored. Yields the child's exit status once it has ended and what it has written until then is
// shown; where a signal has ended the child, this process ends by the same. Processes that the
// child leaves running can no longer write to those outputs then. Yields 125, after a line on
// standard error, where there can be no child.
int relayTask(uid_t user, const std::function<int()>& become);

}  // namespace runlet_tool
