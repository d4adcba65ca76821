#include "tool/make/job_xml.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "tool/text/xml_text.h"

namespace runlet_tool {
namespace {

// An element whose text is markup already.
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

// An id is 32 bits without a sign to the system.
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

}  // namespace runlet_tool
