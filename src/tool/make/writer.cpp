#include "tool/make/writer.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "adapter/context.h"
#include "exec/start.h"
#include "exec/words.h"
#include "tool/check/inspect.h"
#include "tool/check/rules.h"
#include "tool/job/loading.h"
#include "tool/make/quoting.h"
#include "tool/system/exit_status.h"
#include "tool/system/files.h"
#include "tool/text/terminal.h"
#include "tool/text/xml.h"

namespace runlet_tool {
namespace {

// An element; `text` is already escaped.
void appendElement(std::string_view name, std::string_view text, std::string* out) {
  out->append("<").append(name).append(">").append(text);
  out->append("</").append(name).append(">");
}

std::string inBraces(std::string_view text) {
  std::string braced = "{";
  return braced.append(escapeBraced(text)).append("}");
}

void appendElementLine(std::string_view name, std::string_view text, std::string* out) {
  *out += "    ";
  appendElement(name, text, out);
  *out += '\n';
}

void appendTexts(const runlet::AdapterContext& job, std::string* out) {
  if (!job.workingFolder.empty())
    appendElementLine("WorkingFolder", escapeAlone(job.workingFolder), out);
  if (!job.logFolder.empty()) appendElementLine("LogFolder", escapeAlone(job.logFolder), out);
  if (!job.outputs.empty()) appendElementLine("Outputs", escapeAlone(job.outputs), out);
}

// To the system, an id is an unsigned 32-bit number.
std::string idText(std::int32_t id) {
  return std::to_string(static_cast<std::uint32_t>(id));
}

void appendNumbers(const runlet::AdapterContext& job, std::string* out) {
  appendElementLine("TaskNameIdx", std::to_string(job.taskNameIdx), out);
  appendElementLine("TaskTimeout", std::to_string(job.taskTimeout), out);
  appendElementLine("uid", idText(job.uid), out);
  appendElementLine("gid", idText(job.gid), out);
  appendElementLine("umask", std::to_string(job.umask), out);
  appendElementLine("redirectStderr", job.redirectStderr ? "yes" : "no", out);
}

void appendTasks(const runlet::AdapterContext& job, std::string* out) {
  *out += "    <TaskList>\n";
  for (const std::string& task : job.taskList) {
    *out += "      <Task>";
    appendElement("Params", inBraces(task), out);
    *out += "</Task>\n";
  }
  *out += "    </TaskList>\n";
}

void appendParams(const runlet::AdapterContext& job, std::string* out) {
  *out += "    <JobParams>\n";
  for (std::size_t i = 0; i < job.paramNames.size(); ++i) {
    *out += "      <Param>";
    appendElement("Name", inBraces(job.paramNames[i]), out);
    appendElement("Value", inBraces(job.paramValues[i]), out);
    *out += "</Param>\n";
  }
  *out += "    </JobParams>\n";
}

bool giveReason(const std::string& text, Complaint* complaint) {
  complaint->text = text;
  return false;
}

bool sameJob(const runlet::AdapterContext& a, const runlet::AdapterContext& b) {
  return a.workingFolder == b.workingFolder && a.logFolder == b.logFolder &&
         a.outputs == b.outputs && a.taskNameIdx == b.taskNameIdx &&
         a.taskTimeout == b.taskTimeout && a.uid == b.uid && a.gid == b.gid && a.umask == b.umask &&
         a.redirectStderr == b.redirectStderr && a.taskList == b.taskList &&
         a.paramNames == b.paramNames && a.paramValues == b.paramValues;
}

std::vector<std::string> argumentsOf(const std::string& commandLine) {
  std::string line = commandLine;  // splitWords modifies it
  std::vector<std::string> arguments;
  for (const char* word : runlet::splitWords(line.data())) {
    if (word != nullptr) arguments.emplace_back(word);
  }
  return arguments;
}

bool taskArrives(const runlet::AdapterContext& job, const CommandWords& words,
                 std::int32_t taskIndex) {
  runlet::TaskStart start;
  std::vector<std::string> meant;
  return composeStart(job, taskIndex, &start) && words.expand(taskIndex, &meant) &&
         argumentsOf(start.commandLine) == meant;
}

// A single word is the template itself.
bool findTemplate(const MakeOptions& options, const runlet::AdapterContext& job,
                  std::string* argumentTemplate, Complaint* complaint) {
  *argumentTemplate = job.arguments;
  if (options.command.size() == 1) return true;
  return CommandWords(options.command, job).quote(argumentTemplate, complaint);
}

bool cannotLook(int error, Complaint* complaint) {
  complaint->status = exitUnreadable;
  complaint->text = std::string("cannot check the job: ") + std::strerror(error);
  return false;
}

bool acceptReport(const std::string& name, const Report& report, Complaint* complaint) {
  if (report.count(Severity::error) == 0) return true;
  std::string findings = findingsText(name, report, wantsColour(stderr));
  findings.pop_back();  // the last newline
  complaint->text = "no job written, since it would not run as intended:\n" + findings;
  return false;
}

}  // namespace

std::string jobText(const runlet::AdapterContext& job, const std::string& argumentTemplate) {
  std::string out = "<Job>\n  <cmdData>\n";
  appendElementLine("Arguments", inBraces(argumentTemplate), &out);
  appendTexts(job, &out);
  appendNumbers(job, &out);
  appendTasks(job, &out);
  appendParams(job, &out);
  return out + "  </cmdData>\n</Job>\n";
}

bool arrivesAsMeant(const std::string& path, const runlet::AdapterContext& meant,
                    const std::vector<std::string>& words, Complaint* complaint) {
  runlet::AdapterContext loaded;
  loaded.jobFile = path;
  const LoadResult result = loadJob(&loaded);
  if (result.loading != Loading::loaded) return giveReason(result.message, complaint);
  if (!sameJob(loaded, meant)) {
    return giveReason("the job would not be loaded as intended", complaint);
  }
  const CommandWords commandWords(words, meant);
  const auto taskCount = static_cast<std::int32_t>(words.size() > 1 ? loaded.taskList.size() : 0);
  for (std::int32_t task = 0; task < taskCount; ++task) {
    if (taskArrives(loaded, commandWords, task)) continue;
    return giveReason(
        "task " + std::to_string(task + 1) + " would not get the words of the command", complaint);
  }
  return true;
}

bool makeJob(const MakeOptions& options, const std::string& name, MadeJob* made,
             Complaint* complaint) {
  runlet::AdapterContext job;
  if (!readJobOptions(options, &job, complaint)) return false;
  std::string argumentTemplate;
  if (!findTemplate(options, job, &argumentTemplate, complaint)) return false;
  made->text = jobText(job, argumentTemplate);
  const MemoryFile file(made->text);
  if (file.error() != 0) return cannotLook(file.error(), complaint);
  made->report = inspect({.jobFile = file.path(), .appPath = {}, .userName = {}});
  return acceptReport(name, made->report, complaint) &&
         arrivesAsMeant(file.path(), job, options.command, complaint);
}

}  // namespace runlet_tool
