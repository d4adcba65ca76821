// Where output goes, and in which order if two processes write to the same place.

#include <fcntl.h>
#include <unistd.h>

#include <set>

#include "adapter_test.h"

namespace runlet_test {
namespace {

using Strings = std::vector<std::string>;

class Streams : public AdapterTest {
 protected:
  // Sends the adapter's outputs to files that the test can look at while the adapter runs.
  ProcessOptions toFiles(const Strings& arguments) const {
    ProcessOptions options = adapter(arguments);
    options.prepare = [this] {
      openAs(STDOUT_FILENO, output_, O_WRONLY | O_CREAT | O_TRUNC);
      openAs(STDERR_FILENO, error_, O_WRONLY | O_CREAT | O_TRUNC);
    };
    return options;
  }

  ProcessResult runToFiles(const Job& job, int count = 1) {
    write(job);
    ProcessResult result = runProcess(toFiles(newTask(1, count)));
    result.output = readFile(output_);
    result.error = readFile(error_);
    return result;
  }

  const std::string output_ = folder_.file("output");
  const std::string error_ = folder_.file("error");
};

// All output of tasks that cannot be executed: each child exits normally and so writes the
// "Calling" line from its copy of the buffer, before or after the two lines of the adapter itself.
std::set<std::string> outputsOfMissingPrograms(const Strings& callings) {
  std::set<std::string> outputs = {""};
  for (const std::string& line : callings) {
    std::set<std::string> longer;
    for (const std::string& output : outputs) {
      longer.insert(output + line + line + processStarted);
      longer.insert(output + line + processStarted + line);
    }
    outputs = longer;
  }
  return outputs;
}

std::string reportOf(const std::string& command,
                     const std::string& reason = "No such file or directory") {
  return cannotExecute(command, reason) + exitCodeLine(-127);
}

TEST_F(Streams, HoldTheCallingLineOfAFailingChildTwiceForEachTask) {
  for (const bool redirect : {true, false}) {
    for (const bool toFile : {true, false}) {
      SCOPED_TRACE(toFile ? "to files" : "to pipes");
      Job job;
      job.arguments = "./missing %tn";
      job.tasks.assign(2, "t");
      job.set("redirectStderr", redirect ? "yes" : "no");
      write(job);
      const ProcessResult result = toFile ? runToFiles(job, 2) : run(newTask(1, 2));
      const auto possible = outputsOfMissingPrograms(
          {calling("./missing 1", folder()), calling("./missing 2", folder())});
      EXPECT_EQ(possible.count(withoutPids(result.output)), 1U) << result.output;
      EXPECT_EQ(result.error, reportOf("./missing 1") + reportOf("./missing 2"));
      EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
    }
  }
}

TEST_F(Streams, HoldTheCallingLineTwiceForALineWithoutAWord) {
  const ProcessResult result = runCommand("");
  const auto possible = outputsOfMissingPrograms({calling("", folder())});
  EXPECT_EQ(possible.count(withoutPids(result.output)), 1U) << result.output;
  EXPECT_EQ(result.error, reportOf(""));
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
}

// With an application path and a line that begins with a space, the folder itself is the program.
TEST_F(Streams, HoldTheCallingLineTwiceForAFolderAsTheProgram) {
  const std::string bin = folder_.makeFolder("bin", 0700) + "/";
  Job job;
  job.arguments = " render -x";
  write(job);
  Strings arguments = newTask();
  arguments.insert(arguments.end(), {"-a", bin + "tool"});
  const ProcessResult result = run(arguments);
  const std::string command = bin + " render -x";
  const auto possible = outputsOfMissingPrograms({calling(command, folder())});
  EXPECT_EQ(possible.count(withoutPids(result.output)), 1U) << result.output;
  EXPECT_EQ(result.error, reportOf(command, "Permission denied"));
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
  EXPECT_EQ(modeOf(bin), 0755);
}

// A later task that does run repeats nothing of the failed one.
TEST_F(Streams, HoldNothingTwiceAfterAFailedTask) {
  folder_.write("2", "#!/bin/sh\nexit 0\n", 0755);
  Job job;
  job.arguments = "./%tn";
  job.tasks.assign(2, "t");
  write(job);
  const ProcessResult result = run(newTask(1, 2));
  std::set<std::string> possible;
  for (const std::string& output : outputsOfMissingPrograms({calling("./1", folder())})) {
    possible.insert(output + calling("./2", folder()) + processStarted);
  }
  EXPECT_EQ(possible.count(withoutPids(result.output)), 1U) << result.output;
  EXPECT_EQ(result.error, reportOf("./1"));
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
}

// The "Calling" line stays in the buffer while chmod runs, and is written with the next line.
TEST_F(Streams, HoldTheCallingLineBackUntilTheProcessIsStarted) {
  const std::string bin = folder_.makeFolder("bin") + "/";
  folder_.write("bin/render;echo", "#!/bin/sh\nexit 0\n", 0755);
  Job job;
  job.arguments = "render;echo -x";
  write(job);
  Strings arguments = newTask();
  arguments.insert(arguments.end(), {"-a", bin});
  const ProcessResult result = run(arguments);
  EXPECT_EQ(withoutPids(result.output),
            "\n" + calling(bin + "render;echo -x", folder()) + processStarted);
  EXPECT_EQ(result.error, chmodError(bin + "render"));
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
}

// Both lines are written while the child still runs: the child waits for them.
TEST_F(Streams, HoldBothLinesBeforeTheOutputOfAPatientTask) {
  Job job;
  job.arguments =
      "/bin/sh -c \"while [ -e job.xml ] && ! grep -q '^.ServerMessage' output; do sleep 0.01; "
      "done; echo task\"";
  const ProcessResult result = runToFiles(job);
  EXPECT_EQ(withoutPids(result.output),
            calling(job.arguments, folder()) + processStarted + "task\n");
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
}

// The child's descriptors by number and target: standard error joined to standard output and the
// old one kept under the lowest free number, or only the three.
TEST_F(Streams, OfTheChildAreTheAdaptersOwn) {
  const struct {
    const char* redirect;
    Strings descriptors;
  } rows[] = {
      {"yes", {"0 /dev/null", "1 " + output_, "2 " + output_, "3 " + error_}},
      {"no", {"0 /dev/null", "1 " + output_, "2 " + error_}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.redirect);
    Job job;
    job.arguments = probe();
    job.set("redirectStderr", row.redirect);
    expectResult(runToFiles(job), calling(probe(), folder()) + processStarted, "", "exit 0");
    EXPECT_EQ(report()["descriptor"], row.descriptors);
  }
}

TEST_F(Streams, KeepTheOldStandardErrorWithinTheChildsReach) {
  const std::string command = "/bin/sh -c \"echo joined 1>&2; echo old 1>&3\"";
  expectResult(runCommand(command), calling(command, folder()) + processStarted + "joined\n",
               "old\n", "exit 0");
}

TEST_F(Streams, GiveTheChildTheAdaptersInput) {
  Job job;
  job.arguments = "/bin/cat";
  write(job);
  const std::string input = folder_.write("input", "line\nrest");
  ProcessOptions options = adapter(newTask());
  options.prepare = [&] { openAs(STDIN_FILENO, input, O_RDONLY); };
  const ProcessResult result = runProcess(options);
  // The last line has no newline, so the order of the two writers matters.
  const std::string lines = calling("/bin/cat", folder()) + processStarted;
  const std::string output = withoutPids(result.output);
  EXPECT_TRUE(output == lines + "line\nrest" || output == "line\nrest" + lines) << output;
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(describeStatus(result.waitStatus), "exit 0");
}

// No text from a job or the server is used as a format.
TEST_F(Streams, ShowNamesWithPercentSignsUnchanged) {
  const std::string odd = folder_.makeFolder("%s%n%d");
  Job job;
  job.arguments = "/bin/true %%s%%n%%d";
  job.set("WorkingFolder", odd);
  write(job);
  expectResult(run(newTask()), calling("/bin/true %s%n%d", odd) + processStarted, "", "exit 0");

  job.set("WorkingFolder", odd + "/%s");
  write(job);
  expectResult(run(newTask()), "", cannotEnter(odd + "/%s", "No such file or directory"),
               "exit 255");

  const std::string missing = odd + "/%s%n.xml";
  expectResult(run({"-o", "NewTask", "-s", "1", "-j", missing}), "",
               "Runlet adapter: Could not load parameter file " + missing +
                   ". Error='Failed to open file'.Exiting.\n",
               "exit 255");

  const ProcessResult result = runCommand("%%s%%n");
  EXPECT_EQ(result.error, reportOf("%s%n"));
}

}  // namespace
}  // namespace runlet_test
