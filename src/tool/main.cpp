#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include "tool/system/exit_status.h"
#include "tool/text/characters.h"
#include "tool/verbs.h"

namespace runlet_tool {
namespace {

// Whether the status is one that `exec` reserves for tasks that could not be started. It is kept
// even if output was lost: callers must be able to tell that no task was started.
bool isOfExec(int status) {
  return status >= exitNoTask;
}

// Returns `status`, unless output was lost.
int finish(int status) {
  if (isOfExec(status)) return status;
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return status;
  std::fprintf(stderr, "runlet-job: cannot write to standard output: %s\n", std::strerror(errno));
  return exitUnreadable;
}

// One line about what is wrong with the command line, and one on where to find help.
std::string complaint(const CLI::App* app, const CLI::Error& error) {
  std::string program = app->get_name();
  while (!app->get_subcommands().empty()) {
    app = app->get_subcommands().front();
    program += " " + app->get_name();
  }
  return "runlet-job: " + visible(error.what()) + "\nSee: " + program + " --help\n";
}

// The exit status for a wrong command line.
int refusal(const CLI::App& app) {
  return app.got_subcommand("exec") ? exitNoTask : exitUnreadable;
}

// Whether the first word is an unknown verb.
bool isUnknownVerb(const CLI::App& app, int argc, const char* const* argv) {
  return app.get_subcommands().empty() && argc > 1 && argv[1][0] != '-';
}

int refuse(const CLI::App& app, const CLI::ParseError& error, int argc, const char* const* argv) {
  if (isUnknownVerb(app, argc, argv)) {
    std::fprintf(stderr, "runlet-job: unknown verb: %s\nSee: runlet-job --help\n",
                 visible(argv[1]).c_str());
    return exitUnreadable;
  }
  return app.exit(error) == 0 ? finish(exitFine) : refusal(app);
}

int parseAndRun(int argc, const char* const* argv) {
  CLI::App app("Make, check, preview and run job files", "runlet-job");
  app.set_version_flag("--version", "runlet-job " RUNLET_VERSION);
  app.require_subcommand(1);
  app.failure_message(complaint);
  Action action;
  addExpand(&app, &action);
  addCheck(&app, &action);
  addExplain(&app, &action);
  addMake(&app, &action);
  addSchema(&app, &action);
  addExec(&app, &action);
  addRun(&app, &action);
  addSubmit(&app, &action);
  addReport(&app, &action);
  addRecords(&app, &action);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return refuse(app, error, argc, argv);
  }
  return finish(action());
}

// Reports a lack of memory in one line.
int runVerb(int argc, const char* const* argv) {
  try {
    return parseAndRun(argc, argv);
  } catch (const std::bad_alloc&) {
    std::fputs("runlet-job: out of memory\n", stderr);
    return argc > 1 && std::strcmp(argv[1], "exec") == 0 ? exitNoTask : exitUnreadable;
  }
}

}  // namespace
}  // namespace runlet_tool

// What nothing catches ends the program, with a message of the C++ library.
int main(int argc, char* argv[]) {  // NOLINT(bugprone-exception-escape)
  return runlet_tool::runVerb(argc, argv);
}
