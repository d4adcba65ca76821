// Job files with one fault each and their mended twins, tests/tool/samples/CODE/bad.xml and
// mended.xml: what runlet-job finds in them, and what the adapter does with them.
//
// In a sample "@FOLDER@" is the folder of the test, and "@2000@" for as many letters "x".
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
  int line = 0;  // 0 = of no place in the file
  int column = 0;
  std::string text;
  std::string tasks;  // empty = not about tasks

  bool operator==(const Found&) const = default;
};

// What is found in a job file, in short.
struct Summary {
  std::string codes;  // with spaces between them
  int errors = 0;     // that keep a task from being started
  int tasks = 0;
};

std::ostream& operator<<(std::ostream& out, const Found& found);

std::string samplesFolder();

extern const std::string bad;
extern const std::string mended;

// An account that is not root's and has no group but its own, where a job can be without a finding.
struct Account {
  unsigned uid = 0;
  unsigned gid = 0;
  std::string group;  // name of the group
};

// One that this system has; the same every time.
const Account& plainAccount();

// A test is named after the finding that it is about, and that names the folder of its samples.
class Findings : public AdapterTest {
 protected:
  // What runlet-job finds in the bad job file, given its options. In the mended one it finds
  // nothing.
  void expectFound(const std::vector<Found>& findings);
  void expectCheck(const std::string& sample, const std::vector<Found>& findings);

  // What is said of the bad job file holds this text: the value that is really taken, or what to
  // write.
  void expectTold(const std::string& text);

  Summary summaryOf(const std::string& sample) const;

  // What the adapter writes for all tasks of the job, as expectResult has it.
  void expectBad(const std::string& output, const std::string& error = "",
                 const std::string& status = "exit 0");
  void expectMended(const std::string& output, const std::string& error = "");

  // The request is given up at once.
  void expectBadRefused(const std::string& error);

  // The only task has no program to execute; `error` comes before what is written of that.
  void expectBadNotExecuted(const std::string& command, const std::string& error = "");

  // The adapter is asked whether so many milliseconds are within the limit of a task.
  void expectInTime(const std::string& sample, int elapsed) const;
  void expectTimeOut(const std::string& sample, int elapsed) const;

  // What the adapter writes for a task, but for the task's own output.
  std::string called(const std::string& commandLine) const;

  // Prepares a start of either program further.
  virtual void prepare(ProcessOptions* options) const;

  // Writes the file `name`, which everybody may execute.
  void writeScript(const std::string& name, const std::string& text) const;

  // All that comes out of the adapter for all tasks of the job.
  ProcessResult runTasks(const std::string& sample) const;

  Strings options_;                     // for both programs: -a, -u
  bool host_ = false;                   // with --host
  bool bareName_ = false;               // the job file is given without its folder
  bool unprivileged_ = false;           // the adapter has no rights, whoever runs the tests
  std::string startFolder_ = folder();  // of both programs
  int badTasks_ = -1;                   // tasks of the bad job file; -1 = one for each Params
  std::string runFolder_ = folder();    // in what the adapter writes
  // In place of the samples, where there is a text of that name.
  std::map<std::string, std::string> given_;

 private:
  std::string jobName(const std::string& sample) const;
  // The sample with everything in its place but the ids.
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
