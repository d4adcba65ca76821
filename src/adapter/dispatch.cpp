#include "adapter/dispatch.h"

#include <cstdio>

#include "adapter/identity.h"
#include "adapter/task_range.h"
#include "adapter/time_limit.h"
#include "exec/launch.h"
#include "job/parameter_file.h"

namespace runlet {
namespace {

constexpr int adapterVersion = 400;

// The name and description are not escaped: the server takes them as they stand.
std::int32_t getInfo(AdapterContext* /*context*/) {
  std::printf(
      "<AdapterInfo>\n\t<Name>%s</Name>\n\t<Version>%d</Version>\n"
      "\t<Description>%s</Description>\n</AdapterInfo>\n",
      adapterName.c_str(), adapterVersion, adapterDescription.c_str());
  return 0;
}

// The requests that a command-line job has nothing to do for.
std::int32_t succeed(AdapterContext* /*context*/) {
  return 0;
}

std::int32_t newTask(AdapterContext* context) {
  if (!loadParameterFile(context)) return -1;
  const TaskRange range = requestedTasks(*context);
  // The list is looked at anew for every task: a launch has the record in its hands.
  for (std::int32_t index = range.first; index < range.end && isTask(*context, index); ++index) {
    if (!launchTask(context, index)) return -1;
  }
  return 0;
}

std::int32_t pingTask(AdapterContext* context) {
  if (!loadParameterFile(context)) return -1;
  if (context->elapsedMs <= timeLimit(context->taskTimeout)) return 0;
  std::fprintf(stderr, "Runlet adapter: Ping task time out.\n");
  return -1;
}

struct Request {
  const char* opcode;
  std::int32_t (*carryOut)(AdapterContext* context);
};

constexpr Request requests[] = {
    {"GetInfo", getInfo}, {"EvaluateJob", succeed}, {"LaunchApp", succeed}, {"PingLaunch", succeed},
    {"NewTask", newTask}, {"PingTask", pingTask},   {"ShutDown", succeed},
};

}  // namespace

std::int32_t dispatchOpcode(AdapterContext* context) {
  for (const Request& request : requests) {
    if (context->opcode == request.opcode) return request.carryOut(context);
  }
  return -1;
}

}  // namespace runlet
