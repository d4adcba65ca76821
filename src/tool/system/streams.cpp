#include "tool/system/streams.h"

#include <fcntl.h>
#include <unistd.h>

namespace runlet_tool {

void openStreams() {
  int opened = 0;
  while (opened >= 0 && opened <= STDERR_FILENO) opened = open("/dev/null", O_RDWR);
  close(opened);
}

}  // namespace runlet_tool
