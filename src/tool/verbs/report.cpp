#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "tool/record/store.h"
#include "tool/report/json.h"
#include "tool/report/overview.h"
#include "tool/report/page.h"
#include "tool/report/text.h"
#include "tool/report/trace.h"
#include "tool/system/exit_status.h"
#include "tool/system/output_file.h"
#include "tool/text/characters.h"
#include "tool/text/quoting.h"
#include "tool/text/terminal.h"
#include "tool/verbs.h"

namespace runlet_tool {
namespace {

constexpr char standardOutput[] = "-";

// Enough for the longest of the reports.
constexpr std::size_t mostSlowest = 10;

struct ReportOptions {
  std::string id;
  std::optional<std::string> html;   // the path of a file, or "-"
  std::optional<std::string> trace;  // likewise
  bool inJson = false;
};

// An output, and what it is called on the command line.
struct Output {
  const char* option;
  const std::optional<std::string>* path;
  std::string (*compose)(const Overview& overview);
};

int fail(const std::string& reason) {
  std::fprintf(stderr, "runlet-job: report: %s\n", reason.c_str());
  return exitUnreadable;
}

// Returns why that fails, for a message; empty on success.
std::string findOverview(const std::string& id, Overview* overview) {
  std::string path;
  std::string reason = findRecord(id, &path);
  if (!reason.empty()) return reason;
  reason = readOverview(path, mostSlowest, overview);
  return reason.empty() ? "" : wholeWord(path) + ": " + reason;
}

bool isStandardOutput(const std::optional<std::string>& path) {
  return path == standardOutput;
}

// Returns why the text could not be written; empty on success.
std::string write(const Output& output, const std::string& text) {
  if (isStandardOutput(*output.path)) {
    put(text);
    return "";
  }
  const std::string reason = writeFile(**output.path, text);
  if (reason.empty()) return "";
  return std::string(output.option) + " " + shortShellWord(**output.path) + ": " + reason;
}

int report(const ReportOptions& options) {
  const int toStandardOutput = static_cast<int>(options.inJson) +
                               static_cast<int>(isStandardOutput(options.html)) +
                               static_cast<int>(isStandardOutput(options.trace));
  if (toStandardOutput > 1) return fail("only one report can go to standard output");
  Overview overview;
  const std::string reason = findOverview(options.id, &overview);
  if (!reason.empty()) return fail(reason);
  const Output outputs[] = {{"--html", &options.html, reportPage},
                            {"--trace", &options.trace, traceJson}};
  for (const Output& output : outputs) {
    if (!output.path->has_value()) continue;
    const std::string failure = write(output, output.compose(overview));
    if (!failure.empty()) return fail(failure);
  }
  if (options.inJson) put(reportJson(overview));
  const bool hasFile = options.html || options.trace;
  if (!options.inJson && !hasFile) put(reportText(overview, wantsColour(stdout)));
  return exitFine;
}

}  // namespace

void addReport(CLI::App* app, Action* action) {
  CLI::App* verb = app->add_subcommand("report", "Show what a batch did, from its record");
  const auto options = std::make_shared<ReportOptions>();
  const CLI::Option* id = verb->add_option("id")
                              ->description("Id of the batch, \"last\", or the path of a record")
                              ->required()
                              ->type_name("ID");
  const CLI::Option* html = verb->add_option("--html")
                                ->description("Write a page to FILE; - is standard output")
                                ->type_name("FILE");
  const CLI::Option* trace =
      verb->add_option("--trace")
          ->description("Write a trace for a time line viewer to FILE; - is standard output")
          ->type_name("FILE");
  verb->add_flag("--json", options->inJson, "Write JSON; see docs/records.md");
  // Values are taken unconverted: in typed values, the library would look for lists and comments.
  verb->callback([=] {
    options->id = id->results().front();
    if (*html) options->html = html->results().front();
    if (*trace) options->trace = trace->results().front();
    *action = [=] { return report(*options); };
  });
}

}  // namespace runlet_tool
