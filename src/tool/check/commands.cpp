// Checking the commands of the tasks, as the adapter's own code composes them: the placeholders of
// the template, and the resulting line.

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <string>
#include <system_error>

#include "adapter/task_range.h"
#include "job/int32.h"
#include "tool/check/command_words.h"
#include "tool/check/inspection.h"
#include "tool/job/preview.h"
#include "tool/text/format.h"
#include "tool/text/terminal.h"

namespace runlet_tool {
namespace {

using runlet::AdapterContext;
using runlet::notGiven;
using runlet::PlaceholderForm;
using runlet::PlaceholderUse;

// The digits of a width or number, as written in the template.
struct Digits {
  std::size_t count;
  std::int32_t value;  // as a number of 32 bits
  bool isBeyond32Bits;
};

Digits digitsAt(const std::string& text, std::size_t begin) {
  std::size_t end = begin;
  while (end < text.size() && runlet::isDigit(text[end])) ++end;
  const std::size_t first = std::min(text.find_first_not_of('0', begin), end);
  const std::string digits = text.substr(first, end - first);
  const bool isBeyond = digits.size() > 10 || (digits.size() == 10 && digits > "2147483647");
  return {end - begin, runlet::decimalInt32(digits.c_str()), isBeyond};
}

// All digits of a placeholder, which are the same for all tasks.
struct OwnDigits {
  Digits width;
  Digits number;
};

// One placeholder of one task.
struct Use {
  const PlaceholderUse& placeholder;
  const OwnDigits& own;
  std::int32_t fieldCount;  // of the task's entry
  std::int32_t number;      // of the task
  Inspection* inspection;
};

// Returns whether there is such a finding already, after adding this task to it.
bool addUseToFinding(const Use& use, RuleId rule) {
  return addTaskToFinding(use.inspection, rule, use.placeholder.begin, use.number);
}

void findUse(const Use& use, RuleId rule, std::string why, std::string instead) {
  const std::string& argumentTemplate = use.inspection->context.arguments;
  findForTask(use.inspection, rule, use.placeholder.begin, use.number,
              placeInTemplate(*use.inspection, use.placeholder.begin),
              placeholderText(use.placeholder, argumentTemplate), std::move(why),
              std::move(instead));
}

bool hasValue(const PlaceholderUse& use) {
  return use.form == PlaceholderForm::taskNumber || use.form == PlaceholderForm::taskField ||
         use.form == PlaceholderForm::jobParam;
}

void inspectLongDigits(const Use& use, const Digits& digits) {
  if (digits.count > runlet::maxNumberLength && !addUseToFinding(use, RuleId::longDigits)) {
    findUse(use, RuleId::longDigits, "Only the first 31 digits count.",
            "Write the number with fewer digits.");
  } else if (digits.isBeyond32Bits && digits.count <= runlet::maxNumberLength &&
             !addUseToFinding(use, RuleId::placeholderBeyond32Bits)) {
    findUse(use, RuleId::placeholderBeyond32Bits,
            "Only the low 32 bits of a number are kept: the value is " +
                std::to_string(digits.value) + ".",
            "Write the number that is meant.");
  }
}

void inspectWidth(const Use& use) {
  const PlaceholderUse& placeholder = use.placeholder;
  const Digits& own = use.own.width;
  if (own.count == 0 || !hasValue(placeholder)) return;
  inspectLongDigits(use, own);
  const std::int32_t width = placeholder.width;
  if (width != own.value && own.count <= runlet::maxNumberLength &&
      !addUseToFinding(use, RuleId::carriedWidth)) {
    findUse(use, RuleId::carriedWidth,
            "The width includes digits that an earlier number has left: it is " +
                std::to_string(width) + " in task " + std::to_string(use.number) + ".",
            "Give only the first number of the command line a width.");
  }
  const bool isCut = placeholder.form == PlaceholderForm::taskNumber &&
                     width > static_cast<std::int32_t>(runlet::maxNumberLength);
  if (isCut && !addUseToFinding(use, RuleId::cutTaskNumber)) {
    findUse(use, RuleId::cutTaskNumber,
            "With a width of " + std::to_string(width) +
                " the number is cut to its first 31 characters and loses its last digits.",
            "Write a width of at most 31.");
  }
}

void findUndefined(const Use& use) {
  const AdapterContext& context = use.inspection->context;
  if (use.placeholder.form == PlaceholderForm::jobParam) {
    findUse(use, RuleId::undefinedValue,
            "The job has " + quantity(context.paramNames.size(), "parameter") +
                "; the program gets the text Undefined.",
            "Write %jp with a number from 1 to the number of parameters.");
    return;
  }
  findUse(use, RuleId::undefinedValue,
          "Task " + std::to_string(use.number) +
              " has no such field (an empty last one does not count); the program gets the text "
              "Undefined.",
          "Write %tp with the number of a field, from 1, or give the task the field.");
}

void inspectPlaceholderNumber(const Use& use) {
  const PlaceholderUse& placeholder = use.placeholder;
  if (placeholder.form != PlaceholderForm::taskField &&
      placeholder.form != PlaceholderForm::jobParam) {
    return;
  }
  inspectLongDigits(use, use.own.number);
  if (isUndefined(placeholder, use.inspection->context, use.fieldCount) &&
      !addUseToFinding(use, RuleId::undefinedValue)) {
    findUndefined(use);
  }
}

void inspectForm(const Use& use) {
  if (use.placeholder.form == PlaceholderForm::dropped &&
      !addUseToFinding(use, RuleId::droppedPercent)) {
    findUse(use, RuleId::droppedPercent,
            "This % does not begin a placeholder and is dropped, along with the digits after it.",
            "Write %% for a percent sign.");
  }
  if (use.placeholder.form == PlaceholderForm::malformed &&
      !addUseToFinding(use, RuleId::malformedPlaceholder)) {
    findUse(
        use, RuleId::malformedPlaceholder,
        "%t must be followed by n or p, and %j by p; the expansion fails, and no task is started.",
        "Write %tn, %tp or %jp with a number, or %% for a percent sign.");
  }
}

OwnDigits ownDigits(const PlaceholderUse& use, const std::string& argumentTemplate) {
  OwnDigits digits = {digitsAt(argumentTemplate, use.begin + 1), {}};
  const bool hasNumber =
      use.form == PlaceholderForm::taskField || use.form == PlaceholderForm::jobParam;
  if (hasNumber) {
    digits.number = digitsAt(argumentTemplate, argumentTemplate.find('p', use.begin) + 1);
  }
  return digits;
}

// The placeholders are the same for all tasks, up to where a fill-in fails, so `*digits` is reused.
void inspectUses(const Preview& preview, std::int32_t number, std::vector<OwnDigits>* digits,
                 Inspection* inspection) {
  const std::string& entry = inspection->context.taskList[static_cast<std::size_t>(number) - 1];
  const std::int32_t fieldCount = fieldCountOf(entry);  // once for all placeholders of the task
  for (std::size_t i = 0; i < preview.uses.size(); ++i) {
    const PlaceholderUse& placeholder = preview.uses[i];
    if (i == digits->size()) {
      digits->push_back(ownDigits(placeholder, inspection->context.arguments));
    }
    const Use use = {placeholder, (*digits)[i], fieldCount, number, inspection};
    inspectForm(use);
    inspectWidth(use);
    inspectPlaceholderNumber(use);
  }
}

// Reasons why a command cannot be composed, apart from a malformed placeholder.

void findTooLong(std::int32_t number, Inspection* inspection) {
  if (addTaskToFinding(inspection, RuleId::longExpansion, noOffset, number)) return;
  findForTask(inspection, RuleId::longExpansion, noOffset, number, placeInTemplate(*inspection, 0),
              "", "The expansion is longer than 3999 bytes; it fails, and the task is not started.",
              "Shorten the template or its values, for example by giving the program a file to "
              "read.");
}

void findMissingValue(std::string_view placeholder, std::int32_t number, Inspection* inspection) {
  const AdapterContext& context = inspection->context;
  const auto offset = static_cast<std::size_t>(placeholder.data() - context.arguments.data());
  if (addTaskToFinding(inspection, RuleId::missingValue, offset, number)) return;
  findForTask(inspection, RuleId::missingValue, offset, number,
              placeInTemplate(*inspection, offset), placeholder,
              "There are " + quantity(context.paramNames.size(), "parameter name") + " but " +
                  quantity(context.paramValues.size(), "value") + "; the adapter ends abnormally.",
              "Give every Param a Value after its Name; an empty value is {}.");
}

void findNoSpace(std::int32_t number, Inspection* inspection) {
  if (addTaskToFinding(inspection, RuleId::noSpace, noOffset, number)) return;
  findForTask(inspection, RuleId::noSpace, noOffset, number, placeInTemplate(*inspection, 0),
              inspection->context.arguments,
              "With an application path (-a) the expanded line must contain a space; without one "
              "the adapter ends abnormally.",
              "Give the program an argument.");
}

void findRaised(const Preview& preview, std::int32_t number, Inspection* inspection) {
  const std::string& argumentTemplate = inspection->context.arguments;
  const std::string_view placeholder = raisingPlaceholder(preview.uses, argumentTemplate);
  if (placeholder.empty()) {
    findNoSpace(number, inspection);
  } else {
    findMissingValue(placeholder, number, inspection);
  }
}

void inspectFailure(const Preview& preview, std::int32_t number, Inspection* inspection) {
  if (preview.outcome == Outcome::ends) {
    findRaised(preview, number, inspection);
  } else if (preview.uses.empty() || preview.uses.back().form != PlaceholderForm::malformed) {
    findTooLong(number, inspection);
  }
}

// The job as a whole, once its tasks are known.

void inspectRights(Inspection* inspection) {
  const AdapterContext& context = inspection->context;
  if (context.gid == notGiven) {
    find(inspection, RuleId::noGroup, inspection->gid.value_or(inspection->cmdData),
         inspection->gid.has_value() ? "-1" : "",
         "The job names no group; the adapter refuses every task with \"Cannot set gid -1: No such "
         "group\".",
         "Write <gid> with the number of a group.");
  }
  if (context.uid == notGiven && context.userName.empty()) {
    find(inspection, RuleId::noUser, inspection->uid.value_or(inspection->cmdData),
         inspection->uid.has_value() ? "-1" : "",
         "The job has no uid and the request no user name (-u); the adapter refuses every task "
         "with \"Missing user name\".",
         "Write <uid> with the number of a user, or check with -u USER if the server gives it.");
  }
}

struct FolderRow {
  FolderKind kind;
  bool ofSeveralTasks;
  RuleId rule;
  const char* why;
};

constexpr FolderRow folderRows[] = {
    {FolderKind::jobFile, false, RuleId::bareJobFile,
     "The job file is named without a folder and the job has no WorkingFolder, so the job file "
     "itself is taken for the run folder; every task is refused."},
    {FolderKind::root, false, RuleId::bareJobFile,
     "The job file is in the root folder and the job has no WorkingFolder, so the name of the run "
     "folder is empty; every task is refused."},
    {FolderKind::relative, true, RuleId::relativeFolder,
     "A relative run folder is entered for the first task and then looked for inside itself: the "
     "second task is refused."},
    {FolderKind::relative, false, RuleId::startDependentFolder,
     "The run folder is relative: it is looked for where the adapter is started."},
    {FolderKind::dots, false, RuleId::startDependentFolder,
     "The run folder is relative: it is looked for where the adapter is started."},
};

std::string folderAdvice(const Inspection& inspection) {
  if (inspection.workingFolder.has_value()) return "Write the full path of the folder.";
  if (inspection.context.jobFile.starts_with('/')) return "Write WorkingFolder.";
  std::error_code gone;  // the current folder; the path is empty then
  const std::string full = std::filesystem::absolute(inspection.context.jobFile, gone).string();
  return "Give the job file by its full path, as the server does (" + full +
         "), or write WorkingFolder.";
}

void inspectFolderName(Inspection* inspection) {
  const AdapterContext& context = inspection->context;
  const bool hasElement = inspection->workingFolder.has_value();
  const FolderKind kind = kindOfFolder(context);
  for (const FolderRow& row : folderRows) {
    if (row.kind != kind || (row.ofSeveralTasks && context.taskList.size() < 2)) continue;
    find(inspection, row.rule, inspection->workingFolder.value_or(Place{}),
         hasElement ? context.workingFolder : context.jobFile, row.why, folderAdvice(*inspection));
    return;
  }
}

// Which parameters are used by any task.
class UsedParameters {
 public:
  explicit UsedParameters(std::size_t count) : isUsed_(count) {}

  void add(const std::vector<PlaceholderUse>& uses) {
    for (const PlaceholderUse& use : uses) {
      if (use.form != PlaceholderForm::jobParam || use.number < 1) continue;
      const auto index = static_cast<std::size_t>(use.number) - 1;
      if (index < isUsed_.size()) isUsed_[index] = true;
    }
  }

  bool has(std::size_t index) const {
    return isUsed_[index];
  }

 private:
  std::vector<bool> isUsed_;
};

void inspectUsedValues(const UsedParameters& used, Inspection* inspection) {
  const runlet::StringList& values = inspection->context.paramValues;
  for (std::size_t i = 0; i < std::min(values.size(), inspection->context.paramNames.size()); ++i) {
    if (!used.has(i) || values[i].size() < runlet::maxLookupLength) continue;
    find(inspection, RuleId::longEntry, inspection->values[i],
         std::to_string(values[i].size()) + " bytes",
         "Only the first 2000 bytes of a parameter's value count.", "Keep it below 2000 bytes.");
  }
}

void inspectUnused(const UsedParameters& used, Inspection* inspection) {
  const runlet::StringList& names = inspection->context.paramNames;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (used.has(i) || leaveOut(inspection, RuleId::unusedParameter)) continue;
    find(inspection, RuleId::unusedParameter, inspection->names[i], names[i],
         "No task asks for parameter " + std::to_string(i + 1) + ".",
         "Nothing needs to be done, unless the template was meant to use %jp" +
             std::to_string(i + 1) + ".");
  }
}

// Whether the task must be checked in any case. Without a range the context selects no task.
bool isAsked(const Inspection& inspection, std::int32_t number) {
  const runlet::TaskRange range = requestedTasks(inspection.context);
  return range.first < number && number <= range.end;
}

// Buffers that are reused from task to task, and the parameters used so far.
struct TaskWork {
  Preview preview;
  std::vector<OwnDigits> digits;
  UsedParameters used;
};

// Returns whether the task has a command.
bool inspectTask(std::int32_t number, TaskWork* work, Inspection* inspection) {
  Preview& preview = work->preview;
  previewCommand(inspection->context, number - 1, &preview);
  inspection->limit.addPreview(preview, inspection->context, number - 1);
  inspectUses(preview, number, &work->digits, inspection);
  work->used.add(preview.uses);
  if (preview.isComposed) {
    inspectWords(preview, number, inspection);
  } else {
    inspectFailure(preview, number, inspection);
  }
  return preview.isComposed;
}

}  // namespace

void inspectTasks(Inspection* inspection) {
  const AdapterContext& context = inspection->context;
  const std::size_t count = context.taskList.size();
  Progress progress("checking", count);
  TaskWork work{{}, {}, UsedParameters(context.paramNames.size())};
  bool allComposed = true;
  for (std::size_t i = 0; i < count; ++i) {
    const auto number = static_cast<std::int32_t>(i) + 1;
    const bool isSkipped = inspection->limit.isSpent() && !isAsked(*inspection, number);
    if (isSkipped) findTasksNotChecked(inspection, number - 1);
    // Whether a skipped task has a command is unknown.
    allComposed = !isSkipped && inspectTask(number, &work, inspection) && allComposed;
    progress.show(i);
  }
  inspectUsedValues(work.used, inspection);
  if (allComposed && count > 0) inspectUnused(work.used, inspection);
  inspectRights(inspection);
  inspectFolderName(inspection);
}

}  // namespace runlet_tool
