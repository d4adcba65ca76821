// The start of one task: what becomes of it, and all that is done before its program.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "adapter/context.h"
#include "exec/user_rights.h"
#include "job/fill_in.h"

namespace runlet {

// What becomes of one task. It needs nothing else to be started: it is a copy of what the context
// says about that.
struct TaskStart {
  std::string folder;       // to run in
  std::string commandLine;  // whole, before it is split into words
  std::string chmodPath;    // of the program to make executable; empty = none is
  UserRights rights;
  bool redirectStderr = true;
};

// The folder that the tasks run in: `workingFolder`, or the folder of `jobFile`. A job file named
// without a folder yields its own name, which cannot be entered: the server names job files by
// their full path.
std::string runFolder(const AdapterContext& context);

// Fills `*start` for the task at `taskIndex` (0-based position in `taskList`), whatever it held
// before. Does nothing else, and looks at nothing of the machine. `uses` is what fillInArguments
// takes.
//
// False where the fill-in fails. Raises std::out_of_range where fillInArguments does, and when
// `appPath` is given and the expanded line holds no space. Both leave `commandLine` and `chmodPath`
// empty, and the rest filled.
bool composeStart(const AdapterContext& context, std::int32_t taskIndex, TaskStart* start,
                  std::vector<PlaceholderUse>* uses = nullptr);

// The steps of setUpTask, for callers that take them one at a time.
//
// Enters `folder`. False, after the adapter's text without its line end, where that is refused.
bool enterRunFolder(const std::string& folder);

// Writes "Calling '<command line>' from '<run folder>'\n" to standard output without flushing it.
void announceStart(const TaskStart& start);

// Makes the program executable, where the start has one for that. Whether it worked is not
// reported: a program that cannot be executed is reported when it is started.
void makeExecutable(const TaskStart& start);

// How far the set-up of a task came. Where something was refused, the adapter's text for it is on
// standard error; those about the folder and the rights do not end their line.
enum class SetUp { done, folderRefused, fillInFailed, rightsRefused };

// Brings the process to where it can become the task's program, in this order: enters the run
// folder, composes the start into `*start`, announces it, makes the program executable, and takes
// the job's rights.
//
// The folder and the rights stay for the tasks that follow. So a relative run folder is entered for
// the first task only, and then looked for inside itself. A user id that was looked up is stored in
// `context->uid`; nothing else of `context` changes.
//
// Raises what composeStart raises, after the folder was entered and before anything is written.
SetUp setUpTask(AdapterContext* context, std::int32_t taskIndex, TaskStart* start);

}  // namespace runlet
