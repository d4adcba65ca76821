#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "tool/check/report.h"
#include "tool/make/complaint.h"
#include "tool/make/options.h"
#include "tool/make/writer.h"
#include "tool/system/exit_status.h"
#include "tool/system/output_file.h"
#include "tool/text/quoting.h"
#include "tool/text/terminal.h"
#include "tool/verbs.h"

namespace runlet_tool {
namespace {

struct OptionRow {
  const char* name;
  std::optional<std::string> MakeOptions::*value;
  const char* type;
  const char* help;
};

constexpr OptionRow optionRows[] = {
    {"-o", &MakeOptions::output, "FILE", "Write to FILE atomically instead of standard output"},
    {"--frames", &MakeOptions::frames, "LIST", "One task per frame, as in 1-100x2,150"},
    {"--chunk", &MakeOptions::chunk, "N", "Up to N frames of a range per task"},
    {"--tasks", &MakeOptions::tasks, "FILE", "One task per line of FILE, fields separated by TABs"},
    {"--folder", &MakeOptions::folder, "DIR", "Folder to run the tasks in"},
    {"--logs", &MakeOptions::logs, "DIR", "Log folder, recorded in the job"},
    {"--outputs", &MakeOptions::outputs, "PATH", "Where the results go, recorded in the job"},
    {"--timeout", &MakeOptions::timeout, "MINUTES", "Time limit per task (default: 35791)"},
    {"--user", &MakeOptions::user, "NAME", "User to run as (default: you)"},
    {"--group", &MakeOptions::group, "NAME", "Group to run as (default: yours)"},
    {"--umask", &MakeOptions::umask, "OCTAL", "Mask for new files (default: 022)"},
    {"--stderr", &MakeOptions::standardError, "join|keep",
     "Join standard error to standard output (default), or keep it"},
};

// Values are taken unconverted: in typed values, the library would look for lists and comments.
using Options = std::vector<CLI::Option*>;

Options addRows(CLI::App* verb) {
  Options added;
  for (const OptionRow& row : optionRows) {
    added.push_back(verb->add_option(row.name)->description(row.help)->type_name(row.type));
  }
  return added;
}

CLI::Option* addParam(CLI::App* verb) {
  return verb->add_option("--param")
      ->description("Parameter of the job; repeatable")
      ->type_name("NAME=VALUE")
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

// To the library, the first word is an option and the others are leftovers. An option with several
// words would treat "[a,b]" as a list.
CLI::Option* addCommand(CLI::App* verb) {
  verb->allow_extras();
  return verb->add_option("COMMAND")
      ->description("After \"--\": its words, or its whole template as one word")
      ->required();
}

// All words of the command. Leftovers before the "--" do not belong to it.
std::vector<std::string> commandOf(const CLI::App& verb, const CLI::Option& first) {
  std::vector<std::string> words = verb.remaining();
  const auto mark = std::find(words.begin(), words.end(), "--");
  if (mark != words.begin()) {
    // The library lists them from last to first.
    throw CLI::ExtrasError(verb.get_name(), {std::make_reverse_iterator(mark), words.rend()});
  }
  if (!words.empty()) words.erase(mark);
  words.insert(words.begin(), first.results().front());
  return words;
}

int failWith(const Complaint& complaint) {
  std::fprintf(stderr, "runlet-job: make: %s\n", complaint.text.c_str());
  return complaint.status;
}

int writeJob(const std::optional<std::string>& path, const std::string& text) {
  if (!path) put(text);
  const std::string reason = path ? writeFile(*path, text) : "";
  if (reason.empty()) return exitFine;
  return failWith({exitUnreadable, "-o " + shortShellWord(*path) + ": " + reason});
}

int make(const MakeOptions& options) {
  const std::string name = options.output ? shortShellWord(*options.output) : "standard output";
  MadeJob made;
  Complaint complaint;
  if (!makeJob(options, name, &made, &complaint)) return failWith(complaint);
  const std::string findings = findingsText(name, made.report, wantsColour(stderr));
  std::fputs(findings.c_str(), stderr);
  return writeJob(options.output, made.text);
}

}  // namespace

void addMake(CLI::App* app, Action* action) {
  CLI::App* verb = app->add_subcommand("make", "Write a job file for a command");
  const Options rows = addRows(verb);
  const CLI::Option* params = addParam(verb);
  const CLI::Option* command = addCommand(verb);
  verb->get_option("--chunk")->needs("--frames");
  verb->get_option("--tasks")->excludes("--frames");
  // Right after the verb's own arguments, so that errors in them are reported first.
  verb->parse_complete_callback([=] {
    MakeOptions options;
    for (std::size_t i = 0; i < rows.size(); ++i) {
      if (*rows[i]) options.*optionRows[i].value = rows[i]->results().front();
    }
    options.params = params->results();
    options.command = commandOf(*verb, *command);
    *action = [=] { return make(options); };
  });
}

}  // namespace runlet_tool
