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
#include "tool/record/read.h"
#include "tool/record/store.h"
#include "tool/report/overview.h"
#include "tool/system/exit_status.h"
#include "tool/text/characters.h"
#include "tool/text/fields.h"
#include "tool/text/format.h"
#include "tool/text/json.h"
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

  // Otherwise all records of that age are meant.
  bool areNamed() const {
    return !ids.empty();
  }
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

std::string jsonOf(const Overview& overview, const std::string& path) {
  const std::string& job = overview.record.sessions.back().job;
  const bool inBytes = !isUtf8(job) || !isUtf8(path);
  const JsonStrings string(inBytes);
  Json row;
  row["id"] = overview.record.id;
  row["begin"] = overview.record.sessions.front().begin;
  row["state"] = stateKey(overview.state);
  row["tasks"] = overview.tasks.size();
  row["succeeded"] = overview.tasksWith(Standing::succeeded).count();
  row["job"] = string(job);
  row["path"] = string(path);
  row["bytes"] = inBytes;
  return asciiText(row) + "\n";
}

int list(bool inJson) {
  std::string folder;
  const std::string complaint = findStateFolder(&folder);
  if (!complaint.empty()) return complain("no folder for records: " + complaint);
  int status = exitFine;
  for (const std::string& id : recordIds(folder)) {
    Overview overview;
    const std::string path = recordPath(folder, id);
    std::string reason = readOverview(path, 0, &overview);
    if (reason.empty()) reason = overview.record.distrust;
    if (reason.empty()) {
      put(inJson ? jsonOf(overview, path) : lineOf(overview));
    } else {
      status = complainAbout(id, reason);
    }
  }
  return status;
}

// A record in the state folder, as far as it can be read.
struct StoredRecord {
  Overview overview;
  std::string damage;  // why it cannot be read; empty if it can
};

// Why the batch must stay, since it or a task of it is running here; empty if it need not.
std::string reasonToStay(const Overview& overview) {
  const std::vector<Attempt>& attempts = overview.record.attempts;
  const bool isAlive = std::any_of(attempts.begin(), attempts.end(),
                                   [](const Attempt& attempt) { return attempt.isAlive; });
  const bool isRunning = overview.state == BatchState::running &&
                         isRunningHere(overview.record.sessions.back().process);
  return isAlive || isRunning ? stateText(overview) : "";
}

// When it began, or was last resumed; only its name is believed if it is not trusted.
RecordTime beginOf(const std::string& id, const StoredRecord& stored, const std::string& distrust) {
  const bool isKnown = stored.damage.empty() && distrust.empty();
  return isKnown ? stored.overview.record.sessions.back().begin : timeOfId(id);
}

// Whether the record may be removed, as far as it can be seen without its claims. If not, `*reason`
// is for a message; it is empty if the record is too young, or, unless it is named, running: that
// is no error.
bool isToRemove(const std::string& id, const std::string& path, const PruneOptions& options,
                StoredRecord* stored, std::string* reason) {
  *stored = {};
  stored->damage = readOverview(path, 0, &stored->overview);
  const Overview& overview = stored->overview;
  const bool isSound = stored->damage.empty();
  const std::string distrust = isSound ? overview.record.distrust : distrustOfFile(path);
  const bool isYoung =
      options.days && presentTime() - beginOf(id, *stored, distrust) < *options.days * secondsADay;
  *reason = isYoung && !options.areNamed() ? "" : distrust;
  if (isYoung || !reason->empty()) return false;
  // What it ran is not known, so the logs would stay: only somebody who names it wants that.
  if (!isSound && !options.areNamed()) *reason = stored->damage;
  const std::string running = isSound ? reasonToStay(overview) : "";
  if (options.areNamed()) *reason = running;
  return reason->empty() && running.empty();
}

// "removed LINE", or of a record that cannot be read, "removed ID, but no logs: REASON".
std::string removalText(const char* what, const std::string& id, const StoredRecord& stored) {
  if (stored.damage.empty()) return what + lineOf(stored.overview);
  return what + id + ", but no logs: " + stored.damage + "\n";
}

// Returns why the record, or else its logs, could not be removed; empty on success.
std::string removeStored(const std::string& id, const std::string& path,
                         const StoredRecord& stored) {
  // Without a record there are no logs to remove.
  std::string remaining;
  std::string failure =
      removeBatch(stored.damage.empty() ? stored.overview.record : Record(), path, &remaining);
  if (failure.empty() && !remaining.empty()) complainAbout(id, remaining);
  return failure;
}

// Removes a batch, or says what would be removed. Returns why that fails; empty on success.
std::string pruneOne(const std::string& id, const std::string& folder,
                     const PruneOptions& options) {
  const std::string path = recordPath(folder, id);
  StoredRecord stored;
  std::string reason;
  if (!isToRemove(id, path, options, &stored, &reason)) return reason;
  // A claim counts whether the record can be read or not, and wherever its process is. Nobody may
  // resume the batch while it is removed.
  const std::string what = stored.damage.empty() ? stored.overview.record.id : id;
  std::unique_ptr<Claim> claim;
  if (!options.isDry) claim = std::make_unique<Claim>(folder, what, path);
  // On a full disk there must be a way to remove something.
  const bool isClaimed = claim != nullptr && !claim->isDiskFull();
  std::string claimed = isClaimed ? claim->complaint() : complaintAboutClaims(folder, what);
  const bool isRunning = !isClaimed || claim->isTaken();
  if (!claimed.empty()) return isRunning && !options.areNamed() ? "" : claimed;
  // Until it was claimed, another process may have continued or removed it.
  if (!isToRemove(id, path, options, &stored, &reason)) return reason;
  std::string failure = options.isDry ? "" : removeStored(id, path, stored);
  if (!failure.empty()) return failure;
  if (!options.isDry) removeAbandonedClaims(folder, what);
  put(removalText(options.isDry ? "would remove " : "removed ", id, stored));
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
  const auto inJson = std::make_shared<bool>(false);
  lister->add_flag("--json", *inJson, "Print JSON, one object a line");
  lister->callback([=] { *action = [=] { return list(*inJson); }; });

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
