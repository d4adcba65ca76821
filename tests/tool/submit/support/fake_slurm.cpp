#include "fake_slurm.h"

#include <grp.h>
#include <unistd.h>

#include <filesystem>

#include "adapter_test.h"
#include "tool/slurm/arrays.h"

namespace runlet_test {
namespace {

// Its folder is the parent of the programs' folder.
constexpr char script[] = R"sh(#!/bin/sh
me=${0##*/}
here=${0%/*}/..
n=1
while [ -e "$here/calls/$me.$n" ]; do n=$((n + 1)); done
[ "$me" = sbatch ] && /bin/cat /dev/stdin > "$here/calls/$me.$n.input"
printf '%s\0' "$@" > "$here/calls/$me.$n"
answer=$here/replies/$me.$n
[ -e "$answer" ] || answer=$here/replies/$me
[ ! -e "$answer" ] || . "$answer"
)sh";

std::vector<std::string> split(const std::string& text) {
  std::vector<std::string> parts;
  for (std::size_t at = 0; at < text.size(); at += parts.back().size() + 1) {
    parts.emplace_back(text.c_str() + at);
  }
  return parts;
}

}  // namespace

FakeSlurm::FakeSlurm(const TempFolder& folder) : folder_(folder) {
  folder_.makeFolder("slurm");
  folder_.makeFolder("slurm/calls", 0777);
  folder_.makeFolder("slurm/replies");
  bin_ = folder_.makeFolder("slurm/bin");
  for (const char* program : {"sbatch", "squeue", "sacct", "scontrol", "scancel"}) {
    folder_.write(std::string("slurm/bin/") + program, script, 0755);
  }
}

void FakeSlurm::reply(const std::string& program, const std::string& text) const {
  folder_.write("slurm/replies/" + program, text);
}

void FakeSlurm::reply(const std::string& program, int number, const std::string& text) const {
  reply(program + "." + std::to_string(number), text);
}

std::vector<std::vector<std::string>> FakeSlurm::calls(const std::string& program) const {
  std::vector<std::vector<std::string>> calls;
  for (int number = 1;; ++number) {
    const std::string file = folder_.file("slurm/calls/" + program + "." + std::to_string(number));
    if (!std::filesystem::exists(file)) return calls;
    calls.push_back(split(readFile(file)));
  }
}

std::string FakeSlurm::input(const std::string& program, int number) const {
  return readFile(folder_.file("slurm/calls/" + program + "." + std::to_string(number) + ".input"));
}

void FakeSlurm::remove(const std::string& program) const {
  std::filesystem::remove(bin_ + "/" + program);
}

Job SubmitTest::quietJob(int taskCount) {
  Job job;
  job.set("TaskTimeout", "5");
  job.arguments = "/bin/true %tp1";
  job.tasks.clear();
  for (int i = 1; i <= taskCount; ++i) {
    job.tasks.emplace_back("f").append(std::to_string(i));
  }
  return job;
}

void SubmitTest::write(const Job& job) const {
  folder_.write("job.xml", job.text());
}

ProcessOptions SubmitTest::submit(const std::vector<std::string>& arguments) const {
  ProcessOptions options = tool({"submit", jobFile_});
  options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
  options.environment = {{"PATH", slurm_.path()}};
  return options;
}

ProcessResult SubmitTest::run(const std::vector<std::string>& arguments) const {
  return runProcess(submit(arguments));
}

ProcessOptions SubmitTest::unprivileged(const std::vector<std::string>& arguments) const {
  ProcessOptions options = submit(arguments);
  if (geteuid() != 0) return options;
  options.program = folder_.file("runlet-job");
  std::filesystem::copy_file(toolPath, options.program);
  options.prepare = [] {
    if (setgroups(0, nullptr) != 0 || setgid(otherId) != 0 || setuid(otherId) != 0) _exit(97);
  };
  return options;
}

void SubmitTest::expectSubmit(const std::vector<std::string>& arguments, const std::string& output,
                              const std::string& error, const std::string& status) const {
  expectTool(run(arguments), output, withWarning(error), status);
}

std::string SubmitTest::withWarning(const std::string& error) const {
  if (geteuid() != 0) return error;
  return "runlet-job: submit: 1 warning; see: runlet-job check " + jobFile_ + "\n" + error;
}

std::vector<std::string> SubmitTest::plainArguments(const std::string& elements, int elementCount,
                                                    int taskCount) const {
  const std::string digits = std::to_string(std::to_string(taskCount).size());
  const std::string numbers =
      "0:1:" + std::to_string(taskCount) + ":" + std::to_string(elementCount);
  return {"--parsable",
          "--comment=" + comment(numbers),
          "--job-name=job",
          "--array=" + elements,
          "--requeue",
          "--open-mode=truncate",
          "--output=" + folder_.file("job-%" + digits + "a.log"),
          "--chdir=" + folder_.path(),
          "--time=5",
          "/dev/stdin",
          ownPath(),
          jobFile_,
          "0"};
}

std::string SubmitTest::comment(const std::string& numbers) const {
  return "runlet-job:" + numbers + ":" + runlet_tool::jobHash(jobFile_);
}

std::string ownPath() {
  return std::filesystem::canonical(toolPath).string();
}

}  // namespace runlet_test
