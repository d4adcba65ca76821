#include "load.h"

#include <tinyxml.h>

#include <cstdlib>

#include "job/parameter_file.h"

namespace runlet_bench {

void loadByAdapter(const std::string& path) {
  runlet::AdapterContext context;
  context.jobFile = path;
  if (!runlet::loadParameterFile(&context)) std::exit(1);
}

void loadByLibrary(const std::string& path) {
  TiXmlDocument document(path.c_str());
  if (!document.LoadFile(TIXML_ENCODING_UTF8)) std::exit(1);
}

void loadByLibraryWithoutColumns(const std::string& path) {
  TiXmlDocument document(path.c_str());
  document.SetTabSize(0);
  if (!document.LoadFile(TIXML_ENCODING_UTF8)) std::exit(1);
}

}  // namespace runlet_bench
