#include "farm.h"

#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iomanip>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "programs.h"

namespace runlet_test {
namespace {

// The folder of the clusters, from what scripts/slurm-test sets.
std::filesystem::path clusters() {
  const char* configuration = std::getenv("SLURM_CONF");
  if (configuration == nullptr) throw std::runtime_error("start this with scripts/slurm-test");
  return std::filesystem::path(configuration).parent_path().parent_path();
}

// The value after `name` and "=" in a line of scontrol.
std::string valueOf(const std::string& name, const std::string& line) {
  std::smatch match;
  const std::regex form("(?:^| )" + name + "=([^ ]*)");
  return std::regex_search(line, match, form) ? match[1].str() : "";
}

bool isNumber(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

Element elementOf(const std::string& line) {
  return {valueOf("JobState", line), valueOf("ExitCode", line), valueOf("NodeList", line),
          valueOf("JobId", line)};
}

pid_t parentIn(const std::string& stat) {
  const std::size_t name = stat.rfind(") ");
  return name == std::string::npos ? -1 : std::atoi(stat.c_str() + name + 4);
}

}  // namespace

FarmTest::FarmTest(const std::string& cluster)
    : cluster_(clusters() / cluster),
      tool_(clusters() / "bin/runlet-job"),
      probe_(clusters() / "bin/runlet_probe"),
      farmTask_(clusters() / "bin/runlet_farm_task"),
      folder_(clusters()) {}

void FarmTest::SetUp() {
  ASSERT_EQ(geteuid(), 0U) << "needs root";
  // The tasks run as nobody
  std::filesystem::permissions(folder(), std::filesystem::perms::all);
}

void FarmTest::TearDown() {
  for (const char* user : {"root", "nobody"})
    ask({"/usr/bin/scancel", std::string("--user=") + user});
  EXPECT_TRUE(eventually([&] { return queue().empty(); })) << queue();
}

Job FarmTest::jobOf(const std::vector<std::string>& commands) {
  Job job;
  job.arguments = "%tp1";
  job.tasks = commands;
  return job.set("uid", "65534").set("gid", "65534").set("TaskTimeout", "10");
}

Job FarmTest::reportingJob(int count, const std::string& actions) const {
  Job job = jobOf(Lines(static_cast<std::size_t>(count), "task"));
  job.arguments = reportingCommand("%tn", actions);
  return job;
}

std::string FarmTest::reportingCommand(const std::string& task, const std::string& actions) const {
  const std::string command = farmTask_ + " " + (actions.empty() ? "" : actions + " ");
  return command + "report:out-" + task + " " + task;
}

Job FarmTest::fixableJob(int count, const std::set<int>& failing) const {
  Job job = reportingJob(count, "need:%tp1");
  for (int task = 1; task <= count; ++task) {
    job.tasks[static_cast<std::size_t>(task - 1)] = failing.contains(task) ? "fixed" : ".";
  }
  return job;
}

void FarmTest::fix() const {
  folder_.write("fixed", "");
}

Lines FarmTest::reportsOf(int task) const {
  Lines lines = linesOf(log("out-" + std::to_string(task)));
  for (std::string& line : lines) line.erase(0, line.find(' ') + 1);
  return lines;
}

Lines FarmTest::nodesOfReports(int count) const {
  std::set<std::string> nodes;
  for (int task = 1; task <= count; ++task) {
    for (const std::string& line : linesOf(log("out-" + std::to_string(task)))) {
      nodes.insert(line.substr(0, line.find(' ')));
    }
  }
  return {nodes.begin(), nodes.end()};
}

void FarmTest::expectEachReportedOnce(int count, const std::set<int>& missing) const {
  for (int task = 1; task <= count; ++task) {
    const std::string number = std::to_string(task);
    const Lines lines = reportsOf(task);
    const bool isDone =
        lines.size() == 1 && lines[0].ends_with("report:out-" + number + " " + number);
    EXPECT_TRUE(missing.contains(task) ? lines.empty() : isDone)
        << "task " << number << ": " << log("out-" + number);
  }
}

void FarmTest::write(const Job& job) const {
  folder_.write("job.xml", job.text());
}

ProcessOptions FarmTest::program(const std::vector<std::string>& arguments) const {
  ProcessOptions options;
  options.arguments = arguments;
  options.environment = {{"PATH", "/usr/bin:/bin:/usr/sbin:/sbin"},
                         {"SLURM_CONF", cluster_ + "/slurm.conf"}};
  options.folder = folder();
  options.patience = std::chrono::minutes(2);
  return options;
}

ProcessOptions FarmTest::submission(const std::vector<std::string>& arguments) const {
  std::vector<std::string> all = {tool_, "submit", jobFile_};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return program(all);
}

ProcessResult FarmTest::submit(const std::vector<std::string>& arguments) const {
  return runProcess(submission(arguments));
}

Lines FarmTest::submitted(const std::vector<std::string>& arguments,
                          const std::string& error) const {
  const ProcessResult result = submit(arguments);
  EXPECT_EQ(result.error, error);
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
  const Lines ids = linesOf(result.output);
  for (const std::string& id : ids) EXPECT_TRUE(isNumber(id)) << result.output;
  return ids;
}

std::string FarmTest::submittedOne(const std::vector<std::string>& arguments,
                                   const std::string& error) const {
  const Lines ids = submitted(arguments, error);
  EXPECT_EQ(ids.size(), 1U);
  return ids.size() == 1 ? ids[0] : "";
}

std::string FarmTest::ask(const std::vector<std::string>& arguments) const {
  const ProcessResult result = runProcess(program(arguments));
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0") << arguments[0] << ": " << result.error;
  return result.output;
}

std::map<int, Element> FarmTest::elementsOf(const std::string& id) const {
  std::map<int, Element> elements;
  for (const std::string& line : linesOf(ask({"/usr/bin/scontrol", "show", "job", "-o", id}))) {
    const std::string index = valueOf("ArrayTaskId", line);
    if (isNumber(index)) elements[std::stoi(index)] = elementOf(line);
  }
  return elements;
}

std::string FarmTest::queueOf(const std::string& id) const {
  return ask({"/usr/bin/squeue", "-h", "-r", "-j", id});
}

std::string FarmTest::queue() const {
  return ask({"/usr/bin/squeue", "-h", "-r"});
}

void FarmTest::awaitEnd(const std::string& id) const {
  EXPECT_TRUE(eventually([&] { return queueOf(id).empty(); })) << queueOf(id);
}

std::string FarmTest::nextJobId() const {
  std::smatch match;
  const std::string settings = ask({"/usr/bin/scontrol", "show", "config"});
  return std::regex_search(settings, match, std::regex("NEXT_JOB_ID += ([0-9]+)")) ? match[1].str()
                                                                                   : "";
}

std::vector<ClusterProcess> FarmTest::processes() const {
  std::vector<ClusterProcess> found;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const pid_t pid = std::atoi(entry.path().filename().c_str());
    const std::string environment = readFile(entry.path() / "environ");
    if (pid <= 0 || !holds(environment, "SLURM_CONF=" + cluster_ + "/slurm.conf")) continue;
    found.push_back({pid, parentIn(readFile(entry.path() / "stat")),
                     readFile(entry.path() / "cmdline"), environment});
  }
  return found;
}

void FarmTest::callCluster(const std::string& function,
                           const std::vector<std::string>& arguments) const {
  const std::string functions = std::string(sourceFolder) + "/tests/slurm/cluster.sh";
  std::vector<std::string> all = {"/bin/bash", "-c",    ". \"$1\"; shift; \"$@\"", "-", functions,
                                  function,    cluster_};
  all.insert(all.end(), arguments.begin(), arguments.end());
  ask(all);
}

bool holds(const std::string& words, const std::string& word) {
  return ('\0' + words).find('\0' + word + '\0') != std::string::npos;
}

Lines linesOf(const std::string& text) {
  Lines lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

std::string firstLine(const std::string& text) {
  return text.substr(0, text.find('\n'));
}

bool eventually(const std::function<bool()>& holds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (!holds()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return true;
}

std::string padded(int number, int digits) {
  std::ostringstream text;
  text << std::setw(digits) << std::setfill('0') << number;
  return text.str();
}

std::string summaryOf(int task, const std::string& ending, const std::string& command,
                      const std::string& log) {
  std::string lines = "task " + std::to_string(task);
  return lines.append(": ")
             .append(ending)
             .append(": ")
             .append(command)
             .append("\n  log: ")
             .append(log) +
         "\n";
}

std::string calling(const std::string& command, const std::string& folder) {
  std::string line = "Calling '";
  return line.append(command).append("' from '").append(folder).append("'\n");
}

}  // namespace runlet_test
