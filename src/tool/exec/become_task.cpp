#include "tool/exec/become_task.h"

#include <cerrno>
#include <cstdio>
#include <stdexcept>

#include "adapter/task_range.h"
#include "exec/child.h"
#include "exec/start.h"
#include "tool/batch/task_user.h"
#include "tool/expand/loading.h"
#include "tool/text/format.h"
#include "tool/text/visible.h"

namespace runlet_tool {
namespace {

using runlet::AdapterContext;
using runlet::SetUp;

bool loadTaskJob(AdapterContext* context) {
  const LoadResult result = loadJob(context);
  if (result.loading == Loading::loaded) return true;
  std::fprintf(stderr, "%s\n", shownMessage(result).c_str());
  return false;
}

bool requireTask(const AdapterContext& context, std::int32_t number) {
  if (number >= 1 && isTask(context, number - 1)) return true;
  std::fprintf(stderr, "runlet-job: exec: there is no task %d in %s, which has %s\n",
               static_cast<int>(number), visible(context.jobFile).c_str(),
               quantity(context.taskList.size(), "task").c_str());
  return false;
}

// The adapter's own set-up. Other than the adapter, goes on after an exception that would end the
// process, says what the system would say of it, and ends the line of every text. The texts are the
// adapter's, byte for byte, whatever is in them: logs of tasks are the same on every way to run.
bool setUp(AdapterContext* context, std::int32_t number, runlet::TaskStart* start) {
  try {
    const SetUp result = setUpTask(context, number - 1, start);
    const bool endsLine = result == SetUp::done || result == SetUp::fillInFailed;
    if (!endsLine) std::fputc('\n', stderr);
    return result == SetUp::done;
  } catch (const std::out_of_range& error) {
    std::fprintf(stderr, "%s\n", terminateText("std::out_of_range", error.what()).c_str());
    return false;
  }
}

void sayWhose(const std::string& note, std::int32_t number) {
  if (note.empty()) return;
  std::fprintf(stderr, "runlet-job: exec: task %d runs as %s\n", static_cast<int>(number),
               note.c_str());
}

}  // namespace

int becomeTask(AdapterContext* context, std::int32_t number) {
  if (!loadTaskJob(context) || !requireTask(*context, number)) return exitNoTask;
  // The one step that the adapter does not have: the caller's identity in place of the job's.
  const std::string note = settleTaskUser(context);
  // The "Calling" line goes out at once: the log of the task begins with it. The adapter keeps it
  // for the line about the process, which is not written here.
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  runlet::TaskStart start;
  if (!setUp(context, number, &start)) return exitNoTask;
  sayWhose(note, number);
  const int error = runlet::becomeProgram(start.commandLine, start.redirectStderr);
  return error == ENOENT ? exitNotFound : exitCannotExecute;
}

}  // namespace runlet_tool
