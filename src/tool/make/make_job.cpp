#include "tool/make/make_job.h"

#include <cstring>

#include "adapter/context.h"
#include "tool/check/findings_text.h"
#include "tool/check/inspect.h"
#include "tool/make/job_xml.h"
#include "tool/make/self_check.h"
#include "tool/make/word_quoting.h"
#include "tool/system/memory_file.h"
#include "tool/text/terminal.h"

namespace runlet_tool {
namespace {

// One word is the template by itself.
bool findTemplate(const MakeOptions& options, const runlet::AdapterContext& job,
                  std::string* argumentTemplate, Complaint* complaint) {
  *argumentTemplate = job.arguments;
  if (options.command.size() == 1) return true;
  return CommandWords(options.command, job).quote(argumentTemplate, complaint);
}

bool cannotLook(int error, Complaint* complaint) {
  complaint->status = exitUnreadable;
  complaint->text = std::string("the job cannot be looked at: ") + std::strerror(error);
  return false;
}

bool acceptReport(const std::string& name, const Report& report, Complaint* complaint) {
  if (report.count(Severity::error) == 0) return true;
  std::string findings = findingsText(name, report, wantsColour(stderr));
  findings.pop_back();  // the last line end
  complaint->text = "no job is written, for it would not run as asked:\n" + findings;
  return false;
}

}  // namespace

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
