// The tasks of random jobs run by runlet-job exec, compared with the adapter.

#include <unistd.h>

#include <algorithm>

#include "property.h"

namespace runlet_test {
namespace {

constexpr char cannotExecute[] = "Runlet adapter: Cannot execute command:'";
constexpr char codeLine[] = "Runlet adapter: Process exit abnormally,Exit code is ";

// Removes the adapter's last line and returns the exit code in it; 0 without one.
int removeExitCode(std::string* error) {
  const std::size_t at = error->rfind(codeLine);
  if (at == std::string::npos) return 0;
  const int code = std::stoi(error->substr(at + std::string(codeLine).size()));
  error->resize(at);
  return code & 0xff;
}

// Removes the adapter's second line about a task from `output`, and returns its position; no value
// without it.
std::optional<std::size_t> removeAnnouncement(std::string* output, std::string* pid) {
  const std::string before = "[ServerMessage]ProcessStarted processId=";
  const std::size_t at = output->rfind(before);
  if (at == std::string::npos) return std::nullopt;
  const std::size_t end = output->find('\n', at);
  *pid = output->substr(at + before.size(), end - at - before.size());
  output->erase(at, end + 1 - at);
  return at;
}

// Whether `output` is the line of `adapters` that ends at `at`, followed by the rest of `adapters`:
// a quick child of the adapter may have written before that line.
bool isLineFirst(const std::string& output, const std::string& adapters, std::size_t at) {
  for (std::size_t length = at; length > 0; --length) {
    const std::size_t start = at - length;
    if (output == adapters.substr(start, length) + adapters.substr(0, start) + adapters.substr(at))
      return output.starts_with("Calling '");
  }
  return false;
}

class ExecComparison {
 public:
  ExecComparison(const Scene& scene, std::int32_t number)
      : scene_(scene),
        number_(number),
        adapter_(scene.runTaskByAdapter(number)),
        exec_(scene.runTaskByExec(number)),
        output_(adapter_.result.output),
        error_(adapter_.result.error),
        at_(removeAnnouncement(&output_, &pid_)) {}

  // False if later tasks cannot have a different result.
  bool compare(Trial* trial) {
    trial_ = trial;
    if (isDanger()) {
      compareDanger();
      return at_.has_value();
    }
    expect(exec_.shellCommands == adapter_.shellCommands, "what the shell is given");
    expect(exec_.modes == adapter_.modes, "modes of the files");
    if (!adapter_.shellCommands.empty()) mark("chmod");
    const std::string status = describeStatus(adapter_.result.waitStatus);
    compareAs(status);
    if (!trial_->differences.empty()) showBoth(status);
    return at_.has_value();
  }

 private:
  // What exec refuses but the adapter does: an id that is root without being a plain 0, and root's
  // chmod of a path from the job that leads elsewhere.
  bool isDanger() const {
    const std::string& error = exec_.result.error;
    return error.starts_with("runlet-job: task not started: ") ||
           error.starts_with("runlet-job: -a ");
  }

  void compareDanger() {
    mark("danger");
    const std::string& error = exec_.result.error;
    const std::string id = error.find(" uid of ") != std::string::npos ? "uid" : "gid";
    const std::string ofId = "runlet-job: task not started: the " + id + " of " +
                             scene_.fullJobFile() +
                             " means root but is not a plain 0; see: runlet-job explain RJ034\n";
    const bool isOfPath = error.find(": with -a ") != std::string::npos ||
                          error.find(" needs a full path\n") != std::string::npos;
    expect(isOfPath ? geteuid() == 0 && !scene_.isUnprivileged() : error == ofId, "standard error");
    expect(exec_.result.output.empty() && exec_.children.empty() && exec_.shellCommands.empty(),
           "something was done");
    expectStatus("exit 125");
    if (!trial_->differences.empty()) showBoth(describeStatus(adapter_.result.waitStatus));
  }

  void compareAs(const std::string& status) {
    if (at_) return compareStarted();
    if (status == "exit 255") return compareRefused();
    if (status == "exit 0") return compareMissing();
    mark("ended");
    expect(status == "signal 6", "end of the adapter");
    expectAll("", error_, "exit 125");
  }

  void compareRefused() {
    const bool isNamed = !scene_.jobFile().empty();
    const std::string nothing = "runlet-job: the path of the job file is empty\n";
    const bool isWhole = error_.ends_with("\n");
    mark(output_.empty() ? "refused" : "refused after the line");
    expectAll(output_, !isNamed ? nothing : isWhole ? error_ : error_ + "\n", "exit 125");
  }

  void compareMissing() {
    mark("no such task");
    expect(output_.empty() && error_.empty(), "the adapter says something about no task");
    const std::string count = std::to_string(number_ - 1) + (number_ == 2 ? " task" : " tasks");
    expectAll("",
              "runlet-job: exec: no task " + std::to_string(number_) + " in " +
                  scene_.fullJobFile() + ", which has " + count + "\n",
              "exit 125");
  }

  void compareStarted() {
    const int code = removeExitCode(&error_);
    const std::string note = this->note();
    std::string error = exec_.result.error;
    // If the system forbids keyrings, as in some containers.
    const std::size_t keyring = error.find("runlet-job: no session keyring for the task: ");
    if (keyring != std::string::npos) error.erase(keyring, error.find('\n', keyring) + 1 - keyring);
    if (!note.empty()) mark("note");
    expect(note.empty() || error.find(note) != std::string::npos, "note: " + note);
    if (!note.empty() && error.find(note) != std::string::npos) {
      error.erase(error.find(note), note.size());
    }
    expect(error == error_, "standard error");
    if (error_.find(cannotExecute) != std::string::npos) return compareNotExecuted(code);
    expect(isLineFirst(exec_.result.output, output_, *at_), "standard output");
    compareChild();
    compareEnd(code);
  }

  // The child of the adapter wrote the line as well.
  void compareNotExecuted(int code) {
    const bool isMissing = error_.ends_with(":No such file or directory\n");
    mark(isMissing ? "not found" : "not executable");
    expect(code == 129, "exit code of the adapter's child");
    expect(output_ == exec_.result.output + exec_.result.output, "calling line");
    expect(adapter_.children.empty() && exec_.children.empty(), "a child");
    expectStatus(isMissing ? "exit 127" : "exit 126");
  }

  void compareChild() {
    const auto child = adapter_.children.find(pid_);
    const auto self = exec_.children.find(std::to_string(exec_.result.pid));
    const bool isRecorded = child != adapter_.children.end();
    mark(isRecorded ? "a recorder" : "a script");
    expect(isRecorded == (self != exec_.children.end()), "a recorder that is the process itself");
    expect(exec_.children.size() == adapter_.children.size(), "number of processes");
    if (!isRecorded || self == exec_.children.end()) return;
    expect(self->second.text == expectedText(child->second.text), "the task: " + self->second.text);
    markChild(child->second);
  }

  // A task of another user has no descriptor of the starter's.
  std::string expectedText(std::string text) const {
    const std::string user = std::string("\nuser ").append(std::to_string(geteuid())).append(" ");
    const bool isOfAnother =
        geteuid() == 0 && !scene_.isUnprivileged() && text.find(user) == std::string::npos;
    // Even if it is separate: the file of the coverage counters then has the next number.
    const std::string_view kept = " and kept";
    const std::size_t place = text.find(kept, text.rfind("\nerror "));
    if (isOfAnother && place != std::string::npos) text.erase(place, kept.size());
    return text;
  }

  void markChild(const RecordedChild& child) {
    const auto has = [&](const std::string& line) {
      return ("\n" + child.text).find("\n" + line + "\n") != std::string::npos;
    };
    mark(has("error apart") ? "error apart" : "error joined");
    const std::string uid = std::to_string(geteuid());
    if (!has("user " + uid + " " + uid + " " + uid)) mark("another user");
    if (child.folder != scene_.folder()) mark("another folder");
    if (has("umask 0")) mark("no mask");
  }

  // The adapter does not report signals.
  void compareEnd(int code) {
    const std::string status = describeStatus(exec_.result.waitStatus);
    if (status.starts_with("signal ")) {
      mark("signal");
      const auto child = adapter_.children.find(pid_);
      const std::string order = "kill:" + status.substr(7);
      expect(child != adapter_.children.end() &&
                 std::ranges::count(child->second.arguments, order) > 0,
             "signal without an order");
      expect(code == 0, "code of a signal");
    } else {
      if (code != 0) mark("exit code");
      expectStatus("exit " + std::to_string(code));
    }
  }

  // For a user who is neither root nor the job's.
  std::string note() const {
    if (!adapter_.group) return "";
    const auto gid = static_cast<std::int32_t>(scene_.isUnprivileged() ? otherId : getegid());
    const auto uid = static_cast<std::int32_t>(scene_.isUnprivileged() ? otherId : geteuid());
    if (*adapter_.group == gid && adapter_.user.value_or(uid) == uid) return "";
    std::string wanted = "group " + std::to_string(*adapter_.group);
    if (adapter_.user) wanted = "user " + std::to_string(*adapter_.user) + " and " + wanted;
    return "runlet-job: exec: task " + std::to_string(number_) + " runs as user " +
           std::to_string(uid) + " and group " + std::to_string(gid) + " instead of the job's " +
           wanted + ": only root can switch\n";
  }

  void expectAll(const std::string& output, const std::string& error, const std::string& status) {
    expect(exec_.result.output == output, "standard output");
    expect(exec_.result.error == error, "standard error");
    expect(exec_.children.empty() && adapter_.children.empty(), "a child");
    expectStatus(status);
  }
  void expectStatus(const std::string& status) {
    expect(describeStatus(exec_.result.waitStatus) == status, "status, which should be " + status);
  }
  void mark(const std::string& name) {
    trial_->marks.insert(name);
  }
  void expect(bool holds, const std::string& what) {
    if (!holds) trial_->differences += "not as the adapter has it: " + what + "\n";
  }

  void showBoth(const std::string& status) {
    trial_->differences += "--- task " + std::to_string(number_) + "\n--- adapter, " + status +
                           ":\n" + visibleLines(adapter_.result.output) +
                           "\n--- its standard error:\n" + visibleLines(adapter_.result.error) +
                           "\n--- exec, " + describeStatus(exec_.result.waitStatus) + ":\n" +
                           visibleLines(exec_.result.output) + "\n--- its standard error:\n" +
                           visibleLines(exec_.result.error) + "\n";
    for (const auto& [pid, child] : adapter_.children) {
      trial_->differences += "--- child of the adapter:\n" + child.text;
    }
    for (const std::string& command : adapter_.shellCommands) {
      trial_->differences += "--- to the shell: " + visibleLines(command) + "\n";
    }
  }

  const Scene& scene_;
  const std::int32_t number_;
  const TaskRun adapter_;
  const TaskRun exec_;
  // The adapter's, without what only the adapter writes.
  std::string output_;
  std::string error_;
  std::string pid_;
  const std::optional<std::size_t> at_;  // the position of the line about the process
  Trial* trial_ = nullptr;
};

class ExecProperty : public Property {};

TEST_F(ExecProperty, BecomesWhatTheAdapterWouldStart) {
  const auto tryJob = [](const Scene& scene, runlet_model::Random* random) {
    Trial trial;
    const auto most = random->pick<std::int32_t>({1, 1, 2, 3, 6});
    for (std::int32_t number = 1; number <= most; ++number) {
      if (!ExecComparison(scene, number).compare(&trial)) break;
    }
    return trial;
  };
  tryJobs(anyKind, true, tryJob,
          {{"a recorder", 800},
           {"a script", 10},
           {"another folder", 200},
           {"chmod", 100},
           {"danger", 5},
           {"ended", 40},
           {"error apart", 200},
           {"error joined", 400},
           {"exit code", 100},
           {"no mask", 200},
           {"no such task", 200},
           {"not executable", 30},
           {"not found", 60},
           {"note", 10},
           {"refused", 300},
           {"refused after the line", 10},
           {"signal", 70},
           {"another user", geteuid() == 0 ? 100U : 0U}});
}

}  // namespace
}  // namespace runlet_test
