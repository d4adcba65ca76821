#include "tool/check/report.h"

#include <algorithm>

#include "tool/text/characters.h"
#include "tool/text/json.h"
#include "tool/text/terminal.h"

namespace runlet_tool {
namespace {

// In the order of Severity.
constexpr Colour colours[] = {Colour::red, Colour::yellow, Colour::cyan};

std::string placeText(const std::string& shownFile, const Place& place) {
  if (place.line == 0) return shownFile;
  return shownFile + ":" + std::to_string(place.line) + ":" + std::to_string(place.column);
}

std::string tasksText(const Finding& finding, std::int32_t taskCount) {
  const std::int32_t count = finding.tasks.count();
  if (count == 0) return "";
  if (count == taskCount) return " [every task]";
  return (count == 1 ? " [task " : " [tasks ") + finding.tasks.text() + "]";
}

std::string ruleText(const Rule& rule, bool hasColour) {
  const Colour colour = colours[static_cast<std::size_t>(rule.severity)];
  return coloured(std::string(nameOf(rule.severity)) + " " + codeOf(rule), colour, hasColour);
}

std::string leftOutText(const std::string& shownFile, const Rule& rule, std::size_t count,
                        bool hasColour) {
  return shownFile + ": " + ruleText(rule, hasColour) + ": and " + std::to_string(count) +
         " more, which runlet-job check --all shows\n";
}

std::string findingText(const std::string& shownFile, const Finding& finding,
                        std::int32_t taskCount, bool hasColour) {
  std::string text = placeText(shownFile, finding.place) + ": ";
  text += ruleText(*finding.rule, hasColour) + ": ";
  if (!finding.text.empty()) text += visible(finding.text) + ": ";
  text += visible(finding.why) + "\n    " + visible(finding.instead);
  return text + tasksText(finding, taskCount) + "\n";
}

Json tasksJson(const Finding& finding, std::int32_t taskCount) {
  if (finding.tasks.count() == 0) return {};
  return finding.tasks.count() == taskCount ? "all" : finding.tasks.text(",");
}

Json leftOutJson(const Report& report) {
  Json counts = Json::object();
  for (const auto& [rule, count] : report.leftOut) counts[codeOf(ruleOf(rule))] = count;
  return counts;
}

Json findingJson(const Finding& finding, std::int32_t taskCount) {
  return {{"code", codeOf(*finding.rule)},
          {"severity", nameOf(finding.rule->severity)},
          {"line", finding.place.line},
          {"column", finding.place.column},
          {"text", finding.text},
          {"tasks", tasksJson(finding, taskCount)},
          {"why", finding.why},
          {"instead", finding.instead}};
}

}  // namespace

std::size_t Report::count(Severity severity) const {
  const auto isOfThat = [=](const Finding& finding) { return finding.rule->severity == severity; };
  auto count = static_cast<std::size_t>(std::count_if(findings.begin(), findings.end(), isOfThat));
  for (const auto& [rule, more] : leftOut) {
    if (ruleOf(rule).severity == severity) count += more;
  }
  return count;
}

std::string findingsText(const std::string& shownFile, const Report& report, bool hasColour) {
  std::string text;
  for (const Finding& finding : report.findings) {
    text += findingText(shownFile, finding, report.taskCount, hasColour);
  }
  for (const auto& [rule, count] : report.leftOut) {
    text += leftOutText(shownFile, ruleOf(rule), count, hasColour);
  }
  return text;
}

std::string summaryText(const std::string& shownFile, const Report& report) {
  std::string text =
      shownFile + ": " + quantity(static_cast<std::size_t>(report.taskCount), "task");
  for (const Severity severity : {Severity::error, Severity::warning, Severity::note}) {
    const std::size_t count = report.count(severity);
    if (count > 0) text += ", " + quantity(count, nameOf(severity));
  }
  return text + (report.findings.empty() ? ", no findings\n" : "\n");
}

Json findingsJson(const std::string& jobFile, const Report& report) {
  Json findings = Json::array();
  for (const Finding& finding : report.findings) {
    findings.push_back(findingJson(finding, report.taskCount));
  }
  return {{"job", jobFile},
          {"tasks", report.taskCount},
          {"errors", report.count(Severity::error)},
          {"warnings", report.count(Severity::warning)},
          {"notes", report.count(Severity::note)},
          {"leftOut", leftOutJson(report)},
          {"findings", findings}};
}

}  // namespace runlet_tool
