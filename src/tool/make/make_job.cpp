#include "tool/make/make_job.h"

#include "adapter/context.h"
#include "tool/make/command_words.h"
#include "tool/make/job_text.h"
#include "tool/make/memory_file.h"
#include "tool/make/self_check.h"

namespace runlet_tool {

bool makeJob(const MakeOptions& options, std::string* text, Complaint* complaint) {
  runlet::AdapterContext job;
  if (!readJobOptions(options, &job, complaint)) return false;
  const std::string plain = job.arguments;
  if (options.command.size() > 1) {
    const CommandWords words(options.command, job);
    std::string quoted;
    if (!words.quote(&quoted, complaint)) return false;
    job.arguments = quoted;
  }
  *text = jobText(job);
  job.arguments = plain;
  const MemoryFile file(*text);
  return arrivesAsMeant(file.path(), job, options.command, complaint);
}

}  // namespace runlet_tool
