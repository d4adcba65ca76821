// The model of a whole request: from the command line, the job file and the machine to all
// externally visible effects of the adapter and its children.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "machine.h"

namespace runlet_model {

struct Request {
  std::vector<std::string> arguments;  // the program's own name first
  std::string folder;                  // in which the adapter is started
  Identity caller;
  std::string scratchFile;  // for the model's own use
};

// A child that became the recorder.
struct Child {
  std::vector<std::string> arguments;
  std::string folder;
  unsigned mask;
  Identity identity;
  bool joined;  // whether its standard error goes to its standard output
};

// What a task adds to standard output. The adapter's text may come before any of the child's or
// after them all; otherwise the order is fixed.
struct TaskOutput {
  std::string ofAdapter;  // with "PID" for the id of the child
  std::vector<std::string> ofChild;
};

struct Prediction {
  std::vector<TaskOutput> output;
  std::string error;
  std::string status;  // "exit 0", "signal 6"
  std::vector<Child> children;
  std::set<std::string> marks;  // names of the events that happened
};

// Predicts the effects of the request. Changes the modes of the machine's files as the request
// does.
Prediction predict(const Request& request, Machine* machine);

}  // namespace runlet_model
