// The only test file compiled with paths, so that all others are the same in every build folder.
#include "programs.h"

namespace runlet_test {

const std::string adapterPath = RUNLET_ADAPTER;
const std::string plainAdapterPath = RUNLET_PLAIN_ADAPTER;
const std::string toolPath = RUNLET_JOB;
const std::string probePath = RUNLET_PROBE;
const std::string recorderPath = RUNLET_RECORDER;
const std::string argumentWriterPath = RUNLET_ARGUMENT_WRITER;
const std::string faultsPath = RUNLET_FAULTS;
const std::string spyPath = RUNLET_SPY;
const char* const sourceFolder = RUNLET_SOURCES;

}  // namespace runlet_test
