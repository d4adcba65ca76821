#include "job.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace runlet_bench {

void writeJob(const std::string& path, long tasks) {
  std::FILE* file = std::fopen(path.c_str(), "w");
  if (file == nullptr) {
    std::perror(path.c_str());
    std::exit(1);
  }
  std::fprintf(file,
               "<Job>\n  <cmdData>\n    <Arguments>{/bin/true}</Arguments>\n"
               "    <WorkingFolder>/tmp</WorkingFolder>\n    <TaskTimeout>30</TaskTimeout>\n"
               "    <uid>%d</uid>\n    <gid>%d</gid>\n    <umask>18</umask>\n"
               "    <redirectStderr>Yes</redirectStderr>\n    <TaskList>\n",
               static_cast<int>(getuid()), static_cast<int>(getgid()));
  for (long task = 0; task < tasks; ++task) {
    const long first = task * 10 + 1;
    const long last = task * 10 + 10;
    std::fprintf(file, "      <Task><Params>{Frames %ld-%ld&#9;%ld-%ld}</Params></Task>\n", first,
                 last, first, last);
  }
  std::fprintf(
      file,
      "    </TaskList>\n    <JobParams>\n"
      "      <Param><Name>{palette}</Name><Value>{/show/palettes/evening.txt}</Value></Param>\n"
      "      <Param><Name>{samples}</Name><Value>{64}</Value></Param>\n"
      "    </JobParams>\n  </cmdData>\n</Job>\n");
  if (std::fclose(file) != 0) std::exit(1);
}

}  // namespace runlet_bench
