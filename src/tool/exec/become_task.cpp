#include "tool/exec/become_task.h"

#include <cerrno>
#include <cstdio>

#include "adapter/task_range.h"
#include "exec/child.h"
#include "exec/command.h"
#include "exec/launch.h"
#include "exec/set_up.h"
#include "exec/user_rights.h"
#include "tool/batch/identity.h"
#include "tool/expand/loading.h"
#include "tool/expand/preview.h"
#include "tool/text/format.h"

namespace runlet_tool {
namespace {

using runlet::AdapterContext;

bool load(AdapterContext* context) {
  const LoadResult result = loadJob(context);
  if (result.loading == Loading::loaded) return true;
  const bool hasText = !result.message.empty();
  std::fprintf(stderr, "%s\n", hasText ? result.message.c_str() : noJobFileText);
  return false;
}

bool hasTask(const AdapterContext& context, std::int32_t number) {
  if (number >= 1 && isTask(context, number - 1)) return true;
  std::fprintf(stderr, "runlet-job: exec: there is no task %d in %s, which has %s\n",
               static_cast<int>(number), context.jobFile.c_str(),
               quantity(context.taskList.size(), "task").c_str());
  return false;
}

bool compose(const AdapterContext& context, std::int32_t number, Preview* preview) {
  previewCommand(context, number - 1, preview);
  if (!preview->isComposed) std::fprintf(stderr, "%s\n", preview->message.c_str());
  return preview->isComposed;
}

// At once, other than in the adapter, which still has something to say to the server: behind this
// the program itself writes.
void announce(const runlet::Command& command, const std::string& folder) {
  std::printf(runlet::callingFormat, command.line.c_str(), folder.c_str());
  std::fflush(stdout);
}

bool takeRights(AdapterContext* context, std::int32_t number) {
  const std::string note = settleIdentity(context);
  if (!note.empty()) {
    std::fprintf(stderr, "runlet-job: exec: task %d runs as %s\n", static_cast<int>(number),
                 note.c_str());
  }
  return applyUserRights(context);
}

// Ends the line of a text of the adapter's that does not do so itself.
int endLine(int status) {
  std::fputc('\n', stderr);
  return status;
}

}  // namespace

int becomeTask(AdapterContext* context, std::int32_t number) {
  if (!load(context) || !hasTask(*context, number)) return exitNoTask;
  const std::string folder = runFolder(*context);
  if (!runlet::enterFolder(folder)) return endLine(exitNoTask);
  Preview preview;
  if (!compose(*context, number, &preview)) return exitNoTask;
  announce(preview.command, folder);
  runlet::makeExecutable(preview.command.program);
  if (!takeRights(context, number)) return endLine(exitNoTask);
  const int error = runlet::becomeProgram(preview.command.line, context->redirectStderr);
  return error == ENOENT ? exitNotFound : exitCannotExecute;
}

}  // namespace runlet_tool
