// A random job with everything it needs, and runs of both programs on it.
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

// Id of the user and group that serve as "another user" if the tests run as root.
inline constexpr std::uint32_t otherId = 65534;

// The kind of jobs to draw.
struct Kind {
  runlet_model::Oddness odd;
  unsigned rough = 0;          // how often, in percent, texts have unusual white space and bytes
  unsigned otherPrograms = 0;  // how often the program is not the recorder
  unsigned shellPath = 0;      // how often the application path is special to a shell
  // Cases that would hardly ever occur by chance, and how often, in percent:
  unsigned scripts = 0;       // the program is a script: valid, or without its interpreter
  unsigned emptyProgram = 0;  // the program has no name
  unsigned bareJobFile = 0;   // the job file is given without a folder
  unsigned lostValue = 0;     // the command has a parameter without a value
};

// A third of them without intentional faults, the others of all kinds.
const Kind& anyKind(runlet_model::Random* random);
// Jobs whose programs, folders and users exist.
const Kind& kindOnCompleteMachine(runlet_model::Random* random);

// The requested range of tasks.
struct Range {
  std::optional<std::int32_t> first;
  std::optional<std::int32_t> count;
};
Range anyRange(runlet_model::Random* random);

// A child that became the recorder.
struct RecordedChild {
  Strings arguments;
  std::string folder;
  std::string text;  // its recorded state, without its process id
};

// The result of a request.
struct AdapterRun {
  std::string output;
  std::string error;
  std::string status;                             // "exit 0", "signal 6"
  Strings announced;                              // process ids, in the order of their lines
  std::map<std::string, RecordedChild> children;  // by process id
  std::optional<Strings> shellCommands;           // if they can be recorded

  bool wasRefused() const {
    return status == "exit 255";
  }
  bool wasAborted() const {
    return status == "signal 6";
  }
};

// The result of one task, whoever started it.
struct TaskRun {
  ProcessResult result;
  std::map<std::string, RecordedChild> children;  // by process id
  Strings shellCommands;
  std::optional<std::int32_t> group;      // that the adapter switched to
  std::optional<std::int32_t> user;       // likewise; no value if it was looked up
  std::map<std::string, unsigned> modes;  // of all files, at the end
};

// `text` with "\xNN" for unprintable bytes, and with its newlines.
std::string visibleLines(const std::string& text);

// The number of occurrences of `part` in `text`.
std::size_t countOf(const std::string& part, const std::string& text);

class Scene {
 public:
  // With `mayLackRights` a quarter of root's requests are started as another user.
  Scene(runlet_model::Random* random, const Kind& kind, bool mayLackRights);

  // Requests that range, or all tasks without one, like runlet-job.
  AdapterRun runAdapter(const Range& range) const;

  // Runs runlet-job with these words, followed by the job and the options of the request.
  ProcessResult runTool(const Strings& words, const Range& range = {}) const;

  // Only task `number`, with the job's full path, and without a user name. The modes of the files
  // are reset before each run. If the adapter may not switch users, it is made to believe that it
  // has: then it runs the task as itself.
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

  // For reproducing a case by hand.
  std::string description() const;

 private:
  void changeProgram(runlet_model::Random* random);
  void makeRare(runlet_model::Random* random, const Kind& kind);
  static std::string makeDeepFolder(const TempFolder& base);
  std::string inScene(const std::string& name) const;  // relative to `base_`
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
  // Deep enough that each task of a request may enter the parent folder and still be within the
  // scene: relative programs are run and changed there.
  const std::string folder_ = makeDeepFolder(base_);
  runlet_model::Case case_;
  std::string jobFile_;
  std::string appPath_;
  std::string userName_;
  Strings scripts_;  // the texts of scripts; empty = valid and unusual ones
};

}  // namespace runlet_test
