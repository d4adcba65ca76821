#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tool/batch/prune.h"
#include "tool/record/store.h"
#include "tool/report/overview.h"
#include "tool/system/exit_status.h"
#include "tool/text/characters.h"
#include "tool/text/fields.h"
#include "tool/text/format.h"
#include "tool/text/quoting.h"
#include "tool/text/terminal.h"
#include "tool/text/units.h"
#include "tool/verbs.h"

namespace runlet_tool {
namespace {

constexpr double secondsADay = 86400;

struct PruneOptions {
  std::vector<std::string> ids;
  std::optional<int> days;
  bool isDry = false;
};

int complain(const std::string& reason) {
  std::fprintf(stderr, "runlet-job: records: %s\n", reason.c_str());
  return exitUnreadable;
}

int complainAbout(const std::string& id, const std::string& reason) {
  return complain(visible(id).append(": ").append(reason));
}

// "20261122-211530-3f2a  2026-11-22 21:15:30  finished: 4 tasks, 3 succeeded  /jobs/shot.xml"
std::string lineOf(const Overview& overview) {
  const Session& last = overview.record.sessions.back();
  std::string line = overview.record.id + "  " + timeText(overview.record.sessions.front().begin);
  line.append("  ").append(stateText(overview)).append(": ");
  line.append(quantity(overview.tasks.size(), "task")).append(", ");
  line.append(std::to_string(overview.tasksWith(Standing::succeeded).count())).append(" succeeded");
  return line.append("  ").append(visible(last.job)).append("\n");
}

int list() {
  std::string folder;
  const std::string complaint = findStateFolder(&folder);
  if (!complaint.empty()) return complain("no folder for records: " + complaint);
  int status = exitFine;
  for (const std::string& id : recordIds(folder)) {
    Overview overview;
    std::string reason = readOverview(recordPath(folder, id), 0, &overview);
    if (reason.empty()) reason = overview.record.distrust;
    if (reason.empty()) {
      put(lineOf(overview));
    } else {
      status = complainAbout(id, reason);
    }
  }
  return status;
}

// Why the batch must stay, since it or a task of it may be running; empty if it need not.
std::string reasonToStay(const std::string& folder, const Overview& overview) {
  const Record& record = overview.record;
  const bool isAlive = std::any_of(record.attempts.begin(), record.attempts.end(),
                                   [](const Attempt& attempt) { return attempt.isAlive; });
  // If its process may be running elsewhere, the caller may have removed its claim to say it is
  // not.
  const bool isRunning =
      overview.state == BatchState::running &&
      (isRunningHere(record.sessions.back().process) || isClaimed(folder, record.id));
  return isAlive || isRunning ? stateText(overview) : "";
}

// Removes a batch, or says what would be removed. Returns why that fails; empty on success.
std::string pruneOne(const std::string& id, const std::string& folder,
                     const PruneOptions& options) {
  const std::string path = recordPath(folder, id);
  Overview overview;
  std::string reason = readOverview(path, 0, &overview);
  const bool isUnreadable = !reason.empty() && !options.ids.empty() && !options.isDry;
  if (isUnreadable && unlink(path.c_str()) == 0) {
    put("removed " + id + ", but no logs: " + reason + "\n");
    return "";
  }
  if (reason.empty()) reason = overview.record.distrust;
  if (reason.empty()) reason = reasonToStay(folder, overview);
  if (!reason.empty()) return reason;
  const double age = overview.now - overview.record.sessions.back().begin;
  if (options.days && age < *options.days * secondsADay) return "";
  if (!options.isDry) {
    std::string remaining;
    std::string failure = removeBatch(overview.record, path, &remaining);
    if (!failure.empty()) return failure;
    if (!remaining.empty()) complainAbout(id, remaining);
  }
  put((options.isDry ? "would remove " : "removed ") + lineOf(overview));
  return "";
}

int prune(const PruneOptions& options) {
  if (options.ids.empty() && !options.days)
    return complain("prune: name records, or give --older-than");
  std::string folder;
  const std::string complaint = findStateFolder(&folder);
  if (!complaint.empty()) return complain("no folder for records: " + complaint);
  int status = exitFine;
  for (const std::string& id : options.ids.empty() ? recordIds(folder) : options.ids) {
    // Not by path: a record that somebody else wrote could name any file as a log.
    const std::string reason =
        isRecordId(id) ? pruneOne(id, folder, options) : "not the id of a record";
    if (!reason.empty()) status = complainAbout(id, reason);
  }
  return status;
}

// The number of a text such as "30d"; none if it is not one.
std::optional<int> daysOf(std::string_view text) {
  if (!text.ends_with('d')) return std::nullopt;
  text.remove_suffix(1);
  return parseNumber<int>(text);
}

}  // namespace

void addRecords(CLI::App* app, Action* action) {
  CLI::App* verb = app->add_subcommand("records", "List or remove the records of batches");
  verb->require_subcommand(1);
  CLI::App* lister = verb->add_subcommand("list", "List all records, oldest first");
  lister->callback([=] { *action = list; });

  CLI::App* pruner = verb->add_subcommand("prune", "Remove records, and the logs of their tasks");
  const auto options = std::make_shared<PruneOptions>();
  pruner->add_option("id", options->ids, "Ids of batches")->type_name("ID");
  const CLI::Option* age =
      pruner->add_option("--older-than")
          ->description("Only those that began that many days ago or earlier, such as 30d")
          ->type_name("DAYS")
          ->check([](const std::string& text) {
            return daysOf(text) ? "" : "not a number of days such as 30d: " + visible(text);
          });
  pruner->add_flag("--dry-run", options->isDry, "Only show what would be removed");
  pruner->callback([=] {
    if (*age) options->days = daysOf(age->results().front());
    *action = [=] { return prune(*options); };
  });
}

}  // namespace runlet_tool
