#include "exec/set_up.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "adapter/messages.h"

namespace runlet {

bool enterFolder(const std::string& folder) {
  if (chdir(folder.c_str()) == 0) return true;
  std::fprintf(stderr, folderRefusedFormat, getMessage(workingFolderMessage), folder.c_str(),
               std::strerror(errno));
  return false;
}

void makeExecutable(const std::string& program) {
  if (program.empty()) return;
  // To the shell as it stands: application paths in use may count on what the shell makes of them.
  const std::string command = "/bin/chmod 755 " + program;
  [[maybe_unused]] const int ignored = std::system(command.c_str());  // NOLINT(cert-env33-c)
}

}  // namespace runlet
