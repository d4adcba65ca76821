// The start of a task: its description, and the steps before its program is executed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "adapter/context.h"
#include "exec/user_rights.h"
#include "job/fill_in.h"

namespace runlet {

// Everything needed to start a task, copied from the context.
struct TaskStart {
  std::string folder;       // to run in
  std::string commandLine;  // complete, before it is split into words
  std::string chmodPath;    // of the program to make executable; empty = none
  UserRights rights;
  bool redirectStderr = true;
};

// The folder that the tasks run in: `workingFolder`, or the folder of `jobFile`. For a job file
// named without a folder this is the file name itself, which cannot be entered: the server names
// job files by their full path.
std::string runFolder(const AdapterContext& context);

// Fills `*start` for the task at `taskIndex` (0-based position in `taskList`), overwriting its
// content. Has no other effect, and does not access the file system or user database. `uses` is
// passed to fillInArguments.
//
// False if the fill-in fails. Raises std::out_of_range if fillInArguments does, and if `appPath` is
// given and the expanded line has no space. In both cases `commandLine` and `chmodPath` are empty
// and the rest is filled.
bool composeStart(const AdapterContext& context, std::int32_t taskIndex, TaskStart* start,
                  std::vector<PlaceholderUse>* uses = nullptr);

// The steps of setUpTask, for callers that need them one at a time.
//
// Enters `folder`. False, after the adapter's text without a newline, if that fails.
bool enterRunFolder(const std::string& folder);

// Writes "Calling '<command line>' from '<run folder>'\n" to standard output without flushing it.
void announceStart(const TaskStart& start);

// Makes the program of `chmodPath` executable, if given. Failure is not reported here: a program
// that cannot be executed is reported when it is started.
void makeExecutable(const TaskStart& start);

// How far the set-up of a task got. After a refusal, the adapter's text for it is on standard
// error; those about the folder and the rights have no newline.
enum class SetUp { done, folderRefused, fillInFailed, rightsRefused };

// Prepares the process to become the task's program, in this order: enters the run folder, composes
// the start into `*start`, announces it, makes the program executable, and takes the job's rights.
//
// The folder and the rights persist for later tasks. So a relative run folder is entered for the
// first task only, and then looked up inside itself. A user id that was looked up is stored in
// `context->uid`; nothing else of `context` changes.
//
// Raises what composeStart raises, after the folder was entered and before anything is written.
SetUp setUpTask(AdapterContext* context, std::int32_t taskIndex, TaskStart* start);

}  // namespace runlet
