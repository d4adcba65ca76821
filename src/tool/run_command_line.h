// The command line of runlet-job.
#pragma once

namespace runlet_tool {

// Reads the command line, does what it asks for and yields the exit status. Writes the help, the
// version or what is wrong with the command line where there is nothing else to do, and a line
// where there is not enough memory.
int runCommandLine(int argc, const char* const* argv);

}  // namespace runlet_tool
