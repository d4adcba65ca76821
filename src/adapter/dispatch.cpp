#include "adapter/dispatch.h"

#include <malloc.h>

#include <cstdio>

#include "adapter/identity.h"
#include "adapter/messages.h"
#include "adapter/task_range.h"
#include "exec/launch.h"
#include "job/parameter_file.h"

namespace runlet {
namespace {

constexpr int adapterVersion = 400;

// The name and description are not escaped: the server takes them literally.
std::int32_t getInfo(AdapterContext* /*context*/) {
  std::printf(adapterInfoFormat, adapterName.c_str(), adapterVersion, adapterDescription.c_str());
  return 0;
}

// For requests that need no action for a command-line job.
std::int32_t succeed(AdapterContext* /*context*/) {
  return 0;
}

std::int32_t newTask(AdapterContext* context) {
  if (!loadParameterFile(context)) return -1;
  // The document has been freed. Without this, every fork would copy the page tables of its memory.
  malloc_trim(0);
  const TaskRange range = requestedTasks(*context);
  // The length is read again for every task, since a launch may change the record.
  for (std::int32_t index = range.first; index < range.end && isTask(*context, index); ++index) {
    if (!launchTask(context, index)) return -1;
  }
  return 0;
}

std::int32_t pingTask(AdapterContext* context) {
  if (!loadParameterFile(context)) return -1;
  if (context->elapsedMs <= timeLimit(context->taskTimeout)) return 0;
  std::fputs(timeOutText, stderr);
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
