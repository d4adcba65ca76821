#include "tool/job/preview.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "adapter/messages.h"
#include "exec/words.h"
#include "tool/job/loading.h"
#include "tool/text/characters.h"
#include "tool/text/format.h"

namespace runlet_tool {
namespace {

using runlet::AdapterContext;
using runlet::notGiven;
using runlet::PlaceholderForm;
using runlet::PlaceholderUse;

void decide(Preview* preview, Outcome outcome, std::string message, std::string reason) {
  preview->outcome = outcome;
  preview->message = std::move(message);
  preview->reason = std::move(reason);
}

// Whether a relative path can be entered again after it has been entered once: it only goes up, or
// it ends where it begins.
bool isFoundAgain(std::string_view path) {
  bool onlyUp = true;
  bool staysInside = true;
  int depth = 0;
  while (!path.empty()) {
    const std::string_view component = path.substr(0, path.find('/'));
    path.remove_prefix(std::min(component.size() + 1, path.size()));
    if (component.empty() || component == ".") continue;
    depth += component == ".." ? -1 : 1;
    onlyUp = onlyUp && component == "..";
    staysInside = staysInside && depth >= 0;
  }
  return onlyUp || (staysInside && depth == 0);
}

struct FolderRefusal {
  FolderKind kind;
  bool alsoTheFirst;
  int error;
  const char* reason;
};

constexpr FolderRefusal folderRefusals[] = {
    {FolderKind::jobFile, true, ENOTDIR,
     "the job file is named without a folder and the job has no WorkingFolder, so the job file "
     "itself is taken for the run folder"},
    {FolderKind::root, true, ENOENT,
     "the job file is in the root folder and the job has no WorkingFolder, so the name of the run "
     "folder is empty"},
    {FolderKind::relative, false, ENOENT,
     "the run folder is relative, and the previous task has already entered it"},
};

// False if the run folder cannot be entered.
bool previewFolder(const AdapterContext& context, bool isFirst, Preview* preview) {
  std::string& folder = preview->start.folder;
  folder = runlet::runFolder(context);
  const FolderKind kind = kindOfFolder(context);
  for (const FolderRefusal& row : folderRefusals) {
    if (row.kind != kind || (isFirst && !row.alsoTheFirst)) continue;
    decide(preview, Outcome::refused,
           withoutLineEnd(runlet::folderRefusedFormat,
                          runlet::getMessage(runlet::workingFolderMessage), folder.c_str(),
                          std::strerror(row.error)),
           row.reason);
    return false;
  }
  return true;
}

std::string inQuotes(std::string_view text) {
  std::string quoted = "\"";
  return quoted.append(text).append("\"");
}

std::string fillInReason(const Preview& preview, const AdapterContext& context) {
  if (preview.uses.empty() || preview.uses.back().form != PlaceholderForm::malformed) {
    return "the expansion is longer than " + std::to_string(runlet::maxExpansionLength) + " bytes";
  }
  const PlaceholderUse& use = preview.uses.back();
  const bool isTask = context.arguments[use.end] == 't';
  return inQuotes(placeholderText(use, context.arguments)) + " is not a placeholder: a %" +
         (isTask ? "t must be followed by n or p" : "j must be followed by p");
}

// Why composing the start raised an exception: in the fill-in, or because the expanded line has no
// space.
std::string raisedReason(const Preview& preview, const AdapterContext& context) {
  const std::string_view placeholder = raisingPlaceholder(preview.uses, context.arguments);
  if (!placeholder.empty()) {
    return inQuotes(placeholder) +
           " refers to a parameter that has a name but no value: there are " +
           std::to_string(context.paramNames.size()) + " names and " +
           std::to_string(context.paramValues.size()) + " values";
  }
  return "with an application path (-a) the expanded line must contain a space";
}

bool previewStart(const AdapterContext& context, std::int32_t index, Preview* preview) {
  try {
    preview->isComposed = composeStart(context, index, &preview->start, &preview->uses);
  } catch (const std::out_of_range& error) {
    decide(preview, Outcome::ends, terminateText("std::out_of_range", error.what()),
           raisedReason(*preview, context));
    return false;
  }
  if (!preview->isComposed) {
    decide(preview, Outcome::refused, withoutLineEnd("%s", runlet::fillInFailedText),
           fillInReason(*preview, context));
    return false;
  }
  preview->cut = preview->start.commandLine;
  preview->words = runlet::splitWords(preview->cut.data());
  preview->words.pop_back();
  return true;
}

bool previewRights(Preview* preview) {
  const runlet::UserRights& rights = preview->start.rights;
  if (rights.gid == notGiven) {
    decide(preview, Outcome::refused,
           withoutLineEnd(runlet::groupRefusedFormat, notGiven, runlet::noGroupReason),
           "the job has no group (gid), and the adapter has no default");
    return false;
  }
  if (rights.uid == notGiven && rights.userName.empty()) {
    decide(preview, Outcome::refused, runlet::missingUserText,
           "the job has no uid, and the request names no user (-u)");
    return false;
  }
  return true;
}

void previewExecution(Preview* preview) {
  const bool hasWord = !preview->words.empty();
  if (hasWord && *preview->words.front() != '\0') return;
  decide(preview, Outcome::cannotExecute,
         withoutLineEnd(runlet::cannotExecuteFormat, preview->start.commandLine.c_str(),
                        std::strerror(ENOENT)),
         hasWord ? "the first word of the command line is empty" : "the command line has no words");
}

void clear(Preview* preview) {
  preview->outcome = Outcome::starts;
  preview->isComposed = false;
  preview->start.commandLine.clear();
  preview->start.chmodPath.clear();
  preview->words.clear();
  preview->uses.clear();
  preview->message.clear();
  preview->reason.clear();
}

}  // namespace

FolderKind kindOfFolder(const AdapterContext& context) {
  const std::string folder = runlet::runFolder(context);
  if (folder.empty()) return FolderKind::root;
  if (folder.front() == '/') return FolderKind::full;
  if (context.workingFolder.empty() && context.jobFile.find('/') == std::string::npos) {
    return FolderKind::jobFile;
  }
  return isFoundAgain(folder) ? FolderKind::dots : FolderKind::relative;
}

void previewTask(const AdapterContext& context, std::int32_t index, bool isFirst,
                 Preview* preview) {
  clear(preview);
  if (!previewFolder(context, isFirst, preview)) return;
  if (!previewStart(context, index, preview)) return;
  if (!previewRights(preview)) return;
  previewExecution(preview);
}

void previewCommand(const AdapterContext& context, std::int32_t index, Preview* preview) {
  clear(preview);
  if (previewStart(context, index, preview)) previewExecution(preview);
}

void previewNotReached(std::int32_t endingNumber, Preview* preview) {
  clear(preview);
  decide(preview, Outcome::notReached, "",
         "task " + std::to_string(endingNumber) + " ended the request");
}

std::string_view placeholderText(const PlaceholderUse& use, std::string_view argumentTemplate) {
  std::size_t end = use.end;
  if (use.form == PlaceholderForm::malformed) ++end;  // the t or j
  const std::string_view rest = argumentTemplate.substr(end);
  const bool isOpen =
      use.form == PlaceholderForm::malformed || use.form == PlaceholderForm::dropped;
  if (isOpen && !rest.starts_with(' ')) end += utf8CharacterLength(rest);
  return argumentTemplate.substr(use.begin, end - use.begin);
}

std::int32_t fieldCountOf(std::string_view entry) {
  entry = entry.substr(0, runlet::maxLookupLength);
  const auto tabs = static_cast<std::int32_t>(std::count(entry.begin(), entry.end(), '\t'));
  return entry.empty() || entry.ends_with('\t') ? tabs : tabs + 1;
}

bool isUndefined(const PlaceholderUse& use, const AdapterContext& context,
                 std::int32_t fieldCount) {
  if (use.form == PlaceholderForm::jobParam) {
    return use.number <= 0 || use.number > static_cast<std::int32_t>(context.paramNames.size());
  }
  if (use.form != PlaceholderForm::taskField) return false;
  return use.number < 1 || use.number > fieldCount;
}

std::string_view raisingPlaceholder(const std::vector<PlaceholderUse>& uses,
                                    std::string_view argumentTemplate) {
  const std::size_t begin = argumentTemplate.find('%', uses.empty() ? 0 : uses.back().end);
  if (begin == std::string_view::npos) return {};
  constexpr char digits[] = "0123456789";
  const std::size_t name = argumentTemplate.find_first_not_of(digits, begin + 1);
  const std::size_t end = argumentTemplate.find_first_not_of(digits, name + 2);
  return argumentTemplate.substr(begin, std::min(end, argumentTemplate.size()) - begin);
}

}  // namespace runlet_tool
