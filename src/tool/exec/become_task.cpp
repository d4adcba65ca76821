#include "tool/exec/become_task.h"

#include <cerrno>
#include <cstdio>
#include <stdexcept>

#include "adapter/messages.h"
#include "adapter/task_range.h"
#include "exec/child.h"
#include "exec/start.h"
#include "tool/batch/task_user.h"
#include "tool/expand/loading.h"
#include "tool/text/format.h"

namespace runlet_tool {
namespace {

using runlet::AdapterContext;
using runlet::TaskStart;

bool loadTaskJob(AdapterContext* context) {
  const LoadResult result = loadJob(context);
  if (result.loading == Loading::loaded) return true;
  const bool hasText = !result.message.empty();
  std::fprintf(stderr, "%s\n", hasText ? result.message.c_str() : noJobFileText);
  return false;
}

bool requireTask(const AdapterContext& context, std::int32_t number) {
  if (number >= 1 && isTask(context, number - 1)) return true;
  std::fprintf(stderr, "runlet-job: exec: there is no task %d in %s, which has %s\n",
               static_cast<int>(number), context.jobFile.c_str(),
               quantity(context.taskList.size(), "task").c_str());
  return false;
}

bool enterFolder(const std::string& folder) {
  if (runlet::enterRunFolder(folder)) return true;
  std::fputc('\n', stderr);  // which the adapter's text lacks
  return false;
}

// Other than the adapter, goes on after an exception that would end the process, and says what the
// system would say of it.
bool compose(const AdapterContext& context, std::int32_t number, TaskStart* start) {
  try {
    if (composeStart(context, number - 1, start)) return true;
    std::fputs(runlet::fillInFailedText, stderr);
  } catch (const std::out_of_range& error) {
    std::fprintf(stderr, "%s\n", terminateText("std::out_of_range", error.what()).c_str());
  }
  return false;
}

// All that the adapter does between entering the folder and starting the program.
bool setUp(TaskStart* start) {
  // The "Calling" line goes out at once: the log of the task begins with it. The adapter keeps it
  // for the line about the process, which is not written here.
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  announceStart(*start);
  makeExecutable(*start);
  if (takeUserRights(&start->rights)) return true;
  std::fputc('\n', stderr);
  return false;
}

// Yields only when there is no program to become: the exit status for that.
int becomeProgramOf(const TaskStart& start) {
  const int error = runlet::becomeProgram(start.commandLine, start.redirectStderr);
  return error == ENOENT ? exitNotFound : exitCannotExecute;
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
  TaskStart start;
  // The folder first: where the command cannot be composed either, the folder is what is reported.
  if (!enterFolder(runFolder(*context)) || !compose(*context, number, &start)) return exitNoTask;
  if (!setUp(&start)) return exitNoTask;
  sayWhose(note, number);
  return becomeProgramOf(start);
}

int becomeStart(TaskStart* start) {
  if (!enterFolder(start->folder) || !setUp(start)) return exitNoTask;
  return becomeProgramOf(*start);
}

}  // namespace runlet_tool
