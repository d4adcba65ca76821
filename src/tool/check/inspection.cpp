#include "tool/check/inspection.h"

#include <algorithm>
#include <tuple>

#include "tool/job/loading.h"
#include "tool/job/range.h"
#include "tool/text/format.h"

namespace runlet_tool {
namespace {

// An error of the library has a place; a file that cannot be read at all has none.
void findLoadError(const TiXmlDocument& document, const std::string& message, Report* report) {
  const bool isOfLibrary = document.Error();
  const Rule& rule = ruleOf(isOfLibrary ? RuleId::notXml : RuleId::unreadable);
  const Place place = isOfLibrary ? Place{document.ErrorRow(), document.ErrorCol()} : Place{};
  report->isReadable = false;
  report->findings.push_back(
      {&rule,
       place,
       "",
       message.empty() ? "The path is empty; the adapter refuses the request without a message."
                       : "The adapter refuses the request with: " + message,
       isOfLibrary ? "Correct the XML; the mistake may be some way before this place."
                   : "Give the path of a job file that the adapter can read.",
       {}});
}

// Sorts by place; those without one come last.
void sort(std::vector<Finding>* findings) {
  const auto key = [](const Finding& finding) {
    const bool isPlaceless = finding.place.line == 0;
    return std::tuple(isPlaceless, finding.place.line, finding.place.column, finding.rule->id);
  };
  std::stable_sort(findings->begin(), findings->end(),
                   [&](const Finding& a, const Finding& b) { return key(a) < key(b); });
}

}  // namespace

bool leaveOut(Inspection* inspection, RuleId rule) {
  const bool isFull = !inspection->question->wantsAll && inspection->kept[rule] >= mostFindings;
  if (isFull) ++inspection->report.leftOut[rule];
  return isFull;
}

bool find(Inspection* inspection, RuleId rule, Place place, std::string_view text, std::string why,
          std::string instead) {
  if (leaveOut(inspection, rule)) return false;
  ++inspection->kept[rule];
  inspection->report.findings.push_back(
      {&ruleOf(rule), place, std::string(text), std::move(why), std::move(instead), {}});
  return true;
}

bool addTaskToFinding(Inspection* inspection, RuleId rule, std::size_t offset,
                      std::int32_t number) {
  inspection->limit.addLookUp();
  const auto row = inspection->ofTasks.find({rule, offset});
  if (row == inspection->ofTasks.end()) {
    if (!leaveOut(inspection, rule)) return false;
    inspection->ofTasks[{rule, offset}] = leftOutFinding;
  } else if (row->second != leftOutFinding) {
    inspection->report.findings[row->second].tasks.add(number);
  }
  return true;
}

void findForTask(Inspection* inspection, RuleId rule, std::size_t offset, std::int32_t number,
                 Place place, std::string_view text, std::string why, std::string instead) {
  const bool isKept = find(inspection, rule, place, text, std::move(why), std::move(instead));
  const std::size_t last = inspection->report.findings.size() - 1;
  inspection->ofTasks[{rule, offset}] = isKept ? last : leftOutFinding;
  if (isKept) inspection->report.findings[last].tasks.add(number);
}

void findTasksNotChecked(Inspection* inspection, std::int32_t number) {
  if (inspection->kept[RuleId::tasksNotChecked] > 0) return;
  find(inspection, RuleId::tasksNotChecked, Place{}, "",
       "Of the " + quantity(inspection->context.taskList.size(), "task") + " only the first " +
           std::to_string(number) + " were checked; the others would take too long.",
       "Shorten the template, or check all tasks with runlet-job check --all.");
}

Place placeInTemplate(const Inspection& inspection, std::size_t offset) {
  if (!inspection.arguments.has_value()) return inspection.templateElement;
  const BracedText& text = *inspection.arguments;
  return inspection.source->placeOf(
      inspection.source->offsetIn(*text.node, text.begin + offset, text.marks));
}

Report inspect(const Question& question, runlet::AdapterContext* job) {
  SourceDocument document(question.jobFile.c_str());
  document.SetTabSize(1);  // every TAB one column
  const LoadResult loaded = loadDocument(&document);
  if (loaded.loading == Loading::unreadable) {
    Report report;
    findLoadError(document, loaded.message, &report);
    return report;
  }
  const Source source(document.takeText());
  Inspection inspection{};
  inspection.question = &question;
  inspection.source = &source;
  if (!question.looksAtAllTasks) inspection.limit = WorkLimit(source.text().size());
  inspection.context.jobFile = question.jobFile;
  if (question.range.isGiven()) setRange(question.range, &inspection.context);
  inspection.context.appPath = question.appPath;
  inspection.context.userName = question.userName;
  inspectDocument(document, &inspection);
  const LoadResult read = readDocument(document, &inspection.context);
  if (read.loading == Loading::loaded) inspectTasks(&inspection);
  if (read.loading == Loading::loaded && question.isOfHost) inspectHost(&inspection);
  inspection.report.taskCount = static_cast<std::int32_t>(inspection.context.taskList.size());
  sort(&inspection.report.findings);
  if (job != nullptr) *job = std::move(inspection.context);
  return std::move(inspection.report);
}

}  // namespace runlet_tool
