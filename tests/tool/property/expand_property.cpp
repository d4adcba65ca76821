// The output of runlet-job expand for random jobs, compared with what the adapter does.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>

#include "property.h"

namespace runlet_test {
namespace {

using Json = nlohmann::json;

bool isUtf8(const std::string& text) {
  try {
    std::ignore = Json(text).dump();
  } catch (const Json::type_error&) {
    return false;
  }
  return true;
}

// The bytes represented by the characters of `text`, U+0000 to U+00FF.
std::string bytesOf(const std::string& text) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto first = static_cast<unsigned char>(text[i]);
    if (first < 0x80) {
      bytes += text[i];
    } else if (first > 0xc3 || ++i == text.size()) {
      throw std::runtime_error("a character beyond U+00FF: " + text);
    } else {
      bytes += static_cast<char>((first & 3U) << 6U | (static_cast<unsigned char>(text[i]) & 63U));
    }
  }
  return bytes;
}

// An object of the report, with its strings as bytes.
class Texts {
 public:
  explicit Texts(const Json& object) : object_(object), inBytes_(object.at("bytes").get<bool>()) {}

  std::optional<std::string> at(const char* key) const {
    const Json& value = object_.at(key);
    if (value.is_null()) return std::nullopt;
    return decoded(value);
  }
  Strings list(const char* key) const {
    Strings texts;
    for (const Json& value : object_.at(key)) texts.push_back(decoded(value));
    return texts;
  }

  // Whether the strings are encoded as bytes exactly if one of them is not UTF-8.
  bool hasCorrectEncoding() const {
    bool allUtf8 = true;
    for (const auto& [key, value] : object_.items()) {
      if (value.is_string()) allUtf8 = allUtf8 && isUtf8(decoded(value));
    }
    return inBytes_ != allUtf8;
  }
  bool inBytes() const {
    return inBytes_;
  }

 private:
  std::string decoded(const Json& value) const {
    const auto text = value.get<std::string>();
    return inBytes_ ? bytesOf(text) : text;
  }

  const Json& object_;
  bool inBytes_;
};

// The kind of a message that ends a request.
std::string nameOf(const std::string& message) {
  struct Name {
    const char* part;
    const char* name;
  };
  constexpr Name names[] = {
      {"fill-in", "refused: fill-in"},
      {"Not a directory", "refused: the job file as a folder"},
      {"No such file or directory", "refused: a relative folder"},
      {"Cannot set gid -1", "refused: no group"},
      {"Missing user name", "refused: no user"},
      {"vector", "ends: no value"},
      {"basic_string", "ends: no space"},
  };
  for (const Name& row : names) {
    if (message.find(row.part) != std::string::npos) return row.name;
  }
  return "ended with " + message;
}

// Whether the program is one of the scene's scripts.
bool isScript(const Strings& words) {
  const std::string name = words.empty() ? "" : words[0].substr(words[0].rfind('/') + 1);
  return name == "script" || name == "plain" || name == "secret";
}

bool hasOnlyDots(const std::string& folder) {
  for (const std::filesystem::path& part : std::filesystem::path(folder)) {
    if (part != "." && part != ".." && part != "") return false;
  }
  return true;
}

class ExpandComparison {
 public:
  ExpandComparison(const Scene& scene, const Range& range, const ProcessResult& tool,
                   const AdapterRun& adapter)
      : scene_(scene), range_(range), tool_(tool), adapter_(adapter) {}

  Trial trial() {
    try {
      report_ = Json::parse(tool_.output);
      compare();
    } catch (const std::exception& error) {
      differ(std::string("the report cannot be read: ") + error.what());
    }
    if (!trial_.differences.empty()) showBoth();
    return trial_;
  }

 private:
  void compare() {
    expect(report_.at("format") == "runlet-job expand" && report_.at("version") == 1, "format");
    const Texts top(report_);
    expect(top.at("job") == scene_.jobFile(), "job");
    if (report_.at("outcome") == "loaded") {
      expect(!top.at("message"), "a message of a load that succeeds");
      compareTasks();
    } else {
      compareLoad(top);
    }
    const std::string status = describeStatus(tool_.waitStatus);
    expect((status == "exit 0") == allStart_, "exit status of runlet-job");
    expect(status == "exit 0" || status == "exit 1" || status == "exit 2", "exit status");
  }

  void compareLoad(const Texts& top) {
    const bool isRefused = report_.at("outcome") == "refused";
    mark(isRefused ? "refused by the loader" : "ended by the loader");
    expect(isRefused ? adapter_.wasRefused() : adapter_.wasAborted(), "end of the load");
    expect(adapter_.output.empty(), "standard output of a load that fails");
    const std::string message = top.at("message").value_or("");
    expect(adapter_.error == (message.empty() ? "" : message + "\n"), "message of the load");
    expect(report_.at("tasks").empty(), "tasks of a load that fails");
    allStart_ = false;
  }

  void compareTasks() {
    std::int64_t number = std::max<std::int64_t>(range_.first.value_or(1), 1);
    for (const Json& task : report_.at("tasks")) {
      expect(task.at("task") == number++, "number of a task");
      compareTask(task);
    }
    if (number == std::max<std::int64_t>(range_.first.value_or(1), 1)) mark("no task to run");
    compareWhole();
  }

  void compareTask(const Json& task) {
    const Texts texts(task);
    const auto outcome = task.at("outcome").get<std::string>();
    if (outcome != "starts") allStart_ = false;
    if (texts.inBytes()) mark("bytes");
    expect(texts.hasCorrectEncoding(), "bytes");
    if (isReportedOver_) return compareNotReached(task);
    isReportedOver_ = outcome == "refused" || outcome == "ends";
    if (isOver_) return;
    compareTexts(task, texts);
    const bool isAnnounced = next_ < adapter_.announced.size();
    if (!isAnnounced && isStoppedByMachine(texts)) return compareStoppedByMachine(texts);
    if (isReportedOver_) return compareEnd(outcome, texts);
    if (!isAnnounced) return differ("not started: task " + task.at("task").dump());
    compareStarted(outcome, texts);
  }

  void compareNotReached(const Json& task) {
    mark("not reached");
    expect(task.at("outcome") == "notReached", "outcome after the end");
    for (const char* key : {"folder", "chmod", "calling", "commandLine", "argv", "message"}) {
      expect(task.at(key).is_null(), std::string(key) + " of a task that is not reached");
    }
  }

  // Consistency of the report itself.
  void compareTexts(const Json& task, const Texts& texts) {
    expect(texts.at("folder").has_value(), "folder");
    const auto line = texts.at("commandLine");
    expect(texts.at("calling").has_value() == line.has_value(), "calling without a command line");
    expect(task.at("argv").is_null() == !line.has_value(), "argv without a command line");
    if (!line) return;
    const std::string calling = "Calling '" + *line + "' from '" + *texts.at("folder") + "'";
    expect(texts.at("calling") == calling, "calling and command line");
  }

  void compareStarted(const std::string& outcome, const Texts& texts) {
    const std::string pid = adapter_.announced[next_++];
    const std::string announcement = "[ServerMessage]ProcessStarted processId=" + pid + "\n";
    expect(texts.at("calling").has_value(), "no calling");
    passCalling(texts, announcement);
    passChmod(texts);
    passFolder(texts);
    const auto child = adapter_.children.find(pid);
    if (outcome == "cannotExecute") {
      mark("cannot execute");
      expect(child == adapter_.children.end(), "a child");
      passError(texts.at("message").value_or("no message") + "\n");
      ++notExecuted_;
    } else if (child != adapter_.children.end()) {
      compareChild(child->second, texts);
    } else {
      compareUnrecorded(texts);
    }
  }

  void compareChild(const RecordedChild& child, const Texts& texts) {
    mark("starts");
    expect(!texts.at("message"), "message of a task that starts");
    const Strings words = texts.list("argv");
    if (isScript(words)) return compareInterpreter(child, words);
    expect(child.arguments == words, "argument vector");
    if (child.arguments != words) {
      for (const std::string& word : child.arguments)
        differ("  of the child: " + visibleLines(word));
    }
    expect(child.folder == folder_, "folder of the child: " + child.folder);
  }

  // If a script names the recorder in its first line, paths precede the arguments.
  void compareInterpreter(const RecordedChild& child, const Strings& words) {
    mark("an interpreter");
    const bool isEnd = !words.empty() && words.size() < child.arguments.size() &&
                       std::equal(words.rbegin(), words.rend() - 1, child.arguments.rbegin());
    expect(isEnd, "argument vector of an interpreter");
  }

  // A script, or a program that does not exist.
  void compareUnrecorded(const Texts& texts) {
    const std::string line = texts.at("commandLine").value_or("");
    const std::string message = "Runlet adapter: Cannot execute command:'" + line + "':";
    const std::size_t at = adapter_.error.find(message, errorAt_);
    if (at == std::string::npos) {
      mark("a script");
      expect(isScript(texts.list("argv")), "a recorder without a record");
      return;
    }
    mark("not executed by the machine");
    errorAt_ = at + message.size();
    ++notExecuted_;
  }

  void compareEnd(const std::string& outcome, const Texts& texts) {
    isOver_ = true;
    const std::string message = texts.at("message").value_or("no message");
    mark(nameOf(message));
    const bool isRefused = outcome == "refused";
    expect(isRefused ? adapter_.wasRefused() : adapter_.wasAborted(), outcome);
    expect(adapter_.error.ends_with(message) || adapter_.error.ends_with(message + "\n"),
           "message: " + visibleLines(message));
    if (texts.at("calling")) {
      passCalling(texts, "");
      passChmod(texts);
    }
  }

  bool isStoppedByMachine(const Texts& texts) const {
    if (!adapter_.wasRefused()) return false;
    const std::string folder = texts.at("folder").value_or("");
    const std::string before = "Runlet adapter: Could not set working folder : '" + folder + "': ";
    const std::size_t at = adapter_.error.rfind(before);
    if (at != std::string::npos) {
      return dependsOnMachine(folder) &&
             adapter_.error.find('\n', at + before.size()) == std::string::npos;
    }
    const std::string end = adapter_.error.substr(adapter_.error.rfind('\n') + 1);
    const bool isUnknown = end.find("Cannot obtain info for user ") != std::string::npos;
    const bool isId = end.find("Cannot set gid ") != std::string::npos ||
                      end.find("Cannot set uid ") != std::string::npos;
    return isUnknown || (isId && end.find(" -1: No such") == std::string::npos);
  }

  // Whether only the machine can tell if the folder exists.
  bool dependsOnMachine(const std::string& folder) const {
    const bool isFirst = next_ == 0;
    const bool isJobFile = folder == scene_.jobFile();
    return !folder.empty() && (folder[0] == '/' || hasOnlyDots(folder) || (isFirst && !isJobFile));
  }

  void compareStoppedByMachine(const Texts& texts) {
    mark("refused by the machine");
    isOver_ = true;
    if (adapter_.error.rfind("Could not set working folder") != std::string::npos) return;
    expect(texts.at("calling").has_value(), "no calling of a task without rights");
    passCalling(texts, "");
    passChmod(texts);
  }

  // The line comes before `announcement`, or at the end.
  void passCalling(const Texts& texts, const std::string& announcement) {
    const std::string calling = texts.at("calling").value_or("no calling");
    ++calling_;
    const std::string line = calling + "\n" + announcement;
    const bool isPresent = announcement.empty() ? adapter_.output.ends_with(line)
                                                : adapter_.output.find(line) != std::string::npos;
    expect(isPresent, visibleLines(line));
  }

  void passChmod(const Texts& texts) {
    const auto program = texts.at("chmod");
    if (!program) return;
    mark("chmod");
    commands_.push_back("/bin/chmod 755 " + *program);
  }

  void passFolder(const Texts& texts) {
    std::error_code ignored;
    folder_ = std::filesystem::canonical(
        std::filesystem::path(folder_) / texts.at("folder").value_or(""), ignored);
  }

  void passError(const std::string& message) {
    const std::size_t at = adapter_.error.find(message, errorAt_);
    expect(at != std::string::npos, "message: " + visibleLines(message));
    if (at != std::string::npos) errorAt_ = at + message.size();
  }

  void compareWhole() {
    if (!isOver_) expect(adapter_.status == "exit 0", "status of a request that is carried out");
    expect(next_ == adapter_.announced.size(), "number of tasks");
    expect(!adapter_.shellCommands || *adapter_.shellCommands == commands_, "chmod");
    expect(countOf("Calling '", adapter_.output) == calling_ + notExecuted_, "calling lines");
    expect(countOf("Runlet adapter: Cannot execute command:'", adapter_.error) == notExecuted_,
           "tasks that are not executed");
    if (allStart_ && !isOver_ && next_ > 0 && notExecuted_ == 0) mark("all start");
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
    trial_.differences +=
        "--- range: " + (range_.first ? std::to_string(*range_.first) : "") + " " +
        (range_.count ? std::to_string(*range_.count) : "") + "\n--- adapter, " + adapter_.status +
        ":\n" + visibleLines(adapter_.output) + "\n--- its standard error:\n" +
        visibleLines(adapter_.error) + "\n--- runlet-job, " + describeStatus(tool_.waitStatus) +
        ":\n" + visibleLines(tool_.output) + visibleLines(tool_.error) + "\n";
    for (const std::string& command : adapter_.shellCommands.value_or(Strings())) {
      trial_.differences += "--- to the shell: " + visibleLines(command) + "\n";
    }
  }

  const Scene& scene_;
  const Range& range_;
  const ProcessResult& tool_;
  const AdapterRun& adapter_;
  Json report_;
  Trial trial_;
  // The position of the comparison in the report.
  std::string folder_ = scene_.folder();
  std::size_t next_ = 0;  // in the announced processes
  std::size_t errorAt_ = 0;
  std::size_t calling_ = 0;
  std::size_t notExecuted_ = 0;
  Strings commands_;
  bool isOver_ = false;          // the adapter has ended the request
  bool isReportedOver_ = false;  // according to the report
  bool allStart_ = true;
};

class ExpandProperty : public Property {};

TEST_F(ExpandProperty, SaysWhatTheAdapterDoes) {
  const auto tryJob = [](const Scene& scene, runlet_model::Random* random) {
    const Range range = anyRange(random);
    const ProcessResult tool = scene.runTool({"expand", "--json"}, range);
    return ExpandComparison(scene, range, tool, scene.runAdapter(range)).trial();
  };
  tryJobs(anyKind, true, tryJob,
          {{"all start", 600},
           {"starts", 700},
           {"bytes", 5},
           {"chmod", 80},
           {"cannot execute", 5},
           {"not executed by the machine", 50},
           {"refused by the machine", 30},
           {"a script", 20},
           {"an interpreter", 5},
           {"not reached", 80},
           {"no task to run", 80},
           {"refused by the loader", 150},
           {"ended by the loader", 8},
           {"refused: fill-in", 40},
           {"refused: the job file as a folder", 20},
           {"refused: a relative folder", 20},
           {"refused: no group", 2},
           {"refused: no user", 8},
           {"ends: no value", 10},
           {"ends: no space", 5}});
}

}  // namespace
}  // namespace runlet_test
