// The machine that the check runs on: its folders, programs, users and groups.

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include "tool/check/access.h"
#include "tool/check/inspection.h"
#include "tool/expand/preview.h"

namespace runlet_tool {
namespace {

using runlet::AdapterContext;

constexpr std::int32_t notGiven = -1;

// A job on this machine.
struct Host {
  Inspection* inspection;
  Identity who;
  std::string folder;          // full path of the run folder
  std::set<std::string> seen;  // programs looked at
};

std::vector<gid_t> ownGroups() {
  std::vector<gid_t> groups(static_cast<std::size_t>(std::max(getgroups(0, nullptr), 0)));
  const int count = getgroups(static_cast<int>(groups.size()), groups.data());
  groups.resize(static_cast<std::size_t>(std::max(count, 0)));
  return groups;
}

Place placeOfUser(const Inspection& inspection) {
  return inspection.uid.value_or(Place{});
}

// False when the user cannot be told, which is found.
bool findUser(Inspection* inspection, uid_t* uid) {
  const AdapterContext& context = inspection->context;
  if (context.uid != notGiven) {
    *uid = static_cast<uid_t>(context.uid);
    return true;
  }
  if (context.userName.empty()) return false;  // found without the machine
  const passwd* entry = getpwnam(context.userName.c_str());
  if (entry != nullptr) {
    *uid = entry->pw_uid;
    return true;
  }
  find(inspection, RuleId::unknownUser, placeOfUser(*inspection), context.userName,
       "This machine does not know the user given with -u, and the adapter refuses every task.",
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
         std::to_string(host.who.uid), "This machine knows no account with this uid.",
         "Correct the uid, or check on the machine that runs the job.");
    return;
  }
  const std::string lost = lostGroups(host.who, *account);
  if (lost.empty()) return;
  find(inspection, RuleId::groupsNotKept, placeOfUser(*inspection), lost,
       "The user is in these groups, and the task is not: it has the gid of the job and the groups "
       "that the adapter is started with.",
       "Make the group that is needed the gid of the job.");
}

void inspectGroup(const Host& host) {
  if (getgrgid(host.who.gid) != nullptr) return;
  find(host.inspection, RuleId::gidWithoutGroup, host.inspection->gid.value_or(Place{}),
       std::to_string(host.who.gid), "This machine knows no group with this gid.",
       "Correct the gid, or check on the machine that runs the job.");
}

// False when no task gets there, which is found.
bool inspectFolder(const Host& host) {
  Inspection* inspection = host.inspection;
  const std::string folder = runlet::runFolder(inspection->context);
  const Place place = inspection->workingFolder.value_or(Place{});
  const Access access = enterFolder(host.who, host.folder, "");
  if (access == Access::missing) {
    find(inspection, RuleId::missingFolder, place, folder,
         "This machine has no such folder, and the adapter refuses every task.",
         "Make the folder, or correct WorkingFolder.");
    return false;
  }
  if (access == Access::granted) return true;
  const bool hasSeveral = inspection->context.taskList.size() > 1;
  find(inspection, hasSeveral ? RuleId::folderClosedToLaterTasks : RuleId::folderClosedToTask,
       place, folder,
       hasSeveral
           ? "The user may not enter this folder, and the second task of a request is entered "
             "as the user already: it is refused."
           : "The user may not enter this folder, and the task can open nothing in it.",
       "Let the user search the folder and all folders above it.");
  return true;
}

// What the first line of a script names, up to the first space; empty when it is no script.
struct Interpreter {
  bool isScript;
  std::string path;
};

Interpreter interpreterOf(const std::string& program) {
  std::ifstream file(program, std::ios::binary);
  char start[256] = {};
  file.read(start, sizeof start - 1);
  const std::string_view text(start, static_cast<std::size_t>(file.gcount()));
  if (!text.starts_with("#!")) return {false, ""};
  const std::string_view line = text.substr(2, text.find('\n') - 2);
  const std::size_t begin = std::min(line.find_first_not_of(" \t"), line.size());
  const std::size_t end = line.find_first_of(" \t", begin);
  return {true, std::string(line.substr(begin, end - begin))};
}

bool isElf(const std::string& program) {
  std::ifstream file(program, std::ios::binary);
  char start[4] = {};
  file.read(start, sizeof start);
  // What may be executed and not read is no script.
  return !file || std::memcmp(start, "\177ELF", sizeof start) == 0;
}

void inspectScript(const Host& host, const std::string& program, std::int32_t number) {
  const Interpreter interpreter = interpreterOf(program);
  const Place place = placeInTemplate(*host.inspection, 0);
  if (!interpreter.isScript || interpreter.path.empty()) {
    if (isElf(program)) return;
    findForTask(host.inspection, RuleId::noInterpreterLine, noOffset, number, place, program,
                "The system cannot execute this file by itself, and it is handed to /bin/sh.",
                "Write an interpreter line, such as #!/bin/bash, first.");
    return;
  }
  if (executeFile(host.who, host.folder, interpreter.path) == Access::granted) return;
  const bool hasReturn = interpreter.path.ends_with('\r');
  findForTask(host.inspection, RuleId::noInterpreter, noOffset, number, place, program,
              hasReturn
                  ? "The first line of this script ends in a carriage return, which counts as "
                    "part of the interpreter's name; the script cannot be executed."
                  : "The interpreter " + interpreter.path +
                        " of this script is not there, and the script cannot be executed.",
              hasReturn ? "Take the carriage returns out of the script."
                        : "Correct the first line of the script.");
}

// With an application path the program is made executable first.
bool isMadeExecutable(const Host& host, const Preview& preview) {
  const std::string& program = preview.command.program;
  if (program.empty() || program.find('/') == std::string::npos) return false;
  Identity root = {0, 0, {}};
  return enterFolder(root, host.folder, program.substr(0, program.rfind('/') + 1)) !=
             Access::missing &&
         executeFile(host.who, host.folder, program) != Access::missing;
}

void findNoProgram(const Host& host, const Preview& preview, Access access, std::int32_t number) {
  const std::string word = preview.words.front();
  const bool hasFolder = word.find('/') != std::string::npos;
  findForTask(host.inspection, RuleId::noProgram, noOffset, number,
              placeInTemplate(*host.inspection, 0), word,
              access == Access::denied ? "The job's user may not execute this program."
              : hasFolder              ? "This machine has no such program."
                                       : "There is no such program along PATH.",
              "Write the full path of the program, and make it executable.");
}

void inspectProgram(Host* host, const Preview& preview, std::int32_t number) {
  if (preview.outcome != Outcome::starts) return;
  const std::string word = preview.words.front();
  if (!host->seen.insert(word).second) return;
  Access access = Access::missing;
  std::string program = findProgram(host->who, host->folder, word, &access);
  if (access == Access::denied && isMadeExecutable(*host, preview)) {
    access = Access::granted;
    program = preview.command.program;
  }
  if (access != Access::granted) {
    findNoProgram(*host, preview, access, number);
  } else {
    inspectScript(*host, program, number);
  }
}

}  // namespace

void inspectHost(Inspection* inspection) {
  const AdapterContext& context = inspection->context;
  uid_t uid = 0;
  if (!findUser(inspection, &uid) || context.gid == notGiven) return;
  const std::string folder = runlet::runFolder(context);
  const std::string start = std::filesystem::current_path().string();
  Host host = {inspection, {uid, static_cast<gid_t>(context.gid), ownGroups()}, folder, {}};
  if (!folder.starts_with('/')) host.folder = start + "/" + folder;
  inspectAccount(host);
  inspectGroup(host);
  if (!inspectFolder(host)) return;
  Preview preview;
  for (std::size_t i = 0; i < context.taskList.size(); ++i) {
    const auto number = static_cast<std::int32_t>(i) + 1;
    previewCommand(context, number - 1, &preview);
    inspectProgram(&host, preview, number);
  }
}

}  // namespace runlet_tool
