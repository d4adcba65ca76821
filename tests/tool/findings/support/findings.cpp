#include "findings.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <regex>
#include <stdexcept>

#include "programs.h"
#include "tool_run.h"

namespace runlet_test {

const std::string bad = "bad";
const std::string fixed = "fixed";

namespace {

using Json = nlohmann::json;

// The id of the user and group in the samples.
constexpr unsigned sampleId = 1000;

std::optional<Account> asPlain(const passwd& entry) {
  const group* own = getgrgid(entry.pw_gid);
  if (entry.pw_uid == 0 || own == nullptr) return std::nullopt;
  const std::string name = own->gr_name;
  int count = 0;  // no room for any group: becomes their number, including the user's own
  getgrouplist(entry.pw_name, entry.pw_gid, nullptr, &count);
  if (count != 1) return std::nullopt;
  return Account{entry.pw_uid, entry.pw_gid, name};
}

Account findPlainAccount() {
  std::optional<Account> found;
  setpwent();
  for (const passwd* entry = getpwent(); entry != nullptr && !found; entry = getpwent()) {
    found = asPlain(*entry);
  }
  endpwent();
  if (!found) throw std::runtime_error("every user but root has supplementary groups");
  return *found;
}

std::string code() {
  return std::string(testing::UnitTest::GetInstance()->current_test_info()->name()).substr(0, 5);
}

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at)) {
    text.replace(at, from.size(), to);
    at += to.size();
  }
  return text;
}

std::string withLetters(std::string text) {
  static const std::regex mark("@([0-9]+)@");
  for (std::smatch match; std::regex_search(text, match, mark);) {
    const std::string letters(std::stoul(match[1]), 'x');
    text.replace(static_cast<std::size_t>(match.position()), match[0].str().size(), letters);
  }
  return text;
}

Found foundOf(const Json& json) {
  const Json& tasks = json.at("tasks");
  Found found;
  json.at("code").get_to(found.code);
  json.at("severity").get_to(found.severity);
  json.at("line").get_to(found.line);
  json.at("column").get_to(found.column);
  json.at("text").get_to(found.text);
  if (!tasks.is_null()) tasks.get_to(found.tasks);
  return found;
}

std::string counted(int count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

long countOf(const std::vector<Found>& findings, const std::string& severity) {
  return std::count_if(findings.begin(), findings.end(),
                       [&](const Found& found) { return found.severity == severity; });
}

// "3-5,9" as in the text output: " [tasks 3-5, 9]".
std::string tasksInWords(const std::string& tasks) {
  if (tasks.empty()) return "";
  if (tasks == "all") return " [every task]";
  const bool several = tasks.find_first_of("-,") != std::string::npos;
  return std::string(several ? " [tasks " : " [task ") + replaceAll(tasks, ",", ", ") + "]";
}

std::string placeOf(const Json& job, const Found& found) {
  const std::string file = job.at("job");
  if (found.line == 0) return file;
  return file + ":" + std::to_string(found.line) + ":" + std::to_string(found.column);
}

// TAB as \t, every other ASCII control character as \xNN.
std::string visible(const std::string& text) {
  std::string out;
  for (const char c : text) {
    char code[8];
    std::snprintf(code, sizeof code, "\\x%02x", static_cast<unsigned>(c));
    const bool isControl = c >= '\0' && c < ' ';
    out += c == '\t' ? "\\t" : isControl ? std::string(code) : std::string(1, c);
  }
  return out;
}

// The text output that corresponds to the JSON object `job`.
std::string inWords(const Json& job) {
  std::string text;
  std::string summary = job.at("job").get<std::string>() + ": " + counted(job.at("tasks"), "task");
  for (const Json& finding : job.at("findings")) {
    const Found found = foundOf(finding);
    text += placeOf(job, found) + ": " + found.severity + " " + found.code + ": " +
            (found.text.empty() ? "" : visible(found.text) + ": ") +
            finding.at("why").get<std::string>() + "\n    " +
            finding.at("instead").get<std::string>() + tasksInWords(found.tasks) + "\n";
  }
  for (const std::string severity : {"error", "warning", "note"}) {
    const int count = job.at(severity + "s");
    if (count != 0) summary += ", " + counted(count, severity);
  }
  return text + summary + (text.empty() ? ", no findings\n" : "\n");
}

void expectCounts(const Json& job, const std::vector<Found>& findings) {
  for (const std::string severity : {"error", "warning", "note"}) {
    EXPECT_EQ(job.at(severity + "s"), countOf(findings, severity)) << severity;
  }
}

std::string statusFor(const std::vector<Found>& findings, bool strict) {
  for (const Found& found : findings) {
    if (found.code == "RJ001" || found.code == "RJ002") return "exit 2";
  }
  const bool failed =
      countOf(findings, "error") != 0 || (strict && countOf(findings, "warning") != 0);
  return failed ? "exit 1" : "exit 0";
}

}  // namespace

std::string samplesFolder() {
  return std::string(sourceFolder) + "/tests/tool/samples";
}

const Account& plainAccount() {
  static const Account account = findPlainAccount();
  return account;
}

std::ostream& operator<<(std::ostream& out, const Found& found) {
  return out << found.line << ":" << found.column << ": " << found.severity << " " << found.code
             << ": '" << found.text << "' [" << found.tasks << "]";
}

std::string Findings::jobName(const std::string& sample) const {
  return bareName_ ? sample + ".xml" : folder_.file(sample + ".xml");
}

std::string Findings::text(const std::string& sample) const {
  const std::string path = samplesFolder() + "/" + code() + "/" + sample + ".xml";
  const auto given = given_.find(sample);
  const std::string text = given == given_.end() ? readFile(path) : given->second;
  return withLetters(replaceAll(text, "@FOLDER@", folder()));
}

void Findings::writeSample(const std::string& sample, unsigned uid, unsigned gid) const {
  std::string own = text(sample);
  if (own.empty()) return;  // a sample may be a missing file
  own = replaceAll(own, "<uid>1000<", "<uid>" + std::to_string(uid) + "<");
  own = replaceAll(own, "<gid>1000<", "<gid>" + std::to_string(gid) + "<");
  folder_.write(sample + ".xml", own);
}

// With --host the user must exist on this machine.
void Findings::writeSampleToCheck(const std::string& sample) const {
  if (host_) return writeSample(sample, plainAccount().uid, plainAccount().gid);
  writeSample(sample, sampleId, sampleId);
}

// With a user as whom the caller may run tasks.
void Findings::writeSampleToRun(const std::string& sample) const {
  if (geteuid() != 0) return writeSample(sample, getuid(), getgid());
  if (host_) return writeSample(sample, plainAccount().uid, plainAccount().gid);
  writeSample(sample, otherId, otherId);
}

int Findings::tasksOf(const std::string& sample) const {
  if (sample == bad && badTasks_ != -1) return badTasks_;
  const std::string all = text(sample);
  int count = 0;
  for (std::size_t at = all.find("<Params>"); at != std::string::npos; ++count) {
    at = all.find("<Params>", at + 1);
  }
  return count;
}

ProcessResult Findings::check(const std::string& sample, const Strings& more) const {
  ProcessOptions options = tool({"check", jobName(sample)});
  options.arguments.insert(options.arguments.end(), options_.begin(), options_.end());
  options.arguments.insert(options.arguments.end(), more.begin(), more.end());
  if (host_) options.arguments.emplace_back("--host");
  options.folder = startFolder_;
  prepare(&options);
  return runProcess(options);
}

void Findings::expectCheck(const std::string& sample, const std::vector<Found>& findings) {
  SCOPED_TRACE(sample);
  writeSampleToCheck(sample);
  const ProcessResult result = check(sample, {"--json"});
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(describeStatus(result.waitStatus), statusFor(findings, false));
  const Json json = Json::parse(result.output, nullptr, false);
  ASSERT_TRUE(json.is_object()) << result.output;
  EXPECT_EQ(json.at("format"), "runlet-job check");
  EXPECT_EQ(json.at("version"), 1);
  ASSERT_EQ(json.at("jobs").size(), 1U);
  const Json& job = json.at("jobs").at(0);
  std::vector<Found> found;
  for (const Json& finding : job.at("findings")) found.push_back(foundOf(finding));
  EXPECT_EQ(found, findings);
  EXPECT_EQ(job.at("job"), jobName(sample));
  EXPECT_EQ(job.at("tasks"), tasksOf(sample));
  expectCounts(job, findings);
  expectResult(check(sample, {"--strict"}), inWords(job), "", statusFor(findings, true));
}

void Findings::expectOutputContains(const std::string& text) {
  writeSampleToCheck(bad);
  const std::string output = check(bad, {}).output;
  EXPECT_NE(output.find(text), std::string::npos) << text << "\n" << output;
}

Summary Findings::summaryOf(const std::string& sample) const {
  writeSampleToCheck(sample);
  const ProcessResult result = check(sample, {"--json"});
  const Json json = Json::parse(result.output, nullptr, false);
  if (!json.is_object()) return {result.error, 0, 0};
  const Json& job = json.at("jobs").at(0);
  Summary summary{"", 0, job.at("tasks")};
  for (const Json& finding : job.at("findings")) {
    if (!summary.codes.empty()) summary.codes += ' ';
    const auto code = finding.at("code").get<std::string>();
    summary.codes += code;
    const bool isOnlyDangerous = code == "RJ034" || code == "RJ076";
    if (finding.at("severity") == "error" && !isOnlyDangerous) ++summary.errors;
  }
  return summary;
}

void Findings::expectFound(const std::vector<Found>& findings) {
  expectCheck(bad, findings);
  expectCheck(fixed, {});
}

ProcessResult Findings::runRequest(const std::string& sample, const Strings& request) const {
  writeSampleToRun(sample);
  Strings arguments = request;
  arguments.insert(arguments.end(), {"-j", jobName(sample)});
  arguments.insert(arguments.end(), options_.begin(), options_.end());
  ProcessOptions options = unprivileged_ ? unprivileged(arguments) : adapter(arguments);
  options.folder = startFolder_;
  options.environment.emplace_back("LC_ALL", "C");
  prepare(&options);
  return runProcess(options);
}

void Findings::prepare(ProcessOptions* /*options*/) const {}

ProcessResult Findings::runTasks(const std::string& sample) const {
  return runRequest(sample, {"-o", "NewTask", "-s", "1", "-n", "99"});
}

void Findings::expectBad(const std::string& output, const std::string& error,
                         const std::string& status) {
  SCOPED_TRACE(bad);
  expectResult(runTasks(bad), output, error, status);
}

void Findings::expectBadRefused(const std::string& error) {
  expectBad("", error, "exit 255");
}

void Findings::expectFixed(const std::string& output, const std::string& error) {
  SCOPED_TRACE(fixed);
  expectResult(runTasks(fixed), output, error, "exit 0");
}

// The child writes the inherited "Calling" line once more, before or after the parent's second
// line.
void Findings::expectBadNotExecuted(const std::string& command, const std::string& error) {
  SCOPED_TRACE(bad);
  const ProcessResult result = runTasks(bad);
  const std::string line = calling(command, runFolder_);
  const std::string output = withoutPids(result.output);
  EXPECT_TRUE(output == line + line + processStarted || output == line + processStarted + line)
      << output;
  EXPECT_EQ(result.error,
            error + cannotExecute(command, "No such file or directory") + exitCodeLine(-127));
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
}

void Findings::expectPing(const std::string& sample, int elapsed, const std::string& error,
                          const std::string& status) const {
  SCOPED_TRACE(sample + " " + std::to_string(elapsed));
  expectResult(runRequest(sample, {"-o", "PingTask", "-e", std::to_string(elapsed)}), "", error,
               status);
}

void Findings::expectInTime(const std::string& sample, int elapsed) const {
  expectPing(sample, elapsed, "", "exit 0");
}

void Findings::expectTimeOut(const std::string& sample, int elapsed) const {
  expectPing(sample, elapsed, "Runlet adapter: Ping task time out.\n", "exit 255");
}

std::string Findings::called(const std::string& commandLine) const {
  return calling(commandLine, runFolder_) + processStarted;
}

void Findings::writeScript(const std::string& name, const std::string& text) const {
  folder_.write(name, text, 0755);
}

}  // namespace runlet_test
