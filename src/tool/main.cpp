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

// Whether the status is one of those that `exec` ends with. Who starts a task tells them from the
// task's own.
bool isOfExec(int status) {
  return status >= exitNoTask;
}

// `status`, unless some of the output was lost.
int finish(int status) {
  if (isOfExec(status)) return status;
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return status;
  std::fprintf(stderr, "runlet-job: cannot write to standard output: %s\n", std::strerror(errno));
  return exitUnreadable;
}

// What is wrong with the command line, in one line, and where to read on.
std::string complaint(const CLI::App* app, const CLI::Error& error) {
  std::string text = "runlet-job: ";
  return text.append(visible(error.what())) + "\nSee: " + app->get_name() + " --help\n";
}

// What a wrong command line ends with.
int refusal(const CLI::App& app) {
  return app.got_subcommand("exec") ? exitNoTask : exitUnreadable;
}

// Whether the first word is meant to be a verb and is none.
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

int readAndDo(int argc, const char* const* argv) {
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
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return refuse(app, error, argc, argv);
  }
  return finish(action());
}

// Ends with a line where there is not enough memory.
int runVerb(int argc, const char* const* argv) {
  try {
    return readAndDo(argc, argv);
  } catch (const std::bad_alloc&) {
    std::fputs("runlet-job: out of memory\n", stderr);
    return argc > 1 && std::strcmp(argv[1], "exec") == 0 ? exitNoTask : exitUnreadable;
  }
}

}  // namespace
}  // namespace runlet_tool

int main(int argc, char* argv[]) {
  return runlet_tool::runVerb(argc, argv);
}
