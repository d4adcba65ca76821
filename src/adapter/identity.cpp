#include "adapter/identity.h"

#include <libgen.h>

namespace runlet {

std::string adapterName = "Command Line Tool";
std::string adapterDescription;

void setIdentity(const char* programPath) {
  std::string path = programPath;  // basename may write into what it is given
  std::string baseName = basename(path.data());
  // Only the standard executable answers with the generic name. A copy installed under another
  // file name reports that name: this is how the farm tells such copies apart.
  if (baseName != "UserRunletAdapter") adapterName.swap(baseName);
  // The year is fixed: the server knows the adapter by it, whenever it was built.
  adapterDescription = adapterName + " v2023 with user rights";
}

}  // namespace runlet
