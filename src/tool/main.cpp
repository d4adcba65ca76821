#include "tool/run_command_line.h"

int main(int argc, char* argv[]) {
  return runlet_tool::runCommandLine(argc, argv);
}
