#include <CLI/CLI.hpp>
#include <cstdint>
#include <memory>
#include <string>

#include "tool/batch/become_task.h"
#include "tool/system/files.h"
#include "tool/verbs.h"
#include "tool/verbs/options.h"

namespace runlet_tool {
namespace {

struct ExecOptions {
  std::string job;
  std::int32_t task = 0;
  std::string appPath;
  KeptVariables kept;
};

int exec(const ExecOptions& options) {
  runlet::AdapterContext context;
  context.jobFile = fullPath(currentFolder(), options.job);
  context.appPath = options.appPath;
  return becomeTask(&context, options.task, options.kept);
}

}  // namespace

void addExec(CLI::App* app, Action* action) {
  CLI::App* verb = app->add_subcommand("exec", "Replace this process with one task of a job");
  const auto options = std::make_shared<ExecOptions>();
  verb->add_option("job", options->job, "Job file")->required()->type_name("JOB");
  verb->add_option("--task", options->task, "Task number, from 1")
      ->required()
      ->transform(inDecimal)
      ->type_name("N");
  addApplication(verb, &options->appPath);
  addKeptVariables(verb, "Variable to keep for tasks of another user; repeatable", &options->kept);
  verb->callback([=] { *action = [=] { return exec(*options); }; });
}

}  // namespace runlet_tool
