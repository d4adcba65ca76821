// What a task is started with and where, found out without doing anything.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "adapter/context.h"
#include "job/fill_in.h"

namespace runlet {

struct Command {
  std::string line;     // the whole command line
  std::string program;  // path to make executable; empty when the request has no application path
};

// The folder that the tasks run in: `workingFolder`, or the folder of `jobFile`. A job file named
// without a folder yields its own name, which cannot be entered: the server names job files by
// their full path.
std::string runFolder(const AdapterContext& context);

// Puts the command of the task at `taskIndex` (0-based position in `taskList`) into `*command`,
// which is empty. False, with `*command` as it was, where the fill-in fails.
//
// Raises std::out_of_range when `appPath` is given and the expanded line holds no space, and where
// fillInArguments does. `uses` is what fillInArguments takes.
bool composeCommand(const AdapterContext& context, std::int32_t taskIndex, Command* command,
                    std::vector<PlaceholderUse>* uses = nullptr);

}  // namespace runlet
