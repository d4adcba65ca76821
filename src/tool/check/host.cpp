// Checking the job against this machine: its folders, programs, users and groups.

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <optional>
#include <string>

#include "tool/check/inspection.h"
#include "tool/job/preview.h"
#include "tool/system/access.h"
#include "tool/system/files.h"

namespace runlet_tool {
namespace {

using runlet::AdapterContext;
using runlet::notGiven;

// The result for a program. The number of the program stands in for the offset of its finding.
struct Verdict {
  std::optional<RuleId> rule;
  std::size_t program;
};

// What the checks of a job on this machine share.
struct Host {
  Inspection* inspection;
  Identity who;
  std::string folder;                   // full path of the run folder
  std::map<std::string, Verdict> seen;  // programs already checked
};

Place placeOfUser(const Inspection& inspection) {
  return inspection.uid.value_or(Place{});
}

// False if the user is unknown, which is a finding.
bool findTaskUser(Inspection* inspection, uid_t* uid) {
  const AdapterContext& context = inspection->context;
  if (context.uid != notGiven) {
    *uid = static_cast<uid_t>(context.uid);
    return true;
  }
  if (context.userName.empty()) return false;  // reported by inspectTasks
  const passwd* entry = getpwnam(context.userName.c_str());
  if (entry != nullptr) {
    *uid = entry->pw_uid;
    return true;
  }
  find(inspection, RuleId::unknownUser, placeOfUser(*inspection), context.userName,
       "This machine does not know the user given with -u; the adapter refuses every task.",
       "Correct the name, or write <uid>.");
  return false;
}

std::string nameOfGroup(gid_t gid) {
  const group* entry = getgrgid(gid);
  return entry == nullptr ? std::to_string(gid) : entry->gr_name;
}

// The groups of the account that a task of `who` does not have, by name.
std::string lostGroups(const Identity& who, const passwd& account) {
  int count = 0;
  getgrouplist(account.pw_name, account.pw_gid, nullptr, &count);
  std::vector<gid_t> groups(static_cast<std::size_t>(count));
  getgrouplist(account.pw_name, account.pw_gid, groups.data(), &count);
  std::string names;
  for (const gid_t gid : groups) {
    const bool isKept = std::find(who.groups.begin(), who.groups.end(), gid) != who.groups.end();
    if (gid == who.gid || isKept) continue;
    names += (names.empty() ? "" : ", ") + nameOfGroup(gid);
  }
  return names;
}

void inspectAccount(const Host& host) {
  Inspection* inspection = host.inspection;
  const passwd* account = getpwuid(host.who.uid);
  if (account == nullptr) {
    find(inspection, RuleId::uidWithoutAccount, placeOfUser(*inspection),
         std::to_string(host.who.uid), "No account on this machine has this uid.",
         "Correct the uid, or check on the machine that runs the job.");
    return;
  }
  const std::string lost = lostGroups(host.who, *account);
  if (lost.empty()) return;
  find(inspection, RuleId::groupsNotKept, placeOfUser(*inspection), lost,
       "The user is in these groups, but the task is not: it has the gid of the job and the groups "
       "that the adapter was started with.",
       "Make the group that is needed the gid of the job.");
}

void inspectGroupEntry(const Host& host) {
  if (getgrgid(host.who.gid) != nullptr) return;
  find(host.inspection, RuleId::gidWithoutGroup, host.inspection->gid.value_or(Place{}),
       std::to_string(host.who.gid), "No group on this machine has this gid.",
       "Correct the gid, or check on the machine that runs the job.");
}

// False, with a finding, if the folder does not exist.
bool inspectFolder(const Host& host) {
  Inspection* inspection = host.inspection;
  const std::string folder = runlet::runFolder(inspection->context);
  const Place place = inspection->workingFolder.value_or(Place{});
  const Access access = accessToFolder(host.who, "/", host.folder);
  if (access == Access::missing) {
    find(inspection, RuleId::missingFolder, place, folder,
         "This machine has no such folder; the adapter refuses every task.",
         "Create the folder, or correct WorkingFolder.");
    return false;
  }
  if (access == Access::granted) return true;
  const bool hasSeveral = inspection->context.taskList.size() > 1;
  find(inspection, hasSeveral ? RuleId::folderClosedToLaterTasks : RuleId::folderClosedToTask,
       place, folder,
       hasSeveral
           ? "The user may not enter this folder: the adapter enters it for the first task of a "
             "request, with the rights that it was started with, but the second is refused."
           : "The user may not enter this folder; the task cannot open anything in it.",
       "Let the user search the folder and all folders above it.");
  return true;
}

// How the system treats a file that it is asked to execute.
enum class Format { script, program, unknown };

struct FileStart {
  Format format;
  std::string interpreter;  // of a script
};

constexpr std::size_t startLength = 256;  // bytes of a file that the system reads

// The interpreter's name in `start`, the text after "#!". No value if the system would find none,
// or if the name may continue after what it reads. At the end of the file the name may be empty.
std::optional<std::string> interpreterIn(std::string_view start) {
  const std::size_t lineEnd = start.find('\n');
  const bool hasLineEnd = lineEnd != std::string_view::npos;
  const std::string_view line = start.substr(0, lineEnd);
  const std::size_t begin = std::min(line.find_first_not_of(" \t"), line.size());
  const std::size_t end = line.find_first_of(std::string_view(" \t\0", 3), begin);
  const bool isCut = end == std::string_view::npos && start.size() == startLength - 2;
  if (!hasLineEnd && isCut) return std::nullopt;
  if (hasLineEnd && begin == line.size()) return std::nullopt;
  return std::string(line.substr(begin, end - begin));
}

FileStart readFileStart(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return {Format::program, ""};  // executable but unreadable: not a script
  char bytes[startLength] = {};
  file.read(bytes, sizeof bytes);
  const std::string_view start(bytes, static_cast<std::size_t>(file.gcount()));
  if (start.starts_with("\177ELF")) return {Format::program, ""};
  if (!start.starts_with("#!")) return {Format::unknown, ""};
  std::optional<std::string> interpreter = interpreterIn(start.substr(2));
  if (!interpreter.has_value()) return {Format::unknown, ""};
  return {Format::script, *std::move(interpreter)};
}

// A program of a task.
struct Program {
  const Host& host;
  std::string path;  // as the system would execute it; empty if there is none
  std::size_t number;
  std::int32_t task;
};

std::optional<RuleId> findOf(const Program& program, RuleId rule, std::string_view text,
                             std::string why, std::string instead) {
  findForTask(program.host.inspection, rule, program.number, program.task,
              placeInTemplate(*program.host.inspection, 0), text, std::move(why),
              std::move(instead));
  return rule;
}

std::optional<RuleId> findNoInterpreter(const Program& program, const std::string& interpreter) {
  const bool hasReturn = interpreter.ends_with('\r');
  return findOf(
      program, RuleId::noInterpreter, program.path,
      hasReturn ? "The first line of this script ends in a carriage return, which counts as part "
                  "of the interpreter's name; the script cannot be executed."
                : "The interpreter " + interpreter +
                      " of this script cannot be executed, and neither can the script.",
      hasReturn ? "Remove the carriage returns from the script."
                : "Correct the first line of the script.");
}

// An interpreter may itself be a script, up to the system's limit.
std::optional<RuleId> inspectScript(const Program& program) {
  constexpr int mostInterpreters = 5;
  const Host& host = program.host;
  FileStart start = readFileStart(program.path);
  for (int count = 0; start.format == Format::script; ++count) {
    const bool isLoop = count == mostInterpreters;
    if (isLoop || accessToProgram(host.who, host.folder, start.interpreter) != Access::granted) {
      return findNoInterpreter(program, start.interpreter);
    }
    start = readFileStart(fullPath(host.folder, start.interpreter));
  }
  if (start.format == Format::program) return std::nullopt;
  return findOf(program, RuleId::noInterpreterLine, program.path,
                "The system cannot execute this file by itself; it is handed to /bin/sh.",
                "Write an interpreter line, such as #!/bin/bash, first.");
}

bool isOwner(const Identity& who, const std::string& path) {
  struct stat status {};
  return who.uid == 0 || (stat(path.c_str(), &status) == 0 && status.st_uid == who.uid);
}

// With an application path the program is made executable first: for the first task with the rights
// that the adapter was started with, assumed to be root's, and for later tasks with the user's.
bool isMadeExecutable(const Program& program, const Preview& preview) {
  const Host& host = program.host;
  const std::string& path = preview.start.chmodPath;
  if (path.find('/') == std::string::npos) return false;
  if (program.task > 1 && !isOwner(host.who, fullPath(host.folder, path))) return false;
  return accessToProgram(host.who, host.folder, path, FileMode::executable) == Access::granted;
}

std::optional<RuleId> findNoProgram(const Program& program, const std::string& word,
                                    Access access) {
  const bool hasFolder = word.find('/') != std::string::npos;
  return findOf(program, RuleId::noProgram, word,
                access == Access::denied ? "The job's user may not execute this program."
                : hasFolder              ? "This machine has no such program."
                                         : "There is no such program along PATH.",
                "Write the full path of the program, and make it executable.");
}

// Returns the rule of the finding, if there is one.
std::optional<RuleId> inspectNewProgram(const Host& host, const Preview& preview,
                                        std::int32_t task) {
  const std::string word = preview.words.front();
  Access access = Access::missing;
  Program program = {host, findProgram(host.who, host.folder, word, &access), host.seen.size(),
                     task};
  if (access == Access::denied && isMadeExecutable(program, preview)) {
    program.path = fullPath(host.folder, preview.start.chmodPath);
  } else if (access != Access::granted) {
    return findNoProgram(program, word, access);
  }
  return inspectScript(program);
}

void inspectProgramFile(Host* host, const Preview& preview, std::int32_t task) {
  if (preview.outcome != Outcome::starts) return;
  const std::string word = preview.words.front();
  const auto row = host->seen.find(word);
  if (row == host->seen.end()) {
    host->inspection->limit.addProgram(word.size());
    const std::size_t number = host->seen.size();
    const std::optional<RuleId> rule = inspectNewProgram(*host, preview, task);
    host->seen[word] = {rule, number};
  } else if (row->second.rule.has_value()) {
    addTaskToFinding(host->inspection, *row->second.rule, row->second.program, task);
  }
}

}  // namespace

void inspectHost(Inspection* inspection) {
  const AdapterContext& context = inspection->context;
  uid_t uid = 0;
  if (!findTaskUser(inspection, &uid) || context.gid == notGiven) return;
  const std::string folder = runlet::runFolder(context);
  Host host = {inspection, {uid, static_cast<gid_t>(context.gid), ownGroups()}, folder, {}};
  host.folder = fullPath(currentFolder(), folder);
  inspectAccount(host);
  inspectGroupEntry(host);
  if (!inspectFolder(host)) return;
  Preview preview;
  for (std::size_t i = 0; i < context.taskList.size(); ++i) {
    if (inspection->limit.isSpent()) {
      findTasksNotChecked(inspection, static_cast<std::int32_t>(i));
      return;
    }
    const auto number = static_cast<std::int32_t>(i) + 1;
    previewCommand(context, number - 1, &preview);
    inspection->limit.addPreview(preview, context, number - 1);
    inspectProgramFile(&host, preview, number);
  }
}

}  // namespace runlet_tool
