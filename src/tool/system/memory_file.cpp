#include "tool/system/memory_file.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>

#include "tool/make/output_file.h"

namespace runlet_tool {

MemoryFile::MemoryFile(std::string_view text)
    : descriptor_(memfd_create("runlet-job", MFD_CLOEXEC)),
      error_(descriptor_ == -1 ? errno : writeAll(descriptor_, text)) {}

MemoryFile::~MemoryFile() {
  if (descriptor_ != -1) close(descriptor_);
}

}  // namespace runlet_tool
