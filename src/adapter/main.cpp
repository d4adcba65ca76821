#include <cstdio>

#include "adapter/command_line.h"
#include "adapter/context.h"
#include "adapter/dispatch.h"
#include "adapter/identity.h"
#include "adapter/messages.h"

// The result -1 of any failure becomes the exit status 255, which is what the farm server knows.
int main(int argc, char* argv[]) {
  runlet::setIdentity(argc > 0 ? argv[0] : "");
  runlet::AdapterContext context;
  if (runlet::parseArguments(&context, argc, argv) != 0) {
    std::fputs(runlet::notParsedText, stderr);
    return -1;
  }
  return runlet::dispatchOpcode(&context);
}
