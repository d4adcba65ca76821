#include "job_files.h"

#include <map>

#include "job.h"
#include "temp_folder.h"

namespace runlet_bench {

std::string jobOf(long tasks) {
  static const runlet_test::TempFolder folder;
  static std::map<long, std::string> paths;
  std::string& path = paths[tasks];
  if (path.empty()) {
    path = folder.file(std::to_string(tasks) + ".xml");
    writeJob(path, tasks);
  }
  return path;
}

}  // namespace runlet_bench
