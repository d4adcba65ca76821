// What the adapter would do for a task, computed by its own code without side effects.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "adapter/context.h"
#include "exec/start.h"
#include "job/fill_in.h"

namespace runlet_tool {

enum class Outcome {
  starts,         // the program is started, if it exists
  refused,        // the request ends after a message
  ends,           // the adapter ends abnormally, by an uncaught exception
  cannotExecute,  // the child has no program to execute
  notReached,     // an earlier task ended the request
};

// Whether a task with that outcome ends the request.
inline bool endsRequest(Outcome outcome) {
  return outcome == Outcome::refused || outcome == Outcome::ends;
}

struct Preview {
  Preview() = default;
  Preview(const Preview&) = delete;  // `words` point into `cut`
  Preview& operator=(const Preview&) = delete;

  Outcome outcome = Outcome::starts;
  // Whether there is a command, which the adapter announces with its "Calling" line; if not,
  // `words` and the command of `start` are empty.
  bool isComposed = false;
  runlet::TaskStart start;                   // only `folder` is set if it cannot be entered
  std::vector<char*> words;                  // the argument vector, without its null
  std::vector<runlet::PlaceholderUse> uses;  // the placeholders filled in so far
  std::string message;                       // the adapter's own text, without its newline
  std::string reason;                        // why, in one sentence

  std::string cut;  // the buffer that `words` point into
};

// Fills `*preview`, reusing its memory, for the task at `index` (0-based position in `taskList`).
// `isFirst`: no task of the request has run yet. Does not access the file system or user database.
void previewTask(const runlet::AdapterContext& context, std::int32_t index, bool isFirst,
                 Preview* preview);

// Only the command part of previewTask, ignoring the run folder and the rights.
void previewCommand(const runlet::AdapterContext& context, std::int32_t index, Preview* preview);

// The preview of the tasks after task `endingNumber` (from 1), which ended the request.
void previewNotReached(std::int32_t endingNumber, Preview* preview);

// The kind of a run folder, judged by its path only.
enum class FolderKind {
  full,      // absolute
  dots,      // only "." and "..", or leads back to its start, as "a/..": found for every task
  relative,  // found for the first task only
  jobFile,   // the job file itself: named without a folder, and the job has none
  root,      // empty: the job file is in the root folder, and the job has no folder
};
FolderKind kindOfFolder(const runlet::AdapterContext& context);

// The placeholder as written, including the character that makes it malformed or dropped, unless
// that is a space.
std::string_view placeholderText(const runlet::PlaceholderUse& use,
                                 std::string_view argumentTemplate);

// The number of fields in the part of a task's entry that counts, without an empty last field.
std::int32_t fieldCountOf(std::string_view entry);

// Whether the placeholder asks for a field or parameter that does not exist, and so gives
// "Undefined". `fieldCount` is that of the task's entry.
bool isUndefined(const runlet::PlaceholderUse& use, const runlet::AdapterContext& context,
                 std::int32_t fieldCount);

// The placeholder after the last of `uses`, on which the fill-in raised an exception.
std::string_view raisingPlaceholder(const std::vector<runlet::PlaceholderUse>& uses,
                                    std::string_view argumentTemplate);

}  // namespace runlet_tool
