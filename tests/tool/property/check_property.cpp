// The findings of runlet-job check in random jobs, compared with whether the adapter starts their
// tasks.

#include <unistd.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "property.h"

namespace runlet_test {
namespace {

using Json = nlohmann::json;

// Errors because of danger: the user or group is root without being a plain 0, or the path for
// chmod is special to the shell. The task may start nevertheless.
bool isOfDanger(const std::string& code) {
  return code == "RJ034" || code == "RJ076";
}

constexpr char cannotExecute[] = "Runlet adapter: Cannot execute command:'";

class CheckComparison {
 public:
  CheckComparison(ProcessResult tool, AdapterRun adapter, bool withHost)
      : tool_(std::move(tool)), adapter_(std::move(adapter)), withHost_(withHost) {}

  Trial trial() {
    try {
      compare(Json::parse(tool_.output));
    } catch (const std::exception& error) {
      differ(std::string("the report cannot be read: ") + error.what());
    }
    if (!trial_.differences.empty()) showBoth();
    return trial_;
  }

 private:
  void compare(const Json& report) {
    expect(report.at("format") == "runlet-job check" && report.at("version") == 1, "format");
    const Json& job = report.at("jobs").at(0);
    const std::string status = describeStatus(tool_.waitStatus);
    const bool hasErrors = job.at("errors") > 0;
    expect(hasErrors ? status == "exit 1" || status == "exit 2" : status == "exit 0",
           "exit status of runlet-job");
    bool hasDanger = false;
    std::size_t errors = 0;
    for (const Json& finding : job.at("findings")) {
      const auto code = finding.at("code").get<std::string>();
      mark(code);
      hasDanger = hasDanger || isOfDanger(code);
      if (finding.at("severity") == "error") ++errors;
      if (finding.at("severity") == "error" && !isOfDanger(code)) hasReason_ = true;
    }
    expect(job.at("errors") == errors, "number of errors");
    compareWithAdapter(hasErrors, hasDanger);
  }

  void compareWithAdapter(bool hasErrors, bool hasDanger) {
    const bool allStart = allTasksStart();
    mark(end());
    if (!withHost_ && !allStart && machineLacksSomething()) return mark("missing on the machine");
    if (lacksRights()) return mark("missing rights");
    if (!hasErrors) {
      expect(allStart, "no error, but not every task is started");
      mark("no error");
    } else if (hasReason_) {
      expect(!allStart, "errors, but every task is started");
      mark("errors");
    } else if (hasDanger) {
      mark(allStart ? "a danger, but started" : "a danger, and not started");
    }
  }

  bool allTasksStart() const {
    return adapter_.status == "exit 0" && !adapter_.announced.empty() &&
           countOf(cannotExecute, adapter_.error) == 0;
  }

  std::string end() const {
    if (adapter_.wasAborted()) return "the request is ended";
    if (adapter_.wasRefused()) {
      const bool isLoad = adapter_.output.empty() && adapter_.error.ends_with("\n") &&
                          adapter_.error.find("fill-in") == std::string::npos;
      return isLoad ? "refused by the loader" : "refused for a task";
    }
    if (adapter_.announced.empty()) return "no task";
    return countOf(cannotExecute, adapter_.error) == 0 ? "all start" : "a task is not executed";
  }

  // Whether a folder, user, group or program is missing.
  bool machineLacksSomething() const {
    const std::string& error = adapter_.error;
    if (adapter_.status == "exit 0") {
      return countOf(cannotExecute, error) > countOf("Cannot execute command:'':", error);
    }
    const std::string last = error.substr(error.rfind('\n') + 1);
    for (const char* text :
         {"Cannot obtain info for user ", "Cannot set gid ", "Cannot set uid "}) {
      const std::size_t at = last.find(text);
      if (at != std::string::npos) return last.find(" -1: No such", at) == std::string::npos;
    }
    return last.find("Could not set working folder : '/") != std::string::npos;
  }

  // The check assumes an adapter that is run by root and may switch to anybody.
  bool lacksRights() const {
    const bool isId = adapter_.error.find("Cannot set gid ") != std::string::npos ||
                      adapter_.error.find("Cannot set uid ") != std::string::npos;
    return isId && (adapter_.error.ends_with("Operation not permitted") ||
                    adapter_.error.ends_with("Invalid argument"));
  }

  void mark(const std::string& name) {
    trial_.marks.insert(name);
  }
  void differ(const std::string& what) {
    trial_.differences += "differs from the adapter: " + what + "\n";
  }
  void expect(bool holds, const std::string& what) {
    if (!holds) differ(what);
  }

  void showBoth() {
    trial_.differences += "--- adapter, " + adapter_.status + ":\n" +
                          visibleLines(adapter_.output) + "\n--- its standard error:\n" +
                          visibleLines(adapter_.error) + "\n--- runlet-job, " +
                          describeStatus(tool_.waitStatus) + ":\n" + visibleLines(tool_.output) +
                          visibleLines(tool_.error) + "\n";
    for (const std::string& command : adapter_.shellCommands.value_or(Strings())) {
      trial_.differences += "--- to the shell: " + visibleLines(command) + "\n";
    }
  }

  const ProcessResult tool_;
  const AdapterRun adapter_;
  const bool withHost_;
  bool hasReason_ = false;  // an error that prevents a task from being started
  Trial trial_;
};

const std::vector<Minimum> usualEnds = {
    {"no error", 600},
    {"errors", 300},
    {"all start", 600},
    {"refused by the loader", 120},
    {"refused for a task", 80},
    {"the request is ended", 25},
    {"no task", 10},
    {"a task is not executed", 30},
};

class CheckProperty : public Property {};

TEST_F(CheckProperty, FindsAnErrorWhereTheAdapterDoesNotStartEveryTask) {
  const auto tryJob = [](const Scene& scene, runlet_model::Random* /*random*/) {
    ProcessResult tool = scene.runTool({"check", "--json"});
    return CheckComparison(std::move(tool), scene.runAdapter({}), false).trial();
  };
  tryJobs(kindOnCompleteMachine, false, tryJob, usualEnds);
}

TEST_F(CheckProperty, FindsAnErrorWhereTheMachineLacksSomething) {
  const auto tryJob = [](const Scene& scene, runlet_model::Random* /*random*/) {
    ProcessResult tool = scene.runTool({"check", "--json", "--host"});
    return CheckComparison(std::move(tool), scene.runAdapter({}), true).trial();
  };
  std::vector<Minimum> minima = usualEnds;
  minima.insert(minima.end(), {{"RJ076", 5}, {"RJ090", 20}, {"RJ093", 50}});
  if (geteuid() == 0) minima.insert(minima.end(), {{"RJ091", 1}, {"RJ094", 5}, {"RJ096", 2}});
  tryJobs(anyKind, false, tryJob, minima);
}

}  // namespace
}  // namespace runlet_test
