#include "tool_run.h"

#include <gtest/gtest.h>
#include <linux/keyctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>
#include <regex>
#include <string_view>
#include <system_error>

#include "programs.h"
#include "temp_folder.h"

namespace runlet_test {
namespace {

// Where an ordinary user's records are; root's are always in root's home folder, and so every
// record has a file of its own here.
const TempFolder& state() {
  static const TempFolder folder;
  static const bool isOpen = chmod(folder.path().c_str(), 0777) == 0;
  static_cast<void>(isOpen);
  return folder;
}

int records = 0;

std::string recordPath(int number) {
  return state().file(std::to_string(getpid()) + "-" + std::to_string(number) + ".jsonl");
}

std::string newRecord() {
  return recordPath(++records);
}

bool saysWhereTheRecordIs(const std::vector<std::string>& arguments) {
  return std::any_of(arguments.begin(), arguments.end(), [](const std::string& argument) {
    return argument == "--record" || argument == "--resume" || argument == "--tell-ends";
  });
}

constexpr std::string_view batchLine = "runlet-job: run: batch ";

}  // namespace

ProcessOptions tool(const std::vector<std::string>& arguments) {
  ProcessOptions options;
  options.arguments = {toolPath};
  options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
  options.environment = {{"PATH", "/usr/bin:/bin"}, {"XDG_STATE_HOME", state().path()}};
  if (!arguments.empty() && arguments[0] == "run" && !saysWhereTheRecordIs(arguments)) {
    options.arguments.insert(options.arguments.end(), {"--record", newRecord()});
  }
  return options;
}

std::string lastRecord() {
  return recordPath(records);
}

std::string batchOf(const std::string& error) {
  const std::size_t begin = error.find(batchLine);
  if (begin == std::string::npos) return "";
  const std::size_t id = begin + batchLine.size();
  return error.substr(id, error.find(',', id) - id);
}

std::string withoutBatchLine(std::string text) {
  const std::size_t begin = text.find(batchLine);
  if (begin != std::string::npos) text.erase(begin, text.find('\n', begin) + 1 - begin);
  return text;
}

ProcessResult runTool(const std::vector<std::string>& arguments) {
  return runProcess(tool(arguments));
}

std::string withoutBatchIds(const std::string& text) {
  static const std::regex id("-[0-9]{8}-[0-9]{6}-[0-9a-f]{4}");
  return std::regex_replace(text, id, "-ID");
}

std::string batchFolder(const std::string& logFolder, const std::string& name) {
  std::string latest = logFolder + "/none";
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(logFolder, error)) {
    const std::string path = entry.path();
    const bool isOfBatch = withoutBatchIds(path) == logFolder + "/" + name + "-ID";
    if (isOfBatch && (latest.ends_with("/none") || latest < path)) latest = path;
  }
  return latest;
}

std::string withoutKeyringNote(std::string text) {
  static const std::string note = [] {
    // Only queries the id of a keyring, without changing any.
    const long id = syscall(SYS_keyctl, KEYCTL_GET_KEYRING_ID, KEY_SPEC_USER_KEYRING, 0);
    const bool isForbidden = id == -1 && (errno == ENOSYS || errno == EPERM || errno == EACCES);
    return isForbidden ? std::string("runlet-job: no session keyring for the task: ") +
                             std::strerror(errno) + "; it keeps that of its starter\n"
                       : "";
  }();
  const std::size_t place = note.empty() ? std::string::npos : text.find(note);
  if (place != std::string::npos) text.erase(place, note.size());
  return text;
}

void expectTool(const ProcessResult& result, const std::string& output, const std::string& error,
                const std::string& status) {
  EXPECT_EQ(withoutBatchIds(result.output), output);
  EXPECT_EQ(withoutBatchIds(withoutKeyringNote(withoutBatchLine(result.error))), error);
  EXPECT_EQ(describeStatus(result.waitStatus), status);
}

std::string notPositive(const std::string& value) {
  return CLI::Range(1, std::numeric_limits<std::int32_t>::max())(value);
}

std::vector<std::string> claimsOf(const std::string& record) {
  // As root, there may be claims of other processes.
  const std::string home = geteuid() == 0 ? "/root/.local/state" : state().path();
  const std::string name = "\"record\":\"" + record + "\"";
  std::vector<std::string> claims;
  std::error_code error;
  for (const auto& entry :
       std::filesystem::directory_iterator(home + "/runlet-job/claims", error)) {
    const std::string path = entry.path();
    if (readFile(path).find(name) != std::string::npos) claims.push_back(path);
  }
  return claims;
}

pid_t starterOf(pid_t run) {
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const pid_t other = std::atoi(entry.path().filename().c_str());
    const std::string status = other > 0 ? readFile(entry.path() / "status") : "";
    const bool isChild = status.find("\nPPid:\t" + std::to_string(run) + "\n") != std::string::npos;
    if (isChild && status.starts_with("Name:\trunlet-starter\n")) return other;
  }
  return -1;
}

}  // namespace runlet_test
