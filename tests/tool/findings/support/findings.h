// Job files with one fault each and their corrected versions, tests/tool/samples/CODE/bad.xml and
// fixed.xml: what runlet-job finds in them, and what the adapter does with them.
//
// In a sample "@FOLDER@" is replaced by the folder of the test, and "@2000@" by 2000 letters "x".
#pragma once

#include <iosfwd>
#include <map>
#include <string>
#include <vector>

#include "adapter_test.h"

namespace runlet_test {

using Strings = std::vector<std::string>;

struct Found {
  std::string code;
  std::string severity;
  int line = 0;  // 0 = not about a place in the file
  int column = 0;
  std::string text;
  std::string tasks;  // empty = not about tasks

  bool operator==(const Found&) const = default;
};

// The findings in a job file, in short.
struct Summary {
  std::string codes;  // separated by spaces
  int errors = 0;     // those that prevent a task from being started
  int tasks = 0;
};

std::ostream& operator<<(std::ostream& out, const Found& found);

std::string samplesFolder();

extern const std::string bad;
extern const std::string fixed;

// An account other than root's, without supplementary groups: a job of this user can be without
// findings.
struct Account {
  unsigned uid = 0;
  unsigned gid = 0;
  std::string group;  // name of the group
};

// An account of this system; always the same one.
const Account& plainAccount();

// The name of a test begins with the code of its finding, which is also the folder of its samples.
class Findings : public AdapterTest {
 protected:
  // Asserts what runlet-job finds in the bad job file, with `options_`, and that it finds nothing
  // in the fixed one.
  void expectFound(const std::vector<Found>& findings);
  void expectCheck(const std::string& sample, const std::vector<Found>& findings);

  // Asserts that the output about the bad job file contains this text: the value that is actually
  // used, or what to write.
  void expectOutputContains(const std::string& text);

  Summary summaryOf(const std::string& sample) const;

  // Asserts the result of the adapter for all tasks of the job; see expectResult.
  void expectBad(const std::string& output, const std::string& error = "",
                 const std::string& status = "exit 0");
  void expectFixed(const std::string& output, const std::string& error = "");

  // Asserts that nothing is started.
  void expectBadRefused(const std::string& error);

  // Asserts that the only task has no program to execute; `error` comes before the message about
  // that.
  void expectBadNotExecuted(const std::string& command, const std::string& error = "");

  // Asserts the adapter's answer to whether `elapsed` milliseconds are within the time limit.
  void expectInTime(const std::string& sample, int elapsed) const;
  void expectTimeOut(const std::string& sample, int elapsed) const;

  // What the adapter writes for a task, without the task's own output.
  std::string called(const std::string& commandLine) const;

  // Additional options for starting either program.
  virtual void prepare(ProcessOptions* options) const;

  // Writes the file `name`, executable by everybody.
  void writeScript(const std::string& name, const std::string& text) const;

  // The result of the adapter for all tasks of the job.
  ProcessResult runTasks(const std::string& sample) const;

  Strings options_;                     // for both programs: -a, -u
  bool host_ = false;                   // with --host
  bool bareName_ = false;               // the job file is given without its folder
  bool unprivileged_ = false;           // the adapter is unprivileged, whoever runs the tests
  std::string startFolder_ = folder();  // of both programs
  int badTasks_ = -1;                   // tasks of the bad job file; -1 = one for each Params
  std::string runFolder_ = folder();    // as the adapter writes it
  // Replaces the samples of that name.
  std::map<std::string, std::string> given_;

 private:
  std::string jobName(const std::string& sample) const;
  // The sample with its variables replaced, but not its ids.
  std::string text(const std::string& sample) const;
  void writeSample(const std::string& sample, unsigned uid, unsigned gid) const;
  void writeSampleToCheck(const std::string& sample) const;
  void writeSampleToRun(const std::string& sample) const;
  int tasksOf(const std::string& sample) const;
  ProcessResult check(const std::string& sample, const Strings& more) const;
  ProcessResult runRequest(const std::string& sample, const Strings& request) const;
  void expectPing(const std::string& sample, int elapsed, const std::string& error,
                  const std::string& status) const;
};

}  // namespace runlet_test
