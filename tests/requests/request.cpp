#include "request.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <stdexcept>

#include "job_file.h"
#include "options.h"

namespace runlet_model {
namespace {

constexpr unsigned defaultMask = 022;
constexpr std::size_t outputBuffer = 4096;

// Thrown if a task cannot be started, after its message.
struct NotStarted {};

std::string lineOf(const std::string& text) {
  return text + "\n";
}

// Characters that are not special to a shell.
bool isPlain(const std::string& path) {
  static const std::string plain =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./%:,+@";
  return path[0] != '-' && path.find_first_not_of(plain) == std::string::npos;
}

std::string substringErrorText(const std::string& line) {
  try {
    return line.substr(line.find(' '));
  } catch (const std::out_of_range& error) {
    return terminateText("std::out_of_range", error.what());
  }
}

// The number of the first parameter in `pattern` that has no value.
std::size_t missingParameter(const Lists& lists, const std::string& pattern, std::int32_t task) {
  std::size_t end = 0;
  do {
    end = pattern.find_first_not_of("0123456789", end + 1);
    if (end == std::string::npos) end = pattern.size();
  } while (fillIn(lists, pattern.substr(0, end), task).outcome != Outcome::outOfRange);
  const std::size_t start = pattern.find_last_not_of("0123456789", end - 1) + 1;
  return static_cast<std::size_t>(number(pattern.substr(start, end - start)));
}

std::string checkedAccessText(std::size_t index, std::size_t size) {
  return terminateText("std::out_of_range",
                       "vector::_M_range_check: __n (which is " + std::to_string(index) +
                           ") >= this->size() (which is " + std::to_string(size) + ")");
}

class Run {
 public:
  Run(const Request& request, Machine* machine)
      : request_(request),
        machine_(*machine),
        options_(readOptions(request.arguments)),
        folder_(request.folder),
        identity_(request.caller) {}

  Prediction predict() {
    say(options_.diagnostics);
    if (!options_.diagnostics.empty()) mark("wrong option");
    try {
      finish(dispatch());
    } catch (const Refused& refused) {
      say(refused.message);
      mark(markOf(refused.message));
      finish(false);
    } catch (const NotStarted&) {
      if (launched_ > 1) mark("a later task not started");
      finish(false);
    } catch (const Ended& ended) {
      say(ended.message);
      mark(ended.message.find("length_error") != std::string::npos ? "length error"
           : ended.message.find("substr") != std::string::npos     ? "no space in the line"
                                                                   : "no value for a parameter");
      prediction_.status = "signal 6";
    }
    return prediction_;
  }

 private:
  void say(const std::string& text) {
    prediction_.error += text;
  }
  void mark(const std::string& name) {
    prediction_.marks.insert(name);
  }
  void finish(bool success) {
    prediction_.status = success ? "exit 0" : "exit 255";
  }

  static std::string markOf(const std::string& message) {
    if (message.empty()) return "no job file name";
    if (message.find("Could not load") != std::string::npos) return "could not load";
    return message.find("syntax") != std::string::npos ? "invalid syntax" : "strip brace failed";
  }

  bool dispatch() {
    const std::string& opcode = options_.opcode;
    if (opcode.empty()) {
      mark("no opcode");
      say("Runlet adapter: No opcode at all.\nRunlet adapter: Parse arguments failed.\n");
      return false;
    }
    if (opcode == "GetInfo") return getInfo();
    if (opcode == "NewTask") return newTask();
    if (opcode == "PingTask") return pingTask();
    const bool known = opcode == "EvaluateJob" || opcode == "LaunchApp" || opcode == "PingLaunch" ||
                       opcode == "ShutDown";
    mark(known ? "nothing to do" : "unknown opcode");
    return known;
  }

  bool getInfo() {
    const std::string name = adapterName(request_.arguments[0]);
    mark("information");
    prediction_.output.push_back({"<AdapterInfo>\n\t<Name>" + name +
                                      "</Name>\n\t<Version>400</Version>\n\t<Description>" + name +
                                      " v2023 with user rights</Description>\n</AdapterInfo>\n",
                                  {}});
    return true;
  }

  void load() {
    const std::string& name = options_.jobFile;
    if (name.empty()) throw Refused{""};
    const Place place = machine_.find(identity_, folder_, name);
    if (place.error != 0 || !machine_.mayRead(identity_, place.path)) {
      throw Refused{couldNotLoad(name, "Failed to open file")};
    }
    const Entry& entry = machine_.at(place.path);
    if (entry.kind == EntryKind::folder) throw Refused{couldNotLoad(name, "Is a directory")};
    if (entry.kind == EntryKind::recorder) throw NotCovered("a program as a job file");
    job_ = loadJob(entry.text, name, request_.scratchFile);
    if (job_.lists.paramNames.size() > job_.lists.paramValues.size()) mark("fewer values");
  }

  bool pingTask() {
    load();
    const bool timedOut = isTimedOut(options_.elapsedMs, job_.taskTimeout);
    mark(timedOut ? "timed out" : "within the limit");
    if (timedOut) say("Runlet adapter: Ping task time out.\n");
    return !timedOut;
  }

  bool newTask() {
    load();
    const auto count = static_cast<std::int32_t>(job_.lists.taskList.size());
    for (std::int32_t i = 0; i < count; ++i) {
      if (isInRange(options_.firstTask, options_.taskCount, i)) launch(i);
    }
    mark(launched_ == 0 ? "no task to run" : launched_ == 1 ? "one task" : "several tasks");
    return true;
  }

  void launch(std::int32_t task) {
    ++launched_;
    const std::string runFolder = enterRunFolder();
    const std::string filled = fillInTemplate(task);
    const std::string prefix = options_.appPath.substr(0, options_.appPath.rfind('/') + 1);
    const std::string program = programPath(prefix, filled);
    const std::string line = prefix + filled;
    prediction_.output.push_back({"Calling '" + line + "' from '" + runFolder + "'\n", {}});
    if (!program.empty()) makeExecutable(program);
    changeIdentity();
    mask_ = static_cast<unsigned>(job_.umask) & 0777U;
    runChild(line);
  }

  std::string enterRunFolder() {
    const std::string runFolder = job_.workingFolder.empty()
                                      ? options_.jobFile.substr(0, options_.jobFile.rfind('/'))
                                      : job_.workingFolder;
    const Place place = machine_.enter(identity_, folder_, runFolder);
    if (place.error != 0) {
      mark(place.error == EACCES ? "folder is closed" : "no such folder");
      fail("Runlet adapter: Could not set working folder : '" + runFolder +
           "': " + std::strerror(place.error));
    }
    folder_ = place.path;
    return runFolder;
  }

  std::string fillInTemplate(std::int32_t task) {
    const Result filled = fillIn(job_.lists, job_.arguments, task);
    if (filled.outcome == Outcome::failed) {
      mark("fill-in failed");
      fail("Runlet adapter: Process fill-in for arguments failed.\n");
    }
    if (filled.outcome == Outcome::outOfRange) {
      const std::size_t number = missingParameter(job_.lists, job_.arguments, task);
      throw Ended{checkedAccessText(number - 1, job_.lists.paramValues.size())};
    }
    return filled.text;
  }

  std::string programPath(const std::string& prefix, const std::string& filled) const {
    if (options_.appPath.empty()) return "";
    const std::size_t space = filled.find(' ');
    if (space == std::string::npos) throw Ended{substringErrorText(filled)};
    return prefix + filled.substr(0, space);
  }

  void makeExecutable(const std::string& program) {
    if (!isPlain(program)) throw NotCovered("special to a shell: " + program);
    const std::string message = machine_.makeExecutable(identity_, folder_, program);
    mark(message.empty() ? "made executable" : "chmod failed");
    say(message);
  }

  [[noreturn]] void fail(const std::string& message) {
    say(message);
    throw NotStarted();
  }

  void changeIdentity() {
    if (job_.gid == -1) {
      mark("no group");
      fail("Cannot set gid -1: No such group");
    }
    const auto gid = static_cast<std::uint32_t>(job_.gid);
    if (const int error = mayBecome(gid, identity_.gid, isGroup(gid))) {
      mark("group refused");
      fail("Cannot set gid " + std::to_string(job_.gid) + ": " + std::strerror(error));
    }
    if (gid != identity_.gid) mark("another group");
    identity_.gid = gid;
    if (job_.uid == -1) job_.uid = lookUpUser();
    const auto uid = static_cast<std::uint32_t>(job_.uid);
    if (const int error = mayBecome(uid, identity_.uid, isUser(uid))) {
      mark("user refused");
      fail("Cannot set uid " + std::to_string(job_.uid) + ": " + std::strerror(error));
    }
    if (uid != identity_.uid) mark("another user");
    identity_.uid = uid;
  }

  // The error of switching a process from `current` to `wanted`; 0 = none.
  int mayBecome(std::uint32_t wanted, std::uint32_t current, bool exists) const {
    if (!exists) return EINVAL;
    return identity_.uid == 0 || wanted == current ? 0 : EPERM;
  }

  std::int32_t lookUpUser() {
    if (options_.userName.empty()) {
      mark("no user name");
      fail("Missing user name");
    }
    std::string reason;
    const std::optional<std::uint32_t> uid = userId(options_.userName, &reason);
    if (!uid) {
      mark("unknown user");
      fail("Cannot obtain info for user " + options_.userName + ":" +
           (reason.empty() ? "No such user" : reason));
    }
    mark("user looked up");
    return static_cast<std::int32_t>(*uid);
  }

  void runChild(const std::string& line) {
    TaskOutput& output = prediction_.output.back();
    const std::string calling = output.ofAdapter;
    output.ofAdapter += "[ServerMessage]ProcessStarted processId=PID\n";
    const std::vector<std::string> vector = words(line);
    const Place program = machine_.execute(identity_, folder_, vector.empty() ? "" : vector[0]);
    int code = 0;
    if (program.error != 0) {
      code = failToExecute(line, program.error, calling);
    } else if (machine_.at(program.path).kind == EntryKind::recorder) {
      code = runRecorder(vector);
    } else {
      code = runScript(machine_.at(program.path));
    }
    if (!output.ofChild.empty() && output.ofAdapter.size() >= outputBuffer) {
      throw NotCovered("a line written in pieces, with output of the child in between");
    }
    if (code > 127) code -= 256;
    if (code == 0) return;
    say("Runlet adapter: Process exit abnormally,Exit code is " + std::to_string(code) + "\n");
    mark("exit code");
  }

  // The child exits normally, and so writes the content of its copy of the buffer.
  int failToExecute(const std::string& line, int error, const std::string& calling) {
    prediction_.output.back().ofChild.push_back(calling);
    say("Runlet adapter: Cannot execute command:'" + line + "':" + std::strerror(error) + "\n");
    mark(error == EACCES ? "program not executable" : "no such program");
    return 129;
  }

  int runScript(const Entry& entry) {
    if (entry.text.rfind("exit ", 0) != 0) throw NotCovered("a job file as a script");
    mark("script ran");
    return std::atoi(entry.text.c_str() + 5);
  }

  // Simulates what the recorder does with its arguments; returns its exit code.
  int runRecorder(const std::vector<std::string>& arguments) {
    mark(job_.redirectStderr ? "ran, errors joined" : "ran, errors apart");
    prediction_.children.push_back({arguments, folder_, mask_, identity_, job_.redirectStderr});
    for (std::size_t i = 1; i < arguments.size(); ++i) {
      const std::string& order = arguments[i];
      if (order.rfind("out:", 0) == 0) write(lineOf(order.substr(4)));
      if (order.rfind("err:", 0) == 0) writeError(lineOf(order.substr(4)));
      if (order == "kill:9" || order == "kill:15") {
        mark("killed");
        return 0;
      }
      if (order.rfind("exit:", 0) == 0) return number(order.substr(5)) & 0xff;
    }
    return 0;
  }

  void write(const std::string& text) {
    prediction_.output.back().ofChild.push_back(text);
    mark("child wrote");
  }

  void writeError(const std::string& text) {
    if (job_.redirectStderr) return write(text);
    say(text);
    mark("child wrote an error");
  }

  const Request& request_;
  Machine& machine_;
  const OptionValues options_;
  LoadedJob job_;
  Prediction prediction_;
  int launched_ = 0;
  // What the adapter has become.
  std::string folder_;
  Identity identity_;
  unsigned mask_ = defaultMask;
};

}  // namespace

Prediction predict(const Request& request, Machine* machine) {
  return Run(request, machine).predict();
}

}  // namespace runlet_model
