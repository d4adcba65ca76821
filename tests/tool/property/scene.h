// A random job with all that it needs around it, and both programs run on it.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "generator.h"
#include "process.h"
#include "random.h"
#include "temp_folder.h"

namespace runlet_test {

using Strings = std::vector<std::string>;

// Id of the user and group that stand for "another user" where the tests run as root.
inline constexpr std::uint32_t otherId = 65534;

// What kind of jobs are drawn.
struct Kind {
  runlet_model::Oddness odd;
  unsigned rough = 0;  // how often, in percent, texts have white space and bytes of all sorts
  unsigned otherPrograms = 0;  // how often the program is another one than the recorder
  unsigned shellPath = 0;      // how often the application's path means something to a shell
  // What would hardly ever come about by chance, and how often, in percent:
  unsigned scripts = 0;       // the program is a script: a good one, or without its interpreter
  unsigned emptyProgram = 0;  // the program has no name
  unsigned bareJobFile = 0;   // the job file is given by its name alone
  unsigned lostValue = 0;     // the command has a parameter without a value
};

// A third of them without a fault on purpose, the others of all kinds.
const Kind& anyKind(runlet_model::Random* random);
// Those whose programs, folders and users are there.
const Kind& kindWithoutTheMachine(runlet_model::Random* random);

// The range of tasks that is asked for.
struct Range {
  std::optional<std::int32_t> first;
  std::optional<std::int32_t> count;
};
Range anyRange(runlet_model::Random* random);

// A child that became the recorder.
struct RecordedChild {
  Strings arguments;
  std::string folder;
  std::string text;  // all that it found out about itself, without its process id
};

// What a request came to.
struct AdapterRun {
  std::string output;
  std::string error;
  std::string status;                             // "exit 0", "signal 6"
  Strings announced;                              // process ids, in the order of their lines
  std::map<std::string, RecordedChild> children;  // by process id
  std::optional<Strings> shellCommands;           // where they can be seen

  bool wasRefused() const {
    return status == "exit 255";
  }
  bool wasAborted() const {
    return status == "signal 6";
  }
};

// What one task came to, whoever started it.
struct TaskRun {
  ProcessResult result;
  std::map<std::string, RecordedChild> children;  // by process id
  Strings shellCommands;
  std::optional<std::int32_t> group;      // that the adapter asked the system for
  std::optional<std::int32_t> user;       // likewise; not where it looked for one itself
  std::map<std::string, unsigned> modes;  // of all files, at the end
};

// `text` with "\xNN" for what is not printable, and with its line ends.
std::string visibleLines(const std::string& text);

// How often `part` stands in `text`.
std::size_t countOf(const std::string& part, const std::string& text);

class Scene {
 public:
  // With `mayLackRights` a quarter of the requests of root are started as another user.
  Scene(runlet_model::Random* random, const Kind& kind, bool mayLackRights);

  // Asks for that range, all tasks without one, as runlet-job takes it.
  AdapterRun runAdapter(const Range& range) const;

  // Runs runlet-job with these words, the job and the options of the request.
  ProcessResult runTool(const Strings& words, const Range& range = {}) const;

  // The task `number` alone, of the job by its full path, and without the name of a user. Each run
  // finds the files with the modes that they have at first. The adapter is told that it has become
  // whom it wants to be where it may not: then it runs the task as itself.
  TaskRun runTaskByAdapter(std::int32_t number) const;
  TaskRun runTaskByExec(std::int32_t number) const;

  const std::string& jobFile() const {
    return jobFile_;
  }
  std::string fullJobFile() const;
  const std::string& folder() const {
    return folder_;
  }
  bool isUnprivileged() const {
    return case_.isUnprivileged;
  }

  // For somebody who wants to try it by hand.
  std::string description() const;

 private:
  void changeProgram(runlet_model::Random* random);
  void makeRare(runlet_model::Random* random, const Kind& kind);
  static std::string makeDeepFolder(const TempFolder& base);
  std::string inScene(const std::string& name) const;  // seen from `base_`
  void makeFolders() const;
  void makeRecorder(const std::string& folder) const;
  void makePrograms(runlet_model::Random* random, bool withShellPaths) const;
  Strings goodScripts() const;
  void writeScript(runlet_model::Random* random, const std::string& name, unsigned mode) const;
  Strings options(const Range& range) const;
  ProcessOptions program(const std::string& path, const Strings& words) const;
  ProcessResult run(const std::string& path, const Strings& words) const;
  Strings applicationOption() const;
  TaskRun runTask(const ProcessOptions& options) const;
  std::map<std::string, unsigned> modes() const;

  TempFolder base_;
  // So deep that each task of a request may go to the folder above and still be with us: relative
  // programs are run there, and changed.
  const std::string folder_ = makeDeepFolder(base_);
  runlet_model::Case case_;
  std::string jobFile_;
  std::string appPath_;
  std::string userName_;
  Strings scripts_;  // the texts that scripts have; empty: good ones and odd ones
};

}  // namespace runlet_test
