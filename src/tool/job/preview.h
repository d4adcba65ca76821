// What the adapter will do for a task, found out with its own code and without doing anything.
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
  starts,         // the program is started, if the machine has it
  refused,        // the request is given up after a message
  ends,           // the adapter ends abnormally, by an exception that nothing catches
  cannotExecute,  // the child has no program to become
  notReached,     // a task in front of it ended the request
};

// Whether nothing of the request follows such a task.
inline bool endsRequest(Outcome outcome) {
  return outcome == Outcome::refused || outcome == Outcome::ends;
}

struct Preview {
  Preview() = default;
  Preview(const Preview&) = delete;  // `words` point into `cut`
  Preview& operator=(const Preview&) = delete;

  Outcome outcome = Outcome::starts;
  // Whether there is a command, which the adapter then announces with its "Calling" line; without
  // one `words` and the command of `start` are empty.
  bool isComposed = false;
  runlet::TaskStart start;                   // of it only `folder` where that cannot be entered
  std::vector<char*> words;                  // the argument vector, without its null
  std::vector<runlet::PlaceholderUse> uses;  // what the fill-in came to
  std::string message;                       // the adapter's own text, without its line end
  std::string reason;                        // why, in one sentence

  std::string cut;  // where `words` point to
};

// Fills `*preview`, whose memory is used again, for the task at `index` (0-based position in
// `taskList`). `isFirst`: no task of the request has been run yet. Nothing on the machine is
// looked at.
void previewTask(const runlet::AdapterContext& context, std::int32_t index, bool isFirst,
                 Preview* preview);

// The part of it that is about the command, whatever the run folder and the rights are.
void previewCommand(const runlet::AdapterContext& context, std::int32_t index, Preview* preview);

// The preview of the tasks that follow the task `endingNumber` (from 1), which ended the request.
void previewNotReached(std::int32_t endingNumber, Preview* preview);

// How a run folder is found, as far as its name tells.
enum class FolderKind {
  full,      // begins with "/"
  dots,      // made of "." and "..", or back where it begins as "a/..": found for every task
  relative,  // found for the first task only
  jobFile,   // the job file itself: named without a folder, and the job has none
  root,      // empty: the job file is in the root folder, and the job has no folder
};
FolderKind kindOfFolder(const runlet::AdapterContext& context);

// The placeholder as it is written, with the character that keeps a malformed or dropped one from
// being one, unless that is a space.
std::string_view placeholderText(const runlet::PlaceholderUse& use,
                                 std::string_view argumentTemplate);

// The placeholder behind the last of `uses`: where the fill-in has raised an error.
std::string_view raisingPlaceholder(const std::vector<runlet::PlaceholderUse>& uses,
                                    std::string_view argumentTemplate);

}  // namespace runlet_tool
