#include "tool/record/store.h"

#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>
#include <thread>

#include "tool/record/digest.h"
#include "tool/system/files.h"
#include "tool/text/characters.h"
#include "tool/text/fields.h"
#include "tool/text/format.h"
#include "tool/text/json.h"
#include "tool/text/quoting.h"

namespace runlet_tool {
namespace {

constexpr char extension[] = ".jsonl";
constexpr char claimsFolder[] = "/claims";  // in the state folder

std::string reasonFor(const std::string& path, int error) {
  return shortShellWord(path) + ": " + std::strerror(error);
}

std::string homeOf(uid_t uid) {
  const passwd* entry = getpwuid(uid);
  return entry == nullptr ? "" : entry->pw_dir;
}

bool isAbsolute(const char* path) {
  return path != nullptr && *path == '/';
}

// The folder that holds the state of programs; empty if there is none.
std::string stateHome() {
  // Root's environment may be that of the user who became root.
  const bool isRoot = geteuid() == 0;
  const char* state = std::getenv("XDG_STATE_HOME");
  if (!isRoot && isAbsolute(state)) return state;
  const char* home = std::getenv("HOME");
  const std::string folder = !isRoot && isAbsolute(home) ? home : homeOf(geteuid());
  return isAbsolute(folder.c_str()) ? folder + "/.local/state" : "";
}

// What is wrong with the status of a folder of the caller's; empty if nothing is.
std::string complaintAbout(const std::string& folder, const struct stat& status) {
  if (S_ISLNK(status.st_mode)) return shortShellWord(folder) + " is a link, not a folder";
  if (!S_ISDIR(status.st_mode)) return shortShellWord(folder) + " is not a folder";
  if (status.st_uid != geteuid()) {
    return shortShellWord(folder) + " does not belong to " + (geteuid() == 0 ? "root" : "you");
  }
  const bool isOpen = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
  return isOpen ? "others may write to " + shortShellWord(folder) : "";
}

// What is wrong with a folder on the way to root's records, which may be a link.
std::string complaintAboutRoots(const std::string& folder) {
  struct stat status {};
  if (lstat(folder.c_str(), &status) != 0) return reasonFor(folder, errno);
  return complaintAbout(folder, status);
}

// What is wrong with the folder of other callers' records, to which their own links may lead.
std::string complaintAboutOwn(const std::string& folder) {
  struct stat status {};
  if (lstat(folder.c_str(), &status) != 0) return reasonFor(folder, errno);
  // Whoever may write to the folder above could choose the records by a link.
  const bool isOfOther = status.st_uid != 0 && status.st_uid != geteuid();
  if (S_ISLNK(status.st_mode) && isOfOther) {
    return shortShellWord(folder) + " is a link of user " + std::to_string(status.st_uid);
  }
  if (stat(folder.c_str(), &status) != 0) return reasonFor(folder, errno);
  return complaintAbout(folder, status);
}

// How the names of claims on it begin.
std::string claimName(const std::string& what) {
  return digestOf(what).substr(0, 32) + ".";
}

// The present time and that process, for the name of a claim. A later one is greater.
std::string momentOf(const ProcessName& own) {
  const std::chrono::nanoseconds now = std::chrono::system_clock::now().time_since_epoch();
  return withoutLineEnd("%020lld", static_cast<long long>(now.count())) + "." +
         std::to_string(own.process) + "." + std::to_string(own.start);
}

// Empty if the file cannot be read.
std::string textOf(const std::string& path) {
  std::string text;
  return readRegularFile(path, &text) ? text : "";
}

// The names in the folder that begin so, ascending.
std::vector<std::string> namesIn(const std::string& folder, std::string_view beginning) {
  std::vector<std::string> names;
  DIR* const listing = opendir(folder.c_str());
  if (listing == nullptr) return names;
  while (const dirent* entry = readdir(listing)) {
    const std::string_view name = entry->d_name;
    if (name.starts_with(beginning)) names.emplace_back(name);
  }
  closedir(listing);
  std::sort(names.begin(), names.end());
  return names;
}

// What a claim says.
struct Claimant {
  ProcessName process;
  std::string record;
};

std::string jsonOf(const Claimant& claimant) {
  const ProcessName& name = claimant.process;
  const bool inBytes = !isUtf8(name.host) || !isUtf8(claimant.record);
  Json all;
  all["bytes"] = inBytes;
  all["record"] = JsonStrings(inBytes)(claimant.record);
  all["host"] = JsonStrings(inBytes)(name.host);
  all["boot"] = name.boot;
  all["pidSpace"] = name.space;
  all["pid"] = name.process;
  all["pidStart"] = name.start;
  return all.dump() + "\n";
}

// Who has claimed something, from the text of the claim. A text that is none names nobody.
Claimant claimantOf(const std::string& text) {
  Claimant claimant;
  const Json all = Json::parse(text, nullptr, false);
  try {
    claimant.process.boot = all.at("boot");
    claimant.process.space = all.at("pidSpace");
    claimant.process.start = all.at("pidStart");
    claimant.process.process = all.at("pid");
    claimant.process.host = all.at("host");
    claimant.record = all.at("record");
    const std::string characters = claimant.record;
    const bool isSound = !all.at("bytes") || charactersAsBytes(characters, &claimant.record);
    return isSound ? claimant : Claimant();
  } catch (const Json::exception&) {
    return {};
  }
}

// What the claims of other processes on the same thing say.
struct ClaimsOfOthers {
  std::string complaint;             // about the first one that may be running
  std::string path;                  // of the claim that it is about
  std::vector<std::string> records;  // of those that were killed
  std::vector<std::string> paths;    // of the claims of these
};

// `own` is the path of the caller's own claim; empty if there is none.
ClaimsOfOthers lookAtOthers(const std::string& folder, const std::string& beginning,
                            const std::string& own) {
  ClaimsOfOthers others;
  for (const std::string& name : namesIn(folder, beginning)) {
    const std::string path = fullPath(folder, name);
    if (path == own) continue;
    const auto [process, record] = claimantOf(textOf(path));
    std::string complaint;
    if (process.host.empty()) {
      complaint = wholeWord(path) + " is damaged; remove it if nothing is running";
    } else if (mayBeRunning(process)) {
      complaint = "process " + std::to_string(process.process) + " on " + visible(process.host) +
                  " is running it; if it has ended, remove " + wholeWord(path);
    } else {
      others.records.push_back(record);
      others.paths.push_back(path);
    }
    if (complaint.empty() || !others.complaint.empty()) continue;
    others.complaint = complaint;
    others.path = path;
  }
  return others;
}

}  // namespace

std::string findStateFolder(std::string* folder) {
  const std::string home = stateHome();
  if (home.empty()) return "there is no home folder for it";
  *folder = home + "/runlet-job";
  return makeStateFolder(*folder);
}

std::string makeStateFolder(const std::string& folder) {
  std::size_t end = 0;
  while (end != std::string::npos) {
    end = folder.find('/', end + 1);
    const std::string part = folder.substr(0, end);
    if (mkdir(part.c_str(), S_IRWXU) != 0 && errno != EEXIST) return reasonFor(part, errno);
    if (geteuid() != 0) continue;
    std::string complaint = complaintAboutRoots(part);
    if (!complaint.empty()) return complaint;
  }
  return geteuid() == 0 ? "" : complaintAboutOwn(folder);
}

std::uint64_t processStart(pid_t process) {
  const std::string status = textOf("/proc/" + std::to_string(process) + "/stat");
  // The second field is a name that may contain anything; the state follows it.
  const std::size_t nameEnd = status.rfind(") ");
  if (nameEnd == std::string::npos) return 0;
  const std::vector<std::string_view> fields =
      split(' ', std::string_view(status).substr(nameEnd + 2));
  constexpr std::size_t startField = 19;
  if (fields.size() <= startField || fields[0] == "Z" || fields[0] == "X") return 0;
  return parseNumber<std::uint64_t>(fields[startField]).value_or(0);
}

ProcessName ownProcess() {
  ProcessName name;
  char host[HOST_NAME_MAX + 1] = "";
  gethostname(host, sizeof host - 1);
  name.host = host;
  const std::string boot = textOf("/proc/sys/kernel/random/boot_id");
  name.boot = boot.substr(0, boot.find('\n'));
  struct stat status {};
  if (stat("/proc/self/ns/pid", &status) == 0) name.space = status.st_ino;
  name.process = getpid();
  name.start = processStart(name.process);
  return name;
}

bool isRunningHere(const ProcessName& name) {
  const ProcessName own = ownProcess();
  const bool isHere = name.host == own.host && name.boot == own.boot && name.space == own.space;
  return isHere && name.start != 0 && processStart(name.process) == name.start;
}

bool isRunningHere(const Record& record, const Attempt& attempt) {
  ProcessName name = record.sessions[attempt.session].process;
  name.process = attempt.process;
  name.start = attempt.processStart;
  return !attempt.end && isRunningHere(name);
}

std::string complaintAboutClaims(const std::string& stateFolder, const std::string& what) {
  return lookAtOthers(stateFolder + claimsFolder, claimName(what), "").complaint;
}

void removeAbandonedClaims(const std::string& stateFolder, const std::string& what) {
  for (const std::string& path :
       lookAtOthers(stateFolder + claimsFolder, claimName(what), "").paths) {
    unlink(path.c_str());
  }
}

bool mayBeRunning(const ProcessName& name) {
  const ProcessName own = ownProcess();
  const bool isElsewhere =
      name.host != own.host || (name.boot == own.boot && name.space != own.space);
  return isElsewhere || isRunningHere(name);
}

std::string newRecordId() {
  std::timespec now{};
  std::timespec_get(&now, TIME_UTC);
  std::tm parts{};
  gmtime_r(&now.tv_sec, &parts);
  char text[sizeof "20261122-211530-"];
  std::strftime(text, sizeof text, "%Y%m%d-%H%M%S-", &parts);
  constexpr std::int64_t partsOfASecond = 1 << 16;
  constexpr std::int64_t second = 1'000'000'000;
  return text +
         withoutLineEnd("%04x", static_cast<unsigned>(now.tv_nsec * partsOfASecond / second));
}

bool isRecordId(const std::string& id) {
  constexpr std::string_view form = "dddddddd-dddddd-xxxx";
  constexpr std::string_view digits = "0123456789abcdef";
  return std::equal(id.begin(), id.end(), form.begin(), form.end(), [=](char c, char kind) {
    return kind == '-' ? c == '-'
                       : digits.substr(0, kind == 'd' ? 10 : 16).find(c) != std::string_view::npos;
  });
}

RecordTime timeOfId(const std::string& id) {
  std::tm parts{};
  strptime(id.c_str(), "%Y%m%d-%H%M%S", &parts);
  return static_cast<RecordTime>(timegm(&parts));
}

std::string recordPath(const std::string& stateFolder, const std::string& id) {
  return stateFolder + "/" + id + extension;
}

std::vector<std::string> recordIds(const std::string& stateFolder) {
  std::vector<std::string> ids;
  for (const std::string& name : namesIn(stateFolder, "")) {
    const std::string id = name.substr(0, name.find('.'));
    if (isRecordId(id) && name == id + extension) ids.push_back(id);
  }
  return ids;
}

bool hasWholeLine(const std::string& path) {
  std::string text;
  return !readRegularFile(path, &text) || text.find('\n') != std::string::npos;
}

std::string findRecord(const std::string& meant, std::string* path) {
  if (meant.find('/') != std::string::npos || meant.ends_with(extension)) {
    *path = meant;
    return "";
  }
  std::string folder;
  const std::string complaint = findStateFolder(&folder);
  if (!complaint.empty()) return "no state folder: " + complaint;
  const std::vector<std::string> ids = recordIds(folder);
  const bool isLast = meant == "last";
  // Reads a record only if it may be meant.
  const auto last = std::find_if(ids.rbegin(), ids.rend(), [&](const std::string& candidate) {
    return !isLast || hasWholeLine(recordPath(folder, candidate));
  });
  if (isLast && last == ids.rend()) return "there are no records in " + shortShellWord(folder);
  const std::string id = isLast ? *last : meant;
  *path = recordPath(folder, id);
  const bool isThere = std::binary_search(ids.begin(), ids.end(), id);
  return isThere ? "" : "no record " + shortShellWord(id) + " in " + shortShellWord(folder);
}

Claim::Claim(const std::string& stateFolder, const std::string& what, const std::string& record)
    : complaint_(makeStateFolder(stateFolder + claimsFolder)) {
  if (!complaint_.empty()) return;
  const std::string folder = stateFolder + claimsFolder;
  const std::string beginning = claimName(what);
  const ProcessName own = ownProcess();
  const std::string name = beginning + momentOf(own);
  const std::string draft = folder + "/new." + name;
  const OwnDescriptor file(
      open(draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
  const bool isDrafted = file.number() != -1;
  int error = isDrafted ? writeAll(file.number(), jsonOf({own, record})) : errno;
  // Renamed when it is complete, so that nobody reads half a claim.
  path_ = folder + "/" + name;
  if (error == 0 && rename(draft.c_str(), path_.c_str()) != 0) error = errno;
  if (error == 0) {
    awaitOthers(folder, beginning);
  } else {
    complaint_ = reasonFor(folder, error);
    isDiskFull_ = error == ENOSPC || error == EDQUOT;
    if (isDrafted) unlink(draft.c_str());
    path_.clear();
  }
}

// Whoever sees no other claim while its own is there has succeeded, so never two processes have.
void Claim::awaitOthers(const std::string& folder, const std::string& beginning) {
  constexpr auto longest = std::chrono::seconds(1);
  const auto deadline = std::chrono::steady_clock::now() + longest;
  ClaimsOfOthers others = lookAtOthers(folder, beginning, path_);
  while (others.path > path_ && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    others = lookAtOthers(folder, beginning, path_);
  }
  complaint_ = others.complaint;
  isTaken_ = !complaint_.empty();
  abandoned_ = others.records;
  abandonedPaths_ = others.paths;
  if (!isTaken_) return;
  unlink(path_.c_str());
  path_.clear();
}

void Claim::removeAbandoned() {
  for (const std::string& path : abandonedPaths_) unlink(path.c_str());
}

Claim::~Claim() {
  if (!path_.empty()) unlink(path_.c_str());
}

}  // namespace runlet_tool
