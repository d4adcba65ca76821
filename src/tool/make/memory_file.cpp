#include "tool/make/memory_file.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "tool/make/output_file.h"

namespace runlet_tool {

MemoryFile::MemoryFile(std::string_view text)
    : descriptor_(memfd_create("runlet-job", MFD_CLOEXEC)) {
  const int error = descriptor_ == -1 ? errno : writeAll(descriptor_, text);
  if (error == 0) return;
  if (descriptor_ != -1) close(descriptor_);
  throw std::system_error(error, std::generic_category(), "memfd_create");
}

MemoryFile::~MemoryFile() {
  close(descriptor_);
}

}  // namespace runlet_tool
