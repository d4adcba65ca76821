#include "tool/slurm/submission.h"

#include <cstdio>
#include <string>
#include <vector>

#include "tool/batch/logs.h"
#include "tool/batch/summary.h"
#include "tool/slurm/arrays.h"
#include "tool/slurm/client.h"
#include "tool/slurm/wait.h"
#include "tool/system/exit_status.h"
#include "tool/system/signals.h"
#include "tool/text/characters.h"
#include "tool/text/terminal.h"

namespace runlet_tool {
namespace {

constexpr char verbName[] = "submit";

// Cancels the arrays submitted so far when the next one cannot be submitted.
void cancel(const std::vector<SubmittedArray>& arrays) {
  bool isNoneLeft = true;
  for (const SubmittedArray& array : arrays) isNoneLeft = cancelArray(array.id) && isNoneLeft;
  if (isNoneLeft && !arrays.empty()) saySubmit("the arrays submitted so far have been cancelled");
}

// All of them or none: false after a message or a signal.
bool submitAll(const Batch& batch, const SubmitOptions& options,
               const std::vector<ArrayPart>& parts, const SignalHold& hold,
               std::vector<SubmittedArray>* arrays) {
  for (const ArrayPart& part : parts) {
    const SbatchCommand command = sbatchCommand(batch, options, part);
    const Submission submission = submitArray(command);
    if (submission.id) arrays->push_back({*submission.id, part});
    if (submission.isSound && !hold.isInterrupted()) continue;
    cancel(*arrays);
    return false;
  }
  return true;
}

std::string arrayIdsText(const std::vector<SubmittedArray>& arrays, const char* separator) {
  std::string text;
  for (const SubmittedArray& array : arrays) text.append(array.id.number).append(separator);
  return text;
}

std::string listed(const std::vector<SubmittedArray>& arrays) {
  std::string ids = arrayIdsText(arrays, " ");
  ids.pop_back();
  return ids;
}

std::string farewellText(const std::vector<SubmittedArray>& arrays) {
  return std::string(overBar()) +
         "runlet-job: submit: the tasks keep running; to stop them: scancel " + listed(arrays) +
         "\n";
}

int submitParts(const Batch& batch, const SubmitOptions& options,
                const std::vector<ArrayPart>& parts) {
  SignalHold hold;
  std::vector<SubmittedArray> arrays;
  if (!submitAll(batch, options, parts, hold, &arrays)) return exitUnreadable;
  put(arrayIdsText(arrays, "\n"));
  std::fflush(stdout);  // the ids are needed even if the wait ends early
  if (std::ferror(stdout) != 0) saySubmit("queued: " + listed(arrays));
  if (!options.isWaiting) return exitFine;
  const Farewell farewell(farewellText(arrays));
  hold.release();
  return writeSummary(batch, awaitTasks(batch, arrays), {}, stderr);
}

int showCommands(const Batch& batch, const SubmitOptions& options,
                 const std::vector<ArrayPart>& parts) {
  for (const ArrayPart& part : parts) put(shellText(sbatchCommand(batch, options, part)));
  return exitFine;
}

}  // namespace

int submitBatch(const Batch& batch, const SubmitOptions& options) {
  if (!canNameLogs(batch)) {
    saySubmit("sbatch does not support a backslash in the log folder: " + visible(batch.logFolder));
    return exitFailing;
  }
  const std::vector<ArrayPart> parts =
      planArrays(batch.tasks, batch.context.taskList.size(), options.chunk, askMaxArraySize());
  if (options.isDryRun) return showCommands(batch, options, parts);
  return makeLogFolder(batch, verbName) ? submitParts(batch, options, parts) : exitUnreadable;
}

}  // namespace runlet_tool
